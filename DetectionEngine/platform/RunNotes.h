// SPDX-License-Identifier: Apache-2.0
// Notes that running processes leave of the package that they use, for whoever manages packages: a small file of each
// process in a folder of its user alone. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

struct RunNote {
  std::uint32_t process = 0;
  std::string program;        ///< name of the process, by the system
  std::string package;        ///< path of the package in force
  std::string follows;        ///< where it looks for newer ones; empty: nowhere, it keeps what it has
  std::string digest;         ///< SHA-256 of the package, hexadecimal
  std::int64_t loadedAt = 0;  ///< nanoseconds since 1970, UTC
};

/// Writes this process's note, in the place of an earlier one; process, program are filled in. What can't be written is
/// left out without a word, and a process with raised privileges leaves none. A few system calls; the first note also
/// removes those of processes that are gone.
void WriteRunNote(const RunNote& note) noexcept;
/// Takes it back.
void RemoveRunNote() noexcept;

/// Those of this user's processes that run, by number. Removes those of processes that don't.
[[nodiscard]] std::vector<RunNote> ReadRunNotes();

/// SHA-256, hexadecimal; empty when the system's library refuses.
[[nodiscard]] std::string Sha256Hex(std::string_view bytes);

}  // namespace zeph
