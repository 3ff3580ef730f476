// SPDX-License-Identifier: Apache-2.0
#include "documents/DataUrl.h"

#include <algorithm>
#include <cstdint>

#include "documents/html/HtmlText.h"

namespace zeph {

namespace {

using html::BeginsNoCase;
using html::Lower;

std::u16string_view Trimmed(std::u16string_view text) noexcept {
  while (!text.empty() && text.front() <= u' ') text.remove_prefix(1);
  while (!text.empty() && text.back() <= u' ') text.remove_suffix(1);
  return text;
}

/// In lower case; a name that isn't of ASCII is no name.
std::string LowerName(std::u16string_view text) {
  std::string name;
  for (const char16_t c : Trimmed(text)) name += c < 0x80 ? static_cast<char>(Lower(c)) : '?';
  return name;
}

/// Takes the bits of digits in and gives whole bytes out.
class Base64Reader {
 public:
  explicit Base64Reader(std::string& bytes) noexcept : bytes_(bytes) {}
  void Take(char16_t c) {
    const int digit = Base64Digit(c);
    if (digit < 0) return;
    bits_ = bits_ << 6 | static_cast<std::uint32_t>(digit);
    if (++count_ % 4 == 1) return;
    bytes_ += static_cast<char>(bits_ >> (count_ % 4 == 2 ? 4 : count_ % 4 == 3 ? 2 : 0) & 0xFF);
  }

 private:
  std::string& bytes_;
  std::uint32_t bits_ = 0;
  unsigned count_ = 0;
};

}  // namespace

int Base64Digit(char16_t c) noexcept {
  if (c >= u'A' && c <= u'Z') return c - u'A';
  if (c >= u'a' && c <= u'z') return c - u'a' + 26;
  if (c >= u'0' && c <= u'9') return c - u'0' + 52;
  if (c == u'+' || c == u'-') return 62;
  return c == u'/' || c == u'_' ? 63 : -1;
}

int HexDigit(char16_t c) noexcept {
  if (c >= u'0' && c <= u'9') return c - u'0';
  const auto letter = static_cast<char16_t>(c | 32);
  return letter >= u'a' && letter <= u'f' ? letter - u'a' + 10 : -1;
}

std::string DecodeBase64(std::u16string_view text, std::size_t most) {
  std::string bytes;
  Base64Reader reader(bytes);
  for (std::size_t i = 0; i < text.size() && bytes.size() < most; ++i) reader.Take(text[i]);
  return bytes;
}

std::optional<DataUrl> ReadDataUrl(std::u16string_view url, std::size_t most) {
  constexpr std::u16string_view kScheme = u"data:";
  while (!url.empty() && url.front() <= u' ') url.remove_prefix(1);
  if (!BeginsNoCase(url, kScheme)) return std::nullopt;
  url = url.substr(0, url.find(u'#'));
  const std::size_t comma = url.find(u',');
  if (comma == std::u16string_view::npos) return std::nullopt;
  std::u16string_view head = url.substr(kScheme.size(), comma - kScheme.size());

  DataUrl result;
  result.type = LowerName(head.substr(0, head.find(u';')));
  if (result.type.empty()) result.type = "text/plain";
  bool isBase64 = false;
  for (std::size_t at = head.find(u';'); at != std::u16string_view::npos;) {
    const std::size_t end = head.find(u';', at + 1);
    const std::u16string_view parameter = Trimmed(head.substr(at + 1, end - at - 1));
    constexpr std::u16string_view kCharset = u"charset=";
    if (BeginsNoCase(parameter, kCharset)) result.charset = LowerName(parameter.substr(kCharset.size()));
    isBase64 = end == std::u16string_view::npos && html::EqualsNoCase(parameter, u"base64");
    at = end;
  }

  Base64Reader digits(result.bytes);
  for (std::size_t i = comma + 1; i < url.size() && result.bytes.size() < most; ++i) {
    char16_t c = url[i];
    if (c == u'\n' || c == u'\r' || c == u'\t') continue;  // no address has them
    const bool isEscape = c == u'%' && i + 2 < url.size() && HexDigit(url[i + 1]) >= 0 && HexDigit(url[i + 2]) >= 0;
    if (isEscape) {
      c = static_cast<char16_t>(HexDigit(url[i + 1]) * 16 + HexDigit(url[i + 2]));
      i += 2;
    }
    if (isBase64) {
      digits.Take(c);
    } else if (isEscape || c < 0x80) {
      result.bytes += static_cast<char>(c);
    } else if (c < 0x800) {  // an address is written in UTF-8
      result.bytes += static_cast<char>(0xC0 | c >> 6);
      result.bytes += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c >= 0xD800 && c < 0xDC00 && i + 1 < url.size() && (url[i + 1] & 0xFC00) == 0xDC00) {
      const char32_t point = 0x10000U + ((static_cast<char32_t>(c) - 0xD800U) << 10) + (url[++i] - 0xDC00U);
      result.bytes += static_cast<char>(0xF0 | point >> 18);
      result.bytes += static_cast<char>(0x80 | (point >> 12 & 0x3F));
      result.bytes += static_cast<char>(0x80 | (point >> 6 & 0x3F));
      result.bytes += static_cast<char>(0x80 | (point & 0x3F));
    } else {
      result.bytes += static_cast<char>(0xE0 | c >> 12);
      result.bytes += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      result.bytes += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return result;
}

}  // namespace zeph
