// SPDX-License-Identifier: Apache-2.0
// The two requests to the classification server. Both block for the exchange (server/HttpUtilities.h says how long) and
// may be made from any thread. sent, if given, tells whether the request went out, answered or not.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

/// Asks what the server knows about a URL, which goes out as it is given. The server's number; 0 when the exchange
/// failed.
std::int32_t CheckUrl(std::u16string_view url, std::u16string_view server, std::int32_t privacy, bool* sent = nullptr);

/// Tells the server about a URL. Of a context, at most 255 bytes of its narrow form go out, as they are. 0, or 1 when
/// the exchange failed.
std::int32_t ReportUrl(std::u16string_view url, std::u16string_view server, std::int32_t reportCode,
                       std::optional<std::u16string_view> context, bool* sent = nullptr);

/// A URL as it travels: the narrow form, enciphered with the key of configuration files, each byte that is no ASCII
/// letter or digit escaped, a blank as "+".
[[nodiscard]] std::string SealUrl(std::u16string_view url);

}  // namespace zeph
