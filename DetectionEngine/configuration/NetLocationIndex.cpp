// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/NetLocationIndex.h"

#include <algorithm>
#include <bit>

#include "DetectionEngine/url/HostMatching.h"

namespace zeph {

namespace {

bool IsHashed(const NetLocation& entry) noexcept {
  return (entry.Type == kDomain || entry.Type == kHostname) && entry.Name.find(u'*') == std::u16string::npos;
}

/// The hash of a name is taken from its end, so that one pass over a host gives those of all its tails.
std::uint64_t Prepend(char16_t c, std::uint64_t hash, const TextHash::Secret& secret) noexcept {
  return TextHash::Mix(hash ^ c, secret.factor);
}

}  // namespace

void NetLocationIndex::Build(std::span<const NetLocation> entries) {
  Clear();
  if (entries.empty()) return;
  built_ = true;
  const auto hashed = static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), IsHashed));
  slots_.resize(std::bit_ceil(2 * hashed + 1));
  for (std::uint32_t i = 0; i < entries.size(); ++i) {
    const NetLocation& entry = entries[i];
    if (!IsHashed(entry)) {
      if (entry.Type == kDomain || entry.Type == kHostname || entry.Type == kNetwork) walked_.push_back(i);
      continue;
    }
    std::uint64_t hash = secret_.start;
    for (auto c = entry.Name.rbegin(); c != entry.Name.rend(); ++c) hash = Prepend(*c, hash, secret_);
    longest_ = std::max(longest_, entry.Name.size());
    Slot& slot = slots_[SlotOf(entry.Name, hash, entries)];
    slot.hash = hash;
    std::uint32_t& first = entry.Type == kDomain ? slot.domain : slot.host;
    first = std::min(first, i);
  }
}

void NetLocationIndex::Clear() {
  slots_.clear();
  walked_.clear();
  longest_ = 0;
  built_ = false;
}

/// The slot that holds the name, or the free one that would.
std::size_t NetLocationIndex::SlotOf(std::u16string_view name, std::uint64_t hash,
                                     std::span<const NetLocation> entries) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  while (!slots_[at].IsFree() &&
         (slots_[at].hash != hash || !TextHash::Same(entries[slots_[at].AnyEntry()].Name, name))) {
    at = (at + 1) & mask;
  }
  return at;
}

std::optional<std::size_t> NetLocationIndex::Find(std::u16string_view host,
                                                  std::span<const NetLocation> entries) const {
  if (!built_) return std::nullopt;
  std::uint32_t best = kNone;
  std::uint64_t hash = secret_.start;
  for (std::size_t begin = host.size();; --begin) {
    if (begin == 0 || host[begin - 1] == u'.') {
      const Slot& slot = slots_[SlotOf(host.substr(begin), hash, entries)];
      best = std::min(best, slot.domain);
      if (begin == 0) best = std::min(best, slot.host);
    }
    if (begin == 0 || host.size() - begin == longest_) break;
    hash = Prepend(host[begin - 1], hash, secret_);
  }
  HostMatcher matcher(host);
  for (const std::uint32_t position : walked_) {
    if (position > best) break;
    if (matcher.Matches(entries[position])) return position;
  }
  if (best == kNone) return std::nullopt;
  return best;
}

}  // namespace zeph
