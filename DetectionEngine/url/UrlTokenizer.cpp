// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/url/UrlTokenizer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlCracker.h"

namespace zeph {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;
constexpr std::size_t kLongestExtension = 4;  ///< a file name with a longer one counts as a folder
constexpr std::size_t kLongestNumbered = 8;   ///< a longer word isn't looked at for digits at its end

constexpr bool IsAsciiLetter(char16_t c) noexcept { return static_cast<char16_t>((c | 0x20) - u'a') < 26; }

/// Words are runs of ASCII letters and of what lies above Latin-1.
bool IsWordUnit(char16_t c) noexcept { return IsAsciiLetter(c) || c > 255; }

/// Calls take(word) for each word.
template <class Take>
void ForEachWord(std::u16string_view text, Take take) {
  for (std::size_t at = 0; at < text.size();) {
    if (!IsWordUnit(text[at])) {
      ++at;
      continue;
    }
    const std::size_t begin = at;
    while (at < text.size() && IsWordUnit(text[at])) ++at;
    take(text.substr(begin, at - begin));
  }
}

/// Calls take(piece) for each piece between separators, empty ones included; gives their number.
template <class Take>
std::size_t ForEachPiece(std::u16string_view text, char16_t separator, Take take) {
  for (std::size_t count = 1;; ++count) {
    const std::size_t end = text.find(separator);
    take(text.substr(0, end));
    if (end == kNone) return count;
    text.remove_prefix(end + 1);
  }
}

/// A decimal digit of another script: the only ones that can stand in a word.
bool IsForeignDigit(char16_t c) noexcept {
  constexpr auto kZeros = std::to_array<char16_t>(
      {0x0660, 0x06F0, 0x07C0, 0x0966, 0x09E6, 0x0A66, 0x0AE6, 0x0B66, 0x0BE6, 0x0C66, 0x0CE6, 0x0D66,
       0x0DE6, 0x0E50, 0x0ED0, 0x0F20, 0x1040, 0x1090, 0x17E0, 0x1810, 0x1946, 0x19D0, 0x1A80, 0x1A90,
       0x1B50, 0x1BB0, 0x1C40, 0x1C50, 0xA620, 0xA8D0, 0xA900, 0xA9D0, 0xA9F0, 0xAA50, 0xABF0, 0xFF10});
  const auto above = std::upper_bound(kZeros.begin(), kZeros.end(), c);
  return above != kZeros.begin() && c - above[-1] < 10;
}

/// The first two numbers of a dotted address; nothing for another host. Numbers may be empty, which counts as 0.
std::optional<std::array<std::int32_t, 2>> FindAddress(std::u16string_view host) noexcept {
  while (!host.empty() && IsSpace(host.front())) host.remove_prefix(1);
  while (!host.empty() && IsSpace(host.back())) host.remove_suffix(1);
  std::array<std::int32_t, 4> numbers{};
  std::size_t dots = 0;
  for (const char16_t c : host) {
    if (c == u'.') {
      if (++dots == numbers.size()) return std::nullopt;
    } else {
      if (!IsDigit(c)) return std::nullopt;
      std::int32_t& number = numbers[dots];
      number = number * 10 + (c - u'0');
      if (number > 255) return std::nullopt;
    }
  }
  if (dots != 3) return std::nullopt;
  return std::array{numbers[0], numbers[1]};
}

struct PathParts {
  std::u16string_view directory;  ///< without its last slash
  std::u16string_view base;
  std::u16string_view extension;
};

/// The last element counts as a file only if it has an extension of one to four characters.
PathParts SplitPath(std::u16string_view path) noexcept {
  PathParts parts;
  const std::size_t slash = path.rfind(u'/');
  if (slash == kNone) return parts;
  parts.directory = path.substr(0, slash);
  const std::u16string_view file = path.substr(slash + 1);
  const std::size_t dot = file.rfind(u'.');
  parts.base = file.substr(0, dot);
  if (dot != kNone) parts.extension = file.substr(dot + 1);
  const bool isFile = !parts.extension.empty() && parts.extension.size() <= kLongestExtension;
  if (isFile || parts.base.empty()) return parts;
  // All of the path goes back to the directory, but a dot at its very end.
  const std::size_t length = dot != kNone && parts.extension.empty() ? path.size() - 1 : path.size();
  return {path.substr(0, length), {}, {}};
}

/// What the tokens are made of.
struct Parts {
  std::u16string_view scheme;
  bool hasCredentials = false;
  std::int32_t port = 0;
  std::u16string_view host;
  std::u16string_view path;
  std::u16string_view query;
};

class Emission {
 public:
  Emission(const WordSet& words, TokenSink& sink) : words_(words), sink_(sink) { word_.reserve(kUsualToken); }

