// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstddef>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zeph {

/// Position of the first of these units at or behind from, which is at most the text's size; the size when there is
/// none. Eight units at a time where the processor can.
template <char16_t... kUnits>
[[nodiscard]] inline std::size_t FindAnyOf(std::u16string_view text, std::size_t from) noexcept {
#if defined(__SSE2__)
  for (; text.size() - from >= 8; from += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + from));
    __m128i hits = _mm_setzero_si128();
    ((hits = _mm_or_si128(hits, _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(kUnits))))), ...);
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask != 0) return from + static_cast<std::size_t>(std::countr_zero(mask)) / 2;
  }
#endif
  while (from < text.size() && ((text[from] != kUnits) && ...)) ++from;
  return from;
}

}  // namespace zeph
