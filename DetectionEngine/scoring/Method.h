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

/// One test of the rule language.
struct Method {
  std::uint32_t number;  ///< MethodID; written in packages, never renumber
  std::string_view name;
  std::string_view summary;  ///< one line, for people who write rules
  bool readsField;           ///< false: the expression's field plays no part, and isn't read
  /// Null: no method has this number, and a rule that names it counts as not evaluated.
  IndicatorResult (*run)(const MethodCall&);
};

/// All methods, row i having number i.
extern const std::array<Method, 66> kMethods;

/// The method of a number, or null when there is none.
[[nodiscard]] inline const Method* FindMethod(std::uint32_t number) noexcept {
  return number < kMethods.size() && kMethods[number].run != nullptr ? &kMethods[number] : nullptr;
}

}  // namespace zeph
