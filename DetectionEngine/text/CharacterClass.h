// SPDX-License-Identifier: Apache-2.0
// Classes of 16-bit characters, one unit at a time, from the C library's Unicode tables and not from the
// process's locale, so that results are the same on every machine. The table is made once per process.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

namespace detail {
struct CharacterTable {
  std::array<char16_t, 65536> lower;
  std::array<std::uint8_t, 65536> classes;
};
enum CharacterBit : std::uint8_t { kDigitBit = 1, kSpaceBit = 2, kAlphaBit = 4, kUpperBit = 8 };
/// Thread-safe; the first call makes the table.
const CharacterTable& Characters() noexcept;
}  // namespace detail

/// "0" to "9".
[[nodiscard]] constexpr bool IsDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }
[[nodiscard]] inline bool IsSpace(char16_t c) noexcept {
  if (c < 0x80) return c == u' ' || (c >= 9 && c <= 13);
  return (detail::Characters().classes[c] & detail::kSpaceBit) != 0;
}
[[nodiscard]] inline bool IsAlpha(char16_t c) noexcept {
  if (c < 0x80) return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
  return (detail::Characters().classes[c] & detail::kAlphaBit) != 0;
}
[[nodiscard]] inline bool IsUpper(char16_t c) noexcept {
  if (c < 0x80) return c >= u'A' && c <= u'Z';
  return (detail::Characters().classes[c] & detail::kUpperBit) != 0;
}
[[nodiscard]] inline bool IsAlnum(char16_t c) noexcept { return IsAlpha(c) || IsDigit(c); }
[[nodiscard]] inline char16_t LowerOf(char16_t c) noexcept {
  if (c < 0x80) return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
  return detail::Characters().lower[c];
}

}  // namespace zeph
