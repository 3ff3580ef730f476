// SPDX-License-Identifier: Apache-2.0
// What rules say about themselves: a name, and a sentence with places for the evidence. They stand beside the rules in
// Indicators.xml, in lines that the engine passes over. A package in memory form has no room for them, so they travel
// in a further file of its cabinet, which engines ignore too.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/ConfigurationMgr.h"

namespace zeph {

struct RuleText {
  std::string name;      ///< short, unique in its package: "brand-in-host"; may be empty
  std::string sentence;  ///< UTF-8, with {brand}, {match}, {seen}; may be empty
};

/// The file of a cabinet that holds them.
inline constexpr std::string_view kRuleTextsFile = "sentences.xml";

/// One entry for each rule of an Indicators.xml or of a kRuleTextsFile, in order.
[[nodiscard]] std::vector<RuleText> ReadRuleTexts(std::string_view source);

/// The content of a kRuleTextsFile; empty when no rule says anything.
[[nodiscard]] std::string WriteRuleTexts(const std::vector<RuleText>& texts);

/// Those of a package's cabinet, or of the Indicators.xml of a folder of sources. Empty, never an error, when it has none
/// or can't be read: rules do their work without them.
[[nodiscard]] std::vector<RuleText> LoadRuleTexts(const std::string& packageOrFolder);

}  // namespace zeph
