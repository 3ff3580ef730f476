// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/FieldValue.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// What the runner hands a method. Everything is lent for the call.
struct MethodCall {
  const FieldValue& field;
  const ExpressionValue& value;
  const Configuration& configuration;
  PageData& pageData;  ///< read, but for lazy members and imageTextFound
  const Indicators& indicators;
  std::span<const IndicatorResult> results;  ///< of all indicators, as far as they have run
};

/// How a method reads an expression's Value.
enum class ValueForm : std::uint8_t {
  kNone,           ///< no form: the end of a method's readings
  kNothing,        ///< it isn't read
  kNumber,         ///< a whole number
  kReal,           ///< a number
  kText,           ///< one text
  kItems,          ///< items, any of which will do
  kCountedItems,   ///< how many of the items behind it have to be there, then the items
  kHosts,          ///< items that stand for hosts, "*" for any characters
  kTagList,        ///< the number of an index of brand tags
  kSiteList,       ///< the number of a list of sites, the safe list aside
  kSafeList,       ///< the number of the safe list
  kRule,           ///< the number of an earlier rule
  kRules,          ///< items: numbers of earlier rules that must, or negated must not, have fired; a "=" may stand before
  kRange,          ///< two numbers, the lower first
  kStructures,     ///< a share, then pairs of a structure and its label
  kWordGroups,     ///< three groups of items, parted by the item "|"
  kImageSettings,  ///< two whole numbers, a number and a flag
};

/// One way in which a method can be asked.
struct Reading {
  FieldKinds fields = kNoField;  ///< the kinds of field that it tests; none: the field plays no part
  ValueForm value = ValueForm::kNone;
  bool bindsType = false;  ///< off unless ValueType is the one of the form
};

/// One test of the rule language: what its people write, what its loader checks, and what the runner calls.
struct Method {
  std::uint32_t number;  ///< MethodID; written in packages, never renumber
  std::string_view name;
  std::string_view summary;  ///< one line, for people who write rules
  std::array<Reading, 3> readings;
  IndicatorResult (*run)(const MethodCall&);

  /// Whether the expression's field plays a part.
  [[nodiscard]] constexpr bool ReadsField() const noexcept { return readings.front().fields != kNoField; }
  /// Whether Value names one rule, or several.
  [[nodiscard]] constexpr bool NamesRules() const noexcept {
    return readings.front().value == ValueForm::kRule || readings.front().value == ValueForm::kRules;
  }
};

/// All methods, in the order of their numbers, some of which no method has.
extern const std::array<Method, 46> kMethods;

/// The method of a number, or null when there is none: a rule that names it counts as not evaluated.
[[nodiscard]] const Method* FindMethod(std::uint32_t number) noexcept;

/// How Value is written down in one form.
struct ValueFormRow {
  ValueForm form;
  std::uint32_t type;        ///< the ValueType to write
  std::string_view summary;  ///< what to write, for people who write rules
};
[[nodiscard]] const ValueFormRow& FormRow(ValueForm form) noexcept;

}  // namespace zeph