  void Emit(FixedToken token) { sink_.TakeFixed(token); }

  void Emit(std::u16string_view code, std::u16string_view value) {
    const std::size_t length = code.size() + value.size();
    if (length > token_.size()) token_.resize(2 * length);
    std::copy(value.begin(), value.end(), std::copy(code.begin(), code.end(), token_.begin()));
    sink_.Take(std::u16string_view(token_).substr(0, length));
  }

  void EmitCount(const FixedCounts& counts, std::size_t count) {
    if (count < counts.count) {
      Emit(static_cast<FixedToken>(counts.first + count));
    } else {
      Emit(counts.code, NumberText(static_cast<std::int64_t>(count)));
    }
  }
  /// The mark for a count that is none of these.
  void EmitCount(const FixedCounts& counts, std::size_t count, FixedToken above) {
    Emit(count < counts.count ? static_cast<FixedToken>(counts.first + count) : above);
  }

  void EmitParts(const Parts& parts) {
    const PathParts path = SplitPath(parts.path);
    EmitScheme(parts.scheme);
    if (parts.hasCredentials) Emit(Fixed(u"BW*1"));
    if (parts.port == -1) {
      Emit(Fixed(u"BE*-1"));
    } else {
      Emit(u"BE*", NumberText(parts.port));
    }
    EmitWords(path.base, WordCode::kFile);
    if (path.extension.empty()) {
      Emit(Fixed(u"BH*"));
    } else {
      Emit(u"BH*", path.extension);
    }
    EmitHost(parts.host);
    EmitDirectory(path.directory);
    if (!parts.query.empty()) EmitQuery(parts.query);
  }

 private:
  static constexpr std::size_t kUsualToken = 64;

  void EmitScheme(std::u16string_view scheme) {
    if (scheme == u"http") {
      Emit(Fixed(u"BD*http"));
    } else if (scheme == u"https") {
      Emit(Fixed(u"BD*https"));
    } else {
      Emit(u"BD*", scheme);
    }
  }

  void EmitHost(std::u16string_view host) {
    if (const auto address = FindAddress(host)) {
      Emit(Fixed(u"BI*AJ"));
      Emit(u"BJ*", NumberText((*address)[0]) + u"." + NumberText((*address)[1]));
      return;
    }
    std::size_t digits = 0;
    std::size_t hyphens = 0;
    std::size_t dots = 0;
    for (const char16_t c : host) {
      digits += IsDigit(c) ? 1 : 0;
      hyphens += c == u'-' ? 1 : 0;
      dots += c == u'.' ? 1 : 0;
      if (c < 0x80) {
        Emit(FixedCharacter(c));
      } else {
        sink_.Take(HostCharacterToken(c));
      }
    }
    EmitCount(CountsOf(u"ALAE*"), digits, Fixed(u"ALAE*AS"));
    Emit(Fixed(u"BI*AM"));
    EmitCount(CountsOf(u"BQ*"), hyphens, hyphens <= 5 ? Fixed(u"BQ*AP") : Fixed(u"BQ*AQ"));
    EmitCount(CountsOf(u"BT*"), dots);
    EmitLabels(host);
  }

