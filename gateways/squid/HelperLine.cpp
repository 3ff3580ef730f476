// SPDX-License-Identifier: Apache-2.0
#include "gateways/squid/HelperLine.h"

#include <algorithm>

#include "gateways/proxy/ProxyAddress.h"
#include "gateways/proxy/Warning.h"
#include "judging/ShownText.h"

namespace zeph::squid {

namespace {

constexpr std::size_t kMaxChannelDigits = 20;

void SkipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

int HexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string Unescaped(std::string_view word) {
  std::string text;
  for (std::size_t i = 0; i < word.size(); ++i) {
    const int high = word[i] == '%' && i + 2 < word.size() ? HexDigit(word[i + 1]) : -1;
    const int low = high >= 0 ? HexDigit(word[i + 2]) : -1;
    text += low >= 0 ? static_cast<char>(high * 16 + low) : word[i];
    if (low >= 0) i += 2;
  }
  return text;
}

/// The next word as it is meant. A quote that isn't closed takes the rest.
std::string TakeWord(std::string_view& text) {
  SkipBlanks(text);
  if (!text.starts_with('"')) {
    const std::string_view word = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(word.size());
    return Unescaped(word);
  }
  std::string word;
  std::size_t i = 1;
  for (; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    word += text[i];
  }
  text.remove_prefix(std::min(i + 1, text.size()));
  return word;
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : Shown(text)) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string Answer(const std::string& channel, std::string_view rest) {
  std::string line = channel;
  if (!line.empty()) line += ' ';
  return line.append(rest) + '\n';
}

std::string UnjudgedLine(const std::string& channel, const std::string& reason, Unjudged unjudged) {
  const std::string result = unjudged == Unjudged::kPasses ? "ERR log=\"not-judged\"" : "BH";
  return Answer(channel, result + " message=" + Quoted("not judged: " + reason));
}

}  // namespace

HelperRequest ReadHelperLine(std::string_view line, bool hasChannels) {
  HelperRequest request;
  if (line.ends_with('\r')) line.remove_suffix(1);
  SkipBlanks(line);
  if (hasChannels) {
    const std::string_view channel = line.substr(0, line.find_first_of(" \t"));
    const bool isChannel = !channel.empty() && channel.size() <= kMaxChannelDigits &&
                           std::ranges::all_of(channel, [](char c) { return c >= '0' && c <= '9'; });
    request.channel = isChannel ? channel : "0";
    if (!isChannel) request.refusal = "no channel in front: the acl needs concurrency=, or the helper --no-channels";
    line.remove_prefix(channel.size());
  }
  if (line.size() > kMaxLine) request.refusal = "a line longer than " + std::to_string(kMaxLine) + " bytes";
  if (!request.refusal.empty()) return request;
  const std::string word = TakeWord(line);
  if (word.empty() || word == "-") {
    request.refusal = "no address";
  } else {
    request.address = ProxyAddress(word);
  }
  return request;
}

std::string AnswerLine(const HelperRequest& request, const Judgement& judgement, Unjudged unjudged) {
  if (judgement.verdict == Verdict::kNotJudged) return UnjudgedLine(request.channel, judgement.reason, unjudged);
  if (!IsHeld(judgement.verdict)) return Answer(request.channel, "ERR");
  const Warning warning = WarningOf(judgement);
  const std::string verdict(NameOf(judgement.verdict));
  const std::string message = (warning.brand.empty() ? "" : "imitates " + warning.brand + ": ") + warning.reason;
  return Answer(request.channel, "OK tag=" + Quoted(verdict) + " log=" +
                                     Quoted(verdict + (warning.brand.empty() ? "" : ":" + warning.brand)) +
                                     " message=" + Quoted(message));
}

std::string RefusalLine(const HelperRequest& request, Unjudged unjudged) {
  return UnjudgedLine(request.channel, request.refusal, unjudged);
}

}  // namespace zeph::squid
