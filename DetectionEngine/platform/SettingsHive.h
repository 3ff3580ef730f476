// SPDX-License-Identifier: Apache-2.0
// Settings on disk: keys, which are texts such as "Software\Vendor\Product", each with named values. One hive belongs
// to the machine, one to each user; both are SQLite files (settings.sqlite in MachineFolder and UserFolder) that any
// number of processes read and write at once.
//
// Keys and value names are compared without regard to case in ASCII. A hive that is missing, unreadable, corrupt, or
// locked by another process for more than half a second is one without keys, and writing to it fails. Nothing
// here throws but for want of memory. Objects are cheap: each operation opens the file (some 100 microseconds) and
// closes it. Any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "DetectionEngine/platform/Files.h"

namespace zeph {

enum class HiveOwner { kMachine, kUser };

/// A 32-bit number, or narrow text of any bytes.
using SettingValue = std::variant<std::uint32_t, std::string>;

/// Orders keys and names without regard to case in ASCII.
struct SettingNameLess {
  using is_transparent = void;
  [[nodiscard]] bool operator()(std::string_view a, std::string_view b) const noexcept;
};
using SettingValues = std::map<std::string, SettingValue, SettingNameLess>;

/// Longest key, value name, and text of a value, in bytes; longer ones are refused and read as absent.
inline constexpr std::size_t kSettingTextLimit = 4096;
/// Most values that ReadKey and keys that Keys give.
inline constexpr std::uint32_t kSettingCountLimit = 10000;

class SettingsHive {
 public:
  /// Where the hive lies is settled now.
  explicit SettingsHive(HiveOwner owner);

  /// The hive's file, which need not exist. Empty for a user without a home.
  [[nodiscard]] const std::string& Path() const noexcept { return path_; }
  /// Differs once anybody has changed the hive, as far as file times tell (a step of a few milliseconds).
  [[nodiscard]] FileStamp Stamp() const noexcept { return StampOf(path_); }

  [[nodiscard]] bool HasKey(std::string_view key) const;
  /// Makes the key, and the hive if there is none; true when the key exists afterwards.
  bool CreateKey(std::string_view key);
  /// All keys, in order.
  [[nodiscard]] std::vector<std::string> Keys() const;
  /// True when the key existed and is gone with all its values.
  bool DeleteKey(std::string_view key);

  /// Nothing when the key or the value doesn't exist.
  [[nodiscard]] std::optional<SettingValue> Read(std::string_view key, std::string_view name) const;
  /// All values of a key; nothing when the key doesn't exist.
  [[nodiscard]] std::optional<SettingValues> ReadKey(std::string_view key) const;
  /// Sets a value, whatever its type was. False while the key doesn't exist.
  bool Write(std::string_view key, std::string_view name, const SettingValue& value);
  /// True when the value existed and is gone.
  bool Delete(std::string_view key, std::string_view name);

  /// Moves on with each change that this process makes to such a hive, at once, where file times lag. A few ns.
  [[nodiscard]] static std::uint64_t Generation(HiveOwner owner) noexcept;

 private:
  HiveOwner owner_;
  std::string path_;
};

}  // namespace zeph
