// SPDX-License-Identifier: Apache-2.0
// Which sites a page belongs to and leads to.
#pragma once

#include <span>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// One of the texts is in the list that the value names: its items, taken for domains, or by number a list of the
/// configuration: 0 and 1 trusted domains, 2 popular sites, 3 hosting sites, 5 search services, 6 exception domains,
/// where the text is a host; 7 the block list, where it is a URL and the match becomes the trusted domain that a
/// blocked one stands for. Off for any other value. pageUrl spares decoding a text that is its RawUrl.
[[nodiscard]] IndicatorResult SiteListMembership(std::span<const std::u16string_view> texts,
                                                 const ExpressionValue& value, const Configuration& configuration,
                                                 const UrlRecord& pageUrl);

/// The share of links to the page's own host exceeds Value. Off when the page links the same few URLs over and over.
[[nodiscard]] IndicatorResult OwnHostLinks(const LinkData& links, const UrlRecord& url, const ExpressionValue& value);

}  // namespace zeph
