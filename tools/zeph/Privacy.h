// SPDX-License-Identifier: Apache-2.0
// What leaves the machine: nothing, unless the user says so.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/zeph/Common.h"

namespace zeph {

struct PrivacyChoice {
  std::string level = "none";
};

/// --privacy, and --server of the configuration choice.
void AddPrivacyOptions(CLI::App& command, PrivacyChoice& choice, ConfigurationChoice& configuration);

/// Sets the engine's privacy level while it lives. Under "none" each exchange ends in a note of what would have been
/// sent, and no socket is opened.
class PrivacyGuard {
 public:
  explicit PrivacyGuard(const PrivacyChoice& choice);
  ~PrivacyGuard();
  PrivacyGuard(const PrivacyGuard&) = delete;
  PrivacyGuard& operator=(const PrivacyGuard&) = delete;
};

/// What this thread's calls would have sent since it last asked.
[[nodiscard]] std::vector<std::string> TakeUnsent();

}  // namespace zeph
