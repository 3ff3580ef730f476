// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/text/TextHash.h"

namespace zeph {

/// URL token to probability: a hash table looked up by view, without allocation. Order of insertion
/// doesn't show; Sorted gives the ascending order of the 16-bit keys. Readers may share it once filled.
class TokenTable {
 public:
  void clear() noexcept;
  void reserve(std::size_t count);
  /// The later of two equal keys wins.
  void insert_or_assign(std::u16string_view key, double probability);
  /// The token's probability, or null; it stays where it is while the table is unchanged. O(1).
  [[nodiscard]] const double* Find(std::u16string_view key) const noexcept {
    if (slots_.empty()) return nullptr;
    const Slot& slot = slots_[SlotOf(key, Hash(key))];
    return slot.IsFree() ? nullptr : &slot.probability;
  }
  /// Looks keys up that will be asked for again and again, to be found by their number from then on. A change of the
  /// table forgets them.
  void Pin(std::span<const std::u16string_view> keys);
  [[nodiscard]] bool HasPinned() const noexcept { return !pinned_.empty(); }
  /// What Find gives for the pinned key of that number.
  [[nodiscard]] const double* Pinned(std::size_t number) const noexcept {
    return pinned_[number] ? &*pinned_[number] : nullptr;
  }
  /// The same for keys that are a code and a word: those of one word lie side by side, so that asking for all of them
  /// touches the memory once. At most kMostCodes codes.
  void PinWords(std::span<const std::u16string_view> codes, std::span<const std::u16string> words);
  [[nodiscard]] bool HasPinnedWords() const noexcept { return !pinnedWords_.empty(); }
  [[nodiscard]] const double* PinnedWord(std::size_t word, std::size_t code) const noexcept {
    const WordRow& row = pinnedWords_[word];
    return (row.known >> code & 1) != 0 ? &row.probabilities[code] : nullptr;
  }
  static constexpr std::size_t kMostCodes = 7;
  [[nodiscard]] std::size_t size() const noexcept { return count_; }
  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
  /// All entries in ascending key order; the views live as long as the table stays unchanged.
  [[nodiscard]] std::vector<std::pair<std::u16string_view, double>> Sorted() const;

  friend bool operator==(const TokenTable& a, const TokenTable& b) { return a.Sorted() == b.Sorted(); }

 private:
  static constexpr std::uint32_t kFree = 0xFFFFFFFF;
  /// Units in front of a key that hold its length. It stands there and not in the slot, so that a slot is small: a
  /// lookup touches one cache line, and when it finds its key one more.
  static constexpr std::size_t kLengthUnits = 2;

  struct Slot {
    double probability = 0.0;
    std::uint32_t hash = 0;
    std::uint32_t key = kFree;  ///< into text_

    [[nodiscard]] bool IsFree() const noexcept { return key == kFree; }
  };

  [[nodiscard]] std::uint32_t Hash(std::u16string_view key) const noexcept {
    return static_cast<std::uint32_t>(TextHash::Of(key, secret_));
  }
  [[nodiscard]] std::u16string_view KeyOf(const Slot& slot) const noexcept {
    const char16_t* const at = text_.data() + slot.key;
    return {at + kLengthUnits, at[0] | std::size_t{at[1]} << 16};
  }
  /// The slot that holds the key, or the free one that would.
  [[nodiscard]] std::size_t SlotOf(std::u16string_view key, std::uint32_t hash) const noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    while (!slots_[at].IsFree() && (slots_[at].hash != hash || !TextHash::Same(KeyOf(slots_[at]), key))) {
      at = (at + 1) & mask;
    }
    return at;
  }
  void Grow(std::size_t slots);
  void Unpin() noexcept;

  /// As large as a cache line, and in one.
  struct alignas(64) WordRow {
    std::array<double, kMostCodes> probabilities{};
    std::uint8_t known = 0;  ///< a bit for each code with a key in the table
  };

  std::vector<Slot> slots_;  ///< a power of two, at most half full; none before the first key
  std::u16string text_;      ///< all keys, one behind another, each behind its length
  std::size_t count_ = 0;
  std::vector<std::optional<double>> pinned_;  ///< by the number of the key
  std::vector<WordRow> pinnedWords_;           ///< by the number of the word
  TextHash::Secret secret_ = TextHash::Seed();
};

}  // namespace zeph
