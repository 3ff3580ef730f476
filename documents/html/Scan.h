// SPDX-License-Identifier: Apache-2.0
// Runs of text at a time: copies down until one of a few characters stands there. The text ends in kScanPadding zeros,
// so that no loop asks for its end.
#pragma once

#include <cstddef>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zeph::html {

/// Characters that stand, as zeros, behind every text that is scanned.
inline constexpr std::size_t kScanPadding = 16;

/// Moves characters from source to target (at or below source, in the same text) up to the first that is 0, one of
/// the stops, or stands at the end; both are left behind the last one moved.
template <char16_t... kStops>
inline void MoveRun(const char16_t*& source, char16_t*& target) noexcept {
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (;;) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    __m128i hits = _mm_cmpeq_epi16(block, zero);
    ((hits = _mm_or_si128(hits, _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(kStops))))), ...);
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask == 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(target), block);
      source += 8;
      target += 8;
      continue;
    }
    const auto count = static_cast<std::size_t>(__builtin_ctz(mask)) / 2;
    // A whole block may only be written where it doesn't reach into what is still to be read.
    if (source - target >= 8) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(target), block);
    } else {
      for (std::size_t i = 0; i < count; ++i) target[i] = source[i];
    }
    source += count;
    target += count;
    return;
  }
#else
  while (*source != 0 && ((*source != kStops) && ...)) *target++ = *source++;
#endif
}

/// The first of the stops between two places, or the end.
template <char16_t... kStops>
[[nodiscard]] inline const char16_t* FindAny(const char16_t* at, const char16_t* end) noexcept {
#if defined(__SSE2__)
  for (; end - at >= 8; at += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    __m128i hits = _mm_setzero_si128();
    ((hits = _mm_or_si128(hits, _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(kStops))))), ...);
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask != 0) return at + __builtin_ctz(mask) / 2;
  }
#endif
  while (at != end && ((*at != kStops) && ...)) ++at;
  return at;
}

}  // namespace zeph::html
