// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "DetectionEngine/platform/Clock.h"
#include "tools/classification-server/VerdictList.h"

namespace zeph::server {

/// What the status page shows of the present: counts since the start, and the latest checks. Any thread.
class Activity {
 public:
  struct Check {
    CalendarTime time;  ///< UTC
    std::string url;
    std::int32_t answer;
  };

  void NoteCheck(const std::string& url, std::int32_t answer);
  void NoteReport() { ++reports_; }
  void NoteRefusal() { ++refusals_; }

  [[nodiscard]] std::vector<Check> LatestChecks() const;
  [[nodiscard]] std::uint64_t Checks() const { return checks_; }
  [[nodiscard]] std::uint64_t Reports() const { return reports_; }
  [[nodiscard]] std::uint64_t Refusals() const { return refusals_; }
  [[nodiscard]] std::chrono::seconds Uptime() const {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - startedAt_);
  }

 private:
  static constexpr std::size_t kKept = 50;
  const std::chrono::steady_clock::time_point startedAt_ = std::chrono::steady_clock::now();
  std::atomic<std::uint64_t> checks_{0};
  std::atomic<std::uint64_t> reports_{0};
  std::atomic<std::uint64_t> refusals_{0};
  mutable std::mutex mutex_;
  std::deque<Check> latest_;
};

class ReportStore;

/// What the status page tells.
struct StatusFacts {
  const Activity& activity;
  const ReportStore& reports;
  VerdictFile::ListState list;
  std::string version;  ///< of the program
  std::string package;  ///< in words; may be empty
};

/// The status page as HTML, which loads itself anew every few seconds.
[[nodiscard]] std::string StatusPage(const StatusFacts& facts);

}  // namespace zeph::server
