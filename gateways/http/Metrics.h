// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "judging/Judgement.h"

namespace zeph::http_door {

/// What the door counts. Any thread.
class Metrics {
 public:
  /// Statuses that are answered, each with its count; others don't occur.
  static constexpr std::array<unsigned, 12> kStatuses = {200, 400, 401, 404, 405, 413, 415, 421,
                                                         429, 431, 500, 503};

  void NoteRequest(unsigned status, std::chrono::nanoseconds took);
  void NoteJudgement(const Judgement& judgement);
  void NoteConnection() { ++connectionsTaken_; }
  void NoteRefusedConnection() { ++connectionsRefused_; }
  void NoteBadQuestion() { ++badQuestions_; }

  /// What is as it is at the moment of asking.
  struct Gauges {
    std::string version;  ///< of the program
    bool isReady = false;
    std::string packageVersion;
    std::int64_t packageWritten = 0;  ///< nanoseconds since 1970; 0: not known
    std::uint64_t loadFailures = 0;
    std::size_t connections = 0;
    std::size_t requests = 0;  ///< that wait for a verdict or get one
    std::size_t waiting = 0;   ///< pieces of work that no thread has begun
    std::size_t bodyBytes = 0;
    std::uint64_t logLinesLost = 0;
  };
  /// The Prometheus text format, version 0.0.4.
  [[nodiscard]] std::string Text(const Gauges& gauges) const;

 private:
  static constexpr std::size_t kVerdicts = 6;
  static constexpr std::size_t kBuckets = 12;

  std::array<std::atomic<std::uint64_t>, kStatuses.size()> requests_{};
  std::array<std::atomic<std::uint64_t>, kVerdicts> verdicts_{};
  std::array<std::atomic<std::uint64_t>, kBuckets + 1> times_{};  ///< each bucket alone; the last: what is above
  std::atomic<std::uint64_t> nanoseconds_{0};
  std::atomic<std::uint64_t> tooCostly_{0};
  std::atomic<std::uint64_t> badQuestions_{0};
  std::atomic<std::uint64_t> connectionsTaken_{0};
  std::atomic<std::uint64_t> connectionsRefused_{0};
};

}  // namespace zeph::http_door
