// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

namespace zeph {

/// Position of the first of these units at or behind from; the text's size when there is none.
template <char16_t... kUnits>
[[nodiscard]] std::size_t FindAnyOf(std::u16string_view text, std::size_t from) noexcept {
  const auto isOne = [](char16_t c) { return ((c == kUnits) | ...); };
  constexpr std::size_t kBlock = 32;  // looked at together, without a branch for each
  for (; text.size() - from >= kBlock; from += kBlock) {
    bool any = false;
    for (std::size_t i = 0; i < kBlock; ++i) any |= isOne(text[from + i]);
    if (any) break;
  }
  while (from < text.size() && !isOne(text[from])) ++from;
  return from;
}

}  // namespace zeph
