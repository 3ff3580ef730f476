// SPDX-License-Identifier: Apache-2.0
// Relative URLs, and the clean form of absolute ones: RFC 3986 with a browser's leniency.
#include <algorithm>
#include <optional>

#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// An absolute URL in front of its path, its path, and the rest.
struct Pieces {
  std::u16string_view front;  ///< scheme, ":" and what "//" brings
  std::u16string_view path;
  std::u16string_view extra;
  bool backslashIsSlash = false;
  bool hasHostPlace = false;  ///< "//" stands in front
  bool hasSegments = false;   ///< the path is a row of segments, not a text of the scheme's own

  [[nodiscard]] bool IsSlash(char16_t c) const noexcept { return c == u'/' || (c == u'\\' && backslashIsSlash); }
};

std::optional<Pieces> Split(std::u16string_view text) noexcept {
  const std::optional<CrackedUrl> url = CrackUrl(text);
  if (!url) return std::nullopt;
  Pieces pieces;
  pieces.front = text.substr(0, text.size() - url->path.size() - url->extra.size());
  pieces.path = url->path;
  pieces.extra = url->extra;
  pieces.backslashIsSlash = url->backslashIsSlash;
  pieces.hasHostPlace = pieces.front.size() > url->scheme.size() + 1;
  pieces.hasSegments =
      !url->pathIsText && (pieces.hasHostPlace || (!url->path.empty() && pieces.IsSlash(url->path.front())));
  return pieces;
}

/// Appends the segments of a path, escaped and without "." and ".." among them.
void AppendSegments(std::u16string& out, const Pieces& pieces) {
  const auto isSlash = [&](char16_t c) { return pieces.IsSlash(c); };
  const std::size_t start = out.size();
  for (std::u16string_view rest = pieces.path; !rest.empty();) {
    const bool hasSlash = isSlash(rest.front());
    rest.remove_prefix(hasSlash ? 1 : 0);
    const auto end = std::find_if(rest.begin(), rest.end(), isSlash);
    const std::u16string_view segment = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
    rest.remove_prefix(segment.size());
    if (segment == u"." || segment == u"..") {
      if (segment.size() == 2) {
        const std::size_t last = out.rfind(u'/');
        out.resize(last == std::u16string::npos || last < start ? start : last);
      }
      if (rest.empty()) out += u'/';
    } else {
      if (hasSlash) out += u'/';
      AppendEscaped(out, segment, Escaping::kText);
    }
  }
}

bool Join(const Pieces& pieces, bool escapesExtra, std::u16string& out) {
  std::u16string url(pieces.front);
  if (pieces.backslashIsSlash) std::replace(url.begin(), url.end(), u'\\', u'/');
  if (pieces.hasSegments) {
    const std::size_t front = url.size();
    AppendSegments(url, pieces);
    // A path that begins with "//" would be read as a host.
    if (!pieces.hasHostPlace && std::u16string_view(url).substr(front).starts_with(u"//")) url.insert(front, u"/.");
  } else {
    url += pieces.path;
  }
  if (escapesExtra) {
    AppendEscaped(url, pieces.extra, Escaping::kText);
  } else {
    url += pieces.extra;
  }
  if (url.size() > kMaxUrlLength) return false;
  out = std::move(url);
  return true;
}

bool JoinAbsolute(std::u16string_view url, bool escapesExtra, std::u16string& out) {
  const std::optional<Pieces> pieces = Split(url);
  return pieces && Join(*pieces, escapesExtra, out);
}

/// Browsers pass over line breaks and tabs wherever they stand.
std::u16string_view WithoutBreaks(std::u16string_view text, std::u16string& room) {
  const auto isBreak = [](char16_t c) { return c == u'\t' || c == u'\n' || c == u'\r'; };
  if (std::none_of(text.begin(), text.end(), isBreak)) return text;
  room.reserve(text.size());
  std::remove_copy_if(text.begin(), text.end(), std::back_inserter(room), isBreak);
  return room;
}

}  // namespace

bool CombineUrl(std::u16string_view base, std::u16string_view relative, std::u16string& out) {
  std::u16string room;
  relative = WithoutBreaks(TrimUrl(relative), room);
  const std::optional<Pieces> from = Split(TrimUrl(base));
  if (const std::u16string_view scheme = SchemeOf(relative); !scheme.empty()) {
    // "http:a.gif" on an http page is relative all the same.
    const std::u16string_view rest = relative.substr(scheme.size() + 1);
    const bool isRelative = from && from->hasSegments &&
                            StartsWithNoCase(from->front, relative.substr(0, scheme.size() + 1)) &&
                            !(rest.size() >= 2 && from->IsSlash(rest[0]) && from->IsSlash(rest[1]));
    if (!isRelative) return JoinAbsolute(relative, false, out);
    relative = rest;
  }
  if (!from) return false;

  Pieces to = *from;
  const bool isBare = relative.empty() || relative.front() == u'?' || relative.front() == u'#';
  if (!isBare && !from->hasSegments) return false;
  if (relative.size() >= 2 && from->IsSlash(relative[0]) && from->IsSlash(relative[1])) {
    std::u16string url(SchemeOf(from->front));
    return JoinAbsolute(url.append(u":").append(relative), false, out);
  }
  const std::u16string_view path = relative.substr(0, relative.find_first_of(u"?#"));
  to.extra = relative.substr(path.size());
  std::u16string merged;
  if (isBare) {
    std::u16string_view query = from->extra.substr(0, from->extra.find(u'#'));
    if (relative.starts_with(u'?')) query = {};
    merged.append(query).append(to.extra);
    to.extra = merged;
  } else if (from->IsSlash(path.front())) {
    to.path = path;
  } else {
    std::size_t folder = from->path.size();
    while (folder > 0 && !from->IsSlash(from->path[folder - 1])) --folder;
    merged = from->path.substr(0, folder);
    if (merged.empty()) merged = u"/";
    to.path = merged.append(path);
  }
  return Join(to, false, out);
}

bool CanonicalizeUrl(std::u16string_view url, std::u16string& out) { return JoinAbsolute(TrimUrl(url), true, out); }

std::u16string UnescapeUrl(std::u16string_view url) {
  const std::u16string_view front = url.substr(0, url.find_first_of(u"?#"));
  std::u16string text;
  text.reserve(url.size());
  for (std::size_t i = 0; i < front.size(); ++i) {
    const int high = front[i] == u'%' && i + 2 < front.size() ? HexValue(front[i + 1]) : -1;
    const int low = high >= 0 ? HexValue(front[i + 2]) : -1;
    text.push_back(low >= 0 ? static_cast<char16_t>(high * 16 + low) : front[i]);
    i += low >= 0 ? 2 : 0;
  }
  return text.append(url.substr(front.size()));
}

}  // namespace zeph
