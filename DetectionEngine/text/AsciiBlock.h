// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zeph {

/// Sixteen units of a text, asked together. Answers are sets of units, the first one in the lowest bit.
class AsciiBlock {
 public:
  static constexpr std::size_t kUnits = 16;

#if defined(__SSE2__)
  explicit AsciiBlock(const char16_t* units) noexcept {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + 8));
    const __m128i beyond = _mm_set1_epi16(static_cast<short>(0xFF80));
    const __m128i none = _mm_setzero_si128();
    ascii_ = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(low, beyond), none),
                             _mm_cmpeq_epi16(_mm_and_si128(high, beyond), none));
    bytes_ = _mm_packus_epi16(low, high);
  }

  /// Units that aren't ASCII. None of the other sets has them.
  [[nodiscard]] std::uint32_t Others() const noexcept { return ~Bits(ascii_) & 0xFFFF; }
  [[nodiscard]] std::uint32_t Letters() const noexcept {
    return Within(_mm_or_si128(bytes_, _mm_set1_epi8(0x20)), 'a', 'z');
  }
  /// White space as IsSpace has it.
  [[nodiscard]] std::uint32_t Spaces() const noexcept { return Within(bytes_, 9, 13) | Equal(' '); }
  [[nodiscard]] std::uint32_t Equal(char c) const noexcept {
    return Bits(_mm_and_si128(_mm_cmpeq_epi8(bytes_, _mm_set1_epi8(c)), ascii_));
  }

 private:
  static std::uint32_t Bits(__m128i bytes) noexcept { return static_cast<std::uint32_t>(_mm_movemask_epi8(bytes)); }
  [[nodiscard]] std::uint32_t Within(__m128i bytes, char first, char last) const noexcept {
    const __m128i above = _mm_cmpgt_epi8(bytes, _mm_set1_epi8(static_cast<char>(first - 1)));
    const __m128i below = _mm_cmplt_epi8(bytes, _mm_set1_epi8(static_cast<char>(last + 1)));
    return Bits(_mm_and_si128(_mm_and_si128(above, below), ascii_));
  }

  __m128i bytes_;
  __m128i ascii_;
#else
  explicit AsciiBlock(const char16_t* units) noexcept : units_(units) {}

  [[nodiscard]] std::uint32_t Others() const noexcept {
    return Where([](char16_t c) { return c >= 0x80; });
  }
  [[nodiscard]] std::uint32_t Letters() const noexcept {
    return Where([](char16_t c) { return (c | 0x20) >= u'a' && (c | 0x20) <= u'z'; });
  }
  [[nodiscard]] std::uint32_t Spaces() const noexcept {
    return Where([](char16_t c) { return c == u' ' || (c >= 9 && c <= 13); });
  }
  [[nodiscard]] std::uint32_t Equal(char c) const noexcept {
    return Where([c](char16_t unit) { return unit == static_cast<char16_t>(c); });
  }

 private:
  template <class Test>
  [[nodiscard]] std::uint32_t Where(Test&& test) const noexcept {
    std::uint32_t units = 0;
    for (std::size_t i = 0; i < kUnits; ++i) units |= static_cast<std::uint32_t>(test(units_[i])) << i;
    return units;
  }

  const char16_t* units_;
#endif
};

}  // namespace zeph