  void EmitLabels(std::u16string_view host) {
    const std::size_t last = host.rfind(u'.');
    if (last == kNone || last == 0) return EmitHyphenWords(host);
    const std::u16string_view lastLabel = host.substr(last + 1);
    std::u16string_view rest = host.substr(0, last);
    // Takes the last label of what is left of the host.
    bool hasMore = true;
    const auto takeLabel = [&] {
      const std::size_t dot = rest.rfind(u'.');
      hasMore = dot != kNone;
      const std::u16string_view label = hasMore ? rest.substr(dot + 1) : rest;
      rest = rest.substr(0, hasMore ? dot : 0);
      return label;
    };
    std::u16string_view site = takeLabel();
    if (hasMore && site == u"co") {
      Emit(u"BS*co.", lastLabel);
      site = takeLabel();
    } else {
      Emit(u"BS*", lastLabel);
    }
    EmitHyphenWords(site);
    EmitWords(rest, WordCode::kSubdomain);
  }

  void EmitDirectory(std::u16string_view directory) {
    const std::u16string_view lastWord = EmitWords(directory, WordCode::kFolder);
    if (lastWord.size() <= kLongestNumbered) {
      const auto behind = std::find_if_not(lastWord.rbegin(), lastWord.rend(), IsForeignDigit);
      if (behind != lastWord.rbegin()) Emit(u"CG*", NumberText(behind - lastWord.rbegin()));
    }
    std::size_t slashes = 0;
    std::size_t tildes = 0;
    std::size_t dots = 0;
    bool hidesFolder = false;
    for (std::size_t i = 0; i < directory.size(); ++i) {
      const char16_t c = directory[i];
      slashes += c == u'/' ? 1 : 0;
      tildes += c == u'~' ? 1 : 0;
      dots += c == u'.' ? 1 : 0;
      hidesFolder |= c == u'.' && i > 0 && directory[i - 1] == u'/';
    }
    EmitCount(CountsOf(u"BKBL*"), slashes, Fixed(u"BKBL*AT"));
    if (hidesFolder) Emit(Fixed(u"BX*1"));
    const bool isLong = directory.size() > 200;
    EmitCount(CountsOf(u"BKBM*AK"), isLong ? kNone : directory.size() / 20, Fixed(u"BKBM*AN"));
    EmitCount(CountsOf(u"BKBN*"), tildes, Fixed(u"BKBN*AR"));
    EmitCount(CountsOf(u"BKBO*"), dots, Fixed(u"BKBO*AO"));
  }

  void EmitQuery(std::u16string_view query) {
    const std::size_t pieces = ForEachPiece(query, u'&', [&](std::u16string_view piece) {
      const std::size_t equals = piece.find(u'=');
      AnalyseCleaned(piece.substr(0, equals), false, WordCode::kKey);
      if (equals != kNone) AnalyseCleaned(piece.substr(equals + 1), true, WordCode::kValue);
    });
    EmitCount(CountsOf(u"AICD*"), pieces);
  }

  void EmitHyphenWords(std::u16string_view text) {
    ForEachPiece(text, u'-', [&](std::u16string_view piece) { AnalyseWord(piece, WordCode::kSite); });
  }

  /// Gives the last word; empty when there is none.
  std::u16string_view EmitWords(std::u16string_view text, WordCode code) {
    std::u16string_view last;
    ForEachWord(text, [&](std::u16string_view word) {
      AnalyseWord(word, code);
      last = word;
    });
    return last;
  }

  void AnalyseCleaned(std::u16string_view text, bool isValue, WordCode code) {
    const auto isUnwanted = [&](char16_t c) { return c == u' ' || c == u':' || (c == u'=' && isValue); };
    if (std::none_of(text.begin(), text.end(), isUnwanted)) return AnalyseWord(text, code);
    std::u16string cleaned;
    cleaned.reserve(text.size());
    std::remove_copy_if(text.begin(), text.end(), std::back_inserter(cleaned), isUnwanted);
    AnalyseWord(cleaned, code);
  }

