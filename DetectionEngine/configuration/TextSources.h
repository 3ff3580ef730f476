// SPDX-License-Identifier: Apache-2.0
// The text sources of a package. They look like XML and are read line by line: a line carries one tag, which is
// compared whole, brackets and case included, and one value behind it. A line that doesn't fit is passed over; nothing
// is an error. docs/package.md tells authors what the files may hold.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/configuration/LoadRoom.h"
#include "DetectionEngine/configuration/Pack.h"

namespace zeph {

/// A line that is longer in its tag or value than this has neither.
inline constexpr std::size_t kLongestTag = 1023;
inline constexpr std::size_t kLongestTagValue = 63999;

/// One line of a source, as views into it.
struct SourceLine {
  std::string_view line;      ///< without its line feed; a carriage return before that stays
  std::string_view tag;       ///< from the first "<" to the next ">", both included; empty if there is none
  std::string_view tagValue;  ///< behind the tag up to the next "<"; empty if there is none

  friend bool operator==(const SourceLine&, const SourceLine&) = default;
};

/// Takes the next line off the cursor. Nothing at the end, which is an empty line or one without a line feed.
[[nodiscard]] std::optional<SourceLine> NextLine(std::string_view& cursor);

/// One character a byte, bytes above 0x7F with a high byte of 0xFF; "&amp;" and "&#" with four or five digits and ";"
/// stand for one character each.
[[nodiscard]] std::u16string DecodeEntities(std::string_view text);

/// The site that a line names: <Domain>, <URL>, <Hostname>, or <Network> with address/mask.
[[nodiscard]] std::optional<NetLocation> MakeLocation(std::string_view tag, std::string_view tagValue);

/// Hands each file to the handler that its name calls for and adds what it holds to the records; files of other names
/// have no effect. False, the records being garbage, when they would take more memory than room allows. Linear. Any
/// thread.
bool ParseTextFiles(std::span<const PackedFile> files, Configuration& configuration, Indicators& indicators,
                    LoadRoom room = LoadRoom());

}  // namespace zeph
