// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"

namespace zeph {

/// How much memory the records of one load may take. A few bytes of a file can stand for a large record, and records
/// can be repeated by a short line, so that the length of a file is no bound.
inline constexpr std::size_t kRecordRoom = std::size_t{1} << 30;

class LoadRoom {
 public:
  explicit LoadRoom(std::size_t bytes = kRecordRoom) noexcept : left_(bytes) {}

  /// False, from then on, when there isn't that much left.
  bool Take(std::size_t bytes) noexcept {
    if (bytes > left_) usedUp_ = true;
    left_ -= std::min(bytes, left_);
    return !usedUp_;
  }
  [[nodiscard]] bool IsUsedUp() const noexcept { return usedUp_; }

 private:
  std::size_t left_;
  bool usedUp_ = false;
};

/// What a copy takes; of a list, its items.
[[nodiscard]] inline std::size_t RoomOf(std::u16string_view text) noexcept {
  return sizeof(std::u16string) + 2 * text.size();
}
[[nodiscard]] inline std::size_t RoomOf(const std::vector<std::u16string>& texts) noexcept {
  std::size_t room = 0;
  for (const std::u16string& text : texts) room += RoomOf(text);
  return room;
}
[[nodiscard]] inline std::size_t RoomOf(const TrustedDomainInfo& info) noexcept {
  return sizeof info + RoomOf(info.CN) + RoomOf(info.UT) + RoomOf(info.TT) + RoomOf(info.DT) + RoomOf(info.CT) +
         info.Ranges.size() * sizeof(IPRange);
}

/// What the indexes of tags and brand domains take for one trusted domain: its name again for each of them.
[[nodiscard]] inline std::size_t RoomOfIndexes(std::u16string_view domain, const TrustedDomainInfo& info) noexcept {
  const std::size_t tags = info.UT.size() + info.TT.size() + info.CT.size();
  return tags * sizeof(TagIndexEntry) + info.DT.size() * sizeof(NetLocation) +
         (tags + info.DT.size()) * 2 * domain.size() + RoomOf(info);
}

/// What a prepared value takes: its items twice, their numbers, and the words to search by. Generous.
[[nodiscard]] inline std::size_t RoomOfValue(std::size_t length, std::size_t items) noexcept {
  constexpr std::size_t kPerItem = 256;
  constexpr std::size_t kPerCharacter = 8;
  return length * kPerCharacter + items * kPerItem;
}

}  // namespace zeph