  void AnalyseWord(std::u16string_view word, WordCode code) {
    if (word.empty()) return;
    word_.assign(word);
    MakeLower(word_);
    EmitLength(word.size());
    words_.CutOut(word_, room_, [&](std::uint32_t number) {
      sink_.TakeWord(code, number, words_[number]);
      sink_.TakeWord(WordCode::kAnywhere, number, words_[number]);
    });
    ForEachWord(word_, [&](std::u16string_view left) { Emit(TextOf(code), left); });
  }

  void EmitLength(std::size_t length) {
    constexpr std::pair<std::size_t, FixedToken> kLengths[] = {{50, Fixed(u"BP*50")},
                                                               {40, Fixed(u"BP*40")},
                                                               {35, Fixed(u"BP*35")},
                                                               {30, Fixed(u"BP*30")},
                                                               {20, Fixed(u"BP*20")}};
    for (const auto& [limit, token] : kLengths) {
      if (length > limit) return Emit(token);
    }
  }

  const WordSet& words_;
  TokenSink& sink_;
  std::u16string token_ = std::u16string(kUsualToken, u'\0');  ///< room for a token
  std::u16string word_;
  WordSet::Room room_;
};

bool HasEscapes(std::u16string_view text) noexcept {
  return std::any_of(text.begin(), text.end(), [](char16_t c) { return c == u'%' || c == u'+'; });
}

/// Two hexadecimal digits follow every "%". An escape holds no "%", so that each can be looked at by itself.
bool EscapesAreWhole(std::u16string_view text) noexcept {
  for (std::size_t at = text.find(u'%'); at != kNone; at = text.find(u'%', at + 1)) {
    if (at + 2 >= text.size() || HexValue(text[at + 1]) < 0 || HexValue(text[at + 2]) < 0) return false;
  }
  return true;
}

/// Takes the text of a URL apart, escapes in its parts decoded. The parts live as long as the lexer and the text.
class UrlLexer {
 public:
  /// False for what can't be cracked.
  bool Lex(std::u16string_view url) {
    // A "?" right behind the host: a slash between them gives the path that the cracker may want. Where nothing stands
    // in front of the "?" that slash would only be one more to pass over, time and again: such a URL is taken as it is.
    const std::size_t colon = url.find(u':');
    std::size_t front = colon == kNone ? url.size() : colon + 1;
    while (front < url.size() && url[front] == u'/') ++front;
    const std::size_t question = url.find(u'?', front);
    const bool lacksSlash = question != kNone && question > front && url.find(u'/', front + 1) > question;
    if (!lacksSlash) return Crack(url);
    std::u16string completed(url);
    completed.insert(question, 1, u'/');
    copy_ = std::move(completed);
    if (!Crack(copy_)) return false;
    if (!parts_.path.empty()) parts_.path.remove_prefix(1);
    return true;
  }

  [[nodiscard]] const Parts& Get() const noexcept { return parts_; }

 private:
  bool Crack(std::u16string_view url) {
    // What the narrow code page can't hold has changed there.
    if (std::any_of(url.begin(), url.end(), [](char16_t c) { return c >= 0x80; })) url = copy_ = Widen(Narrow(url));
    const std::optional<CrackedUrl> cracked = CrackUrl(url);
    if (!cracked) return false;
    const std::u16string_view extra = cracked->extra.substr(0, cracked->extra.find(u'#'));
    const std::size_t behindHost = static_cast<std::size_t>(cracked->host.data() - url.data()) + cracked->host.size();
    const bool namesPort = cracked->host.empty() || (behindHost < url.size() && url[behindHost] == u':');
    parts_.port = namesPort ? cracked->port : -1;
    parts_.scheme = cracked->scheme;
    parts_.query = Decoded(extra.starts_with(u'?') ? extra.substr(1) : extra, query_);
    parts_.host = Decoded(cracked->host, host_);
    parts_.path = Decoded(cracked->path, path_);
    parts_.hasCredentials = IsText(cracked->userName) || IsText(cracked->password);
    return true;
  }

