// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/text/UnitOrder.h"

namespace zeph {

/// Texts to counts, in ascending order of the 16-bit code units. Flat, since a page may name a hundred thousand
/// addresses; the texts are lent, as all texts of a page.
class Tally {
 public:
  using Entry = std::pair<std::u16string_view, std::int32_t>;
  using const_iterator = std::vector<Entry>::const_iterator;
  using iterator = const_iterator;
  using value_type = Entry;

  Tally() = default;
  Tally(std::initializer_list<Entry> entries) : Tally(std::vector<Entry>(entries)) {}
  /// Entries in any order; counts of equal texts are added up.
  explicit Tally(std::vector<Entry> entries) : entries_(std::move(entries)) {
    std::ranges::sort(entries_, UnitOrder(), &Entry::first);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (kept != 0 && entries_[kept - 1].first == entries_[i].first) {
        entries_[kept - 1].second += entries_[i].second;
      } else {
        entries_[kept++] = entries_[i];
      }
    }
    entries_.resize(kept);
    if (entries_.capacity() - kept > kept / 4) entries_.shrink_to_fit();
  }

  [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
  [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
  [[nodiscard]] const_iterator find(std::u16string_view text) const noexcept {
    const auto at = std::ranges::lower_bound(entries_, text, UnitOrder(), &Entry::first);
    return at != entries_.end() && at->first == text ? at : entries_.end();
  }
  /// For a text that is in it.
  [[nodiscard]] std::int32_t at(std::u16string_view text) const {
    const auto found = find(text);
    if (found == end()) throw std::out_of_range("no such text");
    return found->second;
  }
  /// The count of a text, which is put in with 0 when it isn't there: for a few.
  std::int32_t& operator[](std::u16string_view text) {
    auto at = std::ranges::lower_bound(entries_, text, UnitOrder(), &Entry::first);
    if (at == entries_.end() || at->first != text) at = entries_.insert(at, {text, 0});
    return at->second;
  }

  friend bool operator==(const Tally&, const Tally&) = default;

 private:
  std::vector<Entry> entries_;
};

}  // namespace zeph
