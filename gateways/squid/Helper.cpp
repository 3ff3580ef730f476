// SPDX-License-Identifier: Apache-2.0
#include "gateways/squid/Helper.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <unistd.h>

#include "gateways/squid/HelperLine.h"

namespace zeph::squid {

namespace {

constexpr std::size_t kMostWaiting = 4096;  ///< requests; the pipe holds the others

/// Lines of a descriptor. Of one that is too long the front is kept, one byte more than may be, and the rest dropped.
class Lines {
 public:
  explicit Lines(int input) : input_(input) {}

  std::optional<std::string> Next() {
    std::string line;
    while (true) {
      if (begin_ == end_ && !Fill()) {
        // A line that was cut off by the end is nobody's any more.
        return std::nullopt;
      }
      const std::string_view rest(bytes_.data() + begin_, end_ - begin_);
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      line.append(rest.substr(0, std::min(end, kKept - line.size())));
      begin_ += end;
      if (end == rest.size()) continue;
      ++begin_;
      return line;
    }
  }

 private:
  // Behind a channel's digits a line that is too long must still be seen to be.
  static constexpr std::size_t kKept = kMaxLine + 32;

  bool Fill() {
    ssize_t count = 0;
    do {
      count = read(input_, bytes_.data(), bytes_.size());
    } while (count < 0 && errno == EINTR);
    begin_ = 0;
    end_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return count > 0;
  }

  int input_;
  std::array<char, 64 * 1024> bytes_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

/// Answers, each whole.
class Answers {
 public:
  explicit Answers(int output) : output_(output) {}

  void Write(std::string_view line) {
    const std::lock_guard lock(mutex_);
    while (!line.empty() && !gone_) {
      const ssize_t count = write(output_, line.data(), line.size());
      if (count > 0) line.remove_prefix(static_cast<std::size_t>(count));
      if (count < 0 && errno != EINTR) gone_ = true;
    }
  }
  [[nodiscard]] bool NobodyListens() const { return gone_; }

 private:
  int output_;
  std::mutex mutex_;
  std::atomic<bool> gone_{false};
};

/// Requests on their way to the threads that judge.
class Waiting {
 public:
  void Add(HelperRequest request) {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [this] { return requests_.size() < kMostWaiting; });
    requests_.push_back(std::move(request));
    lock.unlock();
    some_.notify_one();
  }
  /// Nothing once all are taken and no more come.
  std::optional<HelperRequest> Take() {
    std::unique_lock lock(mutex_);
    some_.wait(lock, [this] { return !requests_.empty() || ended_; });
    if (requests_.empty()) return std::nullopt;
    HelperRequest request = std::move(requests_.front());
    requests_.pop_front();
    lock.unlock();
    room_.notify_one();
    return request;
  }
  void End() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    some_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable some_;
  std::condition_variable room_;
  std::deque<HelperRequest> requests_;
  bool ended_ = false;
};

}  // namespace

void RunHelper(int input, int output, const HelperOptions& options, CurrentJudge& judge) {
  std::signal(SIGPIPE, SIG_IGN);
  Lines lines(input);
  Answers answers(output);
  const auto answer = [&](const HelperRequest& request) {
    answers.Write(request.refusal.empty() ? AnswerLine(request, judge.Now()->judge.OfAddress(request.address), options.unjudged)
                                          : RefusalLine(request, options.unjudged));
  };
  Waiting waiting;
  std::vector<std::jthread> threads;
  for (unsigned i = 0; options.hasChannels && i < std::max(1U, options.threads); ++i) {
    threads.emplace_back([&] {
      while (const auto request = waiting.Take()) answer(*request);
    });
  }
  while (!answers.NobodyListens()) {
    const std::optional<std::string> line = lines.Next();
    if (!line) break;
    HelperRequest request = ReadHelperLine(*line, options.hasChannels);
    if (threads.empty()) {
      answer(request);
    } else {
      waiting.Add(std::move(request));
    }
  }
  waiting.End();
}

}  // namespace zeph::squid
