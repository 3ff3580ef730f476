// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/url/UrlParser.h"

#include <algorithm>
#include <optional>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Idn.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;
constexpr std::size_t kShortLabel = 3;  ///< a second-level label of so many characters may be a registry's

void LogUrl(const char* label, std::u16string_view url, int level) {
  LogLine(
      label, [&] { return Narrow(url); }, level);
}

/// Escapes in the host hid what a browser would never take for one; the cracker sees to what stands there openly.
bool HidesForbidden(std::u16string_view host, std::u16string_view decoded) noexcept {
  return decoded.size() < host.size() && std::any_of(decoded.begin(), decoded.end(), [](char16_t c) {
           return c < 0x20 || c == 0x7F || c == u'[' || c == u']';
         });
}

template <char16_t c>
bool Holds(std::u16string_view text) noexcept {
  return FindAnyOf<c>(text, 0) < text.size();
}

std::u16string DecodePath(const CrackedUrl& url) {
  if (!url.backslashIsSlash || !Holds<u'\\'>(url.path)) return DecodeEscapes(url.path);
  std::u16string path(url.path);
  std::replace(path.begin(), path.end(), u'\\', u'/');
  return DecodeEscapes(path);
}

/// Some dot-separated piece is longer than one character and begins with 0x.
bool HasHexPiece(std::u16string_view host) noexcept {
  for (std::size_t begin = 0; begin < host.size();) {
    if (begin + 1 < host.size() && host[begin] == u'0' && (host[begin + 1] | 0x20) == u'x') return true;
    begin = std::min(host.find(u'.', begin), host.size() - 1) + 1;
  }
  return false;
}

/// The label taken as the site's own name, of a host that has a dot, and not only at its end.
std::u16string_view MainDomainOf(std::u16string_view host) noexcept {
  // The last three labels, the last first; empty ones don't count.
  std::u16string_view labels[3];
  std::size_t count = 0;
  while (!host.empty() && count < 3) {
    const std::size_t dot = host.rfind(u'.');
    const std::u16string_view label = dot == kNone ? host : host.substr(dot + 1);
    if (!label.empty()) labels[count++] = label;
    host = host.substr(0, dot == kNone ? 0 : dot);
  }
  if (count < 2) return {};
  if (count == 2 || labels[1].size() > kShortLabel || labels[2] == u"www") return labels[1];
  return labels[2];
}

void AnalyseHost(UrlRecord& record) {
  std::u16string& host = record.HostName;
  record.HostIsHexForm = HasHexPiece(host);
  record.HostIsDottedForm = !record.HostIsHexForm &&
                            std::all_of(host.begin(), host.end(), [](char16_t c) { return IsDigit(c) || c == u'.'; });
  record.HostIsIp = record.HostIsHexForm || record.HostIsDottedForm;
  if (record.HostIsIp) return;

  std::size_t last = host.rfind(u'.');
  if (last != kNone && last + 1 == host.size()) {
    host.pop_back();
    last = host.rfind(u'.');
  }
  record.HostIsSingleLabel = last == kNone;
  if (record.HostIsSingleLabel) return;
  record.HostHasSlash = host.find(u'/') != kNone;
  if (record.HostHasSlash) return;

  const std::size_t before = last == 0 ? kNone : host.rfind(u'.', last - 1);
  record.DomainTail.assign(host, before == kNone ? 0 : before + 1);
  record.MainDomain = MainDomainOf(host);
}

void SplitPath(UrlRecord& record) {
  const std::u16string_view path = record.UrlPath;
  const std::size_t slash = path.rfind(u'/');
  if (slash == kNone) return;
  record.Directory = path.substr(0, slash + 1);
  record.FileName = path.substr(slash + 1);
  const std::size_t dot = record.FileName.rfind(u'.');
  if (dot == kNone) return;
  record.FileExtension.assign(record.FileName, dot + 1);
  MakeLower(record.FileExtension);
}

void Normalize(UrlRecord& record) {
  std::u16string_view host = record.HostName;
  if (host.starts_with(u"www.")) host.remove_prefix(4);
  const bool showsPort =
      (record.Scheme == u"http" && record.Port != 80) || (record.Scheme == u"https" && record.Port != 443);
  std::u16string_view path = record.UrlPath;
  if (path.ends_with(u'/')) path.remove_suffix(1);

  std::u16string& normalized = record.NormalizedUrl;
  normalized.reserve(record.Scheme.size() + host.size() + path.size() + 9);
  normalized.append(record.Scheme).append(u"://").append(host);
  if (showsPort) normalized.append(u":").append(NumberText(record.Port));
  normalized.append(path);
}

/// Puts the host's ASCII form in the place of an internationalised one, in the URL too.
void ConvertHost(const CrackedUrl& url, UrlRecord& record) {
  if (std::all_of(record.HostName.begin(), record.HostName.end(), [](char16_t c) { return c < 0x80; })) return;
  std::u16string ascii = IdnToAscii(record.HostName);
  if (ascii.empty() || ascii == record.HostName) return;
  record.HostName = std::move(ascii);
  std::optional<std::int32_t> port;
  if (url.portIsNamed) port = url.port;
  std::optional<std::u16string> rebuilt = CreateUrl(
      {record.Scheme, record.UserName, record.Password, record.HostName, record.UrlPath, record.ExtraInfo, port});
  if (rebuilt) record.RawUrl = *std::move(rebuilt);  // too long once escaped: it stays as it came
  LogUrl("Punicoded URL", record.RawUrl, kLogDetail);
}

