// SPDX-License-Identifier: Apache-2.0
#include "gateways/net/Shares.h"

#include <algorithm>

namespace zeph::net {

namespace {

constexpr std::size_t kClientsWatched = 100'000;

}  // namespace

bool Shares::Take(const std::string& client, std::size_t amount) {
  const std::lock_guard lock(mutex_);
  const auto found = taken_.find(client);
  const std::size_t before = found == taken_.end() ? 0 : found->second;
  if (amount > limitInAll_ - inUse_ || amount > limitForEach_ - before) return false;
  inUse_ += amount;
  taken_[client] = before + amount;
  return true;
}

void Shares::GiveBack(const std::string& client, std::size_t amount) {
  const std::lock_guard lock(mutex_);
  inUse_ -= amount;
  const auto found = taken_.find(client);
  if (found != taken_.end() && (found->second -= amount) == 0) taken_.erase(found);
}

std::size_t Shares::InUse() const {
  const std::lock_guard lock(mutex_);
  return inUse_;
}

bool RateLimit::Allows(const std::string& client) {
  if (perSecond_ == 0) return true;
  const std::lock_guard lock(mutex_);
  // A crowd of clients starts afresh rather than growing without bound.
  if (buckets_.size() > kClientsWatched) buckets_.clear();
  const auto now = std::chrono::steady_clock::now();
  const double full = 2.0 * perSecond_;
  const auto [bucket, isNew] = buckets_.try_emplace(client, Bucket{full, now});
  auto& [tokens, filledAt] = bucket->second;
  tokens = std::min(full, tokens + std::chrono::duration<double>(now - filledAt).count() * perSecond_);
  filledAt = now;
  if (tokens < 1.0) return false;
  tokens -= 1.0;
  return true;
}

}  // namespace zeph::net
