// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

#include "DetectionEngine/base/SettingsStore.h"

namespace zeph {

/// Remembers the last URL that was held for spoofing, so that a page whose score changes between two visits isn't
/// warned of, nor any page for a day thereafter. Kept in the user's settings store, across processes; a store that
/// can't be read or written costs nothing but the memory.
class WarningMemory {
 public:
  /// Warnings are held back at present. Forgets a quiet time that is over.
  bool IsQuiet();

  enum class Verdict : std::int32_t { kPass = 0, kHoldBack = 7 };
  /// Notes that url was flagged with a score. kHoldBack: the warning is to be held back.
  Verdict Record(std::u16string_view url, std::u16string_view scoreText);

 private:
  SettingsStore store_;
  std::int64_t quietSeconds_ = 86400;
};

}  // namespace zeph
