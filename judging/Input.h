// SPDX-License-Identifier: Apache-2.0
// What is judged.
#pragma once

#include <cstdint>
#include <optional>
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

/// A page or another thing to judge, in memory.
struct Content {
  std::string bytes;
  std::string mediaType;  ///< as the transport names it, "text/html; charset=utf-8"; empty: its name or its looks tell
  std::string name;       ///< of the file; may be empty
  std::string url;        ///< its address by who hands it over; may be empty
  bool urlIsRecorded = false;  ///< the address was written down by who saved it
};

/// One thing to judge, as it was handed over.
struct Input {
  std::string text;     ///< an address, or the path of a page's file
  std::string pageUrl;  ///< a page's address by a list that goes with it; may be empty
  std::string refusal;  ///< not empty: why it can't even be looked at
  // What came out of a file of many is judged by these; text is then only what it is called.
  std::string address = {};
  std::optional<Content> content = std::nullopt;
};

}  // namespace zeph
