// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/url/BrowserUrl.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Idn.h"
#include "DetectionEngine/url/UrlCracker.h"

namespace zeph {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;

struct WebScheme {
  std::u16string_view name;
  std::int32_t port;
};
constexpr std::array kWebSchemes = {
    WebScheme{u"http", 80}, WebScheme{u"https", 443}, WebScheme{u"ftp", 21},
    WebScheme{u"ws", 80},   WebScheme{u"wss", 443},
};
constexpr std::u16string_view kFile = u"file";
constexpr std::int32_t kMaxPort = 65535;

/// Where a character that isn't a control or beyond ASCII (which always are) is escaped: in the sets of the standard.
enum Place : std::uint8_t {
  kFragment = 1,
  kQuery = 2,
  kWebQuery = 4,
  kPath = 8,
  kUser = 16,
  kText = 32,  ///< a path or host of a scheme's own: controls alone
};

constexpr auto kEscapedIn = [] {
  std::array<std::uint8_t, 0x80> table{};
  const auto add = [&](std::u16string_view characters, int places) {
    for (const char16_t c : characters) table[c] = static_cast<std::uint8_t>(table[c] | places);
  };
  for (char16_t c = 0; c < 0x20; ++c) table[c] = 0xFF;
  table[0x7F] = 0xFF;
  add(u" \"<>", kFragment | kQuery | kWebQuery | kPath | kUser);
  add(u"#", kQuery | kWebQuery | kPath | kUser);
  add(u"'", kWebQuery);
  add(u"`", kFragment | kPath | kUser);
  add(u"?^{}", kPath | kUser);
  add(u"/:;=@[\\]|", kUser);
  return table;
}();

void Escape(std::u16string& out, std::u16string_view text, Place place) {
  constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c < kEscapedIn.size() && (kEscapedIn[c] & place) == 0) {
      out.push_back(c);
      continue;
    }
    const bool isHigh = (c & 0xFC00) == 0xD800 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
    const bool isLone = (c & 0xF800) == 0xD800 && !isHigh;
    for (const char byte : isLone ? std::string("\xEF\xBF\xBD") : Narrow(text.substr(i, isHigh ? 2 : 1))) {
      const auto value = static_cast<std::uint8_t>(byte);
      out.append({u'%', kDigits[value >> 4], kDigits[value & 15]});
    }
    i += isHigh ? 1 : 0;
  }
}

std::u16string Escaped(std::u16string_view text, Place place) {
  std::u16string out;
  out.reserve(text.size());
  Escape(out, text, place);
  return out;
}

constexpr bool IsDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }
constexpr bool IsLetter(char16_t c) noexcept { return (c | 0x20) >= u'a' && (c | 0x20) <= u'z'; }
constexpr char16_t Lower(char16_t c) noexcept { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c | 0x20) : c; }
std::u16string LowerText(std::u16string_view text) {
  std::u16string lower(text);
  for (char16_t& c : lower) c = Lower(c);
  return lower;
}

const WebScheme* FindWebScheme(std::u16string_view lower) noexcept {
  const auto* const scheme = std::ranges::find(kWebSchemes, lower, &WebScheme::name);
  return scheme != kWebSchemes.end() ? scheme : nullptr;
}

/// Schemes in whose addresses "\" is "/" and a path begins with it.
bool IsSpecial(std::u16string_view lower) noexcept { return lower == kFile || FindWebScheme(lower) != nullptr; }

// Hosts.

/// One number of an IPv4 address; nothing for what is none. What is too large for any address comes back as that.
std::optional<std::uint64_t> Ipv4Number(std::u16string_view text) noexcept {
  constexpr std::uint64_t kTooLarge = std::uint64_t{1} << 32;
  if (text.empty()) return std::nullopt;
  unsigned radix = 10;
  if (text.size() >= 2 && text[0] == u'0') {
    radix = Lower(text[1]) == u'x' ? 16 : 8;
    text.remove_prefix(radix == 16 ? 2 : 1);
  }
  std::uint64_t value = 0;
  for (const char16_t c : text) {
    const int digit = HexValue(c);
    if (digit < 0 || static_cast<unsigned>(digit) >= radix) return std::nullopt;
    value = std::min(value * radix + static_cast<unsigned>(digit), kTooLarge);
  }
  return value;
}

