// SPDX-License-Identifier: Apache-2.0
// Files and the folders that the system sets aside. Paths are UTF-8 with "/" between components, relative ones
// count from the working directory; a path with a zero byte, or longer than the system takes, is a file that doesn't
// exist and can't be made. Nothing here throws but for want of memory; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace zeph {

/// The folder of everything that belongs to the machine: ZEPH_MACHINE_DIR, else /var/lib/zeph. Without "/" at its
/// end. The environment is looked at anew by each call and ignored in a process with raised privileges.
[[nodiscard]] std::string MachineFolder();
/// The same for the user: ZEPH_USER_DIR, else zeph in $XDG_STATE_HOME or ~/.local/state. Empty when the user has
/// no home.
[[nodiscard]] std::string UserFolder();

/// What tells two states of a file apart without reading it.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;  ///< 0: there is no such file
  std::uint64_t size = 0;
  std::int64_t lastWrite = 0;  ///< nanoseconds since 1970, UTC

  [[nodiscard]] bool Exists() const noexcept { return inode != 0; }
  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};
/// Costs one call of the system. Follows links.
[[nodiscard]] FileStamp StampOf(const std::string& path) noexcept;

/// True for whatever has this name: file, folder or device.
[[nodiscard]] inline bool FileExists(const std::string& path) noexcept { return StampOf(path).Exists(); }
/// Nanoseconds since 1970, UTC; 0 when there is no such file.
[[nodiscard]] inline std::int64_t LastWriteTime(const std::string& path) noexcept { return StampOf(path).lastWrite; }

/// The content of a regular file of at most limit bytes; nothing when it is longer, can't be read or isn't a regular
/// file (so that no pipe or device holds the caller up). error, if given, then says why.
[[nodiscard]] std::optional<std::string> ReadWholeFile(const std::string& path, std::size_t limit,
                                                       std::error_code* error = nullptr);

/// Why a file isn't to be believed, for people; empty when it is. It is when nobody but the superuser, this process's user
/// and the owner of kin (a file that is believed anyway; empty or missing: nobody) can have written it or put it there:
/// the file and the folder of its name belong to one of these, and others may not write to them. A group that is its
/// user's own (of the same number) is no other, and neither is who may add to a folder without changing what others have
/// in it (the sticky bit). A file that doesn't exist is believed.
[[nodiscard]] std::string DistrustOf(const std::string& path, const std::string& kin);

/// Writes a file so that others see the old content or the new one, never a part: a sibling is written and takes the
/// file's place. False, the old content in place and no sibling left, on failure; error, if given, then says why.
bool WriteWholeFile(const std::string& path, std::string_view bytes, std::error_code* error = nullptr);

/// Adds bytes at the end of a regular file, which is made for this user alone if it is missing; a link is refused, since
/// the log may lie in a folder that others write to. One write, so that lines of several processes don't mix.
bool AppendToFile(const std::string& path, std::string_view bytes) noexcept;

/// False when there is no such file or it can't be removed; an empty folder is removed too.
bool RemoveFile(const std::string& path) noexcept;
/// Renames, taking the place of a file that is there.
bool MoveFile(const std::string& from, const std::string& to) noexcept;
/// Makes a folder with all of its missing parents; true also when it is there. mode as in chmod, less the process's mask:
/// never writable by others unless asked for.
bool MakeFolders(const std::string& path, unsigned mode = 0755) noexcept;

/// Makes a folder for this user alone, with its missing parents, or makes sure that the one there is such: it is this
/// user's own, and then nobody else may enter it. False when it is another's, or a link.
[[nodiscard]] bool MakePrivateFolder(const std::string& path) noexcept;

/// Permission bits as in chmod.
bool SetFileMode(const std::string& path, unsigned mode) noexcept;
/// Nanoseconds since 1970, UTC.
bool SetLastWriteTime(const std::string& path, std::int64_t nanoseconds) noexcept;

}  // namespace zeph
