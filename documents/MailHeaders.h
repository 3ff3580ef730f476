// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// The message with a name of no meaning for each header of addresses that holds more groups than any letter's. The
/// mail library reads a group within a group by calling itself, and what a stranger may write would use up the stack.
/// The view is of bytes, or of room where something had to be changed. O(length).
[[nodiscard]] std::string_view WithoutDeepAddresses(std::string_view bytes, std::string& room);

}  // namespace zeph
