// SPDX-License-Identifier: Apache-2.0
// The interpreter of the rule language: a rule is a list of expressions (field, method, value) and an operator that
// combines their answers. Nothing here knows what a rule means.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/FieldValue.h"
#include "DetectionEngine/scoring/IndicatorResult.h"
#include "DetectionEngine/scoring/Method.h"

namespace zeph {

/// Evaluates the rules of one stage, in their order, each into its entry of results; the entries of other rules stay.
/// A rule sees the answers of those before it. results has an entry for every rule, and the rules are prepared. A bad
/// rule never stops the walk: an unknown method leaves its rule off and unevaluated. The caller's thread only; the
/// configuration may be shared.
void RunStage(const Indicators& indicators, const Configuration& configuration, PageData& pageData, std::uint32_t stage,
              std::span<IndicatorResult> results);

/// The answers of a rule's expressions, as far as they have run.
struct RuleAnswers {
  RuleAnswers() = default;
  explicit RuleAnswers(bool firstIsOn) noexcept : first(firstIsOn), ran(1), on(firstIsOn ? 1 : 0) {}

  void Add(bool isOn) noexcept {
    ++ran;
    on += isOn ? 1 : 0;
  }

  bool first = false;  ///< of the first expression
  std::size_t ran = 0;
  std::size_t on = 0;  ///< how many of them are on
};

/// What the operator makes of the answers.
[[nodiscard]] bool IsOn(const RuleAnswers& answers, std::uint32_t operatorId);

/// How the expressions of a rule combine.
struct Operator {
  std::uint32_t number;  ///< OperatorID; written in packages, never renumber
  std::string_view name;
  std::string_view summary;  ///< one line, for people who write rules
  bool (*isOn)(const RuleAnswers&);
};

/// All operators, row i having number i. Any other number runs all expressions and takes the first answer.
[[nodiscard]] std::span<const Operator> Operators() noexcept;

/// How an expression's Value is read.
struct ValueTypeRow {
  std::uint32_t number;
  std::string_view name;
  std::string_view summary;  ///< one line, for people who write rules
};

[[nodiscard]] std::span<const ValueTypeRow> ValueTypes() noexcept;

/// When a rule runs. The driver runs the stages in the order of the rows.
struct StageRow {
  std::uint32_t number;  ///< Category; written in packages, never renumber
  std::string_view name;
  std::string_view summary;  ///< one line, for people who write rules
};

[[nodiscard]] std::span<const StageRow> Stages() noexcept;

}  // namespace zeph
