// SPDX-License-Identifier: Apache-2.0
// rules.zeph: the rules by names. docs/rules.md teaches the language.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/Indicators.h"
#include "authoring/Diagnostics.h"

namespace zeph {

/// Rules with what the engine doesn't need of them.
struct NamedRules {
  Indicators rules;
  std::vector<std::string> names;      ///< one for each rule
  std::vector<std::string> sentences;  ///< one for each rule, may be empty
};

/// Reads a source, whole, whatever is wrong with it: what can't be read is left out, and anything that is said is said
/// to found. Lists may stand in the files of words beside it. The files outlive what is found. The rules are prepared.
[[nodiscard]] NamedRules CompileRules(const SourceFile& file, std::span<const SourceFile* const> wordFiles, Diagnostics& found);

/// Whether a rule may be called so.
[[nodiscard]] bool IsRuleName(std::string_view name);

/// Writes rules down so that CompileRules gives back the same. Where there is no name for a rule, it gets one of its
/// number.
[[nodiscard]] std::string DecompileRules(const NamedRules& rules);

}  // namespace zeph
