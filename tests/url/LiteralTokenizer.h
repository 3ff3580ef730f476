// SPDX-License-Identifier: Apache-2.0
// The tokeniser and the choice of tokens written down step by step, with copies, lists and one search for each word:
// slow and easy to check by eye. The engine's own must give the same for every URL.
#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "DetectionEngine/configuration/TokenTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph::literal {

using Text = std::u16string;
using Tokens = std::vector<Text>;
constexpr std::size_t kNone = Text::npos;

struct Malformed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline Text Unescape(const Text& text) {
  if (text.find(u'%') == kNone && text.find(u'+') == kNone) return text;
  std::string narrow = Narrow(text);
  for (char& c : narrow) c = c == '+' ? ' ' : c;
  for (std::size_t at = narrow.find('%'); at != std::string::npos; at = narrow.find('%', at + 1)) {
    const std::string three = narrow.substr(at, 3);
    const std::string digits = "1234567890ABCDEFabcdef";
    if (three.size() < 3 || digits.find(three[1]) == std::string::npos || digits.find(three[2]) == std::string::npos) {
      throw Malformed("escape");
    }
    narrow.replace(at, 3, 1, static_cast<char>(std::stoi(three.substr(1), nullptr, 16)));
  }
  return Widen(narrow.substr(0, narrow.find('\0')));
}

struct Lexer {
  std::int32_t Port = 0;
  Text Host, Path, Scheme, Query, Credentials;

  explicit Lexer(const Text& url) {
    const std::size_t colon = url.find(u':');
    const std::size_t p = colon == kNone ? kNone : url.find_first_not_of(u'/', colon + 1);
    if (p != kNone) {
      const std::size_t a = url.find(u'/', p + 1);
      const std::size_t q = url.find(u'?', p);
      const bool neverEnds = q == p;
      if (q != kNone && (a == kNone || q < a) && !neverEnds) {
        *this = Lexer(Text(url).insert(q, u"/"));
        Path.erase(0, 1);
        return;
      }
    }
    const Text wide = Widen(Narrow(url));
    const auto cracked = CrackUrl(wide);
    if (!cracked) throw Malformed("crack");
    Query = Text(cracked->extra);
    if (!Query.empty() && Query[0] == u'?') Query.erase(0, 1);
    Query = Query.substr(0, Query.find(u'#'));
    Port = cracked->port;
    const auto behind = static_cast<std::size_t>(cracked->host.data() - wide.data()) + cracked->host.size();
    if (!cracked->host.empty() && (behind == wide.size() || wide[behind] != u':')) Port = -1;
    Scheme = Text(cracked->scheme);
    Query = Unescape(Query);
    Host = Unescape(Text(cracked->host));
    const Text password = Unescape(Text(cracked->password));
    Path = Unescape(Text(cracked->path));
    const Text user = Unescape(Text(cracked->userName));
    if (!user.empty() || !password.empty()) Credentials = user + u":" + password;
  }
};

class Tokenizer {
 public:
  explicit Tokenizer(std::vector<Text> words) : words_(std::move(words)) {}

  Tokens Tokenize(Text url) {
    tokens_.clear();
    url = Text(TrimUrl(url));
    try {
      if (Unescape(url) != url) Emit(u"CE*1");
    } catch (const Malformed&) {
      Emit(u"CF*1");
      ReplaceAll(url, u"%", u" ");
    }
    const Lexer lexer(url);
    Tail(lexer.Scheme, !lexer.Credentials.empty(), lexer.Port, lexer.Path, lexer.Host, lexer.Query);
    return tokens_;
  }

  Tokens Tokenize(const UrlRecord& r) {
    tokens_.clear();
    const Text all = r.Scheme + r.HostName + r.NormalizedUrl + r.DomainTail + r.MainDomain + r.UserName + r.Password +
                     r.UrlPath + r.Directory + r.FileName + r.FileExtension + r.ExtraInfo + r.RedirectTarget;
    if (all.empty()) return Tokenize(r.RawUrl);
    Tail(r.Scheme, !r.UserName.empty(), r.PortImplied ? -1 : r.Port, r.UrlPath, r.HostName, r.ExtraInfo);
    return tokens_;
  }

 private:
  void Emit(const Text& token) { tokens_.push_back(token); }
  static Text Number(std::int64_t n) { return NumberText(n); }
  static std::int64_t Count(const Text& text, char16_t c) { return static_cast<std::int64_t>(CountChar(text, c)); }

