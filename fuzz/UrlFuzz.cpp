// SPDX-License-Identifier: Apache-2.0
// A URL on the first line, a relative one on the second: decoded, seen through, combined, made tokens in both forms and
// scored. Records are consistent in themselves, what is put together comes apart again, and tokens and choice are those
// of the literal steps.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "tests/url/LiteralTokenizer.h"

namespace {

using zeph::UrlRecord;
using Texts = std::vector<std::u16string>;

constexpr std::size_t kLongest = 4096;

void Require(bool holds) {
  if (!holds) std::abort();
}

/// UTF-8, each byte that is none standing for half of a surrogate pair.
std::u16string TextOf(std::string_view bytes) {
  std::u16string text = zeph::Widen(bytes.substr(0, kLongest));
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'\uFFFD') text[i] = i % 3 == 0 ? u'\xDC00' : u'\xD800';
  }
  return text;
}

/// Words that overlap each other and themselves, one in upper case, two that only cuts can bring about.
const Texts& Words() {
  static const Texts words = {u"login", u"bank", u"an", u"ana", u" a", u"Login", u"a ", u"", u"e", u"bank"};
  return words;
}

bool IsAsciiText(std::u16string_view text) {
  return std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; });
}

void CheckRecord(const std::u16string& url, const UrlRecord& record) {
  Require(record.HostIsIp == (record.HostIsHexForm || record.HostIsDottedForm));
  Require(!record.HostIsBracketed);
  Require(record.HostName.ends_with(record.DomainTail));
  Require(record.HostName.find(record.MainDomain) != std::u16string::npos);
  if (record.HostIsIp || record.HostIsSingleLabel || record.HostHasSlash) {
    Require(record.DomainTail.empty() && record.MainDomain.empty());
  }
  Require(!record.PortImplied || !record.HostName.empty());
  Require(record.Port >= 0 && record.Port <= 65535);
  const bool hasFolder = record.UrlPath.find(u'/') != std::u16string::npos;
  Require(record.Directory + record.FileName == (hasFolder ? record.UrlPath : u""));
  Require(record.NormalizedUrl.starts_with(record.Scheme + u"://"));
  Require(record.RawUrl.size() <= zeph::kMaxUrlLength);
  if (record.RawUrl == url) return;

  // The host was converted: the URL that was put together gives the same parts.
  Require(IsAsciiText(record.HostName) && IsAsciiText(record.RawUrl));
  zeph::UrlParser parser;
  Require(parser.DecodeUrl(record.RawUrl) == 0);
  const UrlRecord& again = parser.Record();
  Require(again.RawUrl == record.RawUrl && again.Scheme == record.Scheme && again.Port == record.Port);
  if (record.HostName.ends_with(u'.')) return;  // an address, or a second dot, which goes the second time
  Require(again.HostName == record.HostName && again.DomainTail == record.DomainTail);
  if (url.find_first_of(u"\xD800\xDC00") == std::u16string::npos) {
    Require(again.UrlPath == record.UrlPath && again.ExtraInfo == record.ExtraInfo);
    Require(again.UserName == record.UserName && again.Password == record.Password);
  }
}

/// Probabilities by the tokens' texts, so that many tie and repeated tokens push others out.
zeph::TokenTable TableOf(const Texts& tokens) {
  constexpr double kProbabilities[] = {0.5, 0.4000000059604645, 0.6, 0.1, 0.9, 0.0, 1.0, -1.0};
  zeph::TokenTable table;
  for (const std::u16string& token : tokens) {
    const std::size_t choice = (token.size() + token.back() + token[token.size() / 2]) % 12;
    if (choice < 8) table.insert_or_assign(token, kProbabilities[choice]);
  }
  return table;
}

template <class Url>
void CheckTokens(const Url& url) {
  static const zeph::WordSet words(Words());
  static zeph::literal::Tokenizer tokenizer(Words());
  std::optional<Texts> expected;
  try {
    expected = tokenizer.Tokenize(url);
  } catch (const zeph::literal::Malformed&) {
  }
  const std::optional<Texts> tokens = zeph::TokensOf(url, words);
  Require(tokens == expected);
  if (!tokens) return;

  const zeph::TokenTable table = TableOf(*tokens);
  zeph::UrlAnalyzer analyzer(table, words);
  analyzer.Classify(url);
  const auto chosen = zeph::literal::Choose(*tokens, table);
  const double score = zeph::literal::Score(chosen);
  Require(analyzer.ChosenTokens() == chosen);
  Require(analyzer.Score() == score || (std::isnan(analyzer.Score()) && std::isnan(score)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t line = std::min(bytes.find('\n'), size);
  const std::u16string url = TextOf(bytes.substr(0, line));
  const std::u16string second = TextOf(bytes.substr(std::min(line + 1, size)));

  const zeph::Redirector rules[] = {{second, u"url", false, false},
                                    {second.substr(0, second.size() / 2), u"", true, true},
                                    {second.substr(0, 4), u"", false, true}};
  zeph::UrlParser parser;
  if (parser.DecodeWithRedirectors(url, rules) == 0) {
    CheckRecord(url, parser.Record());
    CheckTokens(parser.Record());
    Require(parser.Record().IsRedirector == !parser.Record().RedirectTarget.empty());
  } else {
    Require(parser.Record() == UrlRecord());
  }
  CheckTokens(url);

  std::u16string combined;
  if (zeph::CombineUrl(url, second, combined)) {
    Require(!combined.empty() && combined.size() <= zeph::kMaxUrlLength);
    std::u16string again;
    // Of a base that is no web address blanks and breaks stay; as a relative URL it would lose them.
    const bool loses = zeph::TrimUrl(combined) != combined || combined.find_first_of(u"\t\n\r") != combined.npos;
    Require(loses || (zeph::CombineUrl(url, combined, again) && again == combined));
  }
  std::u16string canonical;
  if (zeph::CanonicalizeUrl(url, canonical)) {
    std::u16string again;
    Require(zeph::CanonicalizeUrl(canonical, again) && again == canonical);
  }
  Require(zeph::UnescapeUrl(url).size() <= url.size());
  return 0;
}
