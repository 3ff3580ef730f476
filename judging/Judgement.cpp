// SPDX-License-Identifier: Apache-2.0
#include "judging/Judgement.h"

#include <algorithm>
#include <array>
#include <utility>

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

void TakeWorstPart(Judgement& judgement) {
  // From good to bad. What couldn't be judged speaks against trust, and for nothing else.
  const auto badness = [](const Judgement& judged) {
    constexpr std::array<int, 6> kBadness = {0, 3, 5, 4, 2, 1};
    return std::pair(kBadness[static_cast<std::size_t>(judged.verdict)], judged.spooficity.value_or(0.0F));
  };
  const auto worst = std::ranges::max_element(judgement.parts, {}, badness);
  if (worst == judgement.parts.end()) return;
  const bool hasOwn = judgement.result.has_value();
  if (hasOwn && (!IsHeld(worst->verdict) || badness(*worst) <= badness(judgement))) return;
  judgement.worst = static_cast<std::size_t>(worst - judgement.parts.begin());
  judgement.verdict = worst->verdict;
  judgement.classification = worst->classification;
  judgement.spooficity = worst->spooficity;
  judgement.siteName = worst->siteName;
  judgement.reason = worst->reason;
}

}  // namespace zeph
