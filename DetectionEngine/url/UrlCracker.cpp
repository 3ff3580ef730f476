// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/url/UrlCracker.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"

namespace zeph {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;

/// How the text behind a scheme is read.
struct Scheme {
  enum Authority : std::uint8_t {
    kNoHost,        ///< all is path
    kHostNeeded,    ///< "//" and a host that isn't empty
    kHostOptional,  ///< a host when "//" follows
  };

  std::u16string_view name;
  std::int32_t port;
  Authority authority;
  bool hasUserAndPort;  ///< the authority is more than a host
  bool backslashIsSlash;
  bool hasExtra;
};

constexpr std::array kSchemes = {
    //     name           port  authority               user,port  backslash  extra
    Scheme{u"http", 80, Scheme::kHostNeeded, true, true, true},
    Scheme{u"https", 443, Scheme::kHostNeeded, true, true, true},
    Scheme{u"ftp", 21, Scheme::kHostNeeded, true, true, true},
    Scheme{u"gopher", 70, Scheme::kHostNeeded, true, true, true},
    Scheme{u"nntp", 119, Scheme::kHostNeeded, true, true, true},
    Scheme{u"news", 119, Scheme::kHostOptional, true, true, true},
    Scheme{u"file", 0, Scheme::kHostOptional, false, true, true},
    Scheme{u"res", 0, Scheme::kHostOptional, false, false, true},
    Scheme{u"mailto", 0, Scheme::kNoHost, false, false, true},
    Scheme{u"about", 0, Scheme::kNoHost, false, false, true},
    Scheme{u"javascript", 0, Scheme::kNoHost, false, false, false},
    Scheme{u"vbscript", 0, Scheme::kNoHost, false, false, false},
};
constexpr Scheme kUnknownScheme = {u"", 0, Scheme::kHostOptional, true, false, true};
constexpr std::int32_t kMaxPort = 65535;

bool IsAsciiLetter(char16_t c) noexcept { return (c | 0x20) >= u'a' && (c | 0x20) <= u'z'; }

constexpr bool IsControl(char16_t c) noexcept { return c < 0x20 || c == 0x7F; }

const Scheme& FindScheme(std::u16string_view name) noexcept {
  for (const Scheme& scheme : kSchemes) {
    if (std::equal(name.begin(), name.end(), scheme.name.begin(), scheme.name.end(),
                   [](char16_t a, char16_t b) { return (a | 0x20) == b; })) {
      return scheme;
    }
  }
  return kUnknownScheme;
}

/// What an ASCII character means between "//" and the path.
enum Mark : std::uint8_t { kNoMark, kEnd, kBackslash, kAt, kColon, kForbidden };

constexpr auto kMarks = [] {
  std::array<Mark, 0x80> marks{};
  for (std::size_t c = 0; c < marks.size(); ++c) marks[c] = IsControl(static_cast<char16_t>(c)) ? kForbidden : kNoMark;
  for (const char16_t c : std::u16string_view(u"/?#")) marks[c] = kEnd;
  for (const char16_t c : std::u16string_view(u"[]")) marks[c] = kForbidden;
  marks[u'\\'] = kBackslash;
  marks[u'@'] = kAt;
  marks[u':'] = kColon;
  return marks;
}();

/// The text from "//" to the path, and where in it the host is looked for.
struct Authority {
  std::size_t end = 0;
  std::size_t host = 0;           ///< behind the last "@"
  std::size_t hostColon = kNone;  ///< the first from there on
  bool isForbidden = false;       ///< from there on something is what no host has
};

Authority ScanAuthority(std::u16string_view text, const Scheme& scheme) noexcept {
  Authority authority;
  for (std::size_t& at = authority.end; at < text.size(); ++at) {
    switch (text[at] < kMarks.size() ? kMarks[text[at]] : kNoMark) {
      case kEnd:
        return authority;
      case kBackslash:
        if (scheme.backslashIsSlash) return authority;
        break;
      case kAt:
        if (scheme.hasUserAndPort) authority = {at, at + 1, kNone, false};
        break;
      case kColon:
        authority.hostColon = std::min(authority.hostColon, at);
        break;
      case kForbidden:
        authority.isForbidden = true;
        break;
      case kNoMark:
        break;
    }
  }
  return authority;
}

/// Decimal digits up to kMaxPort; nothing for any other text.
std::optional<std::int32_t> ReadPort(std::u16string_view text) noexcept {
  std::int32_t port = 0;
  for (const char16_t c : text) {
    if (!IsDigit(c)) return std::nullopt;
    port = port * 10 + (c - u'0');
    if (port > kMaxPort) return std::nullopt;
  }
  return port;
}

/// Takes user:password@host:port. False for what is none.
bool CrackUserAndPort(std::u16string_view text, const Authority& authority, CrackedUrl& url) noexcept {
  if (authority.host > 0) {
    const std::u16string_view user = text.substr(0, authority.host - 1);
    const std::size_t colon = std::min(user.find(u':'), user.size());
    url.userName = user.substr(0, colon);
    url.password = user.substr(std::min(colon + 1, user.size()));
  }
  const std::size_t hostEnd = std::min(authority.hostColon, authority.end);
  url.host = text.substr(authority.host, hostEnd - authority.host);
  if (hostEnd + 1 >= authority.end) return true;
  const std::optional<std::int32_t> port = ReadPort(text.substr(hostEnd + 1, authority.end - hostEnd - 1));
  url.port = port.value_or(0);
  url.portIsNamed = port.has_value();
  return url.portIsNamed;
}

bool IsDrive(std::u16string_view authority) noexcept {
  return authority.size() == 2 && IsAsciiLetter(authority[0]) && (authority[1] == u':' || authority[1] == u'|');
}

/// By ASCII character, a bit for each Escaping that replaces it.
constexpr auto kEscapedBy = [] {
  std::array<std::uint8_t, 0x80> table{};
  const auto add = [&](std::u16string_view characters, std::initializer_list<Escaping> escapings) {
    for (const char16_t c : characters) {
      for (const Escaping escaping : escapings) table[c] |= static_cast<std::uint8_t>(1U << static_cast<int>(escaping));
    }
  };
  for (char16_t c = 0; c < 0x80; ++c) {
    if (c <= u' ' || c == 0x7F) table[c] = 0xFF;
  }
  add(u"\"<>^`{|}", {Escaping::kText, Escaping::kPath, Escaping::kUser, Escaping::kExtra});
  add(u"%", {Escaping::kPath, Escaping::kUser, Escaping::kExtra});
  add(u"?#\\", {Escaping::kPath, Escaping::kUser});
  add(u"/:@", {Escaping::kUser});
  return table;
}();

bool MustBeEscaped(char16_t c, Escaping escaping) noexcept {
  return c >= kEscapedBy.size() || (kEscapedBy[c] >> static_cast<int>(escaping) & 1) != 0;
}

}  // namespace

