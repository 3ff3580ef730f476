// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "judging/ShownText.h"
#include "judging/TypedAddress.h"

namespace zeph {
namespace {

TEST(TypedAddress, IsReadAsItsWriterMeantIt) {
  struct {
    std::u16string_view text;
    std::string_view url;     // empty: refused
    std::string_view change;  // part of what is said about it
  } const rows[] = {
      {u"http://evil.test/a", "http://evil.test/a", ""},
      {u" \uFEFF\u200Bhttp://evil.test/a \u00A0\r", "http://evil.test/a", ""},
      {u"HTTP:/Evil.test", "http://evil.test/", ""},
      {u"ht\ttp://ev\til.test/", "http://evil.test/", ""},
      // Out of prose, quotes and brackets.
      {u"<http://evil.test/a>.", "http://evil.test/a", "around it"},
      {u"\"http://evil.test/a\",", "http://evil.test/a", "around it"},
      {u"(see http://evil.test/)", "", ""},
      {u"\u201Ehttp://evil.test/a\u201C!", "http://evil.test/a", "around it"},
      {u"http://evil.test/wiki_(x)", "http://evil.test/wiki_(x)", ""},
      {u"(http://evil.test/wiki_(x))", "http://evil.test/wiki_(x)", "around it"},
      // Kept from being followed.
      {u"hxxp://evil[.]test/a[.]php", "http://evil.test/a.php", "again"},
      {u"hXXps[:]//evil(dot)test", "https://evil.test/", "again"},
      {u"h**p://evil{.}test", "http://evil.test/", "again"},
      {u"hxxp[://]evil[dot]test[/]a", "http://evil.test/a", "again"},
      {u"fxp://evil.test/", "ftp://evil.test/", "again"},
      {u"evil[.]test", "http://evil.test/", "again"},
      {u"http://evil.test/a[.]b", "http://evil.test/a[.]b", ""},
      {u"hxxp-is-no-scheme.test", "http://hxxp-is-no-scheme.test/", "in front"},
      // Hosts, and what only looks like one.
      {u"www.paypal.evil.test/login", "http://www.paypal.evil.test/login", "in front"},
      {u"//evil.test/a", "http://evil.test/a", "in front"},
      {u"evil.test:8080/a", "http://evil.test:8080/a", "in front"},
      {u"evil.test.", "http://evil.test/", "in front"},
      {u"\u043F\u0440\u0438\u043C\u0435\u0440.\u0440\u0444", "http://xn--e1afmkfd.xn--p1ai/", "in front"},
      {u"192.0.2.7/a", "http://192.0.2.7/a", "in front"},
      {u"evil.test/page.html", "http://evil.test/page.html", "in front"},
      {u"page.html", "", ""},
      {u"pages/page.html", "", ""},
      {u"../evil.test", "", ""},
      {u"3.14", "", ""},
      {u"word", "", ""},
      {u"two words.test", "", ""},
      {u"bob@evil.test", "", ""},
      {u"Version 1.0", "", ""},
      {u"", "", ""},
      {u" \u200B ", "", ""},
      // What no browser takes there.
      {u"about:blank", "", ""},
      {u"javascript:alert(1)", "", ""},
      {u"mailto:bob@evil.test", "", ""},
      {u"http://[::1]/", "", ""},
      {u"http://evil test/", "", ""},
      {u"http://", "", ""},
      {u"From: <bob@evil.test>", "", ""},
  };
  for (const auto& row : rows) {
    const TypedAddress address = ReadTypedAddress(row.text);
    EXPECT_EQ(Narrow(address.url), row.url) << Narrow(row.text) << ": " << address.refusal;
    EXPECT_NE(address.url.empty(), address.refusal.empty()) << Narrow(row.text);
    std::string changes;
    for (const std::string_view change : address.changes) changes += change;
    EXPECT_NE(changes.find(row.change), std::string::npos) << Narrow(row.text) << ": " << changes;
    EXPECT_EQ(changes.empty(), row.change.empty()) << Narrow(row.text) << ": " << changes;
  }
}

TEST(TypedAddress, IsOfOneLengthAtMost) {
  const std::u16string host = u"http://evil.test/";
  EXPECT_EQ(ReadTypedAddress(host + std::u16string(2083 - host.size(), u'a')).url.size(), 2083U);
  EXPECT_NE(ReadTypedAddress(host + std::u16string(2084 - host.size(), u'a')).refusal.find("2083"), std::string::npos);
  // Marks without end cost no more than their length.
  for (const std::u16string_view piece : {u"(", u")", u"[.]", u"\"", u"hxxp:", u"a."}) {
    std::u16string text;
    while (text.size() < 1'000'000) text += piece;
    EXPECT_TRUE(ReadTypedAddress(text).url.empty());
    EXPECT_TRUE(ReadTypedAddress(u"hxxp://" + text).url.empty());
  }
}

TEST(ShownText, SteersNothing) {
  std::u16string all;
  for (unsigned c = 0; c < 0x10000; ++c) all += static_cast<char16_t>(c);
  all += u"\U000E0041\U0001F600";
  const std::string shown = Shown(all);
  for (const char c : shown) EXPECT_FALSE((c >= 0 && c < 0x20) || c == 0x7F);
  const std::u16string wide = Widen(shown);
  for (const char16_t c : u"\u0085\u009B\u00AD\u061C\u200B\u200E\u202E\u2028\u2066\uFEFF\uFFFE") {
    EXPECT_TRUE(c == 0 || wide.find(c) == std::u16string::npos) << std::hex << static_cast<unsigned>(c);
  }
  EXPECT_EQ(Narrow(wide), shown) << "is UTF-8";
  EXPECT_EQ(Shown("a\x1b[2J\n\xFFz"), "a\\x1b[2J\\x0a\xEF\xBF\xBDz");
  EXPECT_EQ(Shown(u"\u202Egpj.exe \U000E0041 caf\u00E9 \U0001F600"),
            "\\u202egpj.exe \\U000e0041 caf\xC3\xA9 \xF0\x9F\x98\x80");
}

}  // namespace
}  // namespace zeph
