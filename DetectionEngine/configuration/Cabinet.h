// SPDX-License-Identifier: Apache-2.0
// Cabinets, the envelope of a package. Paths are narrow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

/// What a package, or one packed file, may come to: no package that is any use is near it, and a hostile one doesn't
/// fill memory.
inline constexpr std::size_t kPackageCeiling = std::size_t{1} << 30;

/// The names that packed files have in a package.
inline constexpr std::string_view kPackName = "packed2.dat";
inline constexpr std::string_view kMemoryFileName = "packed3.dat";

/// What came of an extraction.
struct Extraction {
  std::optional<std::string> pack;        ///< packed2.dat, as it is stored
  std::optional<std::string> memoryFile;  ///< packed3.dat, as it is stored
  std::string refusal;                    ///< why it failed, for people; empty: it didn't

  explicit operator bool() const noexcept { return refusal.empty(); }
};

/// Takes the packed files out of a cabinet that lies in memory, into memory: no file is written, so no other process can
/// come between. What else the cabinet holds isn't looked at and costs nothing. A packed file looks random, and so does
/// all that a package need hold: one that would come to more than ceiling, or to much more than the cabinet itself, is
/// refused. Logs under "CabExtract"; cabFile is the cabinet's name for the log.
[[nodiscard]] Extraction ExtractCabinet(std::string_view cabinet, const std::string& cabFile,
                                        std::size_t ceiling = kPackageCeiling);

/// The same from a file of at most kPackageCeiling bytes.
[[nodiscard]] Extraction CabExtract(const std::string& cabFile);

/// Any other file that a package's cabinet brings along, under the same bounds; nothing when there is none or it can't be
/// read.
[[nodiscard]] std::optional<std::string> CabExtractFile(const std::string& cabFile, std::string_view name);

/// Makes the cabinet cabPath + cabName of count files, MSZIP throughout, each under its path's part behind the last
/// slash or backslash. An entry "+" ends the cabinet folder, as does a folder's compressed size of 900,000 bytes. A
/// null cabPath is the root folder. The cabinet appears whole or not at all. False, and no cabinet, when files or
/// cabName is null, count is below 1, there is no file among the entries, an entry is null or can't be read, or the
/// cabinet would be longer than 0x7FFFFFFF bytes. Works in memory.
bool MakeCabinet(const char* const* files, std::int32_t count, const char* cabName, const char* cabPath);

}  // namespace zeph
