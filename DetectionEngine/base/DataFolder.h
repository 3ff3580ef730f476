// SPDX-License-Identifier: Apache-2.0
// The folder that all users of the machine share, where newer packages and the log lie. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

/// Room for the vendor's name in bytes, terminator included.
inline constexpr std::size_t kVendorNameRoom = 260;

/// The vendor's name, "Corvanta" until it is set.
[[nodiscard]] std::string VendorName();

/// Sets the vendor's name and makes the data folder with it. The name becomes one component of paths, so a name that
/// is empty, ".", "..", holds "/" or a zero byte, or doesn't fit kVendorNameRoom is refused: false, and the name
/// stays as it was. A folder that can't be made is no failure.
bool SetVendorName(std::string_view name);

/// MachineFolder and the vendor's name, without "/" at the end; the folder need not exist. Empty when the path would
/// be longer than the system takes.
[[nodiscard]] std::string GetDataFolder();

/// Makes the folder with all of its missing parents. 0, or 1 when one can't be made; 0 for a path of fewer than 2
/// characters. What exists is left alone, whatever it is.
std::int32_t EnsureFolder(std::u16string_view path);

}  // namespace zeph
