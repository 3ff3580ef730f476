// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace zeph {

/// Levenshtein distance, cost 1 each, characters folded to lower case. O(length(a) * length(b)) time, O(min) memory.
[[nodiscard]] std::size_t EditDistance(std::u16string_view a, std::u16string_view b);

/// True when the edit distance, divided by the text's length, is strictly below threshold; the lengths are
/// looked at first. distance receives the gap of the lengths or the distance, as a share, in either case.
bool IsSimilarWithin(std::u16string_view text, std::u16string_view candidate, float threshold, float& distance);

/// Index of the first word contained in the text, both without punctuation and doubled letters and the text in
/// lower case; -1 when there is none. A word of which nothing is left is found in any text. One word has a rule of its
/// own: "citi" doesn't count where it is part of "geocities", so that a page kept there isn't taken for the bank's.
[[nodiscard]] std::ptrdiff_t ContainsNormalized(std::u16string_view text, std::span<const std::u16string> words);

}  // namespace zeph
