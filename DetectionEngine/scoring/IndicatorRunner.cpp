// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/IndicatorRunner.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "DetectionEngine/platform/Clock.h"

namespace zeph {
namespace {

enum OperatorNumber : std::uint32_t { kAnd = 0, kOr = 1, kNot = 2 };

constexpr std::array<Operator, 3> kOperators = {{
    {kAnd, "and", "on when every expression is; the first one that is off ends the rule",
     [](const RuleAnswers& answers) { return answers.on == answers.ran; }},
    {kOr, "or", "on when any expression is; all of them run",
     [](const RuleAnswers& answers) { return answers.on > 0; }},
    {kNot, "not", "on when the first expression is off; the others have no effect",
     [](const RuleAnswers& answers) { return answers.ran > 0 && !answers.first.on; }},
}};
static_assert(kOperators[kAnd].number == kAnd && kOperators[kOr].number == kOr && kOperators[kNot].number == kNot);

constexpr std::array<ValueTypeRow, 4> kValueTypes = {{
    {kValueNumber, "number", "a decimal number"},
    {kValueList, "list", "items separated by commas"},
    {kValueText, "text", "one text, as it stands"},
    {kValueSiteList, "site list", "the number of a list of sites"},
}};

/// A rule's texts are those of its first expression, whichever of them turned it on. The value is a room to work in.
RuleAnswers Evaluate(const IndicatorRule& rule, const Indicators& indicators, const Configuration& configuration,
                     PageData& pageData, std::span<const IndicatorResult> results, FieldValue& value) {
  RuleAnswers answers;
  bool valid = true;
  for (const IndicatorExpression& expression : rule.Expressions) {
    const bool decided = rule.OperatorID == kAnd && answers.on < answers.ran;
    const Method* const method = decided ? nullptr : FindMethod(expression.MethodID);
    const Field* const field = FindField(expression.FieldID);
    const bool wanted = field != nullptr && (field->counts || (method != nullptr && method->readsField));
    if (wanted) {
      ReadField(pageData, *field, value);
    } else {
      value.Clear();
    }
    if (decided) break;
    if (method != nullptr) {
      answers.Add(method->run({value, expression.ExpressionValue, configuration, pageData, indicators, results}));
    } else {
      valid = false;
      answers.Add({});
    }
  }
  answers.first.on = IsOn(answers, rule.OperatorID);
  answers.first.evaluated = valid;
  return answers;
}

}  // namespace

void RunStage(const Indicators& indicators, const Configuration& configuration, PageData& pageData, std::uint32_t stage,
              std::span<IndicatorResult> results) {
  // One reading of the clock ends a rule and begins the next.
  std::int64_t since = PerformanceCounter();
  const double millisecondsPerCount = 1000.0 / static_cast<double>(PerformanceFrequency());
  FieldValue value;
  for (const std::uint32_t i : indicators.OfCategory(stage)) {
    // Its own entry stays as it is until the rule is through, in case it asks after itself.
    results[i] = Evaluate(indicators.Entries[i].Rule, indicators, configuration, pageData, results, value).first;
    const std::int64_t now = PerformanceCounter();
    results[i].elapsedMs = static_cast<double>(std::max<std::int64_t>(now - since, 0)) * millisecondsPerCount;
    since = now;
  }
}

bool IsOn(const RuleAnswers& answers, std::uint32_t operatorId) {
  return operatorId < kOperators.size() ? kOperators[operatorId].isOn(answers) : answers.first.on;
}

std::span<const Operator> Operators() noexcept { return kOperators; }

std::span<const ValueTypeRow> ValueTypes() noexcept { return kValueTypes; }

}  // namespace zeph
