// SPDX-License-Identifier: Apache-2.0
#include "gateways/net/Http.h"

namespace zeph::net {

namespace http = boost::beast::http;

std::string ResponseHead(http::status status, bool keepAlive, std::string_view type, std::string_view framing,
                         std::string_view moreHeaders) {
  const auto reason = http::obsolete_reason(status);
  std::string text = "HTTP/1.1 " + std::to_string(static_cast<unsigned>(status)) + " ";
  text.append(reason.data(), reason.size()).append("\r\nContent-Type: ").append(type);
  if (!framing.empty()) text.append("\r\n").append(framing);
  text.append(keepAlive ? "\r\nConnection: keep-alive" : "\r\nConnection: close");
  return text.append("\r\nCache-Control: no-store\r\n").append(moreHeaders).append("\r\n");
}

std::string ResponseText(http::status status, bool keepAlive, std::string_view type, std::string_view body,
                         std::string_view moreHeaders) {
  return ResponseHead(status, keepAlive, type, "Content-Length: " + std::to_string(body.size()), moreHeaders)
      .append(body);
}

bool HasFoldedLine(std::string_view text) {
  const std::string_view header = text.substr(0, text.find("\r\n\r\n"));
  return header.find("\n ") != std::string_view::npos || header.find("\n\t") != std::string_view::npos;
}

}  // namespace zeph::net
