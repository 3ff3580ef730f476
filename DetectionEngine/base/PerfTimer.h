// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace zeph {

/// A stopwatch for short stretches, such as one indicator. What one start and stop cost by themselves is
/// measured once per process and taken off; no stretch is ever shorter than 0. One thread at a time.
class PerfTimer {
 public:
  explicit PerfTimer(bool start = false) noexcept;
  virtual ~PerfTimer() = default;

  /// Called around each change of the counter, for a derived class that is shared between threads.
  virtual void Lock() {}
  virtual void Unlock() {}

  /// Goes on from the time measured so far. A running timer starts again from 0.
  void Start();
  /// A timer that stands keeps its time.
  void Stop();
  /// The time measured so far; a running timer goes on.
  [[nodiscard]] double Milliseconds() const;

 protected:
  PerfTimer(const PerfTimer&) = default;
  PerfTimer& operator=(const PerfTimer&) = default;

 private:
  struct Calibration {
    std::int64_t frequency = 1;
    std::int64_t overhead = 0;  ///< the negative of a start and stop
  };
  static const Calibration& Calibrate() noexcept;

  /// Above 0: runs, since this reading of the counter. Else stands, the negative being the time so far.
  std::int64_t ticks_ = 0;
};

/// Times its own life and logs it at the end, on every path out of the scope: "Time to execute <name> <n>ms" with
/// the label "Timer Check" at level 2. While the log is off it costs two readings of the clock.
class ScopedPerfTimer : public PerfTimer {
 public:
  /// name is read at the end of the scope and must live as long; null: the text has no name.
  explicit ScopedPerfTimer(const char* name) : PerfTimer(true), name_(name) {}
  /// makeName is called at the end of the scope, and only if the line is wanted.
  explicit ScopedPerfTimer(std::function<std::string()> makeName) : PerfTimer(true), makeName_(std::move(makeName)) {}
  ~ScopedPerfTimer() override;
  ScopedPerfTimer(const ScopedPerfTimer&) = delete;
  ScopedPerfTimer& operator=(const ScopedPerfTimer&) = delete;

 private:
  const char* name_ = nullptr;
  std::function<std::string()> makeName_;
};

}  // namespace zeph
