// SPDX-License-Identifier: Apache-2.0
// brands.zeph: one block a brand. docs/rules.md teaches it.
#pragma once

#include <string>

#include "DetectionEngine/configuration/Configuration.h"
#include "authoring/Diagnostics.h"

namespace zeph {

/// Adds the brands of a source to the trusted domains, and their domains to the safe list. What can't be read is left
/// out, and anything that is said is said to found. The file outlives what is found.
void CompileBrands(const SourceFile& file, Configuration& configuration, Diagnostics& found);

/// Writes the brands down. withSafe: the further domains of brands in the safe list as well; whether they come back in
/// their order is the caller's to see.
[[nodiscard]] std::string DecompileBrands(const Configuration& configuration, bool withSafe);

}  // namespace zeph
