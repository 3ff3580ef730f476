// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/NetLocationIndex.h"

#include <algorithm>
#include <bit>

#include "DetectionEngine/configuration/HostMatching.h"

namespace zeph {

namespace {

bool IsHashed(const NetLocation& entry) noexcept {
  return (entry.Type == kDomain || entry.Type == kHostname) && entry.Name.find(u'*') == std::u16string::npos;
}

/// Calls take(begin, hash) for each tail of a name, of one label, of two and so on, up to the whole name. The hash of a
/// tail goes on from that of the next shorter one, so that all of them take one pass.
template <class Take>
void ForEachTail(std::u16string_view name, std::size_t longest, const TextHash::Secret& secret, Take take) {
  std::uint64_t hash = secret.start;
  for (std::size_t end = name.size();;) {
    std::size_t begin = end;
    while (begin > 0 && name[begin - 1] != u'.') --begin;
    if (name.size() - begin > longest) return;
    hash = TextHash::Mix(hash ^ TextHash::Of(name.substr(begin, end - begin), secret), secret.factor);
    take(begin, hash);
    if (begin == 0) return;
    end = begin - 1;
  }
}

std::uint64_t HashOf(std::u16string_view name, const TextHash::Secret& secret) noexcept {
  std::uint64_t whole = 0;
  ForEachTail(name, name.size(), secret, [&](std::size_t, std::uint64_t hash) { whole = hash; });
  return whole;
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
    const std::uint64_t hash = HashOf(entry.Name, secret_);
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
  ForEachTail(host, longest_, secret_, [&](std::size_t begin, std::uint64_t hash) {
    const Slot& slot = slots_[SlotOf(host.substr(begin), hash, entries)];
    best = std::min(best, slot.domain);
    if (begin == 0) best = std::min(best, slot.host);
  });
  HostMatcher matcher(host);
  for (const std::uint32_t position : walked_) {
    if (position > best) break;
    if (matcher.Matches(entries[position])) return position;
  }
  if (best == kNone) return std::nullopt;
  return best;
}

bool NetLocationIndex::Names(std::u16string_view name, std::span<const NetLocation> entries) const {
  if (!built_) return false;
  const std::size_t slot = SlotOf(name, HashOf(name, secret_), entries);
  const auto isNamed = [&](std::uint32_t position) { return entries[position].Name == name; };
  return !slots_[slot].IsFree() || std::any_of(walked_.begin(), walked_.end(), isNamed);
}

}  // namespace zeph
