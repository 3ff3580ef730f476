// SPDX-License-Identifier: Apache-2.0
// Writes memory files, for the tool that makes packages.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"

namespace zeph {

/// The forms that a reader must know beside the usual one.
struct MemoryFileForm {
  bool bigEndian = false;
  std::uint8_t indicatorVersion = 2;  ///< 1: with an empty result behind each rule
};

/// The plain content of a memory file. SafeList.Domains is written as it stands and must be sorted. Nothing when
/// the records don't fit the format: a list of more than 65,535 items, a text of more than 32,767 characters, or a
/// number above 255 where one byte is kept (types, fields, methods, operators, categories, marks).
[[nodiscard]] std::optional<std::string> WriteMemoryFile(const Configuration& configuration,
                                                         const Indicators& indicators, const MemoryFileForm& form = {});

/// Compresses and enciphers a plain content into the bytes of packed3.dat. Content that shrinks so far that a reader's
/// room wouldn't hold it is stored instead. Nothing for nothing, and for content beyond any reader's room.
[[nodiscard]] std::optional<std::string> SealMemoryFile(const std::optional<std::string>& content);

}  // namespace zeph
