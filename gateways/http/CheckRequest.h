// SPDX-License-Identifier: Apache-2.0
// What a client asks about: the query of a request and its body, taken apart. Everything here is a stranger's.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "judging/Judge.h"

namespace zeph::http_door {

/// One thing to judge.
struct Question {
  bool isAddress = true;
  std::string address;  ///< of an address
  Content content;      ///< of anything else
};

/// Why something can't be taken, for people and for programs.
struct Problem {
  unsigned status = 400;  ///< of HTTP
  std::string what;
  std::string where;  ///< "/url" in a JSON body, "the query", "Content-Type"; may be empty
};

/// The query of a request's target.
struct Query {
  bool explains = false;
  std::string url;
};

/// The part of a target in front of its query.
[[nodiscard]] std::string_view PathOf(std::string_view target) noexcept;
/// explain=1 or 0, url=ADDRESS; anything else, and anything twice, is a problem. Linear.
[[nodiscard]] std::optional<Query> ReadQuery(std::string_view target, Problem& problem);

/// How a body is to be read.
enum class BodyKind : std::uint8_t { kObject, kLines, kContent, kUnknown };
[[nodiscard]] BodyKind KindOfBody(std::string_view contentType);

/// One JSON object: {"url"}, or one of "html", "bytes" (base64), "message" and "recording", with "url" and "contentType".
/// Linear in time and room.
[[nodiscard]] std::optional<Question> ReadQuestion(std::string_view json, Problem& problem);

/// The answer to what can't be taken: {"error", "where"} on one line.
[[nodiscard]] std::string ProblemJson(const Problem& problem);

}  // namespace zeph::http_door
