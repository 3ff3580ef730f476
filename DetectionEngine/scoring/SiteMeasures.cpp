// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/SiteMeasures.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>

#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/configuration/NamedLists.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/text/TextHash.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// What a text matched, lent by the configuration; nothing when it matched nothing.
using Match = std::optional<std::u16string_view>;

bool MatchesBlocked(const UrlRecord& url, const NetLocation& entry) {
  switch (entry.Type) {
    case kDomain:
      return HostMatchesDomain(url.HostName, entry.Name);
    case kUrl:
      return url.NormalizedUrl == entry.Name;
    case kHostname:
      return WildcardMatch(url.HostName, entry.Name);
    default:
      return false;
  }
}

/// The list of hosts that a number names, or null.
const NetLocationList* HostList(std::int32_t number, const Configuration& configuration) {
  const NamedList* const list = FindNamedList(number);
  if (list == nullptr || list->sites == nullptr || number == kBlockListNumber) return nullptr;
  return &(configuration.*list->sites);
}

Match FindInItems(std::u16string_view host, const ExpressionValue& value) {
  for (const std::u16string& item : value.GetItems()) {
    if (HostMatchesDomain(host, item)) return item;
  }
  return std::nullopt;
}

Match FindInList(std::u16string_view host, const NetLocationList& list) {
  const NetLocationMatch match = FindInNetLocations(host, list);
  return match ? Match(match.name) : std::nullopt;
}

Match FindInBlockList(const UrlRecord& url, const Configuration& configuration) {
  for (const NetLocation& entry : configuration.BlockList.Entries) {
    if (!MatchesBlocked(url, entry)) continue;
    const auto trusted = configuration.BlockedToTrusted.find(entry.Name);
    return trusted == configuration.BlockedToTrusted.end() ? std::u16string_view() : trusted->second;
  }
  return std::nullopt;
}

}  // namespace

IndicatorResult SiteListMembership(std::span<const std::u16string_view> texts, const ExpressionValue& value,
                                   const Configuration& configuration, const UrlRecord& pageUrl) {
  const bool isItems = value.ValueType == kValueText;
  const bool isSiteList = value.ValueType == kValueSiteList;
  const bool isBlockList = isSiteList && value.prepared.number == kBlockListNumber;
  const NetLocationList* const list = isSiteList ? HostList(value.prepared.number, configuration) : nullptr;
  const auto find = [&](std::u16string_view text) -> Match {
    if (isItems) return FindInItems(text, value);
    if (list != nullptr) return FindInList(text, *list);
    if (!isBlockList) return std::nullopt;
    if (TextHash::Same(text, pageUrl.RawUrl)) return FindInBlockList(pageUrl, configuration);  // most often, and decoded already
    UrlParser parser;
    parser.DecodeUrl(text);
    return FindInBlockList(parser.Record(), configuration);
  };
  IndicatorResult result;
  for (const std::u16string_view text : texts) {
    const Match match = find(text);
    if (!match) continue;
    result.on = true;
    result.fieldText.Lend(text);
    result.matchText.Lend(*match);
    break;
  }
  return result;
}

IndicatorResult OwnHostLinks(const LinkData& links, const UrlRecord& url, const ExpressionValue& value) {
  IndicatorResult result;
  const std::size_t valid = links.validUrls.size();
  const std::size_t unique = links.urlTally.size();
  if (valid > 0 && unique > 0) {
    const float variety = static_cast<float>(unique) / static_cast<float>(valid);
    if (static_cast<double>(variety) < 0.2) return result;
    if (std::ranges::any_of(links.urlTally, [](const auto& entry) { return entry.second >= 10; })) return result;
  }
  const auto own = links.hostTally.find(url.HostName);
  if (links.urls.empty() || own == links.hostTally.end()) return result;
  const auto share = static_cast<double>(static_cast<float>(own->second) / static_cast<float>(links.urls.size()));
  if (share > value.prepared.real) {
    result.on = true;
    result.fieldText = RealText(value.prepared.real);
    result.matchText = RealText(share);
  }
  return result;
}

}  // namespace zeph
