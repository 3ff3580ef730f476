// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/Indicators.h"

#include <algorithm>
#include <cassert>
#include <numeric>

#include "DetectionEngine/text/Text.h"

namespace zeph {

void ExpressionValue::Prepare() {
  Items.clear();
  SplitAt(Value, u',', Items);
  prepared = {};
  prepared.number = ReadNumber(Value);
  prepared.real = ReadReal(Value);
  prepared.lowerValue = ToLower(Value);
  for (const std::u16string& item : Items) {
    prepared.lowerItems.push_back(ToLower(item));
    prepared.itemNumbers.push_back(ReadNumber(item));
    prepared.itemReals.push_back(ReadReal(item));
  }
  prepared.words.Assign(prepared.lowerItems);
}

void Indicators::Prepare() {
  for (Indicator& indicator : Entries) {
    for (IndicatorExpression& expression : indicator.Rule.Expressions) expression.ExpressionValue.Prepare();
  }
  byCategory.resize(Entries.size());
  std::iota(byCategory.begin(), byCategory.end(), 0U);
  std::ranges::stable_sort(byCategory, {}, [&](std::uint32_t at) { return Entries[at].Rule.Category; });
}

std::span<const std::uint32_t> Indicators::OfCategory(std::uint32_t category) const noexcept {
  assert(byCategory.size() == Entries.size());
  const auto categoryOf = [&](std::uint32_t at) { return Entries[at].Rule.Category; };
  // Not equal_range, whose result clang 14 can't compile.
  return {std::ranges::lower_bound(byCategory, category, {}, categoryOf),
          std::ranges::upper_bound(byCategory, category, {}, categoryOf)};
}

}  // namespace zeph
