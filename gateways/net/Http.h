// SPDX-License-Identifier: Apache-2.0
// Pieces of HTTP that its doors share.
#pragma once

#include <cstdint>
#include <ostream>  // which the next needs
#include <string>
#include <string_view>

#include <boost/beast/http/status.hpp>

namespace zeph::net {

inline constexpr std::uint32_t kHeaderLimit = 8 * 1024;
inline constexpr unsigned kVersionWithHosts = 11;

/// Status line and headers of an answer, up to the empty line. framing: "Content-Length: 3", or another way to tell where
/// the body ends. moreHeaders: whole lines.
[[nodiscard]] std::string ResponseHead(boost::beast::http::status status, bool keepAlive, std::string_view type,
                                       std::string_view framing, std::string_view moreHeaders = "");
/// The same, and the body.
[[nodiscard]] std::string ResponseText(boost::beast::http::status status, bool keepAlive, std::string_view type,
                                       std::string_view body, std::string_view moreHeaders = "");

/// A line of a header that goes on in the next, which is long forbidden: readers differ in what they make of it.
[[nodiscard]] bool HasFoldedLine(std::string_view text);

/// A request as HTTP wants it: it names its host, once, unless it is of the old kind.
template <class Request>
[[nodiscard]] bool NamesItsHost(const Request& request) {
  const std::size_t count = request.count("Host");
  return count == 1 || (count == 0 && request.version() < kVersionWithHosts);
}

}  // namespace zeph::net
