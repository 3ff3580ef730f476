// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include "DetectionEngine/base/DebugLog.h"

namespace zeph::server {

/// A line in the log of servers, which stands beside the engine's and follows the same settings.
inline void Log(const char* label, const std::string& text, int level) {
  constexpr int kServerModule = 1;
  if (LogIsWanted(level)) DebugLog(label, text.c_str(), "", 0, level, kServerModule);
}

/// A log for lines that strangers cause: ten a second, then the number of those that were left out. Any thread.
class SparingLog {
 public:
  void Write(const char* label, const std::string& text, int level) {
    std::uint64_t left = 0;
    {
      const std::lock_guard lock(mutex_);
      const auto now = std::chrono::steady_clock::now();
      if (now - since_ >= std::chrono::seconds(1)) {
        since_ = now;
        written_ = 0;
        left = std::exchange(leftOut_, 0);
      }
      if (written_ == kLinesPerSecond) {
        ++leftOut_;
        return;
      }
      ++written_;
    }
    if (left != 0) Log(label, std::to_string(left) + " lines like the next were left out", level);
    Log(label, text, level);
  }

 private:
  static constexpr int kLinesPerSecond = 10;
  std::mutex mutex_;
  std::chrono::steady_clock::time_point since_;
  int written_ = 0;
  std::uint64_t leftOut_ = 0;
};

}  // namespace zeph::server
