// SPDX-License-Identifier: Apache-2.0
// What leaves the machine: nothing, unless the user says so.
#pragma once

#include <cstdint>

namespace zeph {

/// What the classification server may be told of a page that is held for spoofing.
enum class Privacy : std::uint8_t { kFull, kPartial, kNone };

/// Lets classifications send so much while it lives. What they would have sent at another level they tell all the same.
class PrivacyGuard {
 public:
  explicit PrivacyGuard(Privacy privacy);
  ~PrivacyGuard();
  PrivacyGuard(const PrivacyGuard&) = delete;
  PrivacyGuard& operator=(const PrivacyGuard&) = delete;

 private:
  std::int32_t before_;
};

}  // namespace zeph
