// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zeph {

/// Sixteen units of a text, compared together. Answers are sets of units, the first one in the lowest bit.
class UnitBlock {
 public:
  static constexpr std::size_t kUnits = 16;

#if defined(__SSE2__)
  explicit UnitBlock(const char16_t* units) noexcept
      : low_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(units))),
        high_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(units + 8))) {}

  /// The units that are one of these.
  template <class... Unit>
  [[nodiscard]] std::uint32_t AnyOf(Unit... units) const noexcept {
    __m128i low = _mm_setzero_si128();
    __m128i high = low;
    ((low = _mm_or_si128(low, _mm_cmpeq_epi16(low_, _mm_set1_epi16(static_cast<short>(units)))),
      high = _mm_or_si128(high, _mm_cmpeq_epi16(high_, _mm_set1_epi16(static_cast<short>(units))))),
     ...);
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
  }

 private:
  __m128i low_;
  __m128i high_;
#else
  explicit UnitBlock(const char16_t* units) noexcept : units_(units) {}

  template <class... Unit>
  [[nodiscard]] std::uint32_t AnyOf(Unit... units) const noexcept {
    std::uint32_t found = 0;
    for (std::size_t i = 0; i < kUnits; ++i) found |= static_cast<std::uint32_t>(((units_[i] == units) || ...)) << i;
    return found;
  }

 private:
  const char16_t* units_;
#endif
};

/// Turns the ASCII capitals among eight units to small letters. False when others than ASCII are among them, which are
/// left as they are.
inline bool LowerEightAscii(char16_t* units) noexcept {
#if defined(__SSE2__)
  auto* const place = reinterpret_cast<__m128i*>(units);
  const __m128i all = _mm_loadu_si128(place);
  const __m128i fromA = _mm_cmpgt_epi16(all, _mm_set1_epi16(u'A' - 1));
  const __m128i toZ = _mm_cmplt_epi16(all, _mm_set1_epi16(u'Z' + 1));
  const __m128i capitals = _mm_and_si128(fromA, toZ);
  _mm_storeu_si128(place, _mm_add_epi16(all, _mm_and_si128(capitals, _mm_set1_epi16(32))));
  const __m128i beyond = _mm_and_si128(all, _mm_set1_epi16(static_cast<short>(0xFF80)));
  return _mm_movemask_epi8(_mm_cmpeq_epi16(beyond, _mm_setzero_si128())) == 0xFFFF;
#else
  unsigned any = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    any |= units[i];
    units[i] = static_cast<char16_t>(units[i] + (static_cast<char16_t>(units[i] - u'A') < 26 ? 32 : 0));
  }
  return any < 0x80;
#endif
}

}  // namespace zeph