std::u16string_view TrimUrl(std::u16string_view url) noexcept {
  while (!url.empty() && url.front() <= u' ') url.remove_prefix(1);
  while (!url.empty() && url.back() <= u' ') url.remove_suffix(1);
  return url;
}

std::u16string_view SchemeOf(std::u16string_view url) noexcept {
  if (url.empty() || !IsAsciiLetter(url.front())) return {};
  std::size_t end = 1;
  while (end < url.size() &&
         (IsAsciiLetter(url[end]) || IsDigit(url[end]) || url[end] == u'+' || url[end] == u'-' || url[end] == u'.')) {
    ++end;
  }
  return end < url.size() && url[end] == u':' ? url.substr(0, end) : std::u16string_view();
}

std::optional<CrackedUrl> CrackUrl(std::u16string_view text) noexcept {
  CrackedUrl url;
  url.scheme = SchemeOf(text);
  if (url.scheme.empty()) return std::nullopt;
  text.remove_prefix(url.scheme.size() + 1);
  const Scheme& scheme = FindScheme(url.scheme);
  url.schemeIsKnown = &scheme != &kUnknownScheme;
  url.port = scheme.port;
  url.backslashIsSlash = scheme.backslashIsSlash;
  url.pathIsText = scheme.authority == Scheme::kNoHost;

  const auto isSlash = [&](char16_t c) { return c == u'/' || (c == u'\\' && scheme.backslashIsSlash); };
  const bool hasSlashes = text.size() >= 2 && isSlash(text[0]) && isSlash(text[1]);
  if (scheme.authority == Scheme::kHostNeeded && !hasSlashes) return std::nullopt;
  if (scheme.authority != Scheme::kNoHost && hasSlashes) {
    text.remove_prefix(2);
    Authority authority = ScanAuthority(text, scheme);
    if (scheme.hasUserAndPort) {
      if (!CrackUserAndPort(text, authority, url)) return std::nullopt;
    } else if (scheme.backslashIsSlash && IsDrive(text.substr(0, authority.end))) {
      authority.end = 0;
    } else {
      url.host = text.substr(0, authority.end);
    }
    if (authority.isForbidden || (scheme.authority == Scheme::kHostNeeded && url.host.empty())) return std::nullopt;
    text.remove_prefix(authority.end);
  }
  std::size_t end = text.size();
  if (scheme.hasExtra) {
    end = FindAnyOf<u'?', u'#'>(text, 0);
  }
  url.path = text.substr(0, end);
  url.extra = text.substr(end);
  return url;
}

