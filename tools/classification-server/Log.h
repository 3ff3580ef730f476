// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "DetectionEngine/base/DebugLog.h"

namespace zeph::server {

/// A line in the log of servers, which stands beside the engine's and follows the same settings.
inline void Log(const char* label, const std::string& text, int level) {
  constexpr int kServerModule = 1;
  if (LogIsWanted(level)) DebugLog(label, text.c_str(), "", 0, level, kServerModule);
}

}  // namespace zeph::server
