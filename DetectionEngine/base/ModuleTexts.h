// SPDX-License-Identifier: Apache-2.0
// What the engine learns from its own module, and the name of its settings. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// Which of the systems that the engine has known this is.
struct OsFamily {
  bool Is9x = false;
  bool Is95 = false;
  bool Is98 = false;
  bool IsMe = false;
  bool IsNT4 = false;
  bool Is2000 = false;
  bool IsXP = false;
  bool Is2003 = false;
  bool IsNT5OrLater = false;
};
/// None of them: all false. What depends on one of them then takes the way of current systems, and the browser's
/// protected mode, which IsNT5OrLater stands for, doesn't exist.
[[nodiscard]] OsFamily GetOsFamily() noexcept;

struct ModuleTexts {
  std::u16string ModulePath;    ///< full path of the module's file
  std::u16string ModuleFolder;  ///< the same without "/" and the file name
  std::u16string BaseName;      ///< BaseNameOf the file name
};
/// A file name without its extension, which of a shared library is all from ".so" on: "libX.so.1.2" gives "libX".
[[nodiscard]] std::string_view BaseNameOf(std::string_view fileName) noexcept;
/// All empty when the module's file can't be told.
[[nodiscard]] ModuleTexts FillModuleTexts();

/// Key of the engine's settings in the user's hive. Empty until it is set.
[[nodiscard]] std::u16string SettingsKeyPath();
/// Makes it of string table entry 0xC4, vendor, entry 0xC5 and module.
void SetSettingsKeyPath(std::string_view vendor, std::string_view module);

}  // namespace zeph
