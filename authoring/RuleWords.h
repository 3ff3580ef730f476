// SPDX-License-Identifier: Apache-2.0
// What compiler and decompiler of rules agree on.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "DetectionEngine/configuration/NamedLists.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Method.h"

namespace zeph {

inline constexpr std::uint32_t kOperatorAnd = 0;
inline constexpr std::uint32_t kOperatorOr = 1;
inline constexpr std::uint32_t kOperatorNot = 2;
inline constexpr std::uint32_t kEarlierRuleOff = 19;
inline constexpr std::uint32_t kEarlierRuleOn = 26;

/// The weights that are no probabilities.
struct WeightMark {
  float weight;
  std::string_view name;
};
inline constexpr std::array<WeightMark, 5> kWeightMarks = {{{2.0F, "none"},
                                                            {0.0F, "trustworthy"},
                                                            {1.0F, "spoofing"},
                                                            {-1.0F, "unclassified"},
                                                            {1.2F, "script-attack"}}};

/// How a value is written.
enum class ValueShape : std::uint8_t { kNothing, kNumber, kText, kItems, kList, kRule };

[[nodiscard]] constexpr bool Fits(ValueShape shape, ValueForm form) noexcept {
  switch (form) {
    case ValueForm::kNone:
      return false;
    case ValueForm::kNothing:
      return shape == ValueShape::kNothing;
    case ValueForm::kNumber:
    case ValueForm::kReal:
      return shape == ValueShape::kNumber;
    case ValueForm::kText:
      return shape == ValueShape::kText;
    case ValueForm::kTagList:
    case ValueForm::kSiteList:
    case ValueForm::kSafeList:
      return shape == ValueShape::kList;
    case ValueForm::kRule:
      return shape == ValueShape::kRule;
    default:
      return shape == ValueShape::kItems;
  }
}

/// The reading that a value of this shape asks for beside a field of this kind (kNone: without a field), or null. A
/// text or a number stands for any value when no other shape will do.
[[nodiscard]] constexpr const Reading* FindReading(const Method& method, FieldKind kind, ValueShape shape) noexcept {
  const auto takesField = [&](const Reading& reading) {
    if (reading.value == ValueForm::kNone) return false;
    return reading.fields == kNoField ? kind == FieldKind::kNone : kind != FieldKind::kNone && (reading.fields & Only(kind)) != 0;
  };
  for (const Reading& reading : method.readings) {
    if (takesField(reading) && Fits(shape, reading.value)) return &reading;
  }
  if (shape != ValueShape::kText && shape != ValueShape::kNumber) return nullptr;
  for (const Reading& reading : method.readings) {
    if (takesField(reading)) return &reading;
  }
  return nullptr;
}

[[nodiscard]] constexpr bool IsOfForm(const NamedList& list, ValueForm form) noexcept {
  if (form == ValueForm::kSafeList) return list.number == kSafeListNumber;
  return form == ValueForm::kTagList ? list.tags != nullptr : form == ValueForm::kSiteList && list.sites != nullptr;
}

}  // namespace zeph
