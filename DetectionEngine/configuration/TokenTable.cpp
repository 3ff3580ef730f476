// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/TokenTable.h"

#include <algorithm>
#include <bit>

namespace zeph {

void TokenTable::clear() noexcept {
  slots_.clear();
  entries_.clear();
  text_.clear();
}

void TokenTable::reserve(std::size_t count) {
  entries_.reserve(count);
  Grow(2 * count);
}

void TokenTable::insert_or_assign(std::u16string_view key, double probability) {
  if (slots_.size() < 2 * (entries_.size() + 1)) Grow(4 * (entries_.size() + 1));
  const std::uint32_t hash = Hash(key);
  Slot& slot = slots_[SlotOf(key, hash)];
  if (slot.entry != kFree) {
    entries_[slot.entry].probability = probability;
    return;
  }
  slot = {hash, static_cast<std::uint32_t>(entries_.size())};
  entries_.push_back({probability, static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(key.size())});
  text_.append(key);
}

std::vector<std::pair<std::u16string_view, double>> TokenTable::Sorted() const {
  std::vector<std::pair<std::u16string_view, double>> sorted;
  sorted.reserve(entries_.size());
  for (const Entry& entry : entries_) sorted.emplace_back(KeyOf(entry), entry.probability);
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return sorted;
}

void TokenTable::Grow(std::size_t slots) {
  slots = std::bit_ceil(std::max<std::size_t>(slots, 16));
  if (slots <= slots_.size()) return;
  std::vector<Slot> grown(slots);
  for (const Slot& slot : slots_) {
    if (slot.entry == kFree) continue;
    std::size_t at = slot.hash & (slots - 1);
    while (grown[at].entry != kFree) at = (at + 1) & (slots - 1);
    grown[at] = slot;
  }
  slots_ = std::move(grown);
}

}  // namespace zeph
