// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/TokenTable.h"

#include <algorithm>
#include <bit>

namespace zeph {

void TokenTable::clear() noexcept {
  slots_.clear();
  text_.clear();
  count_ = 0;
  Unpin();
}

void TokenTable::reserve(std::size_t count) { Grow(2 * count); }

void TokenTable::insert_or_assign(std::u16string_view key, double probability) {
  if (slots_.size() < 2 * (count_ + 1)) Grow(4 * (count_ + 1));
  Unpin();
  const std::uint32_t hash = Hash(key);
  Slot& slot = slots_[SlotOf(key, hash)];
  slot.probability = probability;
  if (!slot.IsFree()) return;
  slot.hash = hash;
  slot.key = static_cast<std::uint32_t>(text_.size());
  text_ += static_cast<char16_t>(key.size());
  text_ += static_cast<char16_t>(key.size() >> 16);
  text_ += key;
  ++count_;
}

void TokenTable::Pin(std::span<const std::u16string_view> keys) {
  pinned_.clear();
  pinned_.reserve(keys.size());
  for (const std::u16string_view key : keys) {
    const double* const known = Find(key);
    pinned_.push_back(known != nullptr ? std::optional(*known) : std::nullopt);
  }
}

void TokenTable::PinWords(std::span<const std::u16string_view> codes, std::span<const std::u16string> words) {
  pinnedWords_.assign(words.size(), {});
  std::u16string key;
  for (std::size_t word = 0; word < words.size(); ++word) {
    for (std::size_t code = 0; code < codes.size(); ++code) {
      key.assign(codes[code]).append(words[word]);
      const double* const known = Find(key);
      if (known == nullptr) continue;
      pinnedWords_[word].probabilities[code] = *known;
      pinnedWords_[word].known = static_cast<std::uint8_t>(pinnedWords_[word].known | 1U << code);
    }
  }
}

void TokenTable::Unpin() noexcept {
  pinned_.clear();
  pinnedWords_.clear();
}

std::vector<std::pair<std::u16string_view, double>> TokenTable::Sorted() const {
  std::vector<std::pair<std::u16string_view, double>> sorted;
  sorted.reserve(count_);
  for (const Slot& slot : slots_) {
    if (!slot.IsFree()) sorted.emplace_back(KeyOf(slot), slot.probability);
  }
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return sorted;
}

void TokenTable::Grow(std::size_t slots) {
  slots = std::bit_ceil(std::max<std::size_t>(slots, 16));
  if (slots <= slots_.size()) return;
  std::vector<Slot> grown(slots);
  for (const Slot& slot : slots_) {
    if (slot.IsFree()) continue;
    std::size_t at = slot.hash & (slots - 1);
    while (!grown[at].IsFree()) at = (at + 1) & (slots - 1);
    grown[at] = slot;
  }
  slots_ = std::move(grown);
}

}  // namespace zeph
