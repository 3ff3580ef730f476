// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace zeph::http_door {

/// Threads that judge, apart from those that talk to clients. Clients take turns: one that asks much waits behind itself.
/// How much may wait is whoever admits work's care. Any thread.
class JudgePool {
 public:
  explicit JudgePool(unsigned threads);
  ~JudgePool() { Stop(); }
  JudgePool(const JudgePool&) = delete;
  JudgePool& operator=(const JudgePool&) = delete;

  /// Has work done some time, in order for one client. It mustn't throw. Dropped once Stop was called.
  void Add(const std::string& client, std::function<void()> work);
  [[nodiscard]] std::size_t Waiting() const;
  /// Waits for what is being done, and drops what isn't begun.
  void Stop();

 private:
  void Run();

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::unordered_map<std::string, std::deque<std::function<void()>>> work_;  ///< of clients that have some
  std::deque<std::string> turns_;                                            ///< those clients
  std::size_t waiting_ = 0;
  bool stop_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace zeph::http_door