std::vector<std::u16string_view> SplitAtDots(std::u16string_view text) {
  std::vector<std::u16string_view> parts;
  for (;;) {
    const std::size_t dot = std::min(text.find(u'.'), text.size());
    parts.push_back(text.substr(0, dot));
    if (dot == text.size()) return parts;
    text.remove_prefix(dot + 1);
  }
}

/// The last label, but for a trailing dot, is a number: then the whole host has to be an IPv4 address.
bool EndsInNumber(std::u16string_view host) noexcept {
  if (host.ends_with(u'.')) host.remove_suffix(1);
  const std::u16string_view last = host.substr(host.rfind(u'.') + 1);
  return !last.empty() && (std::ranges::all_of(last, IsDigit) || Ipv4Number(last));
}

std::optional<std::u16string> Ipv4Host(std::u16string_view host) {
  std::vector<std::u16string_view> parts = SplitAtDots(host);
  if (parts.back().empty() && parts.size() > 1) parts.pop_back();
  if (parts.size() > 4) return std::nullopt;
  std::uint64_t address = 0;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::optional<std::uint64_t> number = Ipv4Number(parts[i]);
    const bool isLast = i + 1 == parts.size();
    const std::uint64_t limit = isLast ? std::uint64_t{1} << (8 * (5 - parts.size())) : 256;
    if (!number || *number >= limit) return std::nullopt;
    address += isLast ? *number : *number << (8 * (3 - i));
  }
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    if (!text.empty()) text += '.';
    text += std::to_string(address >> shift & 255);
  }
  return std::u16string(text.begin(), text.end());
}

/// The four bytes of d.d.d.d, strictly decimal, behind the pieces of an IPv6 address.
bool ReadEmbeddedIpv4(std::u16string_view text, std::array<std::uint16_t, 8>& pieces, std::size_t& count) {
  const std::vector<std::u16string_view> parts = SplitAtDots(text);
  if (parts.size() != 4 || count > 6) return false;
  for (std::size_t i = 0; i < 4; ++i) {
    unsigned value = 0;
    if (parts[i].empty() || parts[i].size() > 3 || (parts[i].size() > 1 && parts[i][0] == u'0')) return false;
    for (const char16_t c : parts[i]) {
      if (!IsDigit(c)) return false;
      value = value * 10 + static_cast<unsigned>(c - u'0');
    }
    if (value > 255) return false;
    const std::size_t at = count + i / 2;
    pieces[at] = static_cast<std::uint16_t>(pieces[at] * 256U + value);
  }
  count += 2;
  return true;
}

std::optional<std::array<std::uint16_t, 8>> ReadIpv6(std::u16string_view text) {
  std::array<std::uint16_t, 8> pieces{};
  std::size_t count = 0;
  std::optional<std::size_t> gap;
  if (text.starts_with(u"::")) {
    text.remove_prefix(2);
    gap = 0;
  } else if (text.starts_with(u':')) {
    return std::nullopt;
  }
  while (!text.empty()) {
    if (count == 8) return std::nullopt;
    if (text.front() == u':') {
      if (gap) return std::nullopt;
      text.remove_prefix(1);
      gap = count;
      continue;
    }
    std::size_t digits = 0;
    unsigned value = 0;
    while (digits < 4 && digits < text.size() && HexValue(text[digits]) >= 0) {
      value = value * 16 + static_cast<unsigned>(HexValue(text[digits++]));
    }
    if (digits < text.size() && text[digits] == u'.') {
      if (digits == 0 || !ReadEmbeddedIpv4(text, pieces, count)) return std::nullopt;
      break;
    }
    if (digits == 0) return std::nullopt;
    pieces[count++] = static_cast<std::uint16_t>(value);
    text.remove_prefix(digits);
    if (text.empty()) break;
    if (text.front() != u':') return std::nullopt;
    text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
  }
  if (!gap && count != 8) return std::nullopt;
  if (gap) {
    const auto begin = pieces.begin() + static_cast<std::ptrdiff_t>(*gap);
    const auto end = pieces.begin() + static_cast<std::ptrdiff_t>(count);
    std::move_backward(begin, end, pieces.end());
    std::fill(begin, pieces.end() - (end - begin), std::uint16_t{0});
  }
  return pieces;
}

