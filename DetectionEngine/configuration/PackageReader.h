// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/ConfigurationPair.h"

namespace zeph {

/// Makes a pair of the packed files of a package, packed2.dat going before packed3.dat: clears the pair as a slot is
/// cleared for a load, fills it and completes it with its indexes and prepared values. Empty, or why the package isn't
/// fit, for people; the pair is garbage then.
///
/// Reads no file, waits for nothing and keeps nothing. Logs its steps under "ConfigurationMgr::Parse".
[[nodiscard]] std::string ReadPackedFile(Extraction packed, ConfigurationPair& pair);

}  // namespace zeph
