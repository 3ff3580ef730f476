// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "DetectionEngine/text/WordFinder.h"

namespace zeph {

/// The weight that says nothing; the default of both weights of an indicator.
inline constexpr float kNoWeight = 2.0F;

/// The Category of a rule that names none: no stage has this number, so the rule never runs.
inline constexpr std::uint32_t kCategoryNever = 8;

/// The values of ExpressionValue::ValueType. Written to disk, never renumber.
enum ValueType : std::uint32_t {
  kValueNumber = 0,
  kValueList = 1,  ///< items separated by commas
  kValueText = 2,
  kValueSiteList = 4,  ///< the number of a list of the configuration
};

/// What an expression's Value says, worked out once when the rules are loaded, so that no
/// evaluation parses or folds it again.
struct PreparedValue {
  std::int32_t number = 0;                 ///< Value as a decimal number, 0 when there are no digits
  double real = 0.0;                       ///< Value as a floating-point number
  std::u16string lowerValue;               ///< Value in lower case
  std::vector<std::u16string> lowerItems;  ///< Items in lower case
  std::vector<std::int32_t> itemNumbers;   ///< Items as decimal numbers
  std::vector<double> itemReals;           ///< Items as floating-point numbers
  WordFinder words;                        ///< Items, to be found in a text in one pass
};

/// What a method compares with.
struct ExpressionValue {
  std::uint32_t ValueType = kValueText;
  std::u16string Value;
  std::vector<std::u16string> Items;  ///< Value split at commas; filled by Prepare, no format carries it
  PreparedValue prepared;             ///< filled by Prepare

  /// Splits and reads Value. Call after every change of Value and before the rule runs; never while
  /// another thread reads the record.
  void Prepare();

  /// The items of Value, in order; empty until Prepare has run.
  [[nodiscard]] const std::vector<std::u16string>& GetItems() const noexcept { return Items; }

  /// Equal as written: what Prepare made of it doesn't count.
  friend bool operator==(const ExpressionValue& a, const ExpressionValue& b) {
    return a.ValueType == b.ValueType && a.Value == b.Value;
  }
};

/// One test of a rule: a field, a method, and a value to test against.
struct IndicatorExpression {
  std::uint32_t FieldID = 0;   ///< a row of the field table
  std::uint32_t MethodID = 0;  ///< a row of the method table
  zeph::ExpressionValue ExpressionValue;

  friend bool operator==(const IndicatorExpression&, const IndicatorExpression&) = default;
};

/// How the expressions of a rule combine, and where the rule runs.
struct IndicatorRule {
  std::uint32_t OperatorID = 0;  ///< 0 and, 1 or, 2 not
  std::vector<IndicatorExpression> Expressions;
  std::uint32_t TDPriority = 0;             ///< 1 and above: the rule's match text names a brand
  std::uint32_t Category = kCategoryNever;  ///< the stage in which the rule runs

  friend bool operator==(const IndicatorRule&, const IndicatorRule&) = default;
};

/// One weighted rule.
struct Indicator {
  float OnWeight = kNoWeight;   ///< in force when the rule holds
  float OffWeight = kNoWeight;  ///< in force when it doesn't
  IndicatorRule Rule;

  friend bool operator==(const Indicator&, const Indicator&) = default;
};

/// The ordered list of rules. Order is part of the rule language: a rule sees the answers of those before it.
struct Indicators {
  std::vector<Indicator> Entries;
  std::vector<std::uint32_t> byCategory;  ///< filled by Prepare: positions of all rules by Category, then in order

  void Clear() { *this = {}; }

  /// Prepares every expression's value and sorts the rules by Category. Every load ends with it.
  void Prepare();

  /// Positions of the rules of one Category, in their order. Needs Prepare.
  [[nodiscard]] std::span<const std::uint32_t> OfCategory(std::uint32_t category) const noexcept;

  /// Equal as written: what Prepare made of them doesn't count.
  friend bool operator==(const Indicators& a, const Indicators& b) { return a.Entries == b.Entries; }
};

}  // namespace zeph
