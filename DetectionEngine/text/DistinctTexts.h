// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zeph {

/// Texts that come again and again, each kept once. The texts must stay where they are.
class DistinctTexts {
 public:
  /// What a distinct text takes, at the most.
  static constexpr std::size_t kBytes = 64;

  struct Entry {
    std::u16string_view text;
    std::uint32_t hash = 0;
    std::int32_t count = 0;  ///< how often it came
  };

  /// The text's number: those of new texts go up from 0.
  std::uint32_t Add(std::u16string_view text);

  [[nodiscard]] std::uint32_t Size() const noexcept { return static_cast<std::uint32_t>(entries_.size()); }
  [[nodiscard]] const Entry& operator[](std::uint32_t number) const noexcept { return entries_[number]; }

 private:
  void Grow();

  std::vector<Entry> entries_;
  std::vector<std::uint32_t> slots_;  ///< 1 + the number of an entry, or 0; a power of two
};

}  // namespace zeph
