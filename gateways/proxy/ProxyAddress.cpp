// SPDX-License-Identifier: Apache-2.0
#include "gateways/proxy/ProxyAddress.h"

#include <algorithm>

namespace zeph {

std::string ProxyAddress(std::string_view target) {
  constexpr std::size_t kPortDigits = 5;
  const std::size_t colon = target.rfind(':');
  if (colon == std::string_view::npos || colon == 0) return std::string(target);
  const std::string_view host = target.substr(0, colon);
  const std::string_view port = target.substr(colon + 1);
  const bool isPort = !port.empty() && port.size() <= kPortDigits &&
                      std::ranges::all_of(port, [](char c) { return c >= '0' && c <= '9'; });
  if (!isPort || host.find_first_of("/?#@\\ ") != std::string_view::npos) return std::string(target);
  return std::string("https://").append(port == "443" ? host : target).append("/");
}

}  // namespace zeph
