// SPDX-License-Identifier: Apache-2.0
#include "judging/TypedAddress.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/BrowserUrl.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "judging/ShownText.h"

namespace zeph {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;

constexpr char16_t Lower(char16_t c) noexcept {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c | 0x20) : c;
}
bool StartsWith(std::u16string_view text, std::u16string_view lower) noexcept {
  return text.size() >= lower.size() &&
         std::ranges::equal(text.substr(0, lower.size()), lower, {}, Lower);
}
constexpr bool IsDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }
constexpr bool IsLetter(char16_t c) noexcept { return Lower(c) >= u'a' && Lower(c) <= u'z'; }

bool IsBlank(char16_t c) noexcept {
  return c <= u' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x202F || c == 0x205F ||
         c == 0x3000 || ((c & 0xF800) != 0xD800 && IsUnshowable(c));
}

/// Opening marks, each with the closing ones that may answer it.
struct Bracket {
  char16_t open;
  std::u16string_view close;
};
constexpr std::array kBrackets = {
    Bracket{u'<', u">"},           Bracket{u'(', u")"},           Bracket{u'[', u"]"},
    Bracket{u'{', u"}"},           Bracket{u'"', u"\""},          Bracket{u'\'', u"'"},
    Bracket{u'`', u"`'"},          Bracket{u'\u00AB', u"\u00BB"}, Bracket{u'\u2018', u"\u2019"},
    Bracket{u'\u201C', u"\u201D"}, Bracket{u'\u201E', u"\u201C\u201D"}, Bracket{u'\u2039', u"\u203A"},
    Bracket{u'\u300C', u"\u300D"}, Bracket{u'\u3010', u"\u3011"},
};
constexpr std::u16string_view kProse = u".,;:!?\u2026\u3002\uFF0C\uFF1B";

/// Drops what surrounds an address. True when there was something beside blanks.
bool TakeOffSurroundings(std::u16string_view& text) {
  constexpr int kMost = 64;  // marks; each may cost a look at the whole text
  bool changed = false;
  std::size_t before = kNone;
  for (int marks = 0; marks < kMost && before != text.size(); ++marks) {
    before = text.size();
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    if (text.empty()) return changed;
    if (kProse.find(text.back()) != kNone) {
      text.remove_suffix(1);
      changed = true;
      continue;
    }
    for (const Bracket& bracket : kBrackets) {
      // "[.]" and the like at an end are the address's own.
      if (text.front() == bracket.open && !StartsWith(text, u"[.") && !StartsWith(text, u"(.")) {
        text.remove_prefix(1);
        changed = true;
        break;
      }
      if (bracket.close.find(text.back()) == kNone) continue;
      const auto closings = std::ranges::count(text, text.back());
      if (bracket.open != text.back() && std::ranges::count(text, bracket.open) >= closings) break;  // (both) are its own
      text.remove_suffix(1);
      changed = true;
      break;
    }
  }
  return changed;
}

struct Defanged {
  std::u16string_view written;  ///< in lower case
  std::u16string_view meant;
};
constexpr std::array kDefangedSchemes = {
    Defanged{u"hxxp", u"http"}, Defanged{u"h**p", u"http"}, Defanged{u"htxp", u"http"}, Defanged{u"hxtp", u"http"},
    Defanged{u"fxp", u"ftp"},   Defanged{u"f*p", u"ftp"},
};
constexpr std::array kDefangedMarks = {
    Defanged{u"[.]", u"."},     Defanged{u"(.)", u"."},     Defanged{u"{.}", u"."},     Defanged{u"<.>", u"."},
    Defanged{u"[dot]", u"."},   Defanged{u"(dot)", u"."},   Defanged{u"{dot}", u"."},   Defanged{u"[punkt]", u"."},
    Defanged{u"[:]", u":"},     Defanged{u"(:)", u":"},     Defanged{u"[://]", u"://"}, Defanged{u"[:/]", u":/"},
    Defanged{u"[/]", u"/"},     Defanged{u"[at]", u"@"},    Defanged{u"(at)", u"@"},    Defanged{u"[@]", u"@"},
};

const Defanged* MarkAt(std::u16string_view text) noexcept {
  const auto* const mark =
      std::ranges::find_if(kDefangedMarks, [&](const Defanged& row) { return StartsWith(text, row.written); });
  return mark != kDefangedMarks.end() ? mark : nullptr;
}

