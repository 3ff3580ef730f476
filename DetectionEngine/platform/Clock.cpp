// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Clock.h"

#include <time.h>

namespace zeph {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::int64_t Read(clockid_t clock) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * kNanosecondsPerSecond + now.tv_nsec;
}

template <class BreakDown>
CalendarTime Present(BreakDown breakDown) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  breakDown(&now.tv_sec, &parts);
  return {parts.tm_year + 1900,
          parts.tm_mon + 1,
          parts.tm_mday,
          parts.tm_hour,
          parts.tm_min,
          parts.tm_sec,
          static_cast<int>(now.tv_nsec / 1'000'000)};
}

}  // namespace

std::int64_t PerformanceCounter() noexcept { return Read(CLOCK_MONOTONIC); }
std::int64_t PerformanceFrequency() noexcept { return kNanosecondsPerSecond; }
std::int64_t CoarseTick() noexcept { return Read(CLOCK_MONOTONIC_COARSE); }
std::int64_t UtcNanoseconds() noexcept { return Read(CLOCK_REALTIME); }

CalendarTime LocalTime() noexcept { return Present(localtime_r); }
CalendarTime UtcTime() noexcept { return Present(gmtime_r); }

}  // namespace zeph
