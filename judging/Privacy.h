// SPDX-License-Identifier: Apache-2.0
// What leaves the machine: nothing, unless the user says so.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "judging/Judgement.h"

namespace zeph {

/// What the classification server may be told of a page that is held for spoofing.
enum class Privacy : std::uint8_t { kFull, kPartial, kNone };

/// Sets the engine's privacy level while it lives. Under kNone each exchange ends in a note of what would have been
/// sent, and no socket is opened.
class PrivacyGuard {
 public:
  explicit PrivacyGuard(Privacy privacy);
  ~PrivacyGuard();
  PrivacyGuard(const PrivacyGuard&) = delete;
  PrivacyGuard& operator=(const PrivacyGuard&) = delete;
};

/// The calls of the classification that this thread has just made.
[[nodiscard]] std::vector<SentCall> TakeCalls(const Settlement& settlement, const std::u16string& url);

}  // namespace zeph