  static std::u16string_view Decoded(std::u16string_view part, std::u16string& room) {
    if (!HasEscapes(part)) return part;
    room = Unescape(part).value_or(std::u16string());
    return room;
  }

  /// Something is left of it once decoded.
  static bool IsText(std::u16string_view part) {
    std::u16string room;
    return !Decoded(part, room).empty();
  }

  Parts parts_;
  std::u16string copy_;
  std::u16string query_;
  std::u16string host_;
  std::u16string path_;
};

/// Collects tokens for who wants a list of them.
class TokenList final : public TokenSink {
 public:
  void Take(std::u16string_view token) override { tokens.emplace_back(token); }

  std::vector<std::u16string> tokens;
};

template <class Url>
std::optional<std::vector<std::u16string>> ListTokens(const Url& url, const WordSet& words) {
  TokenList list;
  if (!Tokenize(url, words, list)) return std::nullopt;
  return std::move(list.tokens);
}

bool IsEmpty(const UrlRecord& record) noexcept {
  return record.Scheme.empty() && record.HostName.empty() && record.NormalizedUrl.empty() &&
         record.DomainTail.empty() && record.MainDomain.empty() && record.UserName.empty() && record.Password.empty() &&
         record.UrlPath.empty() && record.Directory.empty() && record.FileName.empty() &&
         record.FileExtension.empty() && record.ExtraInfo.empty() && record.RedirectTarget.empty();
}

}  // namespace

void TokenSink::TakeWord(WordCode code, std::uint32_t, std::u16string_view word) {
  std::u16string token(TextOf(code));
  Take(token += word);
}

std::optional<std::u16string> Unescape(std::u16string_view text) {
  if (!HasEscapes(text)) return std::u16string(text);
  const std::string bytes = Narrow(text);
  std::string decoded;
  decoded.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] != '%') {
      decoded.push_back(bytes[i] == '+' ? ' ' : bytes[i]);
      continue;
    }
    if (i + 2 >= bytes.size()) return std::nullopt;
    const int high = HexValue(static_cast<unsigned char>(bytes[i + 1]));
    const int low = HexValue(static_cast<unsigned char>(bytes[i + 2]));
    if (high < 0 || low < 0) return std::nullopt;
    decoded.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return Widen(std::string_view(decoded).substr(0, decoded.find('\0')));
}

bool Tokenize(std::u16string_view text, const WordSet& words, TokenSink& sink) {
  std::u16string_view url = TrimUrl(text);
  // Decoding always changes a text that has escapes, so that its outcome is known without its text.
  const bool hasEscapes = HasEscapes(url);
  const bool isBroken = hasEscapes && !EscapesAreWhole(url);
  std::u16string blanked;
  if (isBroken) {
    blanked = url;
    std::replace(blanked.begin(), blanked.end(), u'%', u' ');
    url = blanked;
  }
  UrlLexer lexer;
  if (!lexer.Lex(url)) return false;
  Emission emission(words, sink);
  if (hasEscapes) emission.Emit(isBroken ? Fixed(u"CF*1") : Fixed(u"CE*1"));
  emission.EmitParts(lexer.Get());
  return true;
}

bool Tokenize(const UrlRecord& record, const WordSet& words, TokenSink& sink) {
  if (IsEmpty(record)) return Tokenize(record.RawUrl, words, sink);
  Parts parts;
  parts.scheme = record.Scheme;
  parts.hasCredentials = !record.UserName.empty();
  parts.port = record.PortImplied ? -1 : record.Port;
  parts.host = record.HostName;
  parts.path = record.UrlPath;
  parts.query = record.ExtraInfo;
  Emission(words, sink).EmitParts(parts);
  return true;
}

std::optional<std::vector<std::u16string>> TokensOf(std::u16string_view url, const WordSet& words) {
  return ListTokens(url, words);
}

std::optional<std::vector<std::u16string>> TokensOf(const UrlRecord& record, const WordSet& words) {
  return ListTokens(record, words);
}

}  // namespace zeph
