// SPDX-License-Identifier: Apache-2.0
#include "documents/html/EntityTable.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace zeph::html {
namespace {

struct Row {
  std::string_view name;
  char32_t first;
  char32_t second;
};
constexpr Row kRows[] = {
#include "documents/html/NamedReferences.inc"
};
static_assert(std::ranges::is_sorted(kRows, {}, &Row::name));

/// Rows of each first letter: kStarts[c] to kStarts[c + 1].
constexpr auto kStarts = [] {
  std::array<std::uint16_t, 129> starts{};
  for (const Row& row : kRows) ++starts[static_cast<unsigned char>(row.name[0]) + 1U];
  for (std::size_t c = 1; c < starts.size(); ++c) starts[c] = static_cast<std::uint16_t>(starts[c] + starts[c - 1]);
  return starts;
}();

/// Code points that windows-1252 has at 0x80 to 0x9F: what authors of old meant by such a number.
constexpr std::array<char16_t, 32> kC1 = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                          0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                          0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                          0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

}  // namespace

NamedReference FindNamedReference(const char16_t* text) noexcept {
  NamedReference found;
  if (text[0] == 0 || text[0] >= 0x80) return found;
  const Row* low = kRows + kStarts[text[0]];
  const Row* high = kRows + kStarts[text[0] + 1U];
  // Each character narrows the rows to those that go on with it; a name that is complete stands first among them.
  for (std::size_t depth = 1; low != high; ++depth) {
    if (low->name.size() == depth) found = {depth, low->name.back() == ';', low->first, low->second};
    const char16_t c = text[depth];
    const auto before = [depth](const Row& row, char16_t wanted) {
      return row.name.size() <= depth || static_cast<unsigned char>(row.name[depth]) < wanted;
    };
    low = std::lower_bound(low, high, c, before);
    high = std::lower_bound(low, high, static_cast<char16_t>(c + 1), before);
    if (c == 0xFFFF) break;
  }
  return found;
}

char32_t NumericReference(char32_t codePoint) noexcept {
  if (codePoint == 0 || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return 0xFFFD;
  return codePoint >= 0x80 && codePoint < 0xA0 ? kC1[codePoint - 0x80] : codePoint;
}

}  // namespace zeph::html
