// SPDX-License-Identifier: Apache-2.0
// What a package's XML sources must hold to. Their loader passes over whatever doesn't fit, so what it would pass over
// is said here.
#pragma once

#include "authoring/Diagnostics.h"

namespace zeph {

/// Checks a file as the source that its name says it is, the rules in it as well. The file outlives what is found.
void CheckSource(const SourceFile& file, Diagnostics& found);

}  // namespace zeph
