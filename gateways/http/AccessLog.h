// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace zeph::http_door {

/// One request that was answered.
struct AccessLine {
  std::string_view client;
  std::string_view method;
  std::string_view path;  ///< without the query, which may hold an address
  unsigned status = 0;
  std::uint64_t received = 0;  ///< bytes of the body
  std::uint64_t sent = 0;      ///< bytes of the answer
  std::chrono::nanoseconds took{};
  std::uint64_t judged = 0;   ///< things
  std::uint64_t held = 0;     ///< those of them that are held
  std::string_view host;      ///< of the one thing that was judged; may be empty
  std::string_view verdict;   ///< on it; may be empty
};

/// A file of JSON lines. Of addresses it holds the host alone, of content nothing. Any thread.
class AccessLog {
 public:
  /// path: empty for no log, "-" for standard error. Throws std::runtime_error with the reason when it can't be written.
  explicit AccessLog(std::string path);
  ~AccessLog();
  AccessLog(const AccessLog&) = delete;
  AccessLog& operator=(const AccessLog&) = delete;

  void Write(const AccessLine& line);
  /// Goes on in a new file of the name, for those who move logs away. Empty, or why it goes on in the old one.
  std::string Reopen();
  [[nodiscard]] std::uint64_t Lost() const { return lost_; }

 private:
  /// -1 when it can't be.
  [[nodiscard]] int Open() const;

  std::string path_;
  std::mutex mutex_;
  int file_ = -1;
  std::atomic<std::uint64_t> lost_{0};
};

}  // namespace zeph::http_door
