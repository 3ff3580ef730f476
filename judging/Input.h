// SPDX-License-Identifier: Apache-2.0
// What is judged.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// Where the address that something was judged by comes from.
enum class UrlSource : std::uint8_t {
  kNone,      ///< there is none
  kGiven,     ///< whoever asked gave it
  kMap,       ///< a list that goes with the pages: a map, a second column, url.txt
  kDocument,  ///< who saved the page wrote it down: a recording, a saved page
  kClaimed,   ///< the page says so itself
};
/// Their names in machine-readable output; kNone has none.
[[nodiscard]] std::string_view NameOf(UrlSource source) noexcept;

/// One thing to judge, as it was handed over.
struct Input {
  std::string text;     ///< an address, or the path of a page's file
  std::string pageUrl;  ///< a page's address by a list that goes with it; may be empty
  std::string refusal;  ///< not empty: why it can't even be looked at
};

}  // namespace zeph