  static bool IsDelimiter(char16_t c) {
    return c == u' ' || c <= 47 || (c >= 48 && c <= 57) || (c >= 58 && c <= 64) || (c >= 91 && c <= 96) ||
           (c >= 123 && c <= 255);
  }

  static std::vector<Text> ScanWords(const Text& text) {
    std::vector<Text> words;
    bool inWord = false;
    for (const char16_t c : text) {
      if (!IsDelimiter(c)) {
        if (!inWord) words.emplace_back();
        words.back() += c;
      }
      inWord = !IsDelimiter(c);
    }
    for (Text& word : words) word = ToLower(word);
    return words;
  }

  static std::vector<Text> Split(const Text& text, char16_t separator) {
    std::vector<Text> pieces(1);
    for (const char16_t c : text) {
      if (c == separator) {
        pieces.emplace_back();
      } else {
        pieces.back() += c;
      }
    }
    return pieces;
  }

  void AnalyseWord(const Text& word, const Text& code) {
    Text text = ToLower(word);
    for (const int limit : {50, 40, 35, 30, 20}) {
      if (static_cast<int>(word.size()) > limit) {
        Emit(u"BP*" + Number(limit));
        break;
      }
    }
    for (const Text& w : words_) {
      if (w.empty() || text.find(w) == kNone) continue;
      for (std::size_t at = text.find(w); at != kNone; at = text.find(w, at + 1)) text.replace(at, w.size(), 1, u' ');
      Emit(code + w);
      Emit(u"BG*" + w);
    }
    for (const Text& left : ScanWords(text)) Emit(code + left);
  }

  void Scan(const Text& text, const Text& code) {
    for (const Text& word : ScanWords(text)) AnalyseWord(word, code);
  }

  void HyphenWords(const Text& text) {
    for (const Text& piece : Split(text, u'-')) AnalyseWord(piece, u"BU*");
  }

  void Tail(const Text& scheme, bool credentials, std::int32_t port, const Text& path, const Text& host,
            const Text& query) {
    Text directory, base, extension;
    if (const std::size_t slash = path.rfind(u'/'); slash != kNone) {
      directory = path.substr(0, slash);
      const Text file = path.substr(slash + 1);
      const std::size_t dot = file.rfind(u'.');
      base = file.substr(0, dot);
      if (dot != kNone) extension = file.substr(dot + 1);
      if ((extension.empty() || extension.size() > 4) && !base.empty()) {
        directory += u"/" + base;
        if (!extension.empty()) directory += u"." + extension;
        base.clear();
        extension.clear();
      }
    }
    Emit(u"BD*" + scheme);
    if (credentials) Emit(u"BW*1");
    Emit(u"BE*" + Number(port));
    Scan(base, u"AF*");
    Emit(u"BH*" + extension);
    Host(host);
    Directory(directory);
    if (!query.empty()) Query(query);
  }

  bool Address(const Text& host) {
    Text trimmed = host;
    Trim(trimmed);
    if (IsBlank(host) || trimmed.find_first_not_of(u"0123456789.") != kNone || Count(trimmed, u'.') != 3) return false;
    const std::vector<Text> numbers = Split(trimmed, u'.');
    for (const Text& number : numbers) {
      if (ReadNumber(number) > 255) return false;
    }
    Emit(u"BI*AJ");
    Emit(u"BJ*" + Number(ReadNumber(numbers[0])) + u"." + Number(ReadNumber(numbers[1])));
    return true;
  }

  void Host(const Text& host) {
    if (Address(host)) return;
    int digits = 0;
    for (const char16_t c : host) {
      const bool isLetter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
      digits += IsDigit(c) ? 1 : 0;
      if (isLetter || IsDigit(c)) {
        Emit(Text(u"AGAE*") + c);
      } else {
        char hex[8];
        std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(c));
        Emit(u"AGAE*%" + Widen(hex));
      }
    }
    Emit(digits > 10 ? Text(u"ALAE*AS") : u"ALAE*" + Number(digits));
    Emit(u"BI*AM");
    const std::int64_t hyphens = Count(host, u'-');
    Emit(hyphens <= 3 ? u"BQ*" + Number(hyphens) : hyphens <= 5 ? Text(u"BQ*AP") : Text(u"BQ*AQ"));
    Emit(u"BT*" + Number(Count(host, u'.')));

