// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/SettingsHive.h"

namespace zeph {

/// The difference of two UTC times in whole seconds, at most 604800 (seven days), whichever of them is the later one;
/// parts of a second are cut off. 0 when either isn't a date and time of the years 1601 to 30827.
[[nodiscard]] std::int64_t SecondsBetween(const CalendarTime& a, const CalendarTime& b) noexcept;

/// The slot of the last site that was recognised: Md5Hex of its name.
inline constexpr std::uint32_t kRememberedSiteSlot = 4;

/// The engine's small memory across processes: numbered slots of narrow text of at most 260 bytes, kept for the
/// logged-on user under SettingsKeyPath. Made anew for each use. Slots are read and written without a lock: the last
/// writer wins. A store that can't be read or written costs nothing but the memory. Any thread.
class SettingsStore {
 public:
  SettingsStore();

  /// 0, or 1 and an empty out when there is no such text.
  std::int32_t Read(std::uint32_t slot, std::u16string& out) const;
  /// 0, or 1 when it wasn't kept, as while the key of the settings doesn't exist.
  std::int32_t Write(std::uint32_t slot, std::u16string_view text);
  /// 0, or 1 when there was nothing to delete.
  std::int32_t Delete(std::uint32_t slot);
  /// Seconds since the time stamp in the slot, or until it, as SecondsBetween; 0 for a text that is no valid time,
  /// -1 when the slot can't be read. Makes the key once the slot was read.
  std::int64_t Age(std::uint32_t slot);

  /// The present as a time stamp for a slot. Makes the key.
  [[nodiscard]] std::u16string Now();
  /// Makes the key of the settings if it doesn't exist; false when it can't be made. Nothing else but Age and Now does.
  bool EnsureKey();

 private:
  std::string key_;
  SettingsHive hive_;
};

}  // namespace zeph
