// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/ProcessState.h"

#include "DetectionEngine/configuration/ModuleTexts.h"

namespace zeph {

ProcessState::ProcessState() : configurationMgr(FillModuleTexts()) {}

ProcessState& Process() {
  static ProcessState state;
  return state;
}

namespace {

/// The entry point of the library: everything stands before the first call, and the destructor of the static stops
/// and joins the load thread when the library goes.
[[gnu::constructor]] void AttachProcess() { Process(); }

}  // namespace

}  // namespace zeph
