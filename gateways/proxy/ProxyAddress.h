// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// The address that a proxy's client wants, as something to judge. A proxy writes where a tunnel leads as "host:port":
/// that is "https://host/", with the port when it isn't 443. Everything else stays as it is.
[[nodiscard]] std::string ProxyAddress(std::string_view target);

}  // namespace zeph
