// SPDX-License-Identifier: Apache-2.0
// From the answers of the rules to a score, a classification and a brand. Pure reads of both lists; entries of
// rules that haven't run yet are unevaluated and don't count. The list of results has an entry for every indicator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// What a weight of these exact values says; any other is a probability of spoofing. kNoWeight says nothing.
inline constexpr float kWeightScriptAttack = 1.2F;   ///< classification 6, final
inline constexpr float kWeightSpoofing = 1.0F;       ///< classification 2, final
inline constexpr float kWeightUnclassified = -1.0F;  ///< classification 3, final
inline constexpr float kWeightTrustworthy = 0.0F;    ///< classification 1, final

/// A score strictly above it is that of a spoofing site.
inline constexpr float kSpoofingThreshold = 0.89F;

/// Combines the weights in force, in the order of the rules, up to the first mark. Gives the classification: 1, 2,
/// 3 or 6. spooficity receives the score, 0.5 when no rule says anything; isFinal whether a mark was met, so that
/// no later stage can change the answer.
std::int32_t computeSpooficity(const Indicators& indicators, std::span<const IndicatorResult> results,
                               float& spooficity, bool& isFinal);

/// The brand that most of the fired rules with a TDPriority name in their match text; among equals the one named
/// by the rule of the lowest TDPriority number, else the first in key order. Empty when no rule names one.
[[nodiscard]] std::u16string TopBrand(const Indicators& indicators, std::span<const IndicatorResult> results);

/// Whether the rule at this index has fired; false beyond the list.
[[nodiscard]] bool IndicatorIsOn(const Indicators& indicators, std::span<const IndicatorResult> results,
                                 std::size_t index) noexcept;

/// The number of rules in front of the first one of Category 4; at least 1.
[[nodiscard]] std::size_t ResultCount(const Indicators& indicators) noexcept;

}  // namespace zeph
