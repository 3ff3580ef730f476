// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace zeph {

/// Works on items on several threads and hands on the outcomes in the order of the items, on the thread that adds
/// them. The queue is bounded, so that an endless input needs no endless memory. With one thread nothing is started.
template <class Item, class Outcome>
class OrderedJobs {
 public:
  OrderedJobs(unsigned threads, std::function<Outcome(const Item&)> work, std::function<void(Outcome)> take)
      : work_(std::move(work)), take_(std::move(take)), room_(threads * kRoomPerThread) {
    if (threads < 2) return;
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
  }

  ~OrderedJobs() { Stop(); }
  OrderedJobs(const OrderedJobs&) = delete;
  OrderedJobs& operator=(const OrderedJobs&) = delete;

  void Add(Item item) {
    if (threads_.empty()) return take_(work_(item));
    std::unique_lock lock(mutex_);
    jobs_.push_back({std::move(item), std::nullopt});
    wake_.notify_one();
    while (jobs_.size() >= room_) TakeFront(lock);
    while (!jobs_.empty() && jobs_.front().outcome) TakeFront(lock);
  }

  /// Hands on what is left.
  void Finish() {
    std::unique_lock lock(mutex_);
    while (!jobs_.empty()) TakeFront(lock);
  }

 private:
  static constexpr std::size_t kRoomPerThread = 64;

  struct Job {
    Item item;
    std::optional<Outcome> outcome;
  };

  /// Waits for the oldest job and hands on its outcome, unlocked.
  void TakeFront(std::unique_lock<std::mutex>& lock) {
    done_.wait(lock, [this] { return jobs_.front().outcome.has_value(); });
    Outcome outcome = std::move(*jobs_.front().outcome);
    jobs_.pop_front();
    --next_;
    lock.unlock();
    take_(std::move(outcome));
    lock.lock();
  }

  void Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      wake_.wait(lock, [this] { return stop_ || next_ < jobs_.size(); });
      if (stop_) return;
      Job& job = jobs_[next_++];  // a deque keeps its elements in place while both ends change
      lock.unlock();
      Outcome outcome = work_(job.item);
      lock.lock();
      job.outcome = std::move(outcome);
      done_.notify_one();
    }
  }

  void Stop() {
    {
      const std::lock_guard lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

  std::function<Outcome(const Item&)> work_;
  std::function<void(Outcome)> take_;
  std::size_t room_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  std::deque<Job> jobs_;
  std::size_t next_ = 0;  ///< position in jobs_ of the first that no thread has begun
  bool stop_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace zeph
