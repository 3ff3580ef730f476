// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace zeph {

/// IPv4 addresses from First to Last, both included, as numbers with the first octet in the high byte.
struct IPRange {
  std::uint32_t First = 0;
  std::uint32_t Last = 0;

  friend bool operator==(const IPRange&, const IPRange&) = default;
};

/// The values of NetLocation::Type. Written to disk, never renumber.
enum NetLocationType : std::uint32_t {
  kDomain = 0,    ///< the name itself and every host below it
  kUrl = 1,       ///< a whole normalised URL
  kHostname = 2,  ///< a host, "*" standing for any run of characters
  kNetwork = 3,   ///< an address range
};

/// One entry of a site list.
struct NetLocation {
  std::uint32_t Type = kDomain;
  std::u16string Name;               ///< domain, URL or host pattern; unused for a network
  IPRange Range;                     ///< the addresses of a network
  std::uint32_t Mark = 0;            ///< carried, no operation reads it
  std::u16string TrustedDomainName;  ///< the trusted domain that a safe-list entry belongs to

  friend bool operator==(const NetLocation&, const NetLocation&) = default;
};

}  // namespace zeph
