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
     [](const RuleAnswers& answers) { return answers.ran > 0 && !answers.first; }},
}};
static_assert(kOperators[kAnd].number == kAnd && kOperators[kOr].number == kOr && kOperators[kNot].number == kNot);

constexpr std::array<ValueTypeRow, 4> kValueTypes = {{
    {kValueNumber, "number", "a decimal number"},
    {kValueList, "list", "items separated by commas"},
    {kValueText, "text", "one text, as it stands"},
    {kValueSiteList, "site list", "the number of a list of sites"},
}};

constexpr std::array<StageRow, 5> kStages = {{
    {0, "url", "sees the URL"},
    {7, "url-client", "sees the URL and the answers of stage url; not for pages on a server"},
    {1, "forms", "sees the page's forms and its first counts"},
    {2, "forms-more", "sees the same, and the answers of stage forms"},
    {3, "page", "sees all of the page"},
}};

/// Answers the expressions of the rules of one stage.
class Interpreter {
 public:
  Interpreter(const Indicators& indicators, const Configuration& configuration, PageData& pageData,
              std::span<const IndicatorResult> results) noexcept
      : indicators_(indicators), configuration_(configuration), pageData_(pageData), results_(results) {}

  /// A rule's texts are those of its first expression, whichever of them turned it on.
  IndicatorResult Evaluate(const IndicatorRule& rule) {
    if (rule.Expressions.empty()) return Combined({}, rule.OperatorID, {}, true);
    bool valid = true;
    IndicatorResult first = Answer(rule.Expressions.front(), valid);
    RuleAnswers answers(first.on);
    for (std::size_t i = 1; i < rule.Expressions.size(); ++i) {
      if (rule.OperatorID == kAnd && answers.on < answers.ran) {
        Read(rule.Expressions[i], nullptr);  // it would have been read before it was clear that nobody asks
        break;
      }
      answers.Add(Answer(rule.Expressions[i], valid).on);
    }
    return Combined(std::move(first), rule.OperatorID, answers, valid);
  }

 private:
  static IndicatorResult Combined(IndicatorResult first, std::uint32_t operatorId, const RuleAnswers& answers,
                                  bool valid) {
    first.on = IsOn(answers, operatorId);
    first.evaluated = valid;
    return first;
  }

  IndicatorResult Answer(const IndicatorExpression& expression, bool& valid) {
    const Method* const method = FindMethod(expression.MethodID);
    Read(expression, method);
    if (method != nullptr) {
      return method->run({value_, expression.ExpressionValue, configuration_, pageData_, indicators_, results_});
    }
    valid = false;
    return {};
  }

  void Read(const IndicatorExpression& expression, const Method* method) {
    const Field* const field = FindField(expression.FieldID);
    if (field != nullptr && (field->counts || (method != nullptr && method->ReadsField()))) {
      ReadField(pageData_, *field, value_);
    } else if (value_.kind != FieldKind::kNone) {
      value_.Clear();
    }
  }

  const Indicators& indicators_;
  const Configuration& configuration_;
  PageData& pageData_;
  std::span<const IndicatorResult> results_;
  FieldValue value_;  ///< made anew for each expression
};

}  // namespace

void RunStage(const Indicators& indicators, const Configuration& configuration, PageData& pageData, std::uint32_t stage,
              std::span<IndicatorResult> results) {
  // One reading of the clock ends a rule and begins the next.
  std::int64_t since = PerformanceCounter();
  const double millisecondsPerCount = 1000.0 / static_cast<double>(PerformanceFrequency());
  Interpreter interpreter(indicators, configuration, pageData, results);
  for (const std::uint32_t i : indicators.OfCategory(stage)) {
    // Its own entry stays as it is until the rule is through, in case it asks after itself.
    results[i] = interpreter.Evaluate(indicators.Entries[i].Rule);
    const std::int64_t now = PerformanceCounter();
    results[i].elapsedMs = static_cast<double>(std::max<std::int64_t>(now - since, 0)) * millisecondsPerCount;
    since = now;
  }
}

bool IsOn(const RuleAnswers& answers, std::uint32_t operatorId) {
  return operatorId < kOperators.size() ? kOperators[operatorId].isOn(answers) : answers.first;
}

std::span<const Operator> Operators() noexcept { return kOperators; }

std::span<const StageRow> Stages() noexcept { return kStages; }

std::span<const ValueTypeRow> ValueTypes() noexcept { return kValueTypes; }

}  // namespace zeph
