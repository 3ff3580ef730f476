// SPDX-License-Identifier: Apache-2.0
// What a letter is marked with.
#pragma once

#include <string>
#include <string_view>

#include "judging/Judgement.h"

namespace zeph::milter {

/// The header's name. Letters that bring one of their own lose it.
inline constexpr std::string_view kHeaderName = "X-Zeph";

/// What is said of a letter, in parameters as MIME headers have them:
///
///     spoofing; brand="Example Bank"; reason="..."; score=0.998; where="link 2"; note="..."
///
/// Lines are folded by "\n\t" and none is longer than 78 characters, the name counted; a word that has no end sooner is
/// broken off. A text beyond ASCII comes as name*=UTF-8''..., percent-encoded. Nothing that strangers wrote ends a line
/// or a quotation: controls and their like are escaped as ShownText does, and each text is cut to some 200 bytes.
/// note: what else is to be known, such as that a letter was cut; may be empty.
[[nodiscard]] std::string VerdictHeader(const Judgement& letter, std::string_view note);

/// One sentence of plain ASCII for the sender's mail server and for a log: what the letter is held for.
[[nodiscard]] std::string HeldSentence(const Judgement& letter);

/// The part that the letter has its verdict from, as deep as it goes; the letter itself when it has none.
[[nodiscard]] const Judgement& Decisive(const Judgement& letter);

}  // namespace zeph::milter
