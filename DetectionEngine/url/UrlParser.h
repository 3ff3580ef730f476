// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

/// Turns one URL into a UrlRecord. Made for one URL and one thread.
class UrlParser {
 public:
  /// 0 and a filled Record; or -1, an empty Record and a log line for a URL of more than kMaxUrlLength characters, one
  /// that can't be cracked (UrlCracker.h; a host that holds brackets or control characters once decoded is among them)
  /// or one of an unknown scheme. White space around the URL is passed over. Cost is linear in the URL.
  int DecodeUrl(std::u16string_view url);
  /// DecodeUrl, and on success the first rule that matches the URL as given sets IsRedirector and RedirectTarget; the
  /// target isn't decoded.
  int DecodeWithRedirectors(std::u16string_view url, std::span<const Redirector> redirectors);

  [[nodiscard]] const UrlRecord& Record() const noexcept { return record_; }
  /// To move the record out of the parser, which is then of no further use.
  [[nodiscard]] UrlRecord&& TakeRecord() noexcept { return std::move(record_); }
  /// The URL that couldn't be cracked has both brackets.
  [[nodiscard]] bool HostIsBracketed() const noexcept { return hostIsBracketed_; }

 private:
  UrlRecord record_;
  bool hostIsBracketed_ = false;
};

/// The text begins, exactly in this case, with "http://" or "https://".
[[nodiscard]] bool IsHttpUrl(std::u16string_view url) noexcept;
/// It begins with "mhtml:".
[[nodiscard]] bool IsMhtmlUrl(std::u16string_view url) noexcept;
/// Base and relative URL to one absolute URL of at most kMaxUrlLength characters, as a browser combines them: white
/// space around and line breaks in the relative URL are dropped, "\" is "/", dot segments are resolved, unsafe
/// characters are escaped but for query and fragment. An empty relative URL gives the base without its fragment. False
/// when the result would be too long or there is no base to lean on. O(length).
bool CombineUrl(std::u16string_view base, std::u16string_view relative, std::u16string& out);
/// An absolute URL with unsafe characters escaped everywhere and dot segments resolved; false for any other text and
/// for a result of more than kMaxUrlLength characters. O(length).
bool CanonicalizeUrl(std::u16string_view url, std::u16string& out);
/// Each "%XX" becomes the character of that code, by itself; query and fragment stay as they are. For the sources of
/// saved pages.
[[nodiscard]] std::u16string UnescapeUrl(std::u16string_view url);
/// The text up to the last "#", or all of it.
[[nodiscard]] std::u16string_view StripFragment(std::u16string_view url) noexcept;
/// What stands behind the last dot of the URL's DomainTail, or all of it when it has no dot.
[[nodiscard]] std::u16string TopLevelLabel(std::u16string_view url);

}  // namespace zeph
