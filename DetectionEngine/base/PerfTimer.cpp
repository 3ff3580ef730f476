// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/PerfTimer.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/platform/Clock.h"

namespace zeph {

const PerfTimer::Calibration& PerfTimer::Calibrate() noexcept {
  static const Calibration calibration = [] {
    // The least of a few, since a thread that loses the processor in between would cost every timer that much.
    constexpr int kTries = 8;
    std::int64_t least = std::numeric_limits<std::int64_t>::min();
    for (int i = 0; i < kTries; ++i) {
      const std::int64_t start = PerformanceCounter();
      least = std::max(least, start - PerformanceCounter());
    }
    return Calibration{std::max<std::int64_t>(PerformanceFrequency(), 1), least};
  }();
  return calibration;
}

PerfTimer::PerfTimer(bool start) noexcept {
  Calibrate();
  if (start) ticks_ = PerformanceCounter();  // nobody shares the timer yet
}

void PerfTimer::Start() {
  Lock();
  const std::int64_t now = PerformanceCounter();
  ticks_ = ticks_ < 0 ? ticks_ + now : now;
  Unlock();
}

void PerfTimer::Stop() {
  Lock();
  if (ticks_ > 0) {
    const std::int64_t elapsed = ticks_ - PerformanceCounter();
    const std::int64_t overhead = Calibrate().overhead;
    ticks_ = elapsed < overhead ? elapsed - overhead : 0;
  }
  Unlock();
}

double PerfTimer::Milliseconds() const {
  PerfTimer copy(*this);
  copy.Stop();
  return static_cast<double>(-copy.ticks_) * 1000.0 / static_cast<double>(Calibrate().frequency);
}

ScopedPerfTimer::~ScopedPerfTimer() {
  Stop();
  try {
    LogLine(
        "Timer Check",
        [this] {
          std::ostringstream text;
          text << "Time to execute ";
          if (makeName_) {
            text << makeName_() << ' ';
          } else if (name_ != nullptr) {
            text << name_ << ' ';
          }
          text << Milliseconds() << "ms";
          return text.str();
        },
        kLogWarning, 8);
  } catch (...) {  // for want of memory the line is lost, as a line may be
  }
}

}  // namespace zeph
