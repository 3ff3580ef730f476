// SPDX-License-Identifier: Apache-2.0
// What a browser makes of an address before it goes there or hands it on: the URL Standard's reading of a text, and its
// way of writing the result. The engine itself takes URLs as they stand (UrlCracker.h), because a browser has done this
// already; who takes an address from a person, a letter or a page's markup does it here first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

/// An absolute address. Every part is in its final form, which is ASCII alone.
struct BrowserUrl {
  std::u16string scheme;    ///< lower case, without ":"
  std::u16string userName;  ///< escaped, as are password, path, query and fragment
  std::u16string password;
  std::optional<std::u16string>
      host;                          ///< an ASCII domain in lower case, d.d.d.d, "[...]", or a text of the scheme's own
  std::optional<std::int32_t> port;  ///< never the scheme's default
  std::u16string path;               ///< "/" at least, for a scheme of the web; no "." and ".." in it
  bool pathIsText = false;           ///< all behind the scheme is a text of its own, as in "mailto:a@b"
  std::optional<std::u16string> query;     ///< without "?"
  std::optional<std::u16string> fragment;  ///< without "#"

  /// The address in one text: https://www.example.test/a%20b?c#d.
  [[nodiscard]] std::u16string Text() const;

  friend bool operator==(const BrowserUrl&, const BrowserUrl&) = default;
};

/// Reads an address as a browser does, against a base where there is one; nothing for what a browser refuses: no scheme
/// and no base, a host that is no host, a port that is none.
///
/// Blanks and control characters around are dropped, tabs and line breaks wherever they stand. For a scheme of the web
/// (http, https, ftp, ws, wss) "\" is "/", and any number of slashes, none included, may stand between scheme and host:
/// "http:evil.test", "http:/evil.test" and "http:///evil.test" lead to evil.test (but for a base of the same scheme,
/// against which the first two are relative). Escapes of the host are decoded and internationalised labels converted;
/// a host that ends in a number is an IPv4 address, decimal, octal or hexadecimal, of one to four numbers, and written
/// in four decimal ones. Queries are escaped as of a UTF-8 document.
///
/// Linear in text and base.
[[nodiscard]] std::optional<BrowserUrl> ReadBrowserUrl(std::u16string_view text, const BrowserUrl* base = nullptr);

/// ReadBrowserUrl and its text.
[[nodiscard]] std::optional<std::u16string> BrowserUrlText(std::u16string_view text, const BrowserUrl* base = nullptr);

}  // namespace zeph
