// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/ValueMethods.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "DetectionEngine/base/Md5Hex.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/text/Similarity.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

template <class Fires>
void Compare(std::int32_t number, std::int32_t limit, Fires fires, IndicatorResult& result) {
  result.fieldText = NumberText(number);
  if (fires(number, limit)) {
    result.on = true;
    result.matchText = NumberText(limit);
  }
}

/// Looks at the text, or at a list's texts until one is on: find gives the item's position or -1. The texts looked at
/// last are those of the result.
template <class Find>
IndicatorResult MatchItem(const FieldValue& field, const ExpressionValue& value, Find find) {
  IndicatorResult result;
  const auto look = [&](std::u16string_view text) {
    const std::ptrdiff_t item = find(text);
    if (item < 0) return false;
    result.on = true;
    result.matchText.Lend(value.GetItems()[static_cast<std::size_t>(item)]);
    return true;
  };
  if (field.kind == FieldKind::kText) {
    look(field.text);
    result.fieldText.Lend(field.text);
  } else if (field.kind == FieldKind::kList && !field.list.empty()) {
    const auto hit = std::ranges::find_if(field.list, look);
    result.fieldText.Lend(hit != field.list.end() ? *hit : field.list.back());
  }
  return result;
}

template <class Equal>
std::ptrdiff_t PositionIf(const std::vector<std::u16string>& items, Equal equal) {
  const auto at = std::ranges::find_if(items, equal);
  return at == items.end() ? -1 : at - items.begin();
}

/// What Contains and ContainsAsWord share; find searches a text for the items.
template <class Find>
IndicatorResult ContainsBy(const FieldValue& field, const ExpressionValue& value, Find find) {
  if (field.kind != FieldKind::kText || value.ValueType == kValueList) return MatchItem(field, value, find);
  IndicatorResult result;
  if (value.ValueType != kValueText) return result;
  result.fieldText.Lend(field.text);
  if (ContainsNoCase(value.Value, field.text)) {
    result.on = true;
    result.matchText.Lend(value.Value);
  }
  return result;
}

}  // namespace

IndicatorResult NumberAbove(const FieldValue& field, const ExpressionValue& value) {
  IndicatorResult result;
  const auto kind = static_cast<std::uint32_t>(field.kind);
  if (kind != value.ValueType && field.kind != FieldKind::kNumbers && value.ValueType != kValueNumber) return result;
  const auto compare = [&](std::int32_t number) { Compare(number, value.prepared.number, std::greater<>(), result); };
  if (field.kind == FieldKind::kNumber) {
    compare(field.number);
  } else if (field.kind == FieldKind::kNumbers) {
    for (std::size_t i = 0; i < field.numbers.size() && !result.on; ++i) compare(field.numbers[i]);
  } else if (field.kind == FieldKind::kNumberWithText) {
    compare(field.number);
    if (result.on) result.matchText.Lend(field.text2);
  }
  return result;
}

IndicatorResult NumberBelow(const FieldValue& field, const ExpressionValue& value) {
  IndicatorResult result;
  if (field.kind == FieldKind::kNumber && value.ValueType == kValueNumber) {
    Compare(field.number, value.prepared.number, std::less<>(), result);
  }
  return result;
}

IndicatorResult FlagIsSet(const FieldValue& field) {
  return field.kind == FieldKind::kFlag ? AnswerOfFlag(field.flag) : IndicatorResult();
}

IndicatorResult AnswerOfFlag(bool flag) {
  using namespace std::string_view_literals;
  IndicatorResult result;
  result.fieldText.Lend(flag ? u"true"sv : u"false"sv);
  result.on = flag;
  return result;
}

IndicatorResult EqualToValue(const FieldValue& field, const ExpressionValue& value) {
  if (field.kind != FieldKind::kNumber) {
    return MatchItem(field, value, [&](std::u16string_view text) {
      return PositionIf(value.GetItems(), [&](const std::u16string& item) { return item == text; });
    });
  }
  IndicatorResult result;
  if (value.prepared.number == field.number) {
    result.on = true;
    result.fieldText = std::u16string(1, static_cast<char16_t>(field.number));
    result.matchText = result.fieldText;
  }
  return result;
}

