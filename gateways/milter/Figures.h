// SPDX-License-Identifier: Apache-2.0
// What a milter has done, in numbers.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "judging/Judgement.h"

namespace zeph::milter {

/// Why the engine had no answer on a letter.
enum class Failure : std::uint8_t {
  kNoConfiguration,
  kBusy,    ///< no judge was free in time
  kMemory,  ///< the letters that were under way at once took all the room there is for them
  kError,   ///< the unforeseen
};
inline constexpr std::array<std::string_view, 4> kFailureNames = {"no-configuration", "busy", "memory", "error"};

/// Counters since the start. Any thread.
class Figures {
 public:
  void CountVerdict(Verdict verdict) noexcept { ++verdicts_[static_cast<std::size_t>(verdict)]; }
  void CountFailure(Failure failure) noexcept { ++failures_[static_cast<std::size_t>(failure)]; }

  std::atomic<std::uint64_t> rejected{0};
  std::atomic<std::uint64_t> quarantined{0};
  std::atomic<std::uint64_t> passedUnjudged{0};  ///< the engine had no answer, and the letter went on
  std::atomic<std::uint64_t> deferred{0};        ///< the engine had no answer, and the sender was told to come again
  std::atomic<std::uint64_t> cut{0};             ///< longer than what is judged of one
  std::atomic<std::uint64_t> forgedHeaders{0};   ///< of our name, taken out
  std::atomic<std::uint64_t> broken{0};          ///< given up by the mail server before their end
  std::atomic<std::int64_t> inHand{0};           ///< letters that have begun and not ended

  /// For a log, on one line.
  [[nodiscard]] std::string Line() const;
  /// Prometheus' text format.
  [[nodiscard]] std::string Metrics() const;

 private:
  std::array<std::atomic<std::uint64_t>, 6> verdicts_{};
  std::array<std::atomic<std::uint64_t>, kFailureNames.size()> failures_{};
};

}  // namespace zeph::milter
