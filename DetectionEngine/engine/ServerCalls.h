// SPDX-License-Identifier: Apache-2.0
// The calls of the classification server: the work of the exports CheckURL and ReportURL, with the callbacks in their
// place, and what the privacy level lets a classification send by itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

/// What the user lets a classification send. Above, and below 0: nothing, without a word about it in the log.
enum PrivacyLevel : std::int32_t { kFullUrl = 0, kPartialUrl = 1, kNothing = 2 };

/// A call that a classification made, or would have made at another privacy level.
struct ServerCall {
  enum class Kind : std::uint8_t { kCheck, kReport };
  Kind kind = Kind::kCheck;
  std::u16string url;
  bool sent = false;  ///< it went out, answered or not, or a callback took it
};

/// Gives the server's answer, 0 when there is none. sent: as in ServerCall.
std::int32_t AskServer(const std::u16string& url, bool& sent);

/// 0, or 1 for a null URL, one that can't be decoded, or a failed exchange. sent: as in ServerCall.
std::int32_t TellServer(const char16_t* url, std::int32_t reportCode, const char16_t* context, bool& sent);

/// Reports a URL that carries a script attack: at full privacy level the URL, at partial its form without a query, at
/// any other nothing. Adds the call to calls, if given. Whether the report was taken; nothing: none was made.
std::optional<bool> ReportScriptAttack(const UrlRecord& url, std::vector<ServerCall>* calls);

}  // namespace zeph
