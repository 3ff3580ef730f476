// SPDX-License-Identifier: Apache-2.0
// What is sent back.
#pragma once

#include <string>
#include <string_view>

#include "gateways/icap/IcapReader.h"
#include "judging/Judgement.h"

namespace zeph::icap {

/// The head of a reply up to its Encapsulated, which encapsulated is the value of: "null-body=0".
[[nodiscard]] std::string ReplyHead(int status, std::string_view tag, std::string_view encapsulated, bool closes,
                                    std::string_view moreFields = "");

/// The head of a reply that hands the message back as it came, with the encapsulated head; its chunks follow if it has a
/// body.
[[nodiscard]] std::string HeadOfSame(const IcapRequest& request, std::string_view tag, bool closes);

/// A reply whole that puts a page in the place of what is held: an HTTP answer of status 403 that names brand and
/// reason, stands for itself and may be kept by nobody.
[[nodiscard]] std::string BlockingReply(const Judgement& judgement, std::string_view tag, bool closes);

/// The line in front of a chunk.
[[nodiscard]] std::string ChunkLine(std::size_t size);

}  // namespace zeph::icap
