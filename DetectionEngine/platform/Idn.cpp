// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Idn.h"

#include <algorithm>
#include <cstdint>

#include <unicode/uidna.h>

namespace zeph {

namespace {

constexpr std::size_t kMaxDomain = 1024;  // the cost of Punycode grows with the square of a label

bool IsAscii(std::u16string_view text) noexcept {
  return std::ranges::all_of(text, [](char16_t c) { return c < 0x80; });
}

/// Some label begins with "xn--".
bool HasPunycode(std::u16string_view host) noexcept {
  constexpr std::u16string_view kPrefix = u"xn--";
  const auto same = [](char16_t a, char16_t b) { return (a | 0x20) == b || a == b; };
  return std::search(host.begin(), host.end(), kPrefix.begin(), kPrefix.end(), same) != host.end();
}

/// What the standard of URLs lets pass: hyphens and dots anywhere, lengths that DNS will refuse.
constexpr std::uint32_t kLengths = UIDNA_ERROR_LABEL_TOO_LONG | UIDNA_ERROR_DOMAIN_NAME_TOO_LONG;
constexpr std::uint32_t kPasses =
    UIDNA_ERROR_EMPTY_LABEL | UIDNA_ERROR_LEADING_HYPHEN | UIDNA_ERROR_TRAILING_HYPHEN | UIDNA_ERROR_HYPHEN_3_4;

std::u16string Convert(std::u16string_view host, std::uint32_t passes) {
  // Kept to the process's end: other threads may still classify when its statics go.
  static const UIDNA* const converter = [] {
    UErrorCode status = U_ZERO_ERROR;
    return uidna_openUTS46(UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ | UIDNA_NONTRANSITIONAL_TO_ASCII, &status);
  }();
  if (converter == nullptr) return {};
  std::u16string ascii(kMaxDomain * 8, u'\0');
  UIDNAInfo info = UIDNA_INFO_INITIALIZER;
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t size = uidna_nameToASCII(converter, host.data(), static_cast<std::int32_t>(host.size()),
                                              ascii.data(), static_cast<std::int32_t>(ascii.size()), &info, &status);
  if (U_FAILURE(status) || (info.errors & ~passes) != 0 || size < 0) return {};
  ascii.resize(std::min(static_cast<std::size_t>(size), ascii.size()));
  return IsAscii(ascii) ? ascii : std::u16string();
}

}  // namespace

std::u16string IdnToAscii(std::u16string_view host) {
  if (host.size() > kMaxAsciiHost) return {};
  if (IsAscii(host)) return std::u16string(host);
  std::u16string ascii = Convert(host, kPasses);
  constexpr std::u16string_view kDelimiters = u"/\\?#@:[]%";
  const bool isHost = ascii.size() <= kMaxAsciiHost && std::ranges::all_of(ascii, [&](char16_t c) {
                        return c > u' ' && c < 0x7F && kDelimiters.find(c) == std::u16string_view::npos;
                      });
  return isHost ? ascii : std::u16string();
}

std::u16string DomainToAscii(std::u16string_view host) {
  const bool isAscii = IsAscii(host);
  if (!isAscii || HasPunycode(host))
    return host.size() > kMaxDomain ? std::u16string() : Convert(host, kPasses | kLengths);
  std::u16string lower(host);
  for (char16_t& c : lower) c = c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c | 0x20) : c;
  return lower;
}

}  // namespace zeph