/// The value of the rule's key; empty when the URL doesn't have it in the right surroundings.
std::u16string_view FindKeyValue(std::u16string_view url, std::u16string_view key) {
  const std::u16string_view first = StringEntry(0xD6);
  const std::u16string_view next = StringEntry(0xD7);
  const std::u16string_view assign = StringEntry(0xD8);
  const std::size_t at = FindExact(url, key);
  if (at == kNone || at <= 1 || at + key.size() + 2 > url.size()) return {};
  const char16_t before = url[at - 1];
  if (first.empty() || (before != first.front() && (next.empty() || before != next.front()))) return {};
  if (assign.empty() || url[at + key.size()] != assign.front()) return {};
  const std::u16string_view value = url.substr(at + key.size() + 1);
  return value.substr(0, FindExact(value, next));
}

/// What the URL has behind the rule's beginning, made a URL; empty when that is none.
std::u16string FindTail(std::u16string_view url, const Redirector& rule) {
  std::u16string_view rest = url.substr(rule.StartsWith.size());
  if (rule.SkipNumericOptions) {
    const std::size_t end = FindExact(rest, StringEntry(0xD9));
    if (end == kNone) return {};
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  std::u16string target;
  if (rule.CompleteScheme) {
    const std::u16string_view bare = StringEntry(0xDA);
    const std::u16string_view scheme = StringEntry(0xDC);
    if (StartsWith(rest, bare)) {
      rest.remove_prefix(bare.size());
      target = scheme;
    } else if (!StartsWith(rest, StringEntry(0xDD)) && !StartsWith(rest, scheme)) {
      target = scheme;
    }
  }
  return target.append(rest);
}

/// The URL begins as the rule says. Most beginnings are alike up to their last characters, so these are looked at
/// first.
bool Applies(const Redirector& rule, std::u16string_view url) noexcept {
  const std::u16string& start = rule.StartsWith;
  return !start.empty() && start.size() <= url.size() && start.back() == url[start.size() - 1] &&
         StartsWith(url, start);
}

/// The target that a rule which applies finds; empty when the rule doesn't match.
std::u16string FindTarget(std::u16string_view url, const Redirector& rule) {
  if (!rule.UrlIsValueOfKey.empty()) {
    if (const std::u16string_view value = FindKeyValue(url, rule.UrlIsValueOfKey); !value.empty()) {
      return std::u16string(value);
    }
  }
  return FindTail(url, rule);
}

}  // namespace

int UrlParser::DecodeUrl(std::u16string_view rawUrl) {
  if (rawUrl.size() > kMaxUrlLength) {
    LogLine("UrlParser::Decode", "RawUrl.length too long", kLogError);
    return -1;
  }
  const std::optional<CrackedUrl> url = CrackUrl(TrimUrl(rawUrl));
  std::u16string host;
  if (url) host = DecodeEscapes(url->host);
  if (!url || HidesForbidden(url->host, host)) {
    hostIsBracketed_ = Holds<u'['>(rawUrl) && Holds<u']'>(rawUrl);
    LogUrl("UrlParser::Decode - InternetCrackUrlW returned FALSE", rawUrl, kLogError);
    return -1;
  }
  if (!url->schemeIsKnown) {
    LogUrl("UrlParser::Decode - Internet scheme is INTERNET_SCHEME_UNKNOWN", rawUrl, kLogError);
    return -1;
  }
  record_.RawUrl = rawUrl;
  record_.Scheme = url->scheme;
  record_.HostName = std::move(host);
  record_.Port = url->port;
  record_.PortImplied = !record_.HostName.empty() && !url->portIsNamed;
  record_.UserName = DecodeEscapes(url->userName);
  record_.Password = DecodeEscapes(url->password);
  record_.UrlPath = DecodePath(*url);
  record_.ExtraInfo = DecodeEscapes(url->extra);
  ConvertHost(*url, record_);
  if (Holds<u'%'>(record_.UrlPath)) ReplaceAll(record_.UrlPath, u"%", u"%25");
  AnalyseHost(record_);
  SplitPath(record_);
  Normalize(record_);
  return 0;
}

int UrlParser::DecodeWithRedirectors(std::u16string_view url, std::span<const Redirector> redirectors) {
  const int result = DecodeUrl(url);
  if (result != 0) return result;
  for (const Redirector& rule : redirectors) {
    if (!Applies(rule, url)) continue;
    record_.RedirectTarget = FindTarget(url, rule);
    record_.IsRedirector = !record_.RedirectTarget.empty();
    if (record_.IsRedirector) break;
  }
  return result;
}

bool IsHttpUrl(std::u16string_view url) noexcept { return StartsWith(url, u"http://") || StartsWith(url, u"https://"); }

bool IsMhtmlUrl(std::u16string_view url) noexcept { return StartsWith(url, u"mhtml:"); }

std::u16string_view StripFragment(std::u16string_view url) noexcept { return url.substr(0, url.rfind(u'#')); }

std::u16string TopLevelLabel(std::u16string_view url) {
  UrlParser parser;
  parser.DecodeUrl(url);
  const std::u16string& tail = parser.Record().DomainTail;
  return tail.substr(tail.rfind(u'.') + 1);
}

}  // namespace zeph
