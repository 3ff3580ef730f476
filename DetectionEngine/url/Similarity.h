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
/// lower case; -1 when none is, the text is empty of use or the list is empty.
[[nodiscard]] std::ptrdiff_t ContainsNormalized(std::u16string_view text, std::span<const std::u16string> words);

}  // namespace zeph
