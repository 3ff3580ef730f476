// SPDX-License-Identifier: Apache-2.0
// Where a door listens.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zeph::net {

struct Endpoint {
  std::string address = "127.0.0.1";  ///< of IPv4 or IPv6
  std::uint16_t port = 0;             ///< 0: a free one
  std::string path;                   ///< of a unix socket, in the place of the two; may be empty
};

/// ADDRESS:PORT, [ADDRESS]:PORT, a PORT alone (the address stays that of defaults), or unix:/PATH. Nothing for other text.
[[nodiscard]] std::optional<Endpoint> ReadEndpoint(const std::string& text, Endpoint defaults = {});

}  // namespace zeph::net
