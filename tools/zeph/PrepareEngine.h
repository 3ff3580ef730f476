// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "DetectionEngine/DetectionEngine.h"

namespace zeph {

/// Sets the engine up for a command, before its first verdict: makes the place where it remembers sites. A command
/// judges for many, so no page that one of them shows may silence the warnings of all: the memory of warnings is off. Of
/// the server only a well-formed answer counts, and one that hangs is let be for a while. exact: the engine as the
/// library stands, memory of warnings and all.
inline void PrepareEngine(bool exact) {
  constexpr std::int32_t kServerRest = 60;  // seconds; each page that asks waits for five
  SetEngineOption(kZephRemember, 1);        // where nothing can be written nothing is remembered
  SetEngineOption(kZephWarningMemory, exact ? 1 : 0);
  SetEngineOption(kZephStrictServer, exact ? 0 : 1);
  SetEngineOption(kZephServerRest, exact ? 0 : kServerRest);
}

}  // namespace zeph
