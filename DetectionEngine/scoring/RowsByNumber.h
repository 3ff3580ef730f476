// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zeph {

/// Where the row of a number stands in a table whose rows are in the order of their numbers, with gaps. Made by the
/// compiler, which refuses a table that isn't.
template <std::size_t kNumbers>
class RowsByNumber {
 public:
  template <class Table>
  consteval explicit RowsByNumber(const Table& table) {
    for (std::size_t row = 0; row < table.size(); ++row) {
      if (row > 0 && table[row - 1].number >= table[row].number) throw "rows out of order";
      place_[table[row].number] = static_cast<std::uint8_t>(row + 1);
    }
  }

  /// The row of a number, or null when there is none.
  template <class Table>
  [[nodiscard]] constexpr auto Find(const Table& table, std::uint32_t number) const noexcept {
    return number < kNumbers && place_[number] != 0 ? &table[place_[number] - 1U] : nullptr;
  }

 private:
  std::array<std::uint8_t, kNumbers> place_{};  ///< one more than the row; 0: none
};

}  // namespace zeph
