// SPDX-License-Identifier: Apache-2.0
// What engines send: a check asks for a verdict on a URL, a report tells of one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zeph::server {

enum class RequestKind : std::uint8_t { kCheck, kReport };

struct EngineRequest {
  RequestKind kind = RequestKind::kCheck;
  std::string url;              ///< deciphered; UTF-8 as the engine sent it, any bytes from others
  std::int32_t privacy = 0;     ///< of a check
  std::int32_t reportCode = 0;  ///< of a report
  std::optional<std::string> context;
};

/// The largest body that is read: a URL of 2083 characters in UTF-8, each byte escaped, and a context.
inline constexpr std::size_t kBodyLimit = 32 * 1024;

/// Takes a request's path and body apart; nothing when it is no check and no report. Linear in the body.
[[nodiscard]] std::optional<EngineRequest> ParseEngineRequest(std::string_view path, std::string_view body);

/// The four bytes of an answer to a check.
[[nodiscard]] std::string AnswerBytes(std::int32_t classification);

}  // namespace zeph::server
