// SPDX-License-Identifier: Apache-2.0
// What the URLs of a page come to. A page names few hosts in many URLs, and many URLs more than once.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/text/DistinctTexts.h"

namespace zeph {

/// The hosts of http and https URLs. Whether such a URL decodes, and to which host, hangs on its length and on what
/// stands between the slashes alone: that is decoded once. Texts must stay where they are.
class UrlHosts {
 public:
  /// What a host takes, at the most, beside its text.
  static constexpr std::size_t kBytes = DistinctTexts::kBytes + 48;

  struct Host {
    std::u16string_view name;
    bool decodes = false;
    std::int32_t count = 0;  ///< for the caller's use
  };

  /// Names that aren't as they stand in the URL are kept in texts.
  explicit UrlHosts(TextArena& texts) noexcept : texts_(texts) {}

  /// The host of a URL for which IsHttpUrl holds; null when it can't be decoded. Lives until the next call.
  Host* HostOf(std::u16string_view url);
  [[nodiscard]] std::size_t Size() const noexcept { return hosts_.size(); }
  /// The hosts with a count.
  [[nodiscard]] Tally Counts() const;

 private:
  TextArena& texts_;
  DistinctTexts authorities_;
  std::vector<Host> hosts_;  ///< by the number of their authority
};

/// URLs of one list of the page, in order, of which each distinct one is looked at once.
class UrlList {
 public:
  /// Texts that aren't as they come are kept in texts.
  UrlList(KeptTexts& kept, TextArena& texts) noexcept : kept_(kept), texts_(texts), hosts_(texts) {}

  /// A URL of which nothing but the list is kept costs this much beside its length, which stands for looking at it.
  void Add(std::u16string_view url) {
    kept_.Take(kBytes + url.size());
    const std::uint32_t before = distinct_.Size();
    order_.push_back(distinct_.Add(url));
    if (distinct_.Size() != before) kept_.Take(DistinctTexts::kBytes + kBytesOfDistinct);
  }

  [[nodiscard]] const DistinctTexts& Distinct() const noexcept { return distinct_; }
  /// Numbers of distinct texts.
  [[nodiscard]] const std::vector<std::uint32_t>& Order() const noexcept { return order_; }

  /// The host of a URL that came so often, which is counted; null when it can't be decoded.
  const UrlHosts::Host* CountHost(std::u16string_view url, std::int32_t count) {
    const std::size_t before = hosts_.Size();
    UrlHosts::Host* const host = hosts_.HostOf(url);
    if (hosts_.Size() != before) kept_.Take(UrlHosts::kBytes + (host == nullptr ? 0 : 2 * host->name.size()));
    if (host != nullptr) host->count += count;
    return host;
  }
  [[nodiscard]] Tally HostCounts() const { return hosts_.Counts(); }

  /// A text that is derived from one in the list: that one, or a part of it, when it is the same.
  std::u16string_view Keep(std::u16string& derived, std::u16string_view from) {
    const std::size_t at = from.find(derived);
    if (at != std::u16string_view::npos) return from.substr(at, derived.size());
    kept_.Take(2 * derived.size());
    return texts_.Keep(derived);
  }

 private:
  /// A number, and views in the two lists that show it.
  static constexpr std::size_t kBytes = 40;
  /// What it comes to, and an entry of a tally.
  static constexpr std::size_t kBytesOfDistinct = 96;

  KeptTexts& kept_;
  TextArena& texts_;
  DistinctTexts distinct_;
  std::vector<std::uint32_t> order_;
  UrlHosts hosts_;
};

/// Where sorted URLs go.
struct UrlLists {
  Texts& urls;       ///< all of them
  Texts& validUrls;  ///< http and https URLs that decode; urlTally and hostTally count them
  Tally& urlTally;
  Tally& hostTally;
  Texts& invalidUrls;  ///< http and https URLs that don't decode
  Texts& otherUrls;
  Tally& otherTally;
};

/// Sorts a list, whose URLs are made lower case before anything is done with them if that is wanted.
void SortUrls(UrlList& list, bool makeLower, const UrlLists& sorted);

}  // namespace zeph
