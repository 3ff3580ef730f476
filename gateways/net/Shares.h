// SPDX-License-Identifier: Apache-2.0
// What clients share, so that none has it all.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace zeph::net {

/// Counts what each client holds of something, by the client's name, up to a limit for each and one for all. Any thread.
class Shares {
 public:
  Shares(std::size_t limitForEach, std::size_t limitInAll) : limitForEach_(limitForEach), limitInAll_(limitInAll) {}

  /// False, and nothing is taken, when there isn't so much left.
  [[nodiscard]] bool Take(const std::string& client, std::size_t amount);
  void GiveBack(const std::string& client, std::size_t amount);
  [[nodiscard]] std::size_t InUse() const;

 private:
  std::size_t limitForEach_;
  std::size_t limitInAll_;
  mutable std::mutex mutex_;
  std::size_t inUse_ = 0;
  std::unordered_map<std::string, std::size_t> taken_;
};

/// A client's part of something, given back at the end.
class Share {
 public:
  Share() = default;
  Share(Shares& shares, std::string client) : shares_(&shares), client_(std::move(client)) {}
  Share(Share&& other) noexcept
      : shares_(std::exchange(other.shares_, nullptr)),
        client_(std::move(other.client_)),
        amount_(std::exchange(other.amount_, 0)) {}
  Share& operator=(Share&& other) noexcept {
    Drop();
    shares_ = std::exchange(other.shares_, nullptr);
    client_ = std::move(other.client_);
    amount_ = std::exchange(other.amount_, 0);
    return *this;
  }
  ~Share() { Drop(); }

  /// Makes it so large at least. False, and it stays as it was, when there isn't so much left.
  [[nodiscard]] bool GrowTo(std::size_t amount) {
    if (amount <= amount_) return true;
    if (shares_ == nullptr || !shares_->Take(client_, amount - amount_)) return false;
    amount_ = amount;
    return true;
  }
  void Drop() {
    if (shares_ != nullptr && amount_ != 0) shares_->GiveBack(client_, amount_);
    amount_ = 0;
  }

 private:
  Shares* shares_ = nullptr;
  std::string client_;
  std::size_t amount_ = 0;
};

/// How many requests a client may still send: a bucket that fills at the rate and holds two seconds of it. Any thread.
class RateLimit {
 public:
  /// perSecond 0: any number.
  explicit RateLimit(unsigned perSecond) : perSecond_(perSecond) {}
  [[nodiscard]] bool Allows(const std::string& client);

 private:
  struct Bucket {
    double tokens;
    std::chrono::steady_clock::time_point filledAt;
  };
  unsigned perSecond_;
  std::mutex mutex_;
  std::unordered_map<std::string, Bucket> buckets_;
};

}  // namespace zeph::net
