// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"
#include "authoring/RuleSource.h"

namespace zeph {

/// What changed from one package to another, a line each, in words. Empty: nothing that a verdict depends on.
[[nodiscard]] std::vector<std::string> DiffPackages(const Configuration& before, const NamedRules& rulesBefore,
                                                    const Configuration& after, const NamedRules& rulesAfter);

}  // namespace zeph
