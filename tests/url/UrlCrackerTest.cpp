// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Idn.h"
#include "DetectionEngine/url/UrlCracker.h"
#include "tests/url/RandomUrls.h"

namespace zeph {
namespace {

TEST(CrackUrl, FindsThePartsOfEachScheme) {
  struct {
    std::u16string_view url, scheme, user, password, host;
    std::int32_t port;
    bool portIsNamed;
    std::u16string_view path, extra;
  } const rows[] = {
      {u"http://h", u"http", u"", u"", u"h", 80, false, u"", u""},
      {u"HtTpS://H.test:8443/A?q#f", u"HtTpS", u"", u"", u"H.test", 8443, true, u"/A", u"?q#f"},
      {u"ftp://u:p:q@h/a", u"ftp", u"u", u"p:q", u"h", 21, false, u"/a", u""},
      {u"gopher://h", u"gopher", u"", u"", u"h", 70, false, u"", u""},
      {u"nntp://h/g", u"nntp", u"", u"", u"h", 119, false, u"/g", u""},
      {u"http://h:", u"http", u"", u"", u"h", 80, false, u"", u""},
      {u"http://h:/", u"http", u"", u"", u"h", 80, false, u"/", u""},
      {u"http://h:0", u"http", u"", u"", u"h", 0, true, u"", u""},
      {u"http://h:065535", u"http", u"", u"", u"h", 65535, true, u"", u""},
      // Where the browser really goes.
      {u"http://bank.test@evil.test/", u"http", u"bank.test", u"", u"evil.test", 80, false, u"/", u""},
      {u"http://bank.test:x@y@evil.test", u"http", u"bank.test", u"x@y", u"evil.test", 80, false, u"", u""},
      {u"http://evil.test/@bank.test", u"http", u"", u"", u"evil.test", 80, false, u"/@bank.test", u""},
      {u"http://evil.test\\@bank.test", u"http", u"", u"", u"evil.test", 80, false, u"\\@bank.test", u""},
      {u"http:\\\\evil.test", u"http", u"", u"", u"evil.test", 80, false, u"", u""},
      {u"http://evil.test?@bank.test/a", u"http", u"", u"", u"evil.test", 80, false, u"", u"?@bank.test/a"},
      {u"http://evil.test#@bank.test", u"http", u"", u"", u"evil.test", 80, false, u"", u"#@bank.test"},
      {u"http://:p@h", u"http", u"", u"p", u"h", 80, false, u"", u""},
      {u"http://h/a:b?c:d", u"http", u"", u"", u"h", 80, false, u"/a:b", u"?c:d"},
      {u"http://h/a#b?c", u"http", u"", u"", u"h", 80, false, u"/a", u"#b?c"},
      {u"http://a%2Fb %5B/%2e", u"http", u"", u"", u"a%2Fb %5B", 80, false, u"/%2e", u""},
      {u"file:///C:/a?b", u"file", u"", u"", u"", 0, false, u"/C:/a", u"?b"},
      {u"file://C:\\a", u"file", u"", u"", u"", 0, false, u"C:\\a", u""},
      {u"file://c|/a", u"file", u"", u"", u"", 0, false, u"c|/a", u""},
      {u"file://server/a", u"file", u"", u"", u"server", 0, false, u"/a", u""},
      {u"file:a/b", u"file", u"", u"", u"", 0, false, u"a/b", u""},
      {u"res://C:\\w\\x.dll/12#f", u"res", u"", u"", u"C:\\w\\x.dll", 0, false, u"/12", u"#f"},
      {u"news:group", u"news", u"", u"", u"", 119, false, u"group", u""},
      {u"news://h:1/group", u"news", u"", u"", u"h", 1, true, u"/group", u""},
      {u"mailto:a@b?subject=c", u"mailto", u"", u"", u"", 0, false, u"a@b", u"?subject=c"},
      {u"about:blank", u"about", u"", u"", u"", 0, false, u"blank", u""},
      {u"javascript://x?a#b", u"javascript", u"", u"", u"", 0, false, u"//x?a#b", u""},
      {u"vbscript:", u"vbscript", u"", u"", u"", 0, false, u"", u""},
  };
  for (const auto& row : rows) {
    const std::optional<CrackedUrl> url = CrackUrl(row.url);
    ASSERT_TRUE(url) << Narrow(row.url);
    EXPECT_TRUE(url->schemeIsKnown) << Narrow(row.url);
    EXPECT_EQ(url->scheme, row.scheme) << Narrow(row.url);
    EXPECT_EQ(url->userName, row.user) << Narrow(row.url);
    EXPECT_EQ(url->password, row.password) << Narrow(row.url);
    EXPECT_EQ(url->host, row.host) << Narrow(row.url);
    EXPECT_EQ(url->port, row.port) << Narrow(row.url);
    EXPECT_EQ(url->portIsNamed, row.portIsNamed) << Narrow(row.url);
    EXPECT_EQ(url->path, row.path) << Narrow(row.url);
    EXPECT_EQ(url->extra, row.extra) << Narrow(row.url);
  }
}

TEST(CrackUrl, RefusesWhatIsNoUrl) {
  for (const std::u16string_view url : {u"",
                                        u":",
                                        u"http",
                                        u"//h/a",
                                        u"h.test/a:b",
                                        u" http://h",
                                        u"1http://h",
                                        u"ht\ttp://h",
                                        u"http:",
                                        u"http:/h",
                                        u"http:h",
                                        u"http://",
                                        u"http:///a",
                                        u"http://?a",
                                        u"http://u@",
                                        u"http://u@:80",
                                        u"http://h:x",
                                        u"http://h:-1",
                                        u"http://h:65536",
                                        u"http://h:99999999999999999999",
                                        u"http://h:80:80",
                                        u"http://h:8 0",
                                        u"http://[::1]/",
                                        u"http://a]b/",
                                        u"http://a\nb/",
                                        u"http://a\x7F/",
                                        u"ftp:h",
                                        u"nntp:h"}) {
    EXPECT_FALSE(CrackUrl(url)) << Narrow(url);
  }
  EXPECT_FALSE(CrackUrl(std::u16string_view(u"http://a\0b/", 11)));
}

TEST(CrackUrl, TellsUnknownSchemes) {
  for (const std::u16string_view url :
       {u"odd:x", u"odd+1.2-3://u@h:7/p?q", u"mhtml:http://h/", u"data:,x", u"httpx://h", u"h.test:80/"}) {
    const std::optional<CrackedUrl> cracked = CrackUrl(url);
    ASSERT_TRUE(cracked) << Narrow(url);
    EXPECT_FALSE(cracked->schemeIsKnown) << Narrow(url);
  }
}

// The views lie in the text, in order, and nothing but delimiters lies between them.
TEST(CrackUrl, LosesNothing) {
  RandomUrls urls(11);
  for (int round = 0; round < 50'000; ++round) {
    const std::u16string text = urls.Strange();
    const std::optional<CrackedUrl> url = CrackUrl(text);
    if (!url) continue;
    std::u16string joined(url->scheme);
    const std::size_t front = text.size() - url->path.size() - url->extra.size();
    std::u16string_view rest = std::u16string_view(text).substr(0, front);
    for (const std::u16string_view part : {url->scheme, url->userName, url->password, url->host}) {
      const std::size_t at = rest.find(part);
      ASSERT_NE(at, std::u16string_view::npos) << Narrow(text);
      for (const char16_t c : rest.substr(0, at))
        ASSERT_NE(std::u16string_view(u":/\\@").find(c), std::u16string_view::npos);
      rest.remove_prefix(at + part.size());
    }
    ASSERT_EQ(rest.find_first_not_of(u":/\\@0123456789"), std::u16string_view::npos) << Narrow(text);
    ASSERT_EQ(text.substr(front), std::u16string(url->path).append(url->extra)) << Narrow(text);
  }
}

TEST(DecodeEscapes, DecodesOnceAndKeepsWhatIsNoEscape) {
  struct {
    std::u16string_view text;
    std::u16string decoded;
  } const rows[] = {
      {u"", u""},
      {u"100%", u"100%"},
      {u"%4", u"%4"},
      {u"%zz%41%4", u"%zzA%4"},
      {u"%2541", u"%41"},
      {u"%%341", u"%41"},
      {u"a+b", u"a+b"},
      {u"%C3%A9%E2%82%AC", u"\u00E9\u20AC"},
      {u"%F0%9F%98%80", u"\xD83D\xDE00"},
      {u"%C3%41%A9", u"\uFFFDA\uFFFD"},
      {u"%C3\u00A9", u"\uFFFD\u00A9"},
      {u"\xD800%41",
       u"\xD800"
       u"A"},
      {u"x%00y", std::u16string(u"x\0y", 3)},
  };
  for (const auto& row : rows) EXPECT_EQ(DecodeEscapes(row.text), row.decoded) << Narrow(row.text);
}

TEST(CreateUrl, IsUndoneByCrackingAndDecoding) {
  RandomUrls urls(12);
  const auto text = [&](std::u16string_view alphabet) {
    std::u16string made(urls.Below(12), u' ');
    for (char16_t& c : made) c = alphabet[urls.Below(alphabet.size())];
    return made;
  };
  constexpr std::u16string_view kAny = u"aZ09/:@?#&=%\\ \"<>[]{}|^`~+;,.\u00E9\u4F8B\t\x01\x7F";
  for (int round = 0; round < 20'000; ++round) {
    const std::u16string user = text(kAny);
    const std::u16string password = text(kAny);
    const std::u16string path = urls.Below(4) == 0 ? u"" : u"/" + text(kAny);
    const std::u16string extra = urls.Below(3) == 0 ? u"" : (urls.Below(2) == 0 ? u"?" : u"#") + text(kAny);
    std::optional<std::int32_t> port;
    if (urls.Below(2) == 0) port = 8080;
    const auto url = CreateUrl({u"http", user, password, u"xn--h.test", path, extra, port});
    ASSERT_TRUE(url);
    const auto cracked = CrackUrl(*url);
    ASSERT_TRUE(cracked) << Narrow(*url);
    ASSERT_EQ(DecodeEscapes(cracked->userName), user) << Narrow(*url);
    ASSERT_EQ(DecodeEscapes(cracked->password), password) << Narrow(*url);
    ASSERT_EQ(cracked->host, u"xn--h.test") << Narrow(*url);
    ASSERT_EQ(DecodeEscapes(cracked->path), path) << Narrow(*url);
    ASSERT_EQ(DecodeEscapes(cracked->extra), extra) << Narrow(*url);
    ASSERT_EQ(cracked->port, port.value_or(80)) << Narrow(*url);
  }
  EXPECT_TRUE(CreateUrl({u"http", u"", u"", u"h", u"/" + std::u16string(2074, u'a'), u"", {}}));
  EXPECT_FALSE(CreateUrl({u"http", u"", u"", u"h", u"/" + std::u16string(2075, u'a'), u"", {}}));
}

TEST(IdnToAscii, MapsAsBrowsersDo) {
  struct {
    std::u16string host;
    std::u16string ascii;  // empty: none
  } const rows[] = {
      {u"", u""},
      {u"WWW.Example.test", u"WWW.Example.test"},
      {u"a_b.test", u"a_b.test"},
      {u"B\u00DCcher.Example", u"xn--bcher-kva.example"},
      {u"stra\u00DFe.test", u"xn--strae-oqa.test"},
      {u"\u4F8B\u3002test", u"xn--fsq.test"},
      {u"\uFF41\uFF42.test", u"ab.test"},
      {u"p\u0430ypal.test", u"xn--pypal-4ve.test"},
      {u"-.\u00FC_b.test", u"-.xn--_b-wka.test"},
      {u"i\u2764.ws", u"xn--i-7iq.ws"},
      {u"b\u00FC\uFF0Fbank.test", u""},
      {u"b\u00FC\uFF20bank.test", u""},
      {u"a/\u00FC.test", u""},
      {u"\u00FC\xD800.test", u""},
      {u"\u00FC\x200E.test", u""},
      {u"\u00FC." + std::u16string(64, u'a') + u".test", u""},
      {std::u16string(300, u'\u00FC'), u""},
      {std::u16string(256, u'\u00AD') + u"\u00FC.test", u""},
  };
  for (const auto& row : rows) EXPECT_EQ(IdnToAscii(row.host), row.ascii) << Narrow(row.host);
}

}  // namespace
}  // namespace zeph
