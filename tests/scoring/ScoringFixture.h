// SPDX-License-Identifier: Apache-2.0
// What the tests of rules share: values of fields, prepared values of expressions, and one rule that runs alone.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"

namespace zeph {

inline void PrintTo(const FieldKind& kind, std::ostream* out) { *out << static_cast<int>(kind); }

namespace test {

inline FieldValue NumberField(std::int32_t number) { return {FieldKind::kNumber, number, {}, {}, {}, false, {}}; }
inline FieldValue TextField(std::u16string_view text) { return {FieldKind::kText, 0, text, {}, {}, false, {}}; }
inline FieldValue ListField(std::vector<std::u16string_view> list) {
  return {FieldKind::kList, 0, {}, std::move(list), {}, false, {}};
}
inline FieldValue FlagField(bool flag) { return {FieldKind::kFlag, 0, {}, {}, {}, flag, {}}; }
inline FieldValue NumbersField(std::vector<std::int32_t> numbers) {
  return {FieldKind::kNumbers, 0, {}, {}, std::move(numbers), false, {}};
}
inline FieldValue NumberWithTextField(std::int32_t number, std::u16string_view text2) {
  return {FieldKind::kNumberWithText, number, {}, {}, {}, false, text2};
}

inline ExpressionValue Prepared(std::uint32_t valueType, std::u16string value) {
  ExpressionValue prepared;
  prepared.ValueType = valueType;
  prepared.Value = std::move(value);
  prepared.Prepare();
  return prepared;
}

/// What a method gives for a field's value, on a world of its own.
struct World {
  Configuration configuration;
  PageData pageData;
  Indicators indicators;
  std::vector<IndicatorResult> results;

  World() { pageData.configuration = &configuration; }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  IndicatorResult Run(std::uint32_t method, const FieldValue& field, const ExpressionValue& value) {
    return FindMethod(method)->run({field, value, configuration, pageData, indicators, results});
  }
};

/// One call of a method that needs nothing but a field and a value, and what must come of it.
struct MethodRow {
  std::uint32_t method;
  FieldValue field;
  std::uint32_t valueType;
  std::u16string value;
  bool on;
  std::u16string fieldText;
  std::u16string matchText;
};

inline void ExpectRows(const std::vector<MethodRow>& rows) {
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const MethodRow& row = rows[i];
    const ExpressionValue value = Prepared(row.valueType, row.value);
    const IndicatorResult result = World().Run(row.method, row.field, value);
    const std::string trace = "row " + std::to_string(i) + ": method " + std::to_string(row.method) + ", value type " +
                              std::to_string(row.valueType) + ", value \"" + Narrow(row.value) + "\"";
    EXPECT_EQ(result.on, row.on) << trace;
    EXPECT_EQ(Narrow(result.fieldText), Narrow(row.fieldText)) << trace;
    EXPECT_EQ(Narrow(result.matchText), Narrow(row.matchText)) << trace;
    EXPECT_FALSE(result.evaluated) << trace;
  }
}

}  // namespace test
}  // namespace zeph
