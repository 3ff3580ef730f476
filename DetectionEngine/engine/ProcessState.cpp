// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/ProcessState.h"

#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/scoring/ImageMatcher.h"

namespace zeph {

ProcessState::ProcessState() : configurationMgr(FillModuleTexts()) {}

ProcessState& Process() {
  static ProcessState state;
  return state;
}

namespace {

/// The entry point of the library: everything stands before the first call, and the destructor of the static stops
/// and joins the load thread when the library goes.
[[gnu::constructor]] void AttachProcess() {
  ProcessImageMatcher();  // goes after the state, whose load thread ends first
  Process();
}

}  // namespace

}  // namespace zeph
