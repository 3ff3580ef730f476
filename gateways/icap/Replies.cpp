// SPDX-License-Identifier: Apache-2.0
#include "gateways/icap/Replies.h"

#include <charconv>

#include "DetectionEngine/platform/CodePage.h"
#include "gateways/proxy/Warning.h"
#include "judging/ShownText.h"

namespace zeph::icap {

namespace {

std::string_view ReasonOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 204:
      return "No Content";
    case 400:
      return "Bad Request";
    case 404:
      return "ICAP Service not found";
    case 405:
      return "Method not allowed for service";
    case 503:
      return "Service overloaded";
    default:
      return "Server error";
  }
}

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string BlockPage(const Judgement& judgement) {
  constexpr std::size_t kMostOfAddress = 200;
  const Warning warning = WarningOf(judgement);
  const std::string brand = Escaped(warning.brand);
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
      "content=\"width=device-width\"><title>This page is held</title><style>body{font:1.1em/1.5 sans-serif;"
      "max-width:38em;margin:3em auto;padding:0 1em;color:#222;background:#fff}h1{color:#a00}code{overflow-wrap:anywhere}"
      "</style></head><body>\n<h1>This page is held</h1>\n";
  page += brand.empty() ? "<p>It isn't what it seems to be.</p>\n"
                        : "<p>It imitates <strong>" + brand + "</strong>.</p>\n";
  page += "<p>Why: " + Escaped(warning.reason) + "</p>\n";
  const std::string address = ShownInShort(judgement.url, kMostOfAddress);
  if (!address.empty()) page += "<p>Its address: <code>" + Escaped(address) + "</code></p>\n";
  return page + "<p>Don't enter passwords or numbers of cards there. If you think that this is wrong, tell whoever runs "
                "this network.</p>\n</body></html>\n";
}

}  // namespace

std::string ReplyHead(int status, std::string_view tag, std::string_view encapsulated, bool closes,
                      std::string_view moreFields) {
  std::string head = "ICAP/1.0 " + std::to_string(status) + ' ';
  head.append(ReasonOf(status)).append("\r\nISTag: \"").append(tag).append("\"\r\nServer: zeph\r\n").append(moreFields);
  head.append(closes ? "Connection: close\r\n" : "Connection: keep-alive\r\n");
  return head.append("Encapsulated: ").append(encapsulated).append("\r\n\r\n");
}

std::string HeadOfSame(const IcapRequest& request, std::string_view tag, bool closes) {
  const bool isRequest = request.method == "REQMOD";
  const std::string& head = isRequest ? request.requestHead : request.responseHead;
  const std::string_view kind = isRequest ? "req" : "res";
  std::string encapsulated;
  if (!head.empty()) encapsulated.append(kind).append("-hdr=0, ");
  encapsulated.append(request.hasBody ? kind : "null").append("-body=").append(std::to_string(head.size()));
  return ReplyHead(200, tag, encapsulated, closes) + head;
}

std::string BlockingReply(const Judgement& judgement, std::string_view tag, bool closes) {
  const std::string page = BlockPage(judgement);
  const std::string head =
      "HTTP/1.1 403 Forbidden\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
      std::to_string(page.size()) +
      "\r\nCache-Control: no-store\r\nContent-Security-Policy: default-src 'none'; style-src 'unsafe-inline'\r\n"
      "X-Content-Type-Options: nosniff\r\n\r\n";
  return ReplyHead(200, tag, "res-hdr=0, res-body=" + std::to_string(head.size()), closes) + head +
         ChunkLine(page.size()) + page + "\r\n0\r\n\r\n";
}

std::string ChunkLine(std::size_t size) {
  char digits[20];
  const auto end = std::to_chars(digits, digits + sizeof digits, size, 16);
  return std::string(digits, end.ptr).append("\r\n");
}

}  // namespace zeph::icap
