// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace zeph::html {

/// A named character reference at the start of a text.
struct NamedReference {
  std::size_t length = 0;  ///< characters of the name, semicolon included; 0: there is none
  bool endsInSemicolon = false;
  char32_t first = 0;
  char32_t second = 0;  ///< 0: the reference stands for one code point
};

/// The longest name that the text behind an ampersand begins with. The text ends in a zero.
[[nodiscard]] NamedReference FindNamedReference(const char16_t* text) noexcept;

/// What a numeric character reference to this code point stands for.
[[nodiscard]] char32_t NumericReference(char32_t codePoint) noexcept;

}  // namespace zeph::html
