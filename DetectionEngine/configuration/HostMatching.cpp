// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/HostMatching.h"

#include <algorithm>
#include <optional>
#include <string>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Resolver.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// The address that a host is or resolves to. A host of digits and dots is never a name, whatever it says.
std::optional<std::uint32_t> AddressOf(std::u16string_view host) {
  if (host.empty()) return std::nullopt;
  if (std::all_of(host.begin(), host.end(), [](char16_t c) { return IsDigit(c) || c == u'.'; })) {
    return IpToNumber(host);
  }
  const std::optional<std::string> address = ResolveHost(Narrow(host));
  return address ? std::optional(IpToNumber(Widen(*address))) : std::nullopt;
}

/// What is left of a text against what is left of a pattern behind a "*". Leftmost hits are enough: where any choice of
/// hits fits, the leftmost does. So the last piece of a pattern that doesn't end with "*" need only be a suffix that
/// begins behind the hit before it.
bool MatchBehindStar(std::u16string_view text, std::u16string_view pattern) {
  for (;;) {
    const std::size_t star = pattern.find(u'*');
    if (star == std::u16string_view::npos) return text.ends_with(pattern);
    const std::size_t hit = FindExact(text, pattern.substr(0, star));
    if (hit == std::u16string_view::npos) return false;
    text.remove_prefix(hit + star);
    pattern.remove_prefix(star + 1);
  }
}

NetLocationMatch MatchAt(std::span<const NetLocation> list, std::optional<std::size_t> at) noexcept {
  if (!at) return {};
  return {static_cast<std::ptrdiff_t>(*at), list[*at].Type == kNetwork ? std::u16string_view() : list[*at].Name};
}

}  // namespace

bool WildcardMatch(std::u16string_view text, std::u16string_view pattern) {
  const std::size_t star = pattern.find(u'*');
  if (star == std::u16string_view::npos) return text == pattern;
  return text.starts_with(pattern.substr(0, star)) && MatchBehindStar(text.substr(star), pattern.substr(star + 1));
}

// The second form, with "*." before the pattern, is spelt out so that nothing need be put together: its first piece is
// the pattern's own first piece behind a dot. Before a "*" it would match nothing that the pattern alone doesn't.
bool HostMatchesDomain(std::u16string_view host, std::u16string_view pattern) {
  if (pattern.starts_with(u'*')) return MatchBehindStar(host, pattern.substr(1));
  if (WildcardMatch(host, pattern)) return true;
  const std::size_t star = pattern.find(u'*');
  if (star == std::u16string_view::npos) {
    return host.size() > pattern.size() && host.ends_with(pattern) && host[host.size() - pattern.size() - 1] == u'.';
  }
  const std::u16string_view first = pattern.substr(0, star);
  for (std::size_t dot = host.find(u'.'); dot != std::u16string_view::npos; dot = host.find(u'.', dot + 1)) {
    const std::u16string_view below = host.substr(dot + 1);
    if (below.starts_with(first)) return MatchBehindStar(below.substr(star), pattern.substr(star + 1));
  }
  return false;
}

bool HostMatcher::Matches(const NetLocation& entry) {
  switch (entry.Type) {
    case kDomain:
      return HostMatchesDomain(host_, entry.Name);
    case kHostname:
      return WildcardMatch(host_, entry.Name);
    case kNetwork:
      return LiesIn(entry.Range);
    default:
      return false;
  }
}

bool HostMatcher::LiesIn(const IPRange& range) {
  if (!addressKnown_) {
    address_ = AddressOf(host_);
    addressKnown_ = true;
  }
  return address_ && range.First <= *address_ && *address_ <= range.Last;
}

NetLocationMatch FindInNetLocations(std::u16string_view host, std::span<const NetLocation> list) {
  HostMatcher matcher(host);
  const auto at =
      std::find_if(list.begin(), list.end(), [&](const NetLocation& entry) { return matcher.Matches(entry); });
  return MatchAt(list, at == list.end() ? std::nullopt : std::optional(static_cast<std::size_t>(at - list.begin())));
}

NetLocationMatch FindInNetLocations(std::u16string_view host, const NetLocationList& list) {
  const std::span<const NetLocation> entries(list.Entries);
  return list.Index.IsBuilt() ? MatchAt(entries, list.Index.Find(host, entries)) : FindInNetLocations(host, entries);
}

std::uint32_t IpToNumber(std::u16string_view text) noexcept {
  constexpr std::size_t kLongest = 20;
  if (text.size() > kLongest) return 0;
  std::uint32_t address = 0;
  int octets = 0;
  for (std::size_t at = 0; at <= text.size(); ++at) {
    std::uint32_t octet = 0;
    const std::size_t begin = at;
    for (; at < text.size() && IsDigit(text[at]); ++at) octet = std::min(octet * 10 + (text[at] - u'0'), 256U);
    if (at == begin || octet > 255 || (at < text.size() && text[at] != u'.')) return 0;
    address = address << 8 | octet;
    ++octets;
  }
  return octets == 4 ? address : 0;
}

bool HostInRange(std::u16string_view host, std::uint32_t low, std::uint32_t high) {
  return HostMatcher(host).LiesIn({low, high});
}

}  // namespace zeph
