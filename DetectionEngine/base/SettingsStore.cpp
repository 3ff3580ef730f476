// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/SettingsStore.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <variant>

#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/base/TimeStamp.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

/// Longest text of a slot in bytes.
constexpr std::size_t kSlotLimit = 260;
/// No two times are further apart than a week.
constexpr std::int64_t kMostSeconds = 604800;

HiveOwner OwnerOn(const OsFamily& family) noexcept {
  return family.Is98 || family.IsMe ? HiveOwner::kMachine : HiveOwner::kUser;
}

/// The name of a slot's value, which is never empty; empty for a number that is no slot.
std::string ValueName(std::uint32_t slot) {
  struct SlotName {
    std::uint32_t slot;
    std::uint32_t entry;  ///< of the string table
  };
  static constexpr SlotName kSlotNames[] = {{0, 0xCC}, {4, 0xC8}, {8, 0xCD}, {9, 0xCE}, {10, 0xCF}};
  const auto* found = std::ranges::find(kSlotNames, slot, &SlotName::slot);
  return found == std::end(kSlotNames) ? std::string() : Narrow(StringEntry(found->entry));
}

/// Milliseconds since 1970; nothing when there was never such a time.
std::optional<std::int64_t> MillisecondsOf(const CalendarTime& time) noexcept {
  using namespace std::chrono;
  if (time.year < 1601 || time.year > 30827 || time.month < 1 || time.month > 12 || time.day < 1 || time.day > 31 ||
      time.hour < 0 || time.hour > 23 || time.minute < 0 || time.minute > 59 || time.second < 0 || time.second > 59) {
    return {};
  }
  const year_month_day date{year{time.year}, month{static_cast<unsigned>(time.month)},
                            day{static_cast<unsigned>(time.day)}};
  if (!date.ok()) return {};
  return duration_cast<milliseconds>(sys_days{date}.time_since_epoch() + hours{time.hour} + minutes{time.minute} +
                                     seconds{time.second})
             .count() +
         time.millisecond;
}

/// The time that a slot tells; one that is no valid time when the text can't be taken apart.
CalendarTime TimeOf(std::u16string_view stamp) {
  CalendarTime time;
  std::sscanf(Narrow(DecodeTimeStamp(stamp)).c_str(), "%d-%d-%d %d:%d:%d", &time.year, &time.month, &time.day,
              &time.hour, &time.minute, &time.second);
  return time;
}

}  // namespace

std::int64_t SecondsBetween(const CalendarTime& a, const CalendarTime& b) noexcept {
  const auto first = MillisecondsOf(a);
  const auto second = MillisecondsOf(b);
  if (!first || !second) return 0;
  return std::min(std::abs(*first - *second) / 1000, kMostSeconds);
}

SettingsStore::SettingsStore() : key_(Narrow(SettingsKeyPath())), hive_(OwnerOn(GetOsFamily())) {}

std::int32_t SettingsStore::Read(std::uint32_t slot, std::u16string& out) const {
  out.clear();
  const std::string name = ValueName(slot);
  if (name.empty()) return 1;
  const auto value = hive_.Read(key_, name);
  const auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
  if (text == nullptr || text->size() > kSlotLimit) return 1;
  out = Widen(*text);
  return 0;
}

std::int32_t SettingsStore::Write(std::uint32_t slot, std::u16string_view text) {
  const std::string name = ValueName(slot);
  std::string narrow = Narrow(text);
  return !name.empty() && narrow.size() <= kSlotLimit && hive_.Write(key_, name, std::move(narrow)) ? 0 : 1;
}

std::int32_t SettingsStore::Delete(std::uint32_t slot) {
  const std::string name = ValueName(slot);
  return !name.empty() && hive_.Delete(key_, name) ? 0 : 1;
}

std::int64_t SettingsStore::Age(std::uint32_t slot) {
  std::u16string stamp;
  if (Read(slot, stamp) != 0) return -1;
  EnsureKey();
  return SecondsBetween(TimeOf(stamp), UtcTime());
}

std::u16string SettingsStore::Now() {
  EnsureKey();
  const CalendarTime now = UtcTime();
  return EncodeTimeStamp(now.year, now.month, now.day, now.hour, now.minute, now.second);
}

bool SettingsStore::EnsureKey() { return hive_.HasKey(key_) || hive_.CreateKey(key_); }

}  // namespace zeph
