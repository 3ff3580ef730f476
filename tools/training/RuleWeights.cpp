// SPDX-License-Identifier: Apache-2.0
#include "tools/training/RuleWeights.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "DetectionEngine/scoring/Spooficity.h"
#include "tools/training/Regression.h"

namespace zeph::training {
namespace {

/// No weight is surer: a single rule shouldn't hold anything without a second one that agrees.
constexpr double kSurest = 0.97;

bool IsMark(float weight) noexcept {
  constexpr std::array kMarks = {kWeightScriptAttack, kWeightSpoofing, kWeightUnclassified, kWeightTrustworthy};
  return std::ranges::find(kMarks, weight) != kMarks.end();
}

/// Probabilities strictly between 0 and 1: what can be fitted.
bool IsProbability(float weight) noexcept { return weight > 0.0F && weight < 1.0F; }

double LogitOf(float weight) noexcept { return std::log(static_cast<double>(weight) / (1.0 - static_cast<double>(weight))); }

float WeightOf(double logit) noexcept {
  const double weight = std::clamp(1.0 / (1.0 + std::exp(-logit)), 1.0 - kSurest, kSurest);
  return static_cast<float>(std::round(weight * 1000.0) / 1000.0);
}

std::string Digits(float weight) {
  char digits[32];
  return {digits, std::to_chars(digits, digits + sizeof digits, weight).ptr};
}

/// A weight that is fitted, by its rule and side.
struct Fitted {
  std::size_t rule;
  bool on;
};

float& WeightAt(Indicators& indicators, const Fitted& fitted) {
  Indicator& indicator = indicators.Entries[fitted.rule];
  return fitted.on ? indicator.OnWeight : indicator.OffWeight;
}

}  // namespace

RuleAnswers AnswersOf(std::span<const IndicatorResult> results, bool isPhishing) {
  RuleAnswers answers;
  answers.isPhishing = isPhishing;
  for (const IndicatorResult& result : results) {
    answers.evaluated.push_back(result.evaluated);
    answers.on.push_back(result.on);
  }
  return answers;
}

std::optional<double> LogitOf(const Indicators& indicators, const RuleAnswers& answers) {
  double logit = 0.0;
  for (std::size_t i = 0; i < answers.on.size(); ++i) {
    if (!answers.evaluated[i]) continue;
    const Indicator& indicator = indicators.Entries[i];
    const float weight = answers.on[i] ? indicator.OnWeight : indicator.OffWeight;
    if (IsMark(weight)) return std::nullopt;
    if (IsProbability(weight)) logit += LogitOf(weight);
  }
  return logit;
}

std::vector<std::string> FitRuleWeights(Indicators& indicators, const WeightOptions& options,
                                        const std::function<std::vector<RuleAnswers>(const Indicators&)>& answers) {
  const std::vector<Indicator> before = indicators.Entries;
  std::vector<Fitted> fitted;
  std::vector<std::vector<int>> numbers(before.size(), {-1, -1});  // of each rule, off and on
  std::optional<std::size_t> level;
  for (std::size_t i = 0; i < before.size(); ++i) {
    const IndicatorRule& rule = before[i].Rule;
    if (!options.stages.contains(rule.Category)) continue;
    for (const bool on : {false, true}) {
      if (!IsProbability(on ? before[i].OnWeight : before[i].OffWeight)) continue;
      numbers[i][on] = static_cast<int>(fitted.size());
      if (on && rule.Expressions.empty() && rule.OperatorID == 0 && !level) level = fitted.size();
      fitted.push_back({i, on});
    }
  }
  for (int round = 0; round < options.rounds; ++round) {
    const std::vector<RuleAnswers> asked = answers(indicators);
    SparseRows rows;
    std::array<double, 2> sums{};
    for (const RuleAnswers& one : asked) sums[one.isPhishing] += one.importance;
    std::vector<const RuleAnswers*> open;  // by no mark decided
    for (const RuleAnswers& one : asked) {
      if (!LogitOf(indicators, one)) continue;
      double fixed = 0.0;
      for (std::size_t i = 0; i < one.on.size(); ++i) {
        if (!one.evaluated[i]) continue;
        const int number = numbers[i][one.on[i]];
        const float weight = one.on[i] ? before[i].OnWeight : before[i].OffWeight;
        if (number >= 0) {
          rows.features.push_back(static_cast<std::uint32_t>(number));
        } else if (IsProbability(weight)) {
          fixed += LogitOf(weight);
        }
      }
      if (!level) rows.features.push_back(static_cast<std::uint32_t>(fitted.size()));
      open.push_back(&one);
      rows.ends.push_back(rows.features.size());
      rows.fixed.push_back(fixed);
      rows.isPhishing.push_back(one.isPhishing);
      rows.importance.push_back(one.importance * (one.isPhishing ? 1.0 : options.legitimateImportance) *
                                static_cast<double>(asked.size()) / 2 / std::max(sums[one.isPhishing], 1e-9));
    }
    std::vector<double> weights(fitted.size());
    for (std::size_t i = 0; i < fitted.size(); ++i) weights[i] = LogitOf(WeightAt(indicators, fitted[i]));
    std::vector<double> penalties(fitted.size(), 1.0);
    if (!level) {
      // What no rule carries is fitted beside them, so that they needn't bend to carry it.
      weights.push_back(0.0);
      penalties.push_back(1e-3);
    }
    penalties[level.value_or(fitted.size())] = 1e-3;
    FitLogistic(rows, penalties, {.penalty = options.penalty}, weights);
    for (std::size_t i = 0; i < fitted.size(); ++i) WeightAt(indicators, fitted[i]) = WeightOf(weights[i]);
    std::vector<double> legitimate;
    std::size_t all = 0;
    for (const RuleAnswers& one : asked) all += one.isPhishing ? 0 : 1;
    for (const RuleAnswers* one : open) {
      if (!one->isPhishing) legitimate.push_back(*LogitOf(indicators, *one));
    }
    if (legitimate.empty()) continue;
    std::ranges::sort(legitimate, std::greater());
    const auto above = static_cast<std::size_t>(options.heldRate * static_cast<double>(all));
    const double cut = legitimate[std::min(above, legitimate.size() - 1)];
    const double threshold = std::log(0.89 / 0.11);
    constexpr double kMargin = 0.02;  // what weights lose in rounding
    if (level) {
      float& weight = WeightAt(indicators, fitted[*level]);
      weight = WeightOf(LogitOf(weight) + threshold - kMargin - cut);
    } else if (cut > 0) {
      const double scale = (threshold - kMargin) / cut;
      for (std::size_t i = 0; i < fitted.size(); ++i) WeightAt(indicators, fitted[i]) = WeightOf(scale * weights[i]);
    }
  }
  std::vector<std::string> changes;
  for (const Fitted& one : fitted) {
    const float old = one.on ? before[one.rule].OnWeight : before[one.rule].OffWeight;
    changes.push_back("rule " + std::to_string(one.rule) + (one.on ? " on " : " off ") + Digits(old) + " -> " +
                      Digits(WeightAt(indicators, one)));
  }
  return changes;
}

std::string WithWeights(std::string_view source, const Indicators& indicators) {
  std::string text;
  std::size_t rule = 0;
  while (!source.empty()) {
    const std::size_t feed = source.find('\n');
    const std::size_t length = feed == std::string_view::npos ? source.size() : feed + 1;
    const std::string_view line = source.substr(0, length);
    const auto replaced = [&](std::string_view name, float weight) {
      // A line's first tag is the one that counts: what stands in a comment isn't a weight.
      const std::size_t open = std::min(line.find('<'), line.size());
      if (!line.substr(open).starts_with("<" + std::string(name) + ">")) return false;
      const std::size_t begin = open + name.size() + 2;
      const std::size_t end = line.find('<', begin);
      if (end == std::string_view::npos) return false;  // no value is read here
      text += std::string(line.substr(0, begin)) + Digits(weight) + std::string(line.substr(end));
      return true;
    };
    if (rule >= indicators.Entries.size() || (!replaced("OnWeight", indicators.Entries[rule].OnWeight) &&
                                              !replaced("OffWeight", indicators.Entries[rule].OffWeight))) {
      text += line;
    }
    if (line.find("</Indicator>") != std::string_view::npos) ++rule;
    source.remove_prefix(length);
  }
  return text;
}

}  // namespace zeph::training
