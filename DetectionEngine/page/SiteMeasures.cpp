// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/SiteMeasures.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "DetectionEngine/url/HostMatching.h"
#include "DetectionEngine/url/Text.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// Looks one text up; the match text, or nothing.
using Lookup = std::function<std::optional<std::u16string>(std::u16string_view)>;

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

Lookup LookupInItems(const ExpressionValue& value) {
  return [&value](std::u16string_view host) -> std::optional<std::u16string> {
    for (const std::u16string& item : value.GetItems()) {
      if (HostMatchesDomain(host, item)) return item;
    }
    return std::nullopt;
  };
}

Lookup LookupInList(const NetLocationList& list) {
  return [&list](std::u16string_view host) -> std::optional<std::u16string> {
    const NetLocationMatch match = FindInNetLocations(host, list);
    return match ? std::optional(std::u16string(match.name)) : std::nullopt;
  };
}

Lookup LookupInBlockList(const Configuration& configuration) {
  return [&configuration](std::u16string_view text) -> std::optional<std::u16string> {
    UrlParser parser;
    parser.DecodeUrl(text);
    for (const NetLocation& entry : configuration.BlockList.Entries) {
      if (!MatchesBlocked(parser.Record(), entry)) continue;
      const auto trusted = configuration.BlockedToTrusted.find(entry.Name);
      return trusted == configuration.BlockedToTrusted.end() ? std::u16string() : trusted->second;
    }
    return std::nullopt;
  };
}

/// Nothing when the value names no list.
Lookup LookupOf(const ExpressionValue& value, const Configuration& configuration) {
  if (value.ValueType == kValueText) return LookupInItems(value);
  if (value.ValueType != kValueSiteList) return nullptr;
  switch (value.prepared.number) {
    case 0:
    case 1:
      return LookupInList(configuration.TrustedDomains);
    case 2:
      return LookupInList(configuration.PopularSites);
    case 3:
      return LookupInList(configuration.WebHostingSites);
    case 5:
      return LookupInList(configuration.SearchServices);
    case 6:
      return LookupInList(configuration.ExceptionDomains);
    case 7:
      return LookupInBlockList(configuration);
    default:
      return nullptr;
  }
}

}  // namespace

IndicatorResult SiteListMembership(std::span<const std::u16string_view> texts, const ExpressionValue& value,
                                   const Configuration& configuration) {
  IndicatorResult result;
  const Lookup lookup = LookupOf(value, configuration);
  if (!lookup) return result;
  for (const std::u16string_view text : texts) {
    std::optional<std::u16string> match = lookup(text);
    if (!match) continue;
    result.on = true;
    result.fieldText = text;
    result.matchText = std::move(*match);
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
