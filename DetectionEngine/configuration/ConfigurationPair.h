// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"

namespace zeph {

/// What one load brings. Whoever holds a published pair reads it without a lock and as long as he likes.
struct ConfigurationPair {
  Configuration configuration;
  Indicators indicators;
};

}  // namespace zeph
