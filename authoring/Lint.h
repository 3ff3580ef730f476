// SPDX-License-Identifier: Apache-2.0
// What a package must hold to beyond being read: lists that don't contradict each other, brands that are whole.
#pragma once

#include <span>

#include "DetectionEngine/configuration/Configuration.h"
#include "authoring/Diagnostics.h"

namespace zeph {

/// Looks the world of a package through. Findings are placed at the first line of the sources that says what is found.
void Lint(const Configuration& world, std::span<const SourceFile> sources, Diagnostics& found);

}  // namespace zeph
