// SPDX-License-Identifier: Apache-2.0
// The lines between Squid and an external_acl helper, without any input or output.
//
//   7 http://example.org/a%2520b GET          a channel, what is asked for, and what the helper has no use for
//   7 OK tag="spoofing" message="..."         an answer, which may overtake others
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "judging/Judgement.h"

namespace zeph::squid {

/// The longest line that is read. Squid's own requests are shorter; what is longer is answered, not kept.
inline constexpr std::size_t kMaxLine = 64 * 1024;

struct HelperRequest {
  std::string channel;  ///< digits; empty without channels
  std::string address;  ///< what to judge; empty when refused
  std::string refusal;  ///< why nothing can be judged, in words
};

/// Takes one line apart, without its end. Never fails: a line without a channel has the channel "0", since Squid would
/// wait for an answer for ever. A word in double quotes has backslashes in front of what they protect; any other word is
/// percent-encoded once over what it stands for.
[[nodiscard]] HelperRequest ReadHelperLine(std::string_view line, bool hasChannels);

/// What is said of what can't be judged. Squid asks twice upon BH, and then refuses the request.
enum class Unjudged : std::uint8_t { kBroken, kPasses };

/// The answer, with its line feed: OK when the judgement is held, ERR when it isn't, BH (kPasses: ERR) when nothing was
/// judged.
[[nodiscard]] std::string AnswerLine(const HelperRequest& request, const Judgement& judgement, Unjudged unjudged);
/// BH or ERR, with the request's refusal.
[[nodiscard]] std::string RefusalLine(const HelperRequest& request, Unjudged unjudged);

}  // namespace zeph::squid