std::u16string Ipv6Host(const std::array<std::uint16_t, 8>& pieces) {
  // The first of the longest runs of two zeros and more is written "::".
  std::size_t gap = 8;
  std::size_t gapSize = 1;
  for (std::size_t i = 0; i < 8; ++i) {
    std::size_t size = 0;
    while (i + size < 8 && pieces[i + size] == 0) ++size;
    if (size > gapSize) {
      gap = i;
      gapSize = size;
    }
    i += size;
  }
  std::u16string text = u"[";
  for (std::size_t i = 0; i < 8; ++i) {
    if (i == gap) {
      text += i == 0 ? u"::" : u":";
      i += gapSize - 1;
      continue;
    }
    bool begun = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
      const unsigned digit = pieces[i] >> shift & 15U;
      begun = begun || digit != 0 || shift == 0;
      if (begun) text += u"0123456789abcdef"[digit];
    }
    if (i != 7) text += u':';
  }
  return text += u']';
}

constexpr bool IsForbiddenInHost(char16_t c) noexcept {
  return c == 0 || std::u16string_view(u"\t\n\r #/:<>?@[\\]^|").find(c) != kNone;
}
constexpr bool IsForbiddenInDomain(char16_t c) noexcept {
  return IsForbiddenInHost(c) || c < 0x20 || c == u'%' || c == 0x7F;
}

std::optional<std::u16string> ReadHost(std::u16string_view text, bool isDomain) {
  if (text.starts_with(u'[')) {
    if (!text.ends_with(u']')) return std::nullopt;
    const auto pieces = ReadIpv6(text.substr(1, text.size() - 2));
    if (!pieces) return std::nullopt;
    return Ipv6Host(*pieces);
  }
  if (!isDomain) {
    if (std::ranges::any_of(text, IsForbiddenInHost)) return std::nullopt;
    return Escaped(text, kText);
  }
  const std::u16string ascii = DomainToAscii(DecodeEscapes(text));
  if (ascii.empty() || std::ranges::any_of(ascii, IsForbiddenInDomain)) return std::nullopt;
  return EndsInNumber(ascii) ? Ipv4Host(ascii) : ascii;
}

// Paths.

constexpr bool IsDriveLetter(std::u16string_view text) noexcept {
  return text.size() == 2 && IsLetter(text[0]) && (text[1] == u':' || text[1] == u'|');
}
constexpr bool IsNormalDriveLetter(std::u16string_view text) noexcept { return IsDriveLetter(text) && text[1] == u':'; }

/// How many dots a segment is made of, written "." or "%2e": 1 or 2; 0 for any other segment.
int DotsOf(std::u16string_view segment) noexcept {
  int dots = 0;
  while (!segment.empty() && dots < 3) {
    const bool isEscape = segment.size() >= 3 && segment[0] == u'%' && segment[1] == u'2' && Lower(segment[2]) == u'e';
    if (!isEscape && segment[0] != u'.') return 0;
    segment.remove_prefix(isEscape ? 3 : 1);
    ++dots;
  }
  return dots < 3 ? dots : 0;
}

/// A text being read, character for character where its parts meet.
class Reader {
 public:
  Reader(std::u16string_view text, const BrowserUrl* base) : rest_(text), base_(base) {}

  std::optional<BrowserUrl> Read() {
    const std::u16string_view scheme = SchemeOf(rest_);
    const bool isWhole = scheme.empty() ? ReadRelative() : ReadScheme(scheme);
    if (!isWhole) return std::nullopt;
    ReadExtra();
    return std::move(url_);
  }

 private:
  [[nodiscard]] bool IsFile() const noexcept { return url_.scheme == kFile; }
  [[nodiscard]] bool IsSlash(char16_t c) const noexcept { return c == u'/' || (c == u'\\' && isSpecial_); }
  [[nodiscard]] bool At(std::size_t place, char16_t c) const noexcept {
    return place < rest_.size() && rest_[place] == c;
  }
  [[nodiscard]] bool SlashAt(std::size_t place) const noexcept { return place < rest_.size() && IsSlash(rest_[place]); }
  [[nodiscard]] bool AtExtra() const noexcept { return rest_.empty() || rest_[0] == u'?' || rest_[0] == u'#'; }

  bool ReadScheme(std::u16string_view scheme) {
    url_.scheme = LowerText(scheme);
    isSpecial_ = IsSpecial(url_.scheme);
    rest_.remove_prefix(scheme.size() + 1);
    if (IsFile()) return ReadFile();
    if (isSpecial_) {
      // "http:a.gif" against an http page is relative all the same.
      if (base_ != nullptr && base_->scheme == url_.scheme && !rest_.starts_with(u"//")) return ReadAgainstBase();
      return ReadWebAuthority();
    }
    if (rest_.starts_with(u"//")) {
      rest_.remove_prefix(2);
      return ReadAuthority();
    }
    if (At(0, u'/')) {
      ReadPath();
    } else {
      url_.pathIsText = true;
      const std::u16string_view path = rest_.substr(0, rest_.find_first_of(u"?#"));
      Escape(url_.path, path, kText);
      rest_.remove_prefix(path.size());
    }
    return true;
  }

