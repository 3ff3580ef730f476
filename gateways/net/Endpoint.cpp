// SPDX-License-Identifier: Apache-2.0
#include "gateways/net/Endpoint.h"

#include <charconv>

#include <sys/un.h>

namespace zeph::net {

std::optional<Endpoint> ReadEndpoint(const std::string& text, Endpoint defaults) {
  if (text.starts_with("unix:")) {
    defaults.path = text.substr(5);
    if (defaults.path.empty() || defaults.path.size() >= sizeof(sockaddr_un{}.sun_path)) return std::nullopt;
    return defaults;
  }
  const std::size_t colon = text.rfind(':');
  const std::string number = colon == std::string::npos ? text : text.substr(colon + 1);
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, defaults.port);
  if (error != std::errc{} || rest != end) return std::nullopt;
  if (colon == std::string::npos) return defaults;
  defaults.address = text.substr(0, colon);
  if (defaults.address.starts_with('[') && defaults.address.ends_with(']')) {
    defaults.address = defaults.address.substr(1, defaults.address.size() - 2);
  }
  return defaults;
}

}  // namespace zeph::net
