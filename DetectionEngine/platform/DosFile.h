// SPDX-License-Identifier: Apache-2.0
// What cabinets keep of a file beside its bytes, in the terms of the file system that they come from.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zeph {

/// Bits of DosTraits::attributes.
enum DosAttribute : std::uint16_t {
  kDosReadOnly = 0x01,
  kDosHidden = 0x02,
  kDosSystem = 0x04,
  kDosArchive = 0x20,
};

/// The last write in local time, and the attributes.
struct DosTraits {
  std::uint16_t date = 0;  ///< year since 1980 in bits 9 to 15, month in 5 to 8, day in 0 to 4
  std::uint16_t time = 0;  ///< hour in bits 11 to 15, minute in 5 to 10, half seconds in 0 to 4
  std::uint16_t attributes = 0;

  friend bool operator==(const DosTraits&, const DosTraits&) = default;
};

/// The traits of a file; nothing when it can't be looked at or is no regular file. Read-only is a file that its owner
/// may not write to, hidden one whose name begins with a dot; archive is always set, since nobody clears it here. A
/// time that can't be said (before 1980, after 2107) is held at the nearest one that can.
[[nodiscard]] std::optional<DosTraits> DosTraitsOf(const std::string& path);

}  // namespace zeph
