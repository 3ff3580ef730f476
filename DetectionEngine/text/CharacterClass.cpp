// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/CharacterClass.h"

#include <cwctype>
#include <locale.h>
#include <memory>
#include <wctype.h>

#include "DetectionEngine/platform/Lasting.h"

namespace zeph::detail {

namespace {

/// Blanks at which no line is broken: the C library counts them with the visible characters.
constexpr bool IsNoBreakBlank(std::size_t c) noexcept { return c == 0x00A0 || c == 0x2007 || c == 0x202F; }

std::unique_ptr<const CharacterTable> MakeTable() {
  auto table = std::make_unique<CharacterTable>();
  const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  for (std::size_t i = 0; i < table->lower.size(); ++i) {
    const auto c = static_cast<wint_t>(i);
    if (unicode == nullptr) {  // a C library without its Unicode tables: ASCII alone has classes
      table->lower[i] = static_cast<char16_t>(i >= 'A' && i <= 'Z' ? i + 32 : i);
      continue;
    }
    table->lower[i] = static_cast<char16_t>(towlower_l(c, unicode));
    unsigned bits = 0;
    if (i >= '0' && i <= '9') bits |= kDigitBit;
    if (iswspace_l(c, unicode) != 0 || IsNoBreakBlank(i)) bits |= kSpaceBit;
    if (iswalpha_l(c, unicode) != 0) bits |= kAlphaBit;
    if (iswupper_l(c, unicode) != 0) bits |= kUpperBit;
    table->classes[i] = static_cast<std::uint8_t>(bits);
  }
  if (unicode != nullptr) freelocale(unicode);
  return table;
}

}  // namespace

const CharacterTable& Characters() noexcept {
  static const CharacterTable& table = Lasting(MakeTable());
  return table;
}

}  // namespace zeph::detail
