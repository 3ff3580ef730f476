// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "DetectionEngine/configuration/NetLocation.h"

namespace zeph {

struct NetLocationList;

/// Exact in case; "*" stands for any run of characters. Linear in the text for each piece of the pattern.
[[nodiscard]] bool WildcardMatch(std::u16string_view text, std::u16string_view pattern);

/// WildcardMatch(host, pattern), or failing that WildcardMatch(host, "*." + pattern).
[[nodiscard]] bool HostMatchesDomain(std::u16string_view host, std::u16string_view pattern);

/// The entry that a host matches: its position, and its name unless it is a network. An unset match has index -1.
struct NetLocationMatch {
  std::ptrdiff_t index = -1;
  std::u16string_view name;  ///< lives as long as the list

  explicit operator bool() const noexcept { return index >= 0; }
};

/// One host against entries of site lists. A host that is a name is resolved for the first network it meets, and
/// only then. For one thread; the host outlives it.
class HostMatcher {
 public:
  explicit HostMatcher(std::u16string_view host) noexcept : host_(host) {}

  /// A Domain by HostMatchesDomain, a Hostname by WildcardMatch, a Network by the host's address; a URL never.
  [[nodiscard]] bool Matches(const NetLocation& entry);
  [[nodiscard]] bool LiesIn(const IPRange& range);

 private:
  std::u16string_view host_;
  std::optional<std::uint32_t> address_;
  bool addressKnown_ = false;
};

/// The first entry in list order that matches; URL entries never do. Walks; may resolve the host when the
/// list holds networks.
[[nodiscard]] NetLocationMatch FindInNetLocations(std::u16string_view host, std::span<const NetLocation> list);
/// The same answer by the list's index where it has one.
[[nodiscard]] NetLocationMatch FindInNetLocations(std::u16string_view host, const NetLocationList& list);

/// Four decimal numbers separated by dots, the first in the top byte; 0 for anything else.
[[nodiscard]] std::uint32_t IpToNumber(std::u16string_view text) noexcept;

/// True when the host, an address or a name that resolves to one, lies from low to high, both included. A name
/// is resolved on the caller's thread.
[[nodiscard]] bool HostInRange(std::u16string_view host, std::uint32_t low, std::uint32_t high);

}  // namespace zeph
