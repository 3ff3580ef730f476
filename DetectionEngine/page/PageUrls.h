// SPDX-License-Identifier: Apache-2.0
// What the URLs of a page come to. A page names few hosts in many URLs, and many URLs more than once.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// Adds to the count of a key and gives it. Lives as long as the tally.
std::int32_t& AddTo(Tally& tally, std::u16string_view key, std::int32_t count = 1);

/// The hosts of http and https URLs. Whether such a URL decodes, and to which host, hangs on its length and on what
/// stands between the slashes alone: that is decoded once.
class UrlHosts {
 public:
  struct Host {
    std::u16string name;
    std::int32_t* count = nullptr;  ///< for the caller's use
  };

  /// The host of a URL for which IsHttpUrl holds; null when it can't be decoded. Lives as long as this object.
  Host* HostOf(std::u16string_view url);

 private:
  std::map<std::u16string, std::optional<Host>, UnitOrder> hosts_;
};

/// Sorts http and https URLs into those that decode, which are counted by URL and by host, and those that don't.
class UrlSorter {
 public:
  UrlSorter(std::vector<std::u16string>& validUrls, Tally& urlTally, Tally& hostTally,
            std::vector<std::u16string>& invalidUrls)
      : validUrls_(validUrls), urlTally_(urlTally), hostTally_(hostTally), invalidUrls_(invalidUrls) {}

  void Add(const std::u16string& url);

 private:
  UrlHosts hosts_;
  std::vector<std::u16string>& validUrls_;
  Tally& urlTally_;
  Tally& hostTally_;
  std::vector<std::u16string>& invalidUrls_;
};

}  // namespace zeph
