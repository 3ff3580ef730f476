// SPDX-License-Identifier: Apache-2.0
#include "gateways/milter/VerdictHeader.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "judging/Answers.h"
#include "judging/ShownText.h"

namespace zeph::milter {

namespace {

constexpr std::size_t kLineRoom = 78;
constexpr std::size_t kTextRoom = 200;

bool IsAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// What strangers wrote, on one line and no longer than the room, without a character cut in two.
std::string Tamed(std::string_view text) {
  std::string tamed = Shown(text.substr(0, 4 * kTextRoom));
  if (tamed.size() <= kTextRoom) return tamed;
  std::size_t end = kTextRoom - 3;
  while (end > 0 && (static_cast<unsigned char>(tamed[end]) & 0xC0U) == 0x80U) --end;
  tamed.resize(end);
  return tamed + "...";
}

std::string Parameter(std::string_view name, std::string_view text) {
  const std::string tamed = Tamed(text);
  std::string written(name);
  if (IsAscii(tamed)) {
    written += "=\"";
    for (const char c : tamed) {
      if (c == '"' || c == '\\') written += '\\';
      written += c;
    }
    return written + '"';
  }
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  constexpr std::string_view kPlain = "-._~!$&+^`|";
  written += "*=UTF-8''";
  for (const char c : tamed) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         kPlain.find(c) != std::string_view::npos;
    if (isPlain) {
      written += c;
    } else {
      written.append({'%', kDigits[byte >> 4U], kDigits[byte & 15U]});
    }
  }
  return written;
}

std::string Folded(const std::string& text, std::size_t column) {
  std::string folded;
  std::size_t at = 0;
  while (text.size() - at > kLineRoom - column) {
    const std::size_t room = kLineRoom - column;
    // Folding puts white space where white space is, so unfolding gives the text back; only what can't be folded else is
    // broken off.
    std::size_t blank = text.rfind(' ', at + room);
    const bool isNoPlace = blank == std::string::npos || blank <= at;
    if (isNoPlace) blank = at + room - 1;
    folded.append(text, at, blank - at).append("\n\t");
    at = isNoPlace ? blank : blank + 1;
    column = 8;  // how wide readers draw the tab
  }
  return folded.append(text, at);
}

}  // namespace

const Judgement& Decisive(const Judgement& letter) {
  const Judgement* part = &letter;
  while (part->worst && *part->worst < part->parts.size()) part = &part->parts[*part->worst];
  return *part;
}

std::string VerdictHeader(const Judgement& letter, std::string_view note) {
  const Judgement& decisive = Decisive(letter);
  std::string text(NameOf(letter.verdict));
  const auto add = [&text](const std::string& parameter) { text.append("; ").append(parameter); };
  if (const std::string brand = ImitatedBrand(letter); !brand.empty()) add(Parameter("brand", brand));
  const std::string& reason = letter.verdict == Verdict::kNotJudged || decisive.reasons.empty()
                                  ? letter.reason
                                  : decisive.reasons.front().sentence;
  if (!reason.empty()) add(Parameter("reason", reason));
  if (letter.spooficity && letter.verdict != Verdict::kNotJudged) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, *letter.spooficity, std::chars_format::fixed, 3);
    add("score=" + std::string(digits, end.ptr));
  }
  if (!decisive.where.empty() && letter.verdict != Verdict::kTrustworthy) add(Parameter("where", decisive.where));
  if (!note.empty()) add(Parameter("note", note));
  return Folded(text, kHeaderName.size() + 2);
}

std::string HeldSentence(const Judgement& letter) {
  const std::string brand = ImitatedBrand(letter);
  std::string sentence = letter.verdict == Verdict::kScriptAttack ? "it carries a script attack"
                         : brand.empty()                          ? "it imitates another sender's pages"
                                                                  : "it imitates " + Tamed(brand);
  for (char& c : sentence) {
    // "%" means something to those who write replies.
    if (static_cast<unsigned char>(c) >= 0x80 || c == '%') c = '?';
  }
  return sentence;
}

}  // namespace zeph::milter
