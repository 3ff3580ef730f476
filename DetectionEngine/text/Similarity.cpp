// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/Similarity.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

constexpr std::size_t kStripRows = 64;

/// For up to 64 units of a text, one a row: the rows on which a given unit stands.
class RowsOfUnit {
 public:
  explicit RowsOfUnit(std::u16string_view strip) noexcept {
    for (std::size_t row = 0; row < strip.size(); ++row) {
      Slot& slot = slots_[SlotOf(strip[row])];
      slot.unit = strip[row];
      slot.rows |= std::uint64_t{1} << row;
    }
  }

  [[nodiscard]] std::uint64_t operator[](char16_t unit) const noexcept { return slots_[SlotOf(unit)].rows; }

 private:
  struct Slot {
    std::uint64_t rows = 0;  ///< 0: free
    char16_t unit = 0;
  };

  /// At most half of the slots are taken; ASCII has each its own.
  [[nodiscard]] std::size_t SlotOf(char16_t unit) const noexcept {
    std::size_t at = unit % slots_.size();
    while (slots_[at].rows != 0 && slots_[at].unit != unit) at = (at + 1) % slots_.size();
    return at;
  }

  std::array<Slot, 2 * kStripRows> slots_;
};

}  // namespace

// The table of distances, rows for a and columns for b, 64 rows at a time: neighbours in it differ by at most one,
// so a column of 64 cells is two bit masks, the rows that are one above and one below the row before, and the next
// column follows by a few word operations (Myers, 1999; Hyyro's form for tables of more than one word). steps carries
// the difference of neighbouring columns along a strip's last row into the next strip.
std::size_t EditDistance(std::u16string_view a, std::u16string_view b) {
  if (a.size() > b.size()) std::swap(a, b);
  if (a.empty()) return b.size();
  const std::u16string rows = ToLower(a);
  const std::u16string columns = ToLower(b);
  std::vector<std::int8_t> steps(columns.size(), 1);
  for (std::size_t begin = 0; begin < rows.size(); begin += kStripRows) {
    const std::u16string_view strip = std::u16string_view(rows).substr(begin, kStripRows);
    const RowsOfUnit rowsOf(strip);
    const std::size_t lastRow = strip.size() - 1;
    std::uint64_t rises = ~std::uint64_t{0};
    std::uint64_t falls = 0;
    for (std::size_t column = 0; column < columns.size(); ++column) {
      const std::uint64_t stepUp = steps[column] > 0 ? 1 : 0;
      const std::uint64_t stepDown = steps[column] < 0 ? 1 : 0;
      const std::uint64_t equal = rowsOf[columns[column]];
      const std::uint64_t vertical = equal | falls;
      const std::uint64_t carried = equal | stepDown;
      const std::uint64_t horizontal = (((carried & rises) + rises) ^ rises) | carried;
      std::uint64_t up = falls | ~(horizontal | rises);
      std::uint64_t down = rises & horizontal;
      steps[column] =
          static_cast<std::int8_t>(static_cast<int>(up >> lastRow & 1) - static_cast<int>(down >> lastRow & 1));
      up = up << 1 | stepUp;
      down = down << 1 | stepDown;
      rises = down | ~(vertical | up);
      falls = up & vertical;
    }
  }
  auto distance = static_cast<std::ptrdiff_t>(rows.size());
  for (const std::int8_t step : steps) distance += step;
  return static_cast<std::size_t>(distance);
}

bool IsSimilarWithin(std::u16string_view text, std::u16string_view candidate, float threshold, float& distance) {
  const std::size_t gap = std::max(text.size(), candidate.size()) - std::min(text.size(), candidate.size());
  distance = candidate.empty() ? 1.0F : static_cast<float>(gap) / static_cast<float>(candidate.size());
  if (distance > threshold) return false;
  distance = static_cast<float>(EditDistance(text, candidate));
  if (!text.empty()) distance /= static_cast<float>(text.size());
  return distance < threshold;
}

std::ptrdiff_t ContainsNormalized(std::u16string_view text, std::span<const std::u16string> words) {
  // The short name of a bank is also the tail of a once popular host of home pages. Inside that name it says nothing
  // about the bank, so there it doesn't count.
  const std::u16string_view bank = StringEntry(0x09);
  const std::u16string_view homePages = StringEntry(0x0A);
  const std::size_t bankAt = homePages.find(bank);
  std::u16string cleaned = ToLower(text);
  RemovePunctuation(cleaned);
  SqueezeRepeats(cleaned);
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::u16string word = words[i];
    RemovePunctuation(word);
    SqueezeRepeats(word);
    std::size_t hit = FindExact(cleaned, word);
    while (word == bank && hit != std::u16string_view::npos && hit >= bankAt &&
           cleaned.compare(hit - bankAt, homePages.size(), homePages) == 0) {
      hit = FindExact(cleaned, word, hit + 1);
    }
    if (hit != std::u16string_view::npos) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

}  // namespace zeph
