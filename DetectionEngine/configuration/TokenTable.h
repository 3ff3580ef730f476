// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zeph {

/// URL token to probability: a hash table looked up by view, without allocation. Order of insertion
/// doesn't show; Sorted gives the ascending order of the 16-bit keys. Readers may share it once filled.
class TokenTable {
 public:
  void clear() noexcept;
  void reserve(std::size_t count);
  /// The later of two equal keys wins.
  void insert_or_assign(std::u16string_view key, double probability);
  /// The token's probability, or null. O(1).
  [[nodiscard]] const double* Find(std::u16string_view key) const noexcept;
  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// All entries in ascending key order; the views live as long as the table stays unchanged.
  [[nodiscard]] std::vector<std::pair<std::u16string_view, double>> Sorted() const;

  friend bool operator==(const TokenTable& a, const TokenTable& b) { return a.Sorted() == b.Sorted(); }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t offset = 0;  ///< into text_
    std::uint32_t length = 0;  ///< kFree: no entry
    double probability = 0.0;
  };
  [[nodiscard]] std::size_t SlotOf(std::u16string_view key, std::uint32_t hash) const noexcept;
  void Grow(std::size_t slots);

  std::vector<Slot> slots_;  ///< a power of two, at most three quarters full
  std::u16string text_;      ///< all keys, one behind another
  std::size_t count_ = 0;
};

}  // namespace zeph
