// SPDX-License-Identifier: Apache-2.0
// What the page's words say.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// A phrase holds the letters of the site's name in order, whatever stands between them.
[[nodiscard]] IndicatorResult SiteNameInPhrase(std::u16string_view mainDomain,
                                               std::span<const std::u16string_view> phrases);

/// The labels of a page without a password field hold an item of the third group and none of the first two. Items equal
/// to "|" part the groups; labels are searched without blanks and punctuation, up to kCleaningLimit characters.
[[nodiscard]] IndicatorResult LabelWords(const PageData& pageData, const ExpressionValue& value);

/// A page of at most a hundred elements, without forms and visible text, has the marker element.
[[nodiscard]] IndicatorResult EmptyPageWithMarker(const PageData& pageData);

}  // namespace zeph
