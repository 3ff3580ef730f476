// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Clock.h"

#include <time.h>

#ifdef __x86_64__
#include <cpuid.h>
#include <x86intrin.h>
#endif

#include <limits>

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

#ifdef __x86_64__

/// The processor's own counter, read in a third of the time that the system's clock takes: every rule of every
/// classification is timed.
class ProcessorCounter {
 public:
  ProcessorCounter() noexcept : isSteady_(RunsAtOneRate()), start_(isSteady_ ? BothClocks() : Both{}) {}

  /// False where it may stop, or change its rate with that of the processor.
  [[nodiscard]] bool IsSteady() const noexcept { return isSteady_; }
  [[nodiscard]] static std::int64_t Now() noexcept { return static_cast<std::int64_t>(__rdtsc()); }

  /// Its rate, by the system's clock since the first reading. Good to a thousandth.
  [[nodiscard]] std::int64_t Frequency() const noexcept {
    constexpr std::int64_t kLongEnough = 200'000;
    Both end;
    do {
      end = BothClocks();
    } while (end.nanoseconds - start_.nanoseconds < kLongEnough);
    return static_cast<std::int64_t>(static_cast<double>(end.counts - start_.counts) * kNanosecondsPerSecond /
                                     static_cast<double>(end.nanoseconds - start_.nanoseconds));
  }

 private:
  struct Both {
    std::int64_t counts = 0;
    std::int64_t nanoseconds = 0;
  };

  [[nodiscard]] static bool RunsAtOneRate() noexcept {
    constexpr unsigned kPowerManagement = 0x80000007;
    constexpr unsigned kInvariantCounter = 1U << 8;  // in edx
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid(kPowerManagement, &eax, &ebx, &ecx, &edx) != 0 && (edx & kInvariantCounter) != 0;
  }

  /// Both at one moment: of a few readings the one that was interrupted least.
  [[nodiscard]] static Both BothClocks() noexcept {
    constexpr int kTries = 5;
    Both best;
    std::int64_t narrowest = std::numeric_limits<std::int64_t>::max();
    for (int i = 0; i < kTries; ++i) {
      const std::int64_t before = Now();
      const std::int64_t nanoseconds = Read(CLOCK_MONOTONIC);
      const std::int64_t width = Now() - before;
      if (width >= narrowest) continue;
      narrowest = width;
      best = {before + width / 2, nanoseconds};
    }
    return best;
  }

  bool isSteady_;
  Both start_;
};

const ProcessorCounter& OwnCounter() noexcept {
  static const ProcessorCounter counter;
  return counter;
}

#endif

}  // namespace

#ifdef __x86_64__

std::int64_t PerformanceCounter() noexcept {
  return OwnCounter().IsSteady() ? ProcessorCounter::Now() : Read(CLOCK_MONOTONIC);
}

std::int64_t PerformanceFrequency() noexcept {
  static const std::int64_t frequency = OwnCounter().IsSteady() ? OwnCounter().Frequency() : kNanosecondsPerSecond;
  return frequency;
}

#else

std::int64_t PerformanceCounter() noexcept { return Read(CLOCK_MONOTONIC); }
std::int64_t PerformanceFrequency() noexcept { return kNanosecondsPerSecond; }

#endif

std::int64_t CoarseTick() noexcept { return Read(CLOCK_MONOTONIC_COARSE); }
std::int64_t UtcNanoseconds() noexcept { return Read(CLOCK_REALTIME); }

CalendarTime LocalTime() noexcept { return Present(localtime_r); }
CalendarTime UtcTime() noexcept { return Present(gmtime_r); }

}  // namespace zeph