    const std::size_t p1 = host.rfind(u'.');
    if (p1 == kNone || p1 == 0) return HyphenWords(host);
    const std::size_t p2 = host.rfind(u'.', p1 - 1);
    const Text last = host.substr(p1 + 1);
    if (p2 == kNone) {
      Emit(u"BS*" + last);
      return HyphenWords(host.substr(0, p1));
    }
    const Text label = host.substr(p2 + 1, p1 - p2 - 1);
    const Text front = host.substr(0, p2);
    if (label != u"co") {
      Emit(u"BS*" + last);
      HyphenWords(label);
      return Scan(front, u"AE*");
    }
    Emit(u"BS*co." + last);
    const std::size_t p3 = front.rfind(u'.');
    if (p3 == kNone) return HyphenWords(front);
    HyphenWords(front.substr(p3 + 1));
    Scan(front.substr(0, p3), u"AE*");
  }

  void Directory(const Text& directory) {
    Scan(directory, u"BK*");
    if (const std::vector<Text> words = ScanWords(directory); !words.empty() && words.back().size() <= 8) {
      std::int64_t digits = 0;
      for (std::size_t i = words.back().size(); i > 0 && IsAnyDigit(words.back()[i - 1]); --i) ++digits;
      if (digits > 0) Emit(u"CG*" + Number(digits));
    }
    const auto length = static_cast<std::int64_t>(directory.size());
    const std::int64_t slashes = Count(directory, u'/');
    const std::int64_t tildes = Count(directory, u'~');
    const std::int64_t dots = Count(directory, u'.');
    Emit(slashes <= 12 ? u"BKBL*" + Number(slashes) : Text(u"BKBL*AT"));
    if (directory.find(u"/.") != kNone) Emit(u"BX*1");
    Emit(length <= 200 ? u"BKBM*AK" + Number(length / 20) : Text(u"BKBM*AN"));
    Emit(tildes <= 1 ? u"BKBN*" + Number(tildes) : Text(u"BKBN*AR"));
    Emit(dots <= 3 ? u"BKBO*" + Number(dots) : Text(u"BKBO*AO"));
  }

  // The zeros of the scripts that have digits of their own.
  static bool IsAnyDigit(char16_t c) {
    const Text zeros =
        u"\u0660\u06F0\u07C0\u0966\u09E6\u0A66\u0AE6\u0B66\u0BE6\u0C66\u0CE6\u0D66\u0DE6\u0E50\u0ED0\u0F20\u1040\u1090"
        u"\u17E0\u1810\u1946\u19D0\u1A80\u1A90\u1B50\u1BB0\u1C40\u1C50\uA620\uA8D0\uA900\uA9D0\uA9F0\uAA50\uABF0\uFF10";
    return std::ranges::any_of(zeros, [&](char16_t zero) { return c >= zero && c < zero + 10; });
  }

  static Text Without(Text text, const Text& unwanted) {
    std::erase_if(text, [&](char16_t c) { return unwanted.find(c) != kNone; });
    return text;
  }

  void Query(const Text& query) {
    const std::vector<Text> pieces = Split(query, u'&');
    for (const Text& piece : pieces) {
      const std::size_t equals = piece.find(u'=');
      AnalyseWord(Without(piece.substr(0, equals), u" :"), u"AIBY*");
      if (equals != kNone) AnalyseWord(Without(piece.substr(equals + 1), u" :="), u"AIBZ*");
    }
    Emit(u"AICD*" + Number(static_cast<std::int64_t>(pieces.size())));
  }

  std::vector<Text> words_;
  Tokens tokens_;
};

/// The tokens chosen among all, with their probabilities.
inline std::map<Text, double> Choose(const Tokens& tokens, const TokenTable& table) {
  std::map<Text, double> chosen;
  for (const Text& token : tokens) {
    const double* const known = table.Find(token);
    if (known == nullptr && token.substr(0, 2) == u"AG") continue;
    const double p = known != nullptr ? *known : 0.4000000059604645;
    if (chosen.size() >= 25) {
      auto weakest = chosen.begin();
      for (auto at = chosen.begin(); at != chosen.end(); ++at) {
        if (std::abs(at->second - 0.5) < std::abs(weakest->second - 0.5)) weakest = at;
      }
      if (!(std::abs(weakest->second - 0.5) < std::abs(p - 0.5))) continue;
      chosen.erase(weakest);
    }
    chosen[token] = p;
  }
  return chosen;
}

inline double Score(const std::map<Text, double>& chosen) {
  double s = 1.0;
  double t = 1.0;
  double score = 0.0;
  for (const auto& [token, p] : chosen) {
    s *= p;
    t *= 1.0 - p;
    score = s / (s + t);
  }
  return score;
}

}  // namespace zeph::literal
