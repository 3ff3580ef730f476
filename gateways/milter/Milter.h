// SPDX-License-Identifier: Apache-2.0
// The engine as a filter of a mail server, by the milter protocol. A letter is gathered, judged with all that it
// carries, and marked, rejected or set aside. Nothing is sent anywhere and nothing is kept: until the mail server has
// the answer the letter is its own, so an end at any moment loses none.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace zeph::milter {

enum class Action : std::uint8_t { kTag, kReject, kQuarantine };
enum class OnFailure : std::uint8_t { kPass, kWait };

struct MilterOptions {
  std::string listen;                    ///< inet:PORT@HOST, inet6:PORT@HOST or unix:PATH
  Action action = Action::kTag;          ///< with a letter that is held
  OnFailure onFailure = OnFailure::kPass;  ///< with a letter on which the engine has no answer
  std::chrono::seconds timeLimit{30};    ///< that a letter waits for a judge
  std::size_t maxSize = 10 << 20;        ///< bytes of a letter that are judged
  unsigned judges = 0;                   ///< at once; 0: one a processor
  std::string sources;                   ///< folder or package that rules' sentences come from; empty: the package in force
  std::string metrics;                   ///< file for Prometheus; may be empty
  std::function<void(const std::string& line)> log;  ///< called by any thread
};

/// Why it can't serve.
class MilterError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Serves until SIGTERM, SIGINT or SIGHUP; letters that are being judged then are still answered. Uses the
/// configuration in force, and what takes its place. SIGUSR1 logs the figures. Call it on the only thread, once in a
/// process: it takes those signals over. Throws MilterError when it can't listen.
void ServeMilter(const MilterOptions& options);

}  // namespace zeph::milter
