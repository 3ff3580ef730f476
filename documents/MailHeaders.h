// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zeph {

/// The message with a name of no meaning for each header of addresses that holds more groups than any letter's. The
/// mail library reads a group within a group by calling itself, and what a stranger may write would use up the stack.
/// The view is of bytes, or of room where something had to be changed. O(length).
[[nodiscard]] std::string_view WithoutDeepAddresses(std::string_view bytes, std::string& room);

/// What reading a message takes in bytes, at the least that covers what the mail library makes of it: it makes objects
/// for parts, headers and addresses before anything of them can be seen. Lines that may be a boundary count as one, and
/// what follows them up to an empty line as headers. O(length).
[[nodiscard]] std::size_t CostOfMessage(std::string_view bytes);

}  // namespace zeph