std::u16string DecodeEscapes(std::u16string_view text) {
  std::size_t at = FindAnyOf<u'%'>(text, 0);
  if (at == text.size()) return std::u16string(text);
  std::u16string decoded;
  decoded.reserve(text.size());
  decoded.append(text.substr(0, at));
  std::string run;  // bytes beyond ASCII, which may only together be a character
  const auto flush = [&] {
    if (run.empty()) return;
    decoded += Widen(run);
    run.clear();
  };
  while (at < text.size()) {
    const int high = text[at] == u'%' && at + 2 < text.size() ? HexValue(text[at + 1]) : -1;
    const int low = high >= 0 ? HexValue(text[at + 2]) : -1;
    if (low >= 0 && high >= 8) {
      run.push_back(static_cast<char>(high * 16 + low));
    } else {
      flush();
      decoded.push_back(low >= 0 ? static_cast<char16_t>(high * 16 + low) : text[at]);
    }
    at += low >= 0 ? 3 : 1;
  }
  flush();
  return decoded;
}

void AppendEscaped(std::u16string& out, std::u16string_view text, Escaping escaping) {
  constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!MustBeEscaped(text[i], escaping)) {
      out.push_back(text[i]);
      continue;
    }
    const bool isPair = (text[i] & 0xFC00) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
    for (const char byte : Narrow(text.substr(i, isPair ? 2 : 1))) {
      const auto value = static_cast<std::uint8_t>(byte);
      out.append({u'%', kDigits[value >> 4], kDigits[value & 15]});
    }
    i += isPair ? 1 : 0;
  }
}

std::optional<std::u16string> CreateUrl(const UrlParts& parts) {
  std::u16string url(parts.scheme);
  url += u"://";
  if (!parts.userName.empty() || !parts.password.empty()) {
    AppendEscaped(url, parts.userName, Escaping::kUser);
    if (!parts.password.empty()) {
      url += u':';
      AppendEscaped(url, parts.password, Escaping::kUser);
    }
    url += u'@';
  }
  url += parts.host;
  if (parts.port) {
    std::array<char, 12> digits{};
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), *parts.port).ptr;
    url += u':';
    url.append(static_cast<const char*>(digits.data()), end);
  }
  AppendEscaped(url, parts.path, Escaping::kPath);
  AppendEscaped(url, parts.extra, Escaping::kExtra);
  if (url.size() > kMaxUrlLength) return std::nullopt;
  return url;
}

}  // namespace zeph
