// SPDX-License-Identifier: Apache-2.0
// Clocks. Any thread; nothing here allocates or fails.
#pragma once

#include <cstdint>

namespace zeph {

/// Readings of a steady clock for short stretches; above 0, and on one processor never going back. 10 to 30 ns a call.
[[nodiscard]] std::int64_t PerformanceCounter() noexcept;
/// How many counts make a second. The first call may take a fifth of a millisecond.
[[nodiscard]] std::int64_t PerformanceFrequency() noexcept;

/// A steady clock in nanoseconds that moves in steps of a few milliseconds, for tests of the form "has time passed
/// since I last looked". About 6 ns a call.
[[nodiscard]] std::int64_t CoarseTick() noexcept;

/// A date and a time of day, as a calendar and a clock on the wall show them.
struct CalendarTime {
  int year = 0;
  int month = 0;  ///< 1 to 12
  int day = 0;    ///< 1 to 31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;

  friend bool operator==(const CalendarTime&, const CalendarTime&) = default;
};

/// The present in the zone of the machine.
[[nodiscard]] CalendarTime LocalTime() noexcept;
/// The present in UTC.
[[nodiscard]] CalendarTime UtcTime() noexcept;
/// The present as nanoseconds since 1970 in UTC, the scale of file times.
[[nodiscard]] std::int64_t UtcNanoseconds() noexcept;

}  // namespace zeph
