// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

/// A URL of more 16-bit characters isn't decoded.
inline constexpr std::size_t kMaxUrlLength = 2083;

/// Turns one URL into a UrlRecord. Made for one URL and one thread.
class UrlParser {
 public:
  /// 0 and a filled Record, or -1 and an empty one (HostIsBracketed may be set in Working).
  int DecodeUrl(std::u16string_view url);
  /// DecodeUrl, and on success the first rule that matches sets IsRedirector and RedirectTarget.
  int DecodeWithRedirectors(std::u16string_view url, std::span<const Redirector> redirectors);

  [[nodiscard]] const UrlRecord& Record() const noexcept { return record_; }
  /// Moves the record out; the parser is then of no further use.
  [[nodiscard]] UrlRecord TakeRecord() noexcept { return std::move(record_); }
  /// The fields as the last decoding left them, also a failed one.
  [[nodiscard]] bool HostIsBracketed() const noexcept { return hostIsBracketed_; }

 private:
  UrlRecord record_;
  bool hostIsBracketed_ = false;
};

/// The text begins, exactly in this case, with "http://" or "https://".
[[nodiscard]] bool IsHttpUrl(std::u16string_view url) noexcept;
/// It begins with "mhtml:".
[[nodiscard]] bool IsMhtmlUrl(std::u16string_view url) noexcept;
/// Base and relative URL to one absolute URL of at most kMaxUrlLength characters; false when that can't be.
bool CombineUrl(std::u16string_view base, std::u16string_view relative, std::u16string& out);
/// The URL with unsafe characters escaped and dot segments resolved; false when it can't be.
bool CanonicalizeUrl(std::u16string_view url, std::u16string& out);
/// "%XX" becomes the character of that code, one escape at a time, up to a fragment or query left alone as the platform
/// service for page sources does: used for the sources of saved pages only.
[[nodiscard]] std::u16string UnescapeUrl(std::u16string_view url);
/// The text up to the last "#", or all of it.
[[nodiscard]] std::u16string_view StripFragment(std::u16string_view url) noexcept;
/// What stands behind the last dot of the URL's DomainTail, or all of it when it has no dot.
[[nodiscard]] std::u16string TopLevelLabel(std::u16string_view url);

}  // namespace zeph
