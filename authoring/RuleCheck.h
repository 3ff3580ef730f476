// SPDX-License-Identifier: Apache-2.0
// What rules must hold to, whatever source they are written in: each fault of theirs makes the engine pass over
// something without a word.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/Indicators.h"
#include "authoring/Diagnostics.h"

namespace zeph {

/// Where the parts of an expression stand. What isn't written has the place of the whole.
struct ExpressionPlaces {
  Place whole;
  Place field;
  Place method;
  Place type;
  Place value;
  std::vector<Place> items;  ///< of Value, where each has a place of its own
};

/// Where the parts of a rule stand, and what it is called.
struct RulePlaces {
  std::string name;  ///< "rule 12" where rules have no names
  Place whole;
  Place onWeight;
  Place offWeight;
  Place priority;
  Place stage;
  Place combination;
  std::vector<ExpressionPlaces> expressions;
};

/// Checks the rules, which stand at the places of the same index and are prepared.
void CheckRules(const Indicators& rules, const std::vector<RulePlaces>& places, Diagnostics& found);

/// The whole text is a decimal number that fits.
[[nodiscard]] bool IsWholeNumber(std::u16string_view text);
/// The whole text is a number.
[[nodiscard]] bool IsReal(std::u16string_view text);

}  // namespace zeph
