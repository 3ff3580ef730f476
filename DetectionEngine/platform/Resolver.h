// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace zeph {

/// The first IPv4 address of a host, as dotted decimal text; nothing when the name has none. Sends a name query and
/// blocks for as long as the system's resolver takes, typically at most some seconds. Any thread.
[[nodiscard]] std::optional<std::string> ResolveHost(const std::string& host);

}  // namespace zeph
