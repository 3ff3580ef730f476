// SPDX-License-Identifier: Apache-2.0
#include "judging/ShownText.h"

#include <algorithm>
#include <array>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};
constexpr std::array kUnshowable = {
    Range{0x00, 0x1F},     Range{0x7F, 0x9F},     Range{0xAD, 0xAD},     Range{0x34F, 0x34F},   Range{0x61C, 0x61C},
    Range{0x115F, 0x1160}, Range{0x17B4, 0x17B5}, Range{0x180B, 0x180F}, Range{0x200B, 0x200F}, Range{0x2028, 0x202E},
    Range{0x2060, 0x206F}, Range{0x3164, 0x3164}, Range{0xD800, 0xDFFF}, Range{0xFEFF, 0xFEFF}, Range{0xFFA0, 0xFFA0},
    Range{0xFFF0, 0xFFFB}, Range{0xFFFE, 0xFFFF}, Range{0xE0000, 0xE0FFF},
};

void AppendEscape(std::string& out, char32_t c) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const int digits = c < 0x100 ? 2 : c < 0x10000 ? 4 : 8;
  out.append({'\\', digits == 2 ? 'x' : digits == 4 ? 'u' : 'U'});
  for (int shift = digits * 4 - 4; shift >= 0; shift -= 4) out += kDigits[c >> shift & 15U];
}

}  // namespace

bool IsUnshowable(char32_t c) noexcept {
  if (c >= 0x20 && c < 0x7F) return false;
  return std::ranges::any_of(kUnshowable, [c](const Range& range) { return c >= range.first && c <= range.last; });
}

std::string Shown(std::u16string_view text) {
  std::string shown;
  shown.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    std::size_t units = 1;
    if ((c & 0xFC00U) == 0xD800U && i + 1 < text.size() && (text[i + 1] & 0xFC00U) == 0xDC00U) {
      c = 0x10000U + ((c - 0xD800U) << 10U) + (text[i + 1] - 0xDC00U);
      units = 2;
    }
    if (IsUnshowable(c)) {
      AppendEscape(shown, c);
    } else if (c < 0x80) {
      shown += static_cast<char>(c);
    } else {
      shown += Narrow(text.substr(i, units));
    }
    i += units - 1;
  }
  return shown;
}

std::string Shown(std::string_view text) {
  const bool isPlain = std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F; });
  return isPlain ? std::string(text) : Shown(Widen(text));
}

std::string ShownInShort(std::u16string_view text, std::size_t most) {
  std::string shown = Shown(text.substr(0, most));
  return text.size() > most ? shown + "..." : shown;
}

}  // namespace zeph
