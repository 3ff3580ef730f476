// SPDX-License-Identifier: Apache-2.0
// An address as a person types or pastes it: out of a letter, a report or a list, with what stood around it there.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// What was made of a text that should be an address.
struct TypedAddress {
  std::u16string url;                      ///< as a browser hands it on; empty: there is no address to judge
  std::string refusal;                     ///< why there is none
  std::vector<std::string_view> changes;   ///< what was done beyond a browser's own reading, in words
};

/// Takes off what surrounds an address (blanks, marks without width, quotes and brackets, punctuation of prose), undoes
/// what reports do to keep it from being followed ("hxxp", "[.]", "(dot)"), puts "http://" in front of a bare host, and
/// reads the rest as a browser does. Only http, https and ftp are judged. O(length).
[[nodiscard]] TypedAddress ReadTypedAddress(std::u16string_view text);

/// The same for an address that a program wrote: read as a browser does, and nothing else.
[[nodiscard]] TypedAddress ReadWrittenAddress(std::u16string_view text);

}  // namespace zeph
