// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/configuration/ConfigurationMgr.h"

namespace zeph {

/// What the engine keeps for the life of the process beside the URL score cache, the log and the settings store.
struct ProcessState {
  ProcessState();

  ConfigurationMgr configurationMgr;
  std::atomic<std::int32_t> privacyLevel{0};
  std::atomic<bool> usesWarningMemory{true};
  std::atomic<ZephCheckCallback> checkUrlCallback{nullptr};
  std::atomic<ZephReportCallback> reportUrlCallback{nullptr};
};

/// Comes up when the library is loaded, goes when it is unloaded; at the end of the process it stays, for threads that are
/// still at work.
ProcessState& Process();

}  // namespace zeph
