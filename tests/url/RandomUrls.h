// SPDX-License-Identifier: Apache-2.0
// URLs from a seed: usual ones, and texts made of what confuses parsers.
#pragma once

#include <random>
#include <string>
#include <string_view>

#include "DetectionEngine/text/Text.h"

namespace zeph {

class RandomUrls {
 public:
  explicit RandomUrls(std::uint32_t seed) : random_(seed) {}

  std::size_t Below(std::size_t limit) { return random_() % limit; }

  /// A URL as sites have them, 15 to some 250 characters long.
  std::u16string Usual() {
    std::u16string url = Below(3) == 0 ? u"https://" : u"http://";
    if (Below(50) == 0) url += Word() + u":" + Word() + u"@";
    if (Below(20) == 0) {
      for (int i = 0; i < 4; ++i) url += (i == 0 ? u"" : u".") + NumberText(static_cast<std::int64_t>(Below(256)));
    } else {
      if (Below(2) == 0) url += u"www.";
      for (std::size_t i = Below(3); i > 0; --i) url += Word() + u".";
      url += Word() + (Below(4) == 0 ? u"-" + Word() : u"");
      constexpr std::u16string_view kEnds[] = {u".com", u".com", u".net", u".org", u".co.uk", u".de", u".example"};
      url += kEnds[Below(std::size(kEnds))];
    }
    if (Below(30) == 0) url += u":8080";
    if (Below(10) == 0) return url;
    for (std::size_t i = Below(5); i > 0; --i) url += u"/" + Word() + (Below(4) == 0 ? u"-" + Word() : u"");
    url += u"/";
    if (Below(2) == 0) url += Word() + (Below(2) == 0 ? u".html" : u".php");
    const std::size_t pairs = Below(2) == 0 ? Below(6) : 0;
    for (std::size_t i = 0; i < pairs; ++i) {
      url += (i == 0 ? u"?" : u"&") + Word() + u"=" +
             (Below(2) == 0 ? NumberText(static_cast<std::int64_t>(random_())) : Word());
      if (Below(8) == 0) url += u"%20";
    }
    if (Below(15) == 0) url += u"#" + Word();
    return url;
  }

  /// Anything, but mostly something like a URL.
  std::u16string Strange() {
    constexpr std::u16string_view kStarts[] = {u"http://", u"https://", u"HTTP://",    u"http:\\\\",  u"http:",
                                               u"ftp://",  u"file:///", u"file://c:/", u"mailto:",    u"javascript:",
                                               u"news:",   u"res://",   u"about:",     u"odd-1.x://", u"x:",
                                               u"",        u" http://"};
    constexpr std::u16string_view kPieces[] = {u"/",
                                               u"/",
                                               u"/",
                                               u"?",
                                               u"#",
                                               u"&",
                                               u"=",
                                               u"%",
                                               u"%41",
                                               u"%2F",
                                               u"%3F",
                                               u"%25",
                                               u"%zz",
                                               u"%00",
                                               u"%C3%A9",
                                               u"%e2%84",
                                               u"+",
                                               u".",
                                               u".",
                                               u".",
                                               u"..",
                                               u"-",
                                               u"--",
                                               u"co.",
                                               u".co.uk",
                                               u"www.",
                                               u"bank",
                                               u"Login",
                                               u"a",
                                               u"X",
                                               u"@",
                                               u":",
                                               u":8080",
                                               u":80",
                                               u":99999",
                                               u"[",
                                               u"]",
                                               u"\\",
                                               u" ",
                                               u"~",
                                               u"~~",
                                               u"0x7f",
                                               u"1.2.3.4",
                                               u"10.0.300.1",
                                               u"255",
                                               u"7",
                                               u"\u00E9",
                                               u"\uFF11",
                                               u"\u0665\u0665",
                                               u"\xD800",
                                               u"\xDC00",
                                               u"\xD83D\xDE00",
                                               u"\u212A",
                                               u"\u0178",
                                               u"\u1E9E",
                                               u"\uFF0F",
                                               u"\t",
                                               u"\n",
                                               u"\x01",
                                               u"archive.tar.gz",
                                               u".htaccess",
                                               u"index.html",
                                               u"page.longext",
                                               u"k=v",
                                               u"k==v: w",
                                               u"abcdefghijklmnopqrstu",
                                               u"mybankloginpage",
                                               u"anbabn"};
    std::u16string url(kStarts[Below(Below(2) == 0 ? 2 : std::size(kStarts))]);
    for (std::size_t i = Below(14); i > 0; --i) url += kPieces[Below(std::size(kPieces))];
    if (Below(40) == 0) url.append(Below(300), u"a/.~-=&"[Below(7)]);
    return url;
  }

 private:
  std::u16string Word() {
    constexpr std::u16string_view kWords[] = {u"login",  u"secure", u"account", u"update", u"bank",
                                              u"images", u"news",   u"index",   u"static", u"shop",
                                              u"user",   u"mail",   u"view",    u"forum",  u"id"};
    if (Below(3) == 0) return std::u16string(kWords[Below(std::size(kWords))]);
    std::u16string word(2 + Below(9), u' ');
    for (char16_t& c : word) c = u"etaoinshrdlucmfwypvbgkjqxz"[std::min(Below(26), Below(26))];
    return word;
  }

  std::mt19937 random_;
};

}  // namespace zeph
