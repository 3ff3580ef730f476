// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Requests.h"

#include <charconv>
#include <map>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph::server {

namespace {

constexpr std::size_t kUrlLimit = 8 * 1024;
constexpr std::size_t kContextLimit = 255;

std::string EntryText(std::uint32_t entry) { return Narrow(StringEntry(entry)); }

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Undoes the escaping and the cipher of a URL; nothing when an escape is broken.
std::optional<std::string> UnsealUrl(std::string_view sealed) {
  std::string bytes;
  for (std::size_t i = 0; i < sealed.size(); ++i) {
    if (sealed[i] != '%') {
      bytes += sealed[i] == '+' ? ' ' : sealed[i];
      continue;
    }
    if (i + 2 >= sealed.size()) return std::nullopt;
    const int high = HexDigit(sealed[i + 1]);
    const int low = HexDigit(sealed[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
    i += 2;
  }
  if (bytes.size() > kUrlLimit) return std::nullopt;
  DecryptData(bytes.data(), bytes.size());
  return bytes;
}

bool ReadWhole(std::string_view text, std::int32_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

/// The keys of a body up to "ctx", whose value an engine sends unescaped and which therefore is all that follows.
std::map<std::string_view, std::string_view> SplitBody(std::string_view body) {
  std::map<std::string_view, std::string_view> values;
  while (!body.empty()) {
    const bool isContext = body.starts_with("ctx=");
    const std::string_view piece = body.substr(0, isContext ? body.size() : body.find('&'));
    const std::size_t equals = piece.find('=');
    if (equals != std::string_view::npos) values.emplace(piece.substr(0, equals), piece.substr(equals + 1));
    body.remove_prefix(piece.size() < body.size() ? piece.size() + 1 : body.size());
  }
  return values;
}

}  // namespace

std::optional<EngineRequest> ParseEngineRequest(std::string_view path, std::string_view body) {
  if (body.size() > kBodyLimit) return std::nullopt;
  const bool isOtherPath = path == EntryText(0xBB);
  if (!isOtherPath && path != EntryText(0xBA)) return std::nullopt;
  const auto values = SplitBody(body);
  const auto valueOf = [&](std::string_view key) {
    const auto found = values.find(key);
    return found != values.end() ? std::optional(found->second) : std::nullopt;
  };

  EngineRequest request;
  const auto command = valueOf("cmd");
  const auto sealed = valueOf("el");
  if (!command || !sealed || valueOf("ver") != "2.0") return std::nullopt;
  const auto url = UnsealUrl(*sealed);
  if (!url) return std::nullopt;
  request.url = *url;
  if (*command == EntryText(0xBC) && !isOtherPath) {
    request.kind = RequestKind::kCheck;
    if (!ReadWhole(valueOf("PRIV").value_or(""), request.privacy)) return std::nullopt;
    return request;
  }
  if (*command != EntryText(0xBD)) return std::nullopt;
  request.kind = RequestKind::kReport;
  if (!ReadWhole(valueOf("er").value_or(""), request.reportCode)) return std::nullopt;
  if (const auto context = valueOf("ctx")) request.context = std::string(context->substr(0, kContextLimit));
  return request;
}

std::string AnswerBytes(std::int32_t classification) {
  const auto number = static_cast<std::uint32_t>(classification);
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((number >> shift) & 0xFFU);
  return bytes;
}

}  // namespace zeph::server