/// Undoes what keeps an address from being followed. Marks in the path count only where some stand in front of it: a
/// path may hold brackets of its own.
bool Refang(std::u16string& text) {
  bool changed = false;
  std::u16string meant;
  std::u16string_view rest = text;
  for (const Defanged& scheme : kDefangedSchemes) {
    if (!StartsWith(rest, scheme.written)) continue;
    const std::u16string_view behind = rest.substr(scheme.written.size());
    const std::u16string_view colon = behind.substr(StartsWith(behind, u"s") ? 1 : 0);
    const Defanged* const mark = MarkAt(colon);
    if (!StartsWith(colon, u":") && (mark == nullptr || mark->meant.front() != u':')) continue;
    meant = scheme.meant;
    rest = behind;
    changed = true;
    break;
  }
  bool behindSlashes = false;
  bool inPath = false;
  while (!rest.empty() && (changed || !inPath)) {
    const Defanged* const mark = MarkAt(rest);
    const std::u16string_view next = mark != nullptr ? mark->meant : rest.substr(0, 1);
    meant += next;
    rest.remove_prefix(mark != nullptr ? mark->written.size() : 1);
    changed = changed || mark != nullptr;
    const char16_t last = next.back();
    if (last == u'/' && !behindSlashes) {
      behindSlashes = meant.ends_with(u"//");
      inPath = inPath || (!behindSlashes && !rest.starts_with(u'/') && !rest.starts_with(u"[/]"));
    } else {
      inPath = inPath || last == u'/' || last == u'?' || last == u'#';
    }
  }
  if (changed) text = std::move(meant.append(rest));
  return changed;
}

/// Endings that name files here, though some are top-level domains too.
constexpr std::array<std::u16string_view, 14> kFileEndings = {u"html", u"htm", u"json", u"mht",  u"mhtml", u"eml", u"txt",
                                                              u"csv",  u"xml", u"gz",   u"warc", u"har",   u"php", u"asp"};

/// The text begins with the name of a host that somebody may have meant to visit, and not with that of a file.
bool BeginsWithHost(std::u16string_view text) {
  const std::u16string_view host = text.substr(0, text.find_first_of(u"/\\?#"));
  if (host.empty() || host.find(u'@') != kNone || std::ranges::any_of(host, IsBlank)) return false;
  if (host.front() == u'.' || host.front() == u'~') return false;
  const auto url = ReadBrowserUrl(std::u16string(u"http://").append(host));
  if (!url) return false;
  const std::u16string_view name = *url->host;
  const std::size_t dot = name.substr(0, name.size() - (name.ends_with(u'.') ? 1 : 0)).rfind(u'.');
  if (name.front() == u'[') return true;
  if (dot == kNone) return false;
  std::u16string_view last = name.substr(dot + 1);
  if (last.ends_with(u'.')) last.remove_suffix(1);
  if (std::ranges::all_of(last, IsDigit)) return std::ranges::count(host, u'.') == 3;  // 3.14 is no address
  if (last.size() < 2 || !std::ranges::any_of(last, IsLetter)) return false;
  return host.size() != text.size() || std::ranges::find(kFileEndings, last) == kFileEndings.end();
}

/// The scheme of an address, but not the host of "evil.test:8080/".
std::u16string_view SchemeIn(std::u16string_view text) {
  const std::u16string_view scheme = SchemeOf(text);
  if (scheme.find(u'.') == kNone) return scheme;
  const std::u16string_view behind = text.substr(scheme.size() + 1);
  return !behind.empty() && IsDigit(behind.front()) ? std::u16string_view() : scheme;
}

TypedAddress Refused(std::string reason) { return {{}, std::move(reason), {}}; }

TypedAddress ReadAsBrowser(std::u16string_view text) {
  std::optional<BrowserUrl> url = ReadBrowserUrl(text);
  if (!url) return Refused("no address that a browser would open");
  if (url->scheme != u"http" && url->scheme != u"https" && url->scheme != u"ftp") {
    return Refused("only addresses of http, https and ftp are judged, not of " + ShownInShort(url->scheme, 40));
  }
  if (url->host->starts_with(u'[')) return Refused("hosts in brackets (IPv6) aren't judged");
  std::u16string address = url->Text();
  if (address.size() > kMaxUrlLength) {
    return Refused("longer than the " + std::to_string(kMaxUrlLength) + " characters that are judged");
  }
  return {std::move(address), {}, {}};
}

}  // namespace

TypedAddress ReadWrittenAddress(std::u16string_view text) {
  if (TrimUrl(text).empty()) return Refused("no address");
  return ReadAsBrowser(text);
}

TypedAddress ReadTypedAddress(std::u16string_view text) {
  std::vector<std::string_view> changes;
  if (TakeOffSurroundings(text)) changes.emplace_back("what stood around it left out");
  if (text.empty()) return Refused("empty");
  std::u16string address(text);
  std::erase_if(address, [](char16_t c) { return c == u'\t' || c == u'\n' || c == u'\r'; });
  if (Refang(address)) changes.emplace_back("made an address again");
  const std::u16string_view scheme = SchemeIn(address);
  if (scheme.empty()) {
    const bool hasSlashes = StartsWith(address, u"//") && BeginsWithHost(std::u16string_view(address).substr(2));
    if (!hasSlashes && !BeginsWithHost(address)) return Refused("neither a file nor an address");
    address.insert(0, hasSlashes ? u"http:" : u"http://");
    changes.emplace_back("http:// put in front");
  }
  TypedAddress read = ReadAsBrowser(address);
  if (read.refusal.empty()) read.changes = std::move(changes);
  return read;
}

}  // namespace zeph