  bool ReadRelative() {
    if (base_ == nullptr) return false;
    url_.scheme = base_->scheme;
    isSpecial_ = IsSpecial(url_.scheme);
    if (base_->pathIsText) {
      if (!At(0, u'#')) return false;
      url_ = *base_;
      return true;
    }
    return IsFile() ? ReadFile() : ReadAgainstBase();
  }

  bool ReadAgainstBase() {
    if (SlashAt(0)) {
      if (SlashAt(1)) {
        if (isSpecial_) return ReadWebAuthority();
        rest_.remove_prefix(2);
        return ReadAuthority();
      }
      TakeBase(false);
      ReadPath();
      return true;
    }
    TakeBase(true);
    if (AtExtra()) {
      url_.query = base_->query;
      return true;
    }
    DropLastSegment();
    ReadPath();
    return true;
  }

  void TakeBase(bool withPath) {
    url_.userName = base_->userName;
    url_.password = base_->password;
    url_.host = base_->host;
    url_.port = base_->port;
    if (withPath) url_.path = base_->path;
  }

  /// Any number of slashes stands in front of a host of the web.
  bool ReadWebAuthority() {
    while (SlashAt(0)) rest_.remove_prefix(1);
    return ReadAuthority();
  }

  std::u16string_view TakeAuthority() {
    const auto ends = [&](char16_t c) { return IsSlash(c) || c == u'?' || c == u'#'; };
    const auto end = std::ranges::find_if(rest_, ends);
    const std::u16string_view authority = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    rest_.remove_prefix(authority.size());
    return authority;
  }

  bool ReadAuthority() {
    std::u16string_view host = TakeAuthority();
    if (const std::size_t at = host.rfind(u'@'); at != kNone) {
      const std::u16string_view user = host.substr(0, at);
      const std::size_t colon = std::min(user.find(u':'), user.size());
      url_.userName = Escaped(user.substr(0, colon), kUser);
      url_.password = Escaped(user.substr(std::min(colon + 1, user.size())), kUser);
      host.remove_prefix(at + 1);
      if (host.empty()) return false;
    }
    bool inBrackets = false;
    const auto portColon = std::ranges::find_if(host, [&](char16_t c) {
      inBrackets = c == u'[' || (inBrackets && c != u']');
      return c == u':' && !inBrackets;
    });
    const std::u16string_view port = host.substr(static_cast<std::size_t>(portColon - host.begin()));
    host.remove_suffix(port.size());
    if (host.empty() && (isSpecial_ || !port.empty())) return false;
    url_.host = ReadHost(host, isSpecial_);
    if (!url_.host || !ReadPort(port.substr(port.empty() ? 0 : 1))) return false;
    if (isSpecial_ || !AtExtra()) ReadPath();
    return true;
  }

  bool ReadPort(std::u16string_view digits) {
    if (digits.empty()) return true;
    std::int32_t port = 0;
    for (const char16_t c : digits) {
      if (!IsDigit(c)) return false;
      port = port * 10 + (c - u'0');
      if (port > kMaxPort) return false;
    }
    const WebScheme* const scheme = FindWebScheme(url_.scheme);
    if (scheme == nullptr || scheme->port != port) url_.port = port;
    return true;
  }

  bool ReadFile() {
    url_.host.emplace();
    const bool hasBase = base_ != nullptr && base_->scheme == kFile;
    if (SlashAt(0) && SlashAt(1)) {
      rest_.remove_prefix(2);
      const std::u16string_view before = rest_;
      const std::u16string_view host = TakeAuthority();
      if (IsDriveLetter(host)) {
        rest_ = before;  // a drive is no host
      } else if (!host.empty()) {
        url_.host = ReadHost(host, true);
        if (!url_.host) return false;
        if (url_.host == u"localhost") url_.host->clear();
      }
    } else if (SlashAt(0)) {
      if (hasBase) {
        url_.host = base_->host;
        const std::u16string_view drive = std::u16string_view(base_->path).substr(0, 3);
        if (!StartsWithDrive(rest_.substr(1)) && drive.size() == 3 && IsNormalDriveLetter(drive.substr(1)) &&
            (base_->path.size() == 3 || base_->path[3] == u'/')) {
          url_.path = drive;
        }
      }
    } else if (hasBase) {
      url_.host = base_->host;
      if (AtExtra()) {
        url_.path = base_->path;
        url_.query = base_->query;
        return true;
      }
      if (!StartsWithDrive(rest_)) {
        url_.path = base_->path;
        DropLastSegment();
      }
    }
    ReadPath();
    return true;
  }

