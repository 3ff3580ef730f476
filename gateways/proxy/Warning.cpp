// SPDX-License-Identifier: Apache-2.0
#include "gateways/proxy/Warning.h"

#include <algorithm>

#include "DetectionEngine/platform/CodePage.h"
#include "judging/Answers.h"
#include "judging/ShownText.h"

namespace zeph {

Warning WarningOf(const Judgement& judgement) {
  constexpr std::size_t kMost = 300;  // characters
  constexpr float kUndecided = 0.5F;
  Warning warning;
  warning.brand = ShownInShort(Widen(ImitatedBrand(judgement)), kMost);
  const auto reason = std::ranges::find_if(judgement.reasons, [](const Reason& one) { return one.weight > kUndecided; });
  if (reason != judgement.reasons.end()) warning.reason = ShownInShort(Widen(reason->sentence), kMost);
  if (!warning.reason.empty()) return warning;
  switch (judgement.verdict) {
    case Verdict::kSpoofingConfirmed:
      warning.reason = "the classification server has confirmed it as spoofing";
      break;
    case Verdict::kScriptAttack:
      warning.reason = "its address carries a script";
      break;
    default:
      warning.reason = "it looks like a site that it isn't";
  }
  return warning;
}

}  // namespace zeph
