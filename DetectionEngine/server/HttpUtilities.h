// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

/// The exchange's limits. The send covers name resolution, connecting, TLS, the request, and the response's header.
inline constexpr int kSendTimeoutMs = 5000;
/// From the response's header to the fourth byte of its body, so that a server that dribbles can't hold the caller. As
/// long as the send's: a server that needs more is as good as gone.
inline constexpr int kReadTimeoutMs = 5000;

/// Values of expectReply.
enum ExpectReply : int { kReplyRead = 1, kReplyIgnored = 2 };

/// Sends one form-encoded POST over TLS (see platform/HttpPost.h for what is trusted) and blocks for it, at most
/// kSendTimeoutMs + kReadTimeoutMs. With kReplyRead gives the first four bytes of the body as a little-endian number,
/// whatever the response's status; missing bytes are 0. Otherwise gives 1 once a response came. 0 on any failure, with
/// a line in the log. Exchange rules (server/ExchangeRules.h) may ask for more. sent, if given, tells whether the
/// server's address was called at all. Any number of threads at once.
std::int32_t HttpCallServlet(std::u16string_view server, std::uint16_t port, std::string_view object,
                             const std::string& postData, int expectReply, bool* sent = nullptr);

}  // namespace zeph
