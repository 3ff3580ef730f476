// SPDX-License-Identifier: Apache-2.0
// Packed files, the content of a package: a deflated stream, enciphered. That of packed3.dat is a memory file, that of
// packed2.dat a pack, which is a number of text sources with their names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// What a stored file of this size may inflate to: 20 times as much, at most kPackageCeiling.
[[nodiscard]] std::size_t InflateRoom(std::size_t storedSize) noexcept;

/// Inflates a zlib stream, as uncompress with that room does: nothing when the stream is broken, cut off or longer than
/// room; why, if given, then says which, for people. Memory is touched only as far as content comes.
[[nodiscard]] std::optional<std::string> Inflate(std::string_view stored, std::size_t room, std::string* why = nullptr);

/// Deciphers and inflates what a packed file holds, within InflateRoom; nothing, with why, when it isn't one.
[[nodiscard]] std::optional<std::string> OpenPacked(std::string stored, std::string* why = nullptr);

/// One file of a pack.
struct PackedFile {
  std::string Name;      ///< without a folder
  std::string FileData;  ///< never empty when it comes from a pack

  friend bool operator==(const PackedFile&, const PackedFile&) = default;
};

/// The files of a pack in their order. Files without a name or without data are left out, bytes behind the last file
/// ignored. Nothing when the pack ends before its last file does.
[[nodiscard]] std::optional<std::vector<PackedFile>> CreateVectorofFileData(std::string_view content);

/// Packs, compresses and enciphers count files into outputFile, in the place of one that exists. Entries that are null
/// or can't be read are left out. False, and nothing written, when files or outputFile is null, count is below 1, the
/// pack doesn't shrink when it is compressed, or outputFile can't be written.
bool MakePack(const char* const* files, std::int32_t count, const char* outputFile);

}  // namespace zeph