IndicatorResult EqualAndNoted(const FieldValue& field, const ExpressionValue& value) {
  IndicatorResult result = EqualToValue(field, value);
  if (result.on) SettingsStore().Write(kRememberedSiteSlot, Md5Hex(field.text));
  return result;
}

IndicatorResult TextEndsWith(const FieldValue& field, const ExpressionValue& value) {
  if (field.kind != FieldKind::kText) return {};
  return MatchItem(field, value, [&](std::u16string_view text) {
    return PositionIf(value.GetItems(), [&](const std::u16string& item) { return EndsWith(text, item); });
  });
}

IndicatorResult TextStartsWith(const FieldValue& field, const ExpressionValue& value) {
  IndicatorResult result;
  if (field.kind == FieldKind::kText && StartsWith(field.text, value.Value)) {
    result.on = true;
    result.matchText.Lend(value.Value);
  }
  return result;
}

IndicatorResult EnoughItemsContained(const FieldValue& field, const ExpressionValue& value) {
  IndicatorResult result;
  if (value.GetItems().empty()) return result;
  if (field.kind == FieldKind::kText) {
    result.fieldText.Lend(field.text);
  } else if (field.kind == FieldKind::kList) {
    std::u16string texts;
    for (const std::u16string_view text : field.list) texts += text;
    result.fieldText = std::move(texts);
  } else {
    return result;
  }
  const auto threshold = static_cast<std::size_t>(std::max(value.prepared.itemNumbers.front(), 0));
  const std::size_t count = value.prepared.words.CountContained(result.fieldText, 1, threshold);
  if (count >= threshold) {
    result.on = true;
    result.matchText = NumberText(static_cast<std::int64_t>(count));
  }
  return result;
}

IndicatorResult Contains(const FieldValue& field, const ExpressionValue& value) {
  return ContainsBy(field, value, [&](std::u16string_view text) { return value.prepared.words.FindFirst(text); });
}

IndicatorResult ContainsAsWord(const FieldValue& field, const ExpressionValue& value) {
  return ContainsBy(field, value, [&](std::u16string_view text) { return value.prepared.words.FindFirstAlone(text); });
}

IndicatorResult ContainsCleaned(const FieldValue& field, const ExpressionValue& value) {
  IndicatorResult result;
  if (value.ValueType == kValueText) {
    result.on = ContainsNormalized(field.text, std::span(&value.Value, 1)) >= 0;
  } else if (value.ValueType == kValueList) {
    result.on = ContainsNormalized(field.text, value.GetItems()) >= 0;
  }
  return result;
}

IndicatorResult KnownStructure(std::u16string_view structure, const ExpressionValue& value) {
  IndicatorResult result;
  const std::vector<std::u16string>& items = value.GetItems();
  if (structure.empty() || items.size() < 2) return result;
  const auto threshold = static_cast<float>(value.prepared.itemReals.front());
  if (threshold == 0.0F) return result;
  const auto firstKnown = [&](auto isKnown) {
    for (std::size_t i = 1; i < items.size() && !result.on; i += 2) {
      if (!isKnown(items[i])) continue;
      result.on = true;
      if (i + 1 < items.size()) result.matchText.Lend(items[i + 1]);
    }
  };
  firstKnown([&](const std::u16string& known) { return known == structure; });
  float distance = 0.0F;
  firstKnown([&](const std::u16string& known) { return IsSimilarWithin(structure, known, threshold, distance); });
  return result;
}

IndicatorResult ScoreInRange(float spooficity, const ExpressionValue& value) {
  IndicatorResult result;
  const std::vector<double>& reals = value.prepared.itemReals;
  if (reals.size() != 2) return result;
  const auto low = static_cast<float>(reals[0]);
  const auto high = static_cast<float>(reals[1]);
  result.on = low <= spooficity && spooficity <= high;
  return result;
}

}  // namespace zeph
