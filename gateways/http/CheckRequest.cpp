// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/CheckRequest.h"

#include <algorithm>
#include <array>
#include <utility>

#include <openssl/evp.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/JsonReader.h"
#include "judging/Json.h"

namespace zeph::http_door {

namespace {

constexpr std::string_view kHtmlType = "text/html; charset=utf-8";
constexpr std::size_t kTypeLimit = 1000;

int HexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::optional<std::string> Unescaped(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '+') {
      plain += ' ';
    } else if (text[at] != '%') {
      plain += text[at];
    } else {
      const int high = at + 2 < text.size() ? HexDigit(text[at + 1]) : -1;
      const int low = high < 0 ? -1 : HexDigit(text[at + 2]);
      if (low < 0) return std::nullopt;
      plain += static_cast<char>(high * 16 + low);
      at += 2;
    }
  }
  return plain;
}

std::string TypeName(std::string_view contentType) {
  std::string name(contentType.substr(0, contentType.find(';')));
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.pop_back();
  std::ranges::transform(name, name.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return name;
}

/// With its padding, and nothing else than its own characters.
std::optional<std::string> FromBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t end = std::min(text.find('='), text.size());
  const std::size_t padding = text.size() - end;
  const bool isPadded = text.find_first_not_of('=', end) == std::string_view::npos && padding <= 2;
  // The library passes over blanks around the text.
  if (!isPadded || text.find_first_of(" \t\r\n-") != std::string_view::npos) return std::nullopt;
  std::string bytes(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(length) - padding);
  return bytes;
}

enum Member : std::size_t { kUrl, kHtml, kBytes, kContentType, kMessage, kRecording, kMembers };
constexpr std::array<std::u16string_view, kMembers> kNames = {u"url",         u"html",    u"bytes",
                                                              u"contentType", u"message", u"recording"};

}  // namespace

std::string_view PathOf(std::string_view target) noexcept { return target.substr(0, target.find('?')); }

std::optional<Query> ReadQuery(std::string_view target, Problem& problem) {
  Query query;
  bool hasExplain = false;
  bool hasUrl = false;
  const std::size_t mark = target.find('?');
  std::string_view rest = mark == std::string_view::npos ? std::string_view() : target.substr(mark + 1);
  const auto refuse = [&](std::string what) {
    problem = {400, std::move(what), "the query"};
    return std::nullopt;
  };
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
    const std::string_view name = pair.substr(0, pair.find('='));
    const std::string_view value = pair.substr(std::min(name.size() + 1, pair.size()));
    if (name == "explain") {
      if (std::exchange(hasExplain, true)) return refuse("explain stands twice");
      if (value != "0" && value != "1") return refuse("explain is neither 0 nor 1");
      query.explains = value == "1";
    } else if (name == "url") {
      if (std::exchange(hasUrl, true)) return refuse("url stands twice");
      auto url = Unescaped(value);
      if (!url) return refuse("url holds a % without two hexadecimal digits");
      query.url = *std::move(url);
    } else {
      return refuse("only explain and url are known");
    }
  }
  return query;
}

BodyKind KindOfBody(std::string_view contentType) {
  struct Row {
    std::string_view name;
    BodyKind kind;
  };
  constexpr std::array kKinds = {
      Row{"application/json", BodyKind::kObject},        Row{"application/x-ndjson", BodyKind::kLines},
      Row{"text/html", BodyKind::kContent},              Row{"application/xhtml+xml", BodyKind::kContent},
      Row{"message/rfc822", BodyKind::kContent},         Row{"multipart/related", BodyKind::kContent},
      Row{"application/x-mimearchive", BodyKind::kContent},
  };
  const auto found = std::ranges::find(kKinds, TypeName(contentType), [](const Row& row) { return std::string(row.name); });
  return found == kKinds.end() ? BodyKind::kUnknown : found->kind;
}

std::optional<Question> ReadQuestion(std::string_view json, Problem& problem) {
  JsonReader reader(json);
  std::array<bool, kMembers> given{};
  std::array<std::string, kMembers> texts;
  std::u16string name;
  std::u16string text;
  reader.BeginObject();
  while (reader.NextMember(name)) {
    const auto member = static_cast<std::size_t>(std::ranges::find(kNames, name) - kNames.begin());
    if (member == kMembers) {
      reader.Fail("there is no such member");
    } else if (given[member]) {
      reader.Fail("stands twice");
    } else if (given[member] = true; member == kRecording) {
      if (reader.Next() != JsonReader::Kind::kObject) reader.Fail("an object is expected");
      const std::size_t start = reader.Offset();
      if (reader.Skip()) texts[member] = json.substr(start, reader.Offset() - start);
    } else if (reader.ReadText(text)) {
      texts[member] = Narrow(text);
    }
    if (reader.Failed()) break;
  }
  if (!reader.Failed()) reader.ReadEnd();
  const auto refuse = [&](std::string what, std::string where) {
    problem = {400, std::move(what), std::move(where)};
    return std::nullopt;
  };
  if (reader.Failed()) {
    // The reader's word for the whole, which is no recording here.
    constexpr std::string_view kWhole = "the recording: ";
    const std::string& error = reader.Error();
    return refuse(error.starts_with(kWhole) ? error.substr(kWhole.size()) : error, reader.Path());
  }

  const int contents = given[kHtml] + given[kBytes] + given[kMessage] + given[kRecording];
  if (contents > 1) return refuse("html, bytes, message and recording exclude each other", "");
  if (given[kContentType] && !given[kHtml] && !given[kBytes]) return refuse("goes with html or bytes", "/contentType");
  if (given[kUrl] && given[kMessage]) return refuse("a message has no address", "/url");
  if (contents == 0 && !given[kUrl]) return refuse("one of url, html, bytes, message and recording is needed", "");
  if (given[kUrl] && texts[kUrl].empty()) return refuse("empty", "/url");
  if (texts[kContentType].size() > kTypeLimit) return refuse("too long", "/contentType");

  Question question;
  question.isAddress = contents == 0;
  if (question.isAddress) {
    question.address = std::move(texts[kUrl]);
    return question;
  }
  Content& content = question.content;
  content.url = std::move(texts[kUrl]);
  if (given[kHtml]) {
    // A text of JSON has one charset, whatever the page was sent in.
    const std::string type = TypeName(texts[kContentType]);
    if (given[kContentType] && type != "text/html" && type != "application/xhtml+xml") {
      return refuse("html is text/html or application/xhtml+xml; other content goes into bytes", "/contentType");
    }
    content.mediaType = kHtmlType;
    content.bytes = std::move(texts[kHtml]);
  } else if (given[kBytes]) {
    auto bytes = FromBase64(texts[kBytes]);
    if (!bytes) return refuse("no base64", "/bytes");
    content.bytes = *std::move(bytes);
    content.mediaType = std::move(texts[kContentType]);
  } else if (given[kMessage]) {
    content.mediaType = "message/rfc822";
    content.bytes = std::move(texts[kMessage]);
  } else {
    content.name = "recording.json";  // nothing else tells one from other JSON
    content.bytes = std::move(texts[kRecording]);
  }
  return question;
}

std::string ProblemJson(const Problem& problem) {
  JsonWriter json;
  json.BeginObject();
  WriteMember(json, "error", problem.what);
  json.Key("where");
  problem.where.empty() ? json.Value(nullptr) : json.Value(problem.where);
  json.EndObject();
  return json.Take();
}

}  // namespace zeph::http_door
