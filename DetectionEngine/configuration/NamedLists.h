// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"

namespace zeph {

/// A list of the configuration that rules name.
struct NamedList {
  std::int32_t number;  ///< what Value says; written in packages, never renumber
  std::string_view name;
  std::string_view summary;                         ///< one line, for people who write rules
  NetLocationList Configuration::*sites = nullptr;  ///< what it is; the safe list is none of the two
  TagIndex Configuration::*tags = nullptr;
};

inline constexpr std::int32_t kSafeListNumber = 4;
inline constexpr std::int32_t kBlockListNumber = 7;
inline constexpr std::int32_t kTitleTagsNumber = 9;

// clang-format off
inline constexpr std::array<NamedList, 11> kNamedLists = {{
    {0, "TrustedDomains", "the domains that stand for brands", &Configuration::TrustedDomains},
    {1, "TrustedDomainsToo", "the same list", &Configuration::TrustedDomains},
    {2, "PopularSites", "popular sites", &Configuration::PopularSites},
    {3, "WebHostingSites", "sites whose pages belong to customers", &Configuration::WebHostingSites},
    {kSafeListNumber, "SafeList", "brands' further domains and safe sites"},
    {5, "SearchServices", "search services", &Configuration::SearchServices},
    {6, "ExceptionDomains", "below those, hosts that belong to customers", &Configuration::ExceptionDomains},
    {kBlockListNumber, "BlockList", "known spoofing sites, by URL", &Configuration::BlockList},
    {8, "UrlTags", "tags of brands in URLs, inside words too", nullptr, &Configuration::UrlTagIndex},
    {kTitleTagsNumber, "TitleTags", "tags of brands in titles, as words", nullptr, &Configuration::TitleTagIndex},
    {11, "ContentTags", "tags of brands in texts, as words", nullptr, &Configuration::ContentTagIndex},
}};
// clang-format on

/// The list of a number, or null.
[[nodiscard]] constexpr const NamedList* FindNamedList(std::int32_t number) noexcept {
  const auto* const row = std::find_if(kNamedLists.begin(), kNamedLists.end(),
                                       [&](const NamedList& list) { return list.number == number; });
  return row == kNamedLists.end() ? nullptr : row;
}

}  // namespace zeph
