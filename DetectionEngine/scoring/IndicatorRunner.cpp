// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/IndicatorRunner.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "DetectionEngine/platform/Clock.h"

namespace zeph {
namespace {

enum OperatorNumber : std::uint32_t { kAnd = 0, kOr = 1, kNot = 2 };

constexpr std::array<Operator, 3> kOperators = {{
    {kAnd, "and", "on when every expression is; the first one that is off ends the rule",
     [](std::span<const IndicatorResult> answers) { return std::ranges::all_of(answers, &IndicatorResult::on); }},
    {kOr, "or", "on when any expression is; all of them run",
     [](std::span<const IndicatorResult> answers) { return std::ranges::any_of(answers, &IndicatorResult::on); }},
    {kNot, "not", "on when the first expression is off; the others have no effect",
     [](std::span<const IndicatorResult> answers) { return !answers.empty() && !answers.front().on; }},
}};
static_assert(kOperators[kAnd].number == kAnd && kOperators[kOr].number == kOr && kOperators[kNot].number == kNot);

constexpr std::array<ValueTypeRow, 4> kValueTypes = {{
    {kValueNumber, "number", "a decimal number"},
    {kValueList, "list", "items separated by commas"},
    {kValueText, "text", "one text, as it stands"},
    {kValueSiteList, "site list", "the number of a list of sites"},
}};

}  // namespace

void RunStage(const Indicators& indicators, const Configuration& configuration, PageData& pageData, std::uint32_t stage,
              std::span<IndicatorResult> results) {
  std::vector<IndicatorResult> answers;  // of one rule; its room serves all of them
  // One reading of the clock ends a rule and begins the next.
  std::int64_t since = PerformanceCounter();
  const double millisecondsPerCount = 1000.0 / static_cast<double>(PerformanceFrequency());
  for (std::size_t i = 0; i < indicators.Entries.size(); ++i) {
    const IndicatorRule& rule = indicators.Entries[i].Rule;
    if (rule.Category != stage) continue;
    answers.clear();
    bool valid = true;
    for (const IndicatorExpression& expression : rule.Expressions) {
      const bool decided = rule.OperatorID == kAnd && !answers.empty() && !answers.back().on;
      const Method* const method = decided ? nullptr : FindMethod(expression.MethodID);
      const Field* const field = FindField(expression.FieldID);
      const bool wanted = field != nullptr && (field->counts || (method != nullptr && method->readsField));
      const FieldValue value = wanted ? ReadField(pageData, *field) : FieldValue();
      if (decided) break;
      if (method != nullptr) {
        answers.push_back(
            method->run({value, expression.ExpressionValue, configuration, pageData, indicators, results}));
      } else {
        valid = false;
        answers.emplace_back();
      }
    }
    IndicatorResult& result = results[i];
    result = CombineExpressions(answers, rule.OperatorID);
    result.evaluated = valid;
    const std::int64_t now = PerformanceCounter();
    result.elapsedMs = static_cast<double>(now - since) * millisecondsPerCount;
    since = now;
  }
}

IndicatorResult CombineExpressions(std::span<IndicatorResult> expressionResults, std::uint32_t operatorId) {
  const bool on = operatorId < kOperators.size() ? kOperators[operatorId].isOn(expressionResults)
                                                 : !expressionResults.empty() && expressionResults.front().on;
  IndicatorResult combined;
  if (!expressionResults.empty()) combined = std::move(expressionResults.front());
  combined.on = on;
  return combined;
}

std::span<const Operator> Operators() noexcept { return kOperators; }

std::span<const ValueTypeRow> ValueTypes() noexcept { return kValueTypes; }

}  // namespace zeph