  static bool StartsWithDrive(std::u16string_view text) noexcept {
    return IsDriveLetter(text.substr(0, 2)) &&
           (text.size() == 2 || std::u16string_view(u"/\\?#").find(text[2]) != kNone);
  }

  void DropLastSegment() {
    // A file's drive stays.
    if (IsFile() && url_.path.size() == 3 && IsNormalDriveLetter(std::u16string_view(url_.path).substr(1))) return;
    const std::size_t slash = url_.path.rfind(u'/');
    url_.path.resize(slash == std::u16string::npos ? 0 : slash);
  }

  /// Appends the segments up to the query to the path.
  void ReadPath() {
    const std::size_t end = std::min(rest_.find_first_of(u"?#"), rest_.size());
    std::u16string_view text = rest_.substr(0, end);
    rest_.remove_prefix(end);
    if (!text.empty() && IsSlash(text.front())) text.remove_prefix(1);
    for (bool isLast = false; !isLast;) {
      const auto slash = std::ranges::find_if(text, [&](char16_t c) { return IsSlash(c); });
      const std::u16string_view segment = text.substr(0, static_cast<std::size_t>(slash - text.begin()));
      isLast = segment.size() == text.size();
      text.remove_prefix(std::min(segment.size() + 1, text.size()));
      const int dots = DotsOf(segment);
      if (dots == 2) DropLastSegment();
      if (dots != 0) {
        if (isLast) url_.path += u'/';
        continue;
      }
      url_.path += u'/';
      if (IsFile() && url_.path.size() == 1 && IsDriveLetter(segment)) {
        url_.path.append({segment[0], u':'});
      } else {
        Escape(url_.path, segment, kPath);
      }
    }
  }

  void ReadExtra() {
    if (At(0, u'?')) {
      const std::size_t end = std::min(rest_.find(u'#'), rest_.size());
      url_.query = Escaped(rest_.substr(1, end - 1), isSpecial_ ? kWebQuery : kQuery);
      rest_.remove_prefix(end);
    }
    if (At(0, u'#')) url_.fragment = Escaped(rest_.substr(1), kFragment);
  }

  std::u16string_view rest_;
  const BrowserUrl* base_;
  BrowserUrl url_;
  bool isSpecial_ = false;
};

}  // namespace

std::u16string BrowserUrl::Text() const {
  std::u16string text;
  text.reserve(scheme.size() + path.size() + (host ? host->size() : 0) + (query ? query->size() : 0) + 16);
  text.append(scheme).append(u":");
  if (host) {
    text += u"//";
    if (!userName.empty() || !password.empty()) {
      text += userName;
      if (!password.empty()) text.append(u":").append(password);
      text += u'@';
    }
    text += *host;
    if (port) {
      const std::string digits = std::to_string(*port);
      text.append(u":").append(digits.begin(), digits.end());
    }
  } else if (!pathIsText && path.starts_with(u"//")) {
    text += u"/.";  // else the path would be read as a host
  }
  text += path;
  if (query) text.append(u"?").append(*query);
  if (fragment) text.append(u"#").append(*fragment);
  return text;
}

std::optional<BrowserUrl> ReadBrowserUrl(std::u16string_view text, const BrowserUrl* base) {
  text = TrimUrl(text);
  const auto isBreak = [](char16_t c) { return c == u'\t' || c == u'\n' || c == u'\r'; };
  if (std::ranges::none_of(text, isBreak)) return Reader(text, base).Read();
  std::u16string clean;
  clean.reserve(text.size());
  std::ranges::remove_copy_if(text, std::back_inserter(clean), isBreak);
  return Reader(clean, base).Read();
}

std::optional<std::u16string> BrowserUrlText(std::u16string_view text, const BrowserUrl* base) {
  const std::optional<BrowserUrl> url = ReadBrowserUrl(text, base);
  if (!url) return std::nullopt;
  return url->Text();
}

}  // namespace zeph
