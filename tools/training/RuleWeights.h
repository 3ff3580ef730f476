// SPDX-License-Identifier: Apache-2.0
// Fits the weights of the rules to labelled URLs or pages, and writes them back into the sources.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph::training {

/// What the rules said to one input, without their texts.
struct RuleAnswers {
  std::vector<bool> evaluated;
  std::vector<bool> on;
  bool isPhishing = false;
  double importance = 1.0;
};
[[nodiscard]] RuleAnswers AnswersOf(std::span<const IndicatorResult> results, bool isPhishing);

/// The logit of the score that the weights in force give; none when a mark decides.
[[nodiscard]] std::optional<double> LogitOf(const Indicators& indicators, const RuleAnswers& answers);

struct WeightOptions {
  std::set<std::uint32_t> stages = {0, 7};  ///< whose rules get new weights; the others keep theirs
  double heldRate = 0.0005;                 ///< share of legitimate inputs that may be held
  double penalty = 3.0;                     ///< on the distance of a weight's logit from 0
  double legitimateImportance = 8.0;        ///< where a phishing input has 1
  int rounds = 2;                           ///< of asking the rules anew: some ask for the score so far
};

/// Replaces the weights that are probabilities: those of the wanted stages by the sigmoids of a logistic regression
/// over which of them are in force; facts and marks stay. So that at most the wanted share of the legitimate inputs is
/// held, a rule without expressions, which is always on, is shifted; where there is none, all are scaled.
/// answers(indicators) asks the rules with these weights. Gives what was changed, a line for each rule.
std::vector<std::string> FitRuleWeights(Indicators& indicators, const WeightOptions& options,
                                        const std::function<std::vector<RuleAnswers>(const Indicators&)>& answers);

/// The source text with the weights of the indicators in the place of its own; all else, comments too, stays. A rule
/// that says no weight is left without.
[[nodiscard]] std::string WithWeights(std::string_view source, const Indicators& indicators);

}  // namespace zeph::training
