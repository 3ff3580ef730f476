// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/DistinctTexts.h"

#include <functional>

namespace zeph {

std::uint32_t DistinctTexts::Add(std::u16string_view text) {
  if (4 * (entries_.size() + 1) > 3 * slots_.size()) Grow();
  const auto hash = static_cast<std::uint32_t>(std::hash<std::u16string_view>()(text));
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  for (; slots_[at] != 0; at = (at + 1) & mask) {
    Entry& entry = entries_[slots_[at] - 1];
    if (entry.hash != hash || entry.text != text) continue;
    ++entry.count;
    return slots_[at] - 1;
  }
  entries_.push_back({text, hash, 1});
  slots_[at] = Size();
  return Size() - 1;
}

void DistinctTexts::Grow() {
  slots_.assign(slots_.empty() ? 16 : 2 * slots_.size(), 0);
  const std::size_t mask = slots_.size() - 1;
  for (std::uint32_t number = 0; number < Size(); ++number) {
    std::size_t at = entries_[number].hash & mask;
    while (slots_[at] != 0) at = (at + 1) & mask;
    slots_[at] = number + 1;
  }
}

}  // namespace zeph
