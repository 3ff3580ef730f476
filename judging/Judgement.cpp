// SPDX-License-Identifier: Apache-2.0
#include "judging/Judgement.h"

#include <array>

namespace zeph {

std::string_view NameOf(UrlSource source) noexcept {
  constexpr std::array<std::string_view, 5> kNames = {"", "given", "map", "document", "claimed"};
  return kNames[static_cast<std::size_t>(source)];
}

std::string_view NameOf(Verdict verdict) noexcept {
  constexpr std::array<std::string_view, 6> kNames = {"trustworthy",   "spoofing",     "spoofing-confirmed",
                                                      "script-attack", "unclassified", "not-judged"};
  return kNames[static_cast<std::size_t>(verdict)];
}

}  // namespace zeph
