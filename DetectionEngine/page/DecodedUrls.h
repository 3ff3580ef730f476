// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

/// Adds to the count of a key.
inline void AddTo(Tally& tally, std::u16string_view key, std::int32_t count = 1) {
  const auto at = tally.lower_bound(key);
  if (at != tally.end() && at->first == key) {
    at->second += count;
  } else {
    tally.emplace_hint(at, key, count);
  }
}

/// Where the URLs of a page lead. Pages name the same URL many times; each is decoded once.
class DecodedUrls {
 public:
  struct Site {
    std::u16string host;
    std::u16string path;
  };

  /// Null when the URL can't be decoded. Lives as long as this object.
  const Site* Decode(std::u16string_view url) {
    auto at = sites_.lower_bound(url);
    if (at == sites_.end() || at->first != url) {
      UrlParser parser;
      std::optional<Site> site;
      if (parser.DecodeUrl(url) == 0) {
        UrlRecord record = parser.TakeRecord();
        site = Site{std::move(record.HostName), std::move(record.UrlPath)};
      }
      at = sites_.emplace_hint(at, url, std::move(site));
    }
    return at->second ? &*at->second : nullptr;
  }

 private:
  std::map<std::u16string, std::optional<Site>, std::less<>> sites_;
};

}  // namespace zeph
