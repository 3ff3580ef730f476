// SPDX-License-Identifier: Apache-2.0
// The module that the engine's code lies in, and the process that it runs in. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace zeph {

/// Full path of the file that holds this code: the shared library, or the program that it was linked into. Links in it
/// are left as they are, so that what lies beside the link is found. Empty when it can't be told.
[[nodiscard]] std::string ModulePath();

/// Major, minor, patch and fourth part.
using FileVersion = std::array<std::uint16_t, 4>;
/// The version that the build has written into a module, as an ELF note of the name "Zeph". Nothing for a file
/// that can't be read, isn't a module of this machine's kind, or carries no such note. Reads at most a few hundred
/// kilobytes whatever the file claims.
[[nodiscard]] std::optional<FileVersion> ReadVersionResource(const std::string& path);

[[nodiscard]] std::uint32_t ProcessId() noexcept;
[[nodiscard]] std::uint32_t ThreadId() noexcept;

/// Has before called on the thread that forks, just before each fork of this process, and after on the same thread behind
/// it, in both processes. As long as this module is loaded.
void AtFork(void (*before)(), void (*after)());

/// True when the program has rights that its user doesn't have (set-user-id and the like), so that what the user
/// can set, as the environment, is not to be trusted.
[[nodiscard]] bool HasRaisedPrivileges() noexcept;

/// The value of an environment variable; nothing when it isn't set, is empty, or the process has raised privileges.
[[nodiscard]] std::optional<std::string> TrustedEnvironment(const char* name);

/// In a process with raised privileges, takes out of the environment what libraries would follow that don't ask whether
/// it is to be trusted: proxies, and a file to write the keys of TLS connections to. For the start, before threads.
void DropHostileEnvironment() noexcept;

}  // namespace zeph
