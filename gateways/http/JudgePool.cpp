// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/JudgePool.h"

#include <algorithm>
#include <utility>

namespace zeph::http_door {

JudgePool::JudgePool(unsigned threads) {
  for (unsigned index = 0; index < std::max(1U, threads); ++index) threads_.emplace_back([this] { Run(); });
}

void JudgePool::Add(const std::string& client, std::function<void()> work) {
  {
    const std::lock_guard lock(mutex_);
    if (stop_) return;
    auto& own = work_[client];
    if (own.empty()) turns_.push_back(client);
    own.push_back(std::move(work));
    ++waiting_;
  }
  wake_.notify_one();
}

std::size_t JudgePool::Waiting() const {
  const std::lock_guard lock(mutex_);
  return waiting_;
}

void JudgePool::Stop() {
  std::unordered_map<std::string, std::deque<std::function<void()>>> dropped;
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
    dropped.swap(work_);
    turns_.clear();
    waiting_ = 0;
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
}

void JudgePool::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return stop_ || !turns_.empty(); });
    if (stop_) return;
    const std::string client = std::move(turns_.front());
    turns_.pop_front();
    const auto own = work_.find(client);
    std::function<void()> work = std::move(own->second.front());
    own->second.pop_front();
    --waiting_;
    if (own->second.empty()) {
      work_.erase(own);
    } else {
      turns_.push_back(client);
    }
    lock.unlock();
    work();
    work = nullptr;
    lock.lock();
  }
}

}  // namespace zeph::http_door
