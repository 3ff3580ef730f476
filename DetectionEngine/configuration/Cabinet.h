// SPDX-License-Identifier: Apache-2.0
// Cabinets, the envelope of a package. Paths are narrow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// What a cabinet's members, or one packed file, may come to: no package that is any use is near it, and a hostile one
/// doesn't fill memory or disk.
inline constexpr std::size_t kPackageCeiling = std::size_t{1} << 30;

/// What came of an extraction.
struct Extraction {
  std::vector<std::string> files;  ///< paths written
  std::string refusal;             ///< why it failed, for people; empty: it didn't

  explicit operator bool() const noexcept { return refusal.empty(); }
};

/// Extracts every file of a cabinet that lies in memory to destFolder (made if it is missing; ends in "/") and its
/// stored name, with the stored date, time and attributes, in the place of what is there. The whole cabinet is
/// refused when a name could lead out of the folder, or the files, or the bytes to decompress on the way to them, come
/// to more than ceiling. After a failure nothing that was extracted is left. Logs under "CabExtract"; cabFile is the
/// cabinet's name for the log.
[[nodiscard]] Extraction ExtractCabinet(std::string_view cabinet, const std::string& cabFile,
                                        const std::string& destFolder, std::size_t ceiling = kPackageCeiling);

/// The same from a file of at most kPackageCeiling bytes.
[[nodiscard]] Extraction CabExtract(const std::string& cabFile, const std::string& destFolder);

/// Makes the cabinet cabPath + cabName of count files, MSZIP throughout, each under its path's part behind the last
/// slash or backslash. An entry "+" ends the cabinet folder, as does a folder's compressed size of 900,000 bytes. A
/// null cabPath is the root folder. The cabinet appears whole or not at all. False, and no cabinet, when files or
/// cabName is null, count is below 1, there is no file among the entries, an entry is null or can't be read, or the
/// cabinet would be longer than 0x7FFFFFFF bytes. Works in memory.
bool MakeCabinet(const char* const* files, std::int32_t count, const char* cabName, const char* cabPath);

}  // namespace zeph
