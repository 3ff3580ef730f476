// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/Indicators.h"

#include "DetectionEngine/url/Text.h"

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
  }
  prepared.words.Assign(prepared.lowerItems);
}

void Indicators::Prepare() {
  for (Indicator& indicator : Entries) {
    for (IndicatorExpression& expression : indicator.Rule.Expressions) expression.ExpressionValue.Prepare();
  }
}

}  // namespace zeph
