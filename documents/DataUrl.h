// SPDX-License-Identifier: Apache-2.0
// Addresses that carry what they lead to.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

/// The value of a digit of base64, those of its form for addresses among them; -1 for any other character.
[[nodiscard]] int Base64Digit(char16_t c) noexcept;
/// The value of a hexadecimal digit; -1 for any other character.
[[nodiscard]] int HexDigit(char16_t c) noexcept;

/// The bytes that base64 digits stand for, at most so many; what is no digit is passed over.
[[nodiscard]] std::string DecodeBase64(std::u16string_view text, std::size_t most);

struct DataUrl {
  std::string type;     ///< the media type's name in lower case; "text/plain" where it names none
  std::string charset;  ///< that it names; may be empty
  std::string bytes;
};

/// Takes an address of the scheme "data" apart, as browsers do; nothing for any other text. most: no more bytes are
/// decoded than this. O(length).
[[nodiscard]] std::optional<DataUrl> ReadDataUrl(std::u16string_view url, std::size_t most);

}  // namespace zeph
