// SPDX-License-Identifier: Apache-2.0
// Why something got its score: the rules in force, strongest first, each in a sentence with its evidence.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/scoring/IndicatorResult.h"
#include "judging/Json.h"
#include "judging/RuleTexts.h"

namespace zeph {

/// One rule whose weight is in force.
struct Reason {
  std::string rule;      ///< its name, else "rule " and its number
  std::string sentence;  ///< what it says here; falls back on fields and methods
  std::string evidence;  ///< what it matched and where, cut to some 200 characters; empty when it has nothing to show
  float weight = 0.0F;   ///< above 0.5 speaks for spoofing
  float without = 0.0F;  ///< the spooficity without this rule

  friend bool operator==(const Reason&, const Reason&) = default;
};

/// The reasons for results that a call left, one for each indicator of the pair. Marks come first, then by how far the
/// weight lies from 0.5; equals stay in the order of the rules. Behind
/// the first mark no rule counts, so none is told. A rule that asks after others shows their evidence.
/// texts may be of another length: rules without one are told by what they ask.
[[nodiscard]] std::vector<Reason> ReasonsFor(const ConfigurationPair& pair, std::span<const IndicatorResult> results,
                                             const std::vector<RuleText>& texts);

void Write(JsonWriter& json, const Reason& reason);

}  // namespace zeph
