// SPDX-License-Identifier: Apache-2.0
// Methods that compare a field's value with what the rule gives. A field of a kind that a method can't use leaves it
// off. The value must be prepared.
#pragma once

#include <span>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/scoring/FieldValue.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// The number, or one of the numbers, is above Value. Value must be a number too, but for a list of numbers.
[[nodiscard]] IndicatorResult NumberAbove(const FieldValue& field, const ExpressionValue& value);

/// The number is below Value, which must be a number too.
[[nodiscard]] IndicatorResult NumberBelow(const FieldValue& field, const ExpressionValue& value);

/// The flag, which is also written out.
[[nodiscard]] IndicatorResult FlagIsSet(const FieldValue& field);
/// The answer of a method that has only yes or no to say.
[[nodiscard]] IndicatorResult AnswerOfFlag(bool flag);

/// The number equals Value, or a text equals an item, exactly. A number stands in the texts as the one character of
/// that code.
[[nodiscard]] IndicatorResult EqualToValue(const FieldValue& field, const ExpressionValue& value);

/// EqualToValue, and on a hit the settings store remembers the field's text as the last site recognised.
[[nodiscard]] IndicatorResult EqualAndNoted(const FieldValue& field, const ExpressionValue& value);

/// The text ends with an item, exactly.
[[nodiscard]] IndicatorResult TextEndsWith(const FieldValue& field, const ExpressionValue& value);

/// The text starts with Value, exactly.
[[nodiscard]] IndicatorResult TextStartsWith(const FieldValue& field, const ExpressionValue& value);

/// The first item is a number; the text, or a list's texts joined, holds at least so many of the other items, case
/// ignored. Off without items.
[[nodiscard]] IndicatorResult EnoughItemsContained(const FieldValue& field, const ExpressionValue& value);

/// The text holds an item, or a whole Value, case ignored.
[[nodiscard]] IndicatorResult Contains(const FieldValue& field, const ExpressionValue& value);

/// Contains, but an item must stand in the text as a word; a whole Value need not.
[[nodiscard]] IndicatorResult ContainsAsWord(const FieldValue& field, const ExpressionValue& value);

/// The text holds Value or an item when both are freed of punctuation and doubled letters.
[[nodiscard]] IndicatorResult ContainsCleaned(const FieldValue& field, const ExpressionValue& value);

/// The structure equals one of the listed ones or differs by less than the first item's share. Behind that share the
/// items are pairs of a structure and the label that becomes the match.
[[nodiscard]] IndicatorResult KnownStructure(std::u16string_view structure, const ExpressionValue& value);

/// The spooficity lies in the range of the two items, both included.
[[nodiscard]] IndicatorResult ScoreInRange(float spooficity, const ExpressionValue& value);

}  // namespace zeph
