// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/ProcessState.h"

#include <memory>

#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/platform/Lasting.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/scoring/ImageMatcher.h"

namespace zeph {

ProcessState::ProcessState() : configurationMgr(FillModuleTexts()) {}

ProcessState& Process() {
  static ProcessState& state = Lasting(std::make_unique<ProcessState>());
  return state;
}

namespace {

/// The entry point of the library: everything stands before the first call.
[[gnu::constructor]] void AttachProcess() {
  DropHostileEnvironment();
  ProcessImageMatcher();  // goes after the state, whose load thread ends first
  Process();
  AtFork([] { Process().configurationMgr.BeforeFork(); }, [] { Process().configurationMgr.AfterFork(); });
}

/// The process ends or the library goes: the load thread ends first. What it has loaded stays for others until they go.
[[gnu::destructor]] void DetachProcess() {
  Process().configurationMgr.Stop();
  RemoveRunNote();
}

}  // namespace

}  // namespace zeph
