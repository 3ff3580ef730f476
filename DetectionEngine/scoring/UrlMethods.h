// SPDX-License-Identifier: Apache-2.0
// Methods that ask after the page's URL, its site and the brands that the configuration knows.
#pragma once

#include <span>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/FieldValue.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// A tag of a brand stands in the text, or in one of a list's texts; the match is the brand's domain. Value names the
/// index: 8 the tags of URLs, 9 of titles, 11 of content.
[[nodiscard]] IndicatorResult BrandTagFound(const FieldValue& field, const ExpressionValue& value,
                                            const Configuration& configuration);

/// A hidden field whose name holds "redirect" sends the user on to a trusted host, which is the match; the last one of
/// the page stands.
[[nodiscard]] IndicatorResult RedirectsToTrusted(std::span<const FormRecord> forms,
                                                 const NetLocationList& trustedDomains);

/// The score of the URL is in the upper class. Off without a table or words.
[[nodiscard]] IndicatorResult HighUrlScore(const UrlRecord& url, const Configuration& configuration);
/// The score of the URL is in the lower class. Off without a table or words.
[[nodiscard]] IndicatorResult LowUrlScore(const UrlRecord& url, const Configuration& configuration);

/// The URL, unescaped once, holds script, and its host ends with none of the items. On client installations only.
[[nodiscard]] IndicatorResult ScriptInUrl(const UrlRecord& url, const ExpressionValue& value, bool isClient);

/// The text is a host of the safe list. Value must be the site list of number 4.
[[nodiscard]] IndicatorResult InSafeList(const FieldValue& field, const ExpressionValue& value,
                                         const SafeList& safeList);

/// The title, without blanks and punctuation, holds the site's name, which is the match in any case.
[[nodiscard]] IndicatorResult SiteNameInTitle(std::u16string_view mainDomain, std::u16string_view title);

}  // namespace zeph
