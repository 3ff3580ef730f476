// SPDX-License-Identifier: Apache-2.0
// How HTML reads text: its white space, and letter case of ASCII alone. Any thread; nothing allocates.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace zeph::html {

constexpr bool IsBlank(char16_t c) noexcept {
  return c == u' ' || c == u'\n' || c == u'\t' || c == u'\f' || c == u'\r';
}

constexpr char16_t Lower(char16_t c) noexcept { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; }

/// Characters that have neither ink nor width: soft hyphens, zero-width blanks and joiners, marks of direction, choices
/// of a variant; of a pair, the first unit.
constexpr bool IsInvisible(char16_t c) noexcept {
  if (c < 0x2000) {
    return c == 0x00AD || c == 0x034F || c == 0x061C || c == 0x17B4 || c == 0x17B5 || (c >= 0x180B && c <= 0x180F);
  }
  if (c < 0x2070) return (c >= 0x200B && c <= 0x200F) || (c >= 0x202A && c <= 0x202E) || c >= 0x2060;
  return c == 0xDB40 || (c >= 0xFE00 && c <= 0xFE0F) || c == 0xFEFF;
}

/// Letters of scripts that write words with joiners and non-joiners: Arabic and its neighbours, those of India,
/// Tibetan, Burmese, Khmer, Mongolian.
constexpr bool IsJoinedLetter(char16_t c) noexcept {
  return (c >= 0x0620 && c < 0x0E00) || (c >= 0x0F00 && c < 0x10A0) || (c >= 0x1780 && c < 0x18B0) ||
         (c >= 0xFB50 && c < 0xFE00) || (c >= 0xFE70 && c < 0xFEFD);
}

/// The invisible units that stand at a place in a text, 0 to all of it. A joiner between letters that need it counts as
/// visible.
constexpr std::size_t InvisibleAt(std::u16string_view text, std::size_t at) noexcept {
  std::size_t end = at;
  while (end < text.size() && IsInvisible(text[end])) {
    const char16_t c = text[end];
    if ((c == 0x200C || c == 0x200D) && end != 0 && end + 1 < text.size() && IsJoinedLetter(text[end - 1]) &&
        IsJoinedLetter(text[end + 1])) {
      break;
    }
    end += c == 0xDB40 && end + 1 < text.size() ? 2U : 1U;
  }
  return end - at;
}

/// lower is in lower case.
inline bool EqualsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return std::ranges::equal(text, lower, {}, Lower);
}
/// lower is in lower case.
inline bool BeginsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return text.size() >= lower.size() && EqualsNoCase(text.substr(0, lower.size()), lower);
}

}  // namespace zeph::html
