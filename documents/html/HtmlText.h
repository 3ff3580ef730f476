// SPDX-License-Identifier: Apache-2.0
// How HTML reads text: its white space, and letter case of ASCII alone. Any thread; nothing allocates.
#pragma once

#include <algorithm>
#include <string_view>

namespace zeph::html {

constexpr bool IsBlank(char16_t c) noexcept {
  return c == u' ' || c == u'\n' || c == u'\t' || c == u'\f' || c == u'\r';
}

constexpr char16_t Lower(char16_t c) noexcept { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; }

/// lower is in lower case.
inline bool EqualsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return std::ranges::equal(text, lower, {}, Lower);
}
/// lower is in lower case.
inline bool BeginsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return text.size() >= lower.size() && EqualsNoCase(text.substr(0, lower.size()), lower);
}

}  // namespace zeph::html
