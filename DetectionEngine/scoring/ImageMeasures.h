// SPDX-License-Identifier: Apache-2.0
// Whether images stand where text would, and whose images they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// The share of a brand's images exceeds Value. Takes the brand count as it stands and doesn't start it.
[[nodiscard]] IndicatorResult BrandImageShare(const ImageData& images, const ExpressionValue& value);

/// The images' area against that of the page's text, a block of text being taken for a line of 800 by 30, exceeds 0.4.
[[nodiscard]] IndicatorResult ImageAreaAgainstText(const PageData& pageData);

/// More than five images and next to no label; or a dozen and more, most of them small, while the rules that the items
/// name have fired, and few labels. An item above 0 is the number of a rule of which at least one must have fired, any
/// other, negated, that of a rule that must not.
[[nodiscard]] IndicatorResult ImageGrid(const PageData& pageData, const ExpressionValue& value,
                                        std::span<const IndicatorResult> results);

/// The page shows text as images; sets imageTextFound on a hit. On server installations only. Items as for ImageGrid;
/// in addition "=" and a number name rules that must all have fired when the page is decided already.
[[nodiscard]] IndicatorResult ImagesForText(PageData& pageData, const ExpressionValue& value,
                                            std::span<const IndicatorResult> results, bool isClient, bool decided);

/// How many images of a word's size would fill the holes of a text: sentences that begin in the middle, that hold two
/// blanks in a row, or that have a blank before their end.
[[nodiscard]] std::size_t CountTextGaps(std::u16string_view text);

}  // namespace zeph
