// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/DataUrl.h"
#include "documents/ScriptWrites.h"
#include "documents/html/InnerPages.h"

namespace zeph {
namespace {

/// What scripts write, each text on its own between bars.
std::string Written(std::string_view script, std::size_t most = 1 << 16) {
  ScriptReader reader(most);
  std::string all;
  for (const ScriptWrite& write : reader.Read(Widen(script))) all += Narrow(write.text) + "|";
  return all + (reader.WasCut() ? "cut" : "");
}

TEST(ScriptWrites, AreReadAsFarAsTheyArePlain) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {R"js(document.write('<p>', "a"); document.writeln("<b>"))js", "<p>a<b>\n|"},
      {R"js(a.innerHTML = '<i>'; b.outerHTML="<b>"; f.srcdoc='<u>')js", "<i>|<b>|<u>|"},
      {R"js(a.innerHTML='<i>'; a.innerHTML += 'x'; b.innerHTML += '<b>')js", "<i>x|<b>|"},
      {R"js(e.insertAdjacentHTML('beforeend', '<p>'); f.setAttribute('srcdoc', '<b>'); $(e).html('<u>'))js", "<p>|<b>|<u>|"},
      {R"js(window['document']["write"]('<p>'))js", "<p>|"},
      {R"js(document.write('<\/p>\x3cb\u003e\u{3c}\74\
i\n'))js", "</p><b><<i\n|"},
      // Texts from texts.
      {R"js(document.write(atob('PHA+') + unescape('%3Cb%u003e') + decodeURIComponent('%3Ci%3E%C3%A9')))js", "<p><b><i>\xC3\xA9|"},
      {R"js(document.write(decodeURIComponent(escape(window.atob('PMOpPg==')))))js", "<\xC3\xA9>|"},
      {R"js(document.write(String.fromCharCode(60, 0x70, 62)))js", "<p>|"},
      {R"js(document.write(['<p>','a'].join('') + ["<b>","c"].join(" ")))js", "<p>a<b> c|"},
      {R"js(document.write('<p>'.concat('a', "b").trim()))js", "<p>ab|"},
      {"document.write(`<p>${x ? `a` : {}}b`)", "<p>|"},
      {"document.write(`<p>${f({a: 1})}b`)", "<p>b|"},
      // Variables: before, behind, grown, of another kind.
      {R"js(var h = '<p>', i; h += 'a' + 1; document.write(h))js", "<p>a1|"},
      {R"js(function f() { document.write(h) } var h = '<p>'; f())js", "<p>|"},
      {R"js(var o = {h: '<p>'}; document.write(o.h, h))js", ""},
      // What isn't known adds nothing.
      {R"js(document.write('<a href="' + location.href.replace(/'/g, "") + '">' + f('<b>', {x: [1]})[2](3) + 'c'))js", "<a href=\"\">c|"},
      {R"js(document.write(x)  ; y = x / 2; z = "/"; document.write('<p>' /* ' */ + // "
         'a'))js", "<p>a|"},
      {R"js(s.replace(/["'\/[/]]/g, ''); document.write('<p>'))js", "<p>|"},
      {R"js(e.onclick = function () { document.write('<p>') }; g(() => { a.innerHTML = '<b>' }))js", "<b>|<p>|"},
      {"var a = 'not ended\ndocument.write('<p>')", "<p>|"},
      // Scripts in scripts, documents made by hand, addresses that carry pages.
      {R"js(eval(unescape('document.write%28%22%3Cp%3E%22%29')); setTimeout("a.innerHTML='<b>'", 1); new Function('x', 'document.write("<i>")')())js",
       "<p>|<b>|<i>|"},
      {R"js(u = URL.createObjectURL(new Blob(['<p>', "a"], {type: 'text/html'})))js", "<p>a|"},
      {R"js(f.src = 'data:text/html,<p>'; location = "data:text/html,a"; window.open('http://a.test'))js",
       "data:text/html,<p>|data:text/html,a|"},
      // No writes.
      {R"js(x.innerHTML == '<p>'; x.innerHTML = ''; text.write = 1; // document.write('<p>')
          "document.write('<p>')"; a.innerHTML = b.innerHTML)js", ""},
  };
  for (const auto& [script, expected] : rows) EXPECT_EQ(Written(script), expected) << script;
}

TEST(ScriptWrites, StayWithinTheirBounds) {
  std::string doubling = "var a = '<p>aaaaaaaaaaaaaaaa';";
  for (int i = 0; i < 40; ++i) doubling += "a = a + a;";
  const std::string written = Written(doubling + "document.write(a)");
  EXPECT_LE(written.size(), std::size_t{1} << 16);
  EXPECT_TRUE(written.ends_with("cut"));
  std::string naming = "var a = '" + std::string(60000, 'x') + "';";
  for (int i = 0; i < 100'000; ++i) naming += "b=a;";
  EXPECT_EQ(Written(naming), "cut");  // and soon
  // Deep, unended and circular things end.
  std::string deep;
  for (int i = 0; i < 20000; ++i) deep += "document.write(eval([";
  EXPECT_EQ(Written(deep).find('|'), std::string::npos);
  std::string plus = "document.write('<p>'";
  for (int i = 0; i < 20000; ++i) plus += "+/[";
  Written(plus);
  EXPECT_EQ(Written("eval(\"eval('eval(\\\\'eval(1)\\\\')')\")"), "");
}

TEST(DataUrl, IsTakenApartAsBrowsersDo) {
  struct Row {
    std::u16string_view url;
    std::string_view type;
    std::string_view charset;
    std::string_view bytes;
  };
  const Row rows[] = {
      {u"data:text/html,<p>a b%3Ci%zz", "text/html", "", "<p>a b<i%zz"},
      {u" DATA:Text/HTML; charset=UTF-8;base64,PHA%2B PGI\n+", "text/html", "utf-8", "<p><b>"},
      {u"data:text/html;base64;x=y,PHA+", "text/html", "", "PHA+"},
      {u"data:,\u00E9#b", "text/plain", "", "\xC3\xA9"},
  };
  for (const Row& row : rows) {
    const auto read = ReadDataUrl(row.url, 100);
    ASSERT_TRUE(read) << Narrow(row.url);
    EXPECT_EQ(read->type, row.type);
    EXPECT_EQ(read->charset, row.charset);
    EXPECT_EQ(read->bytes, row.bytes);
  }
  EXPECT_FALSE(ReadDataUrl(u"data:text/html", 100));
  EXPECT_FALSE(ReadDataUrl(u"http://a.test/,", 100));
  EXPECT_EQ(ReadDataUrl(u"data:,abcdef", 3)->bytes, "abc");
}

/// "where: markup" of each page in a page.
std::vector<std::string> Found(std::string_view markup, InnerRoom room) {
  HtmlDocument document(markup);
  std::vector<std::string> found;
  for (const InnerPage& page : FindInnerPages(document, markup, room)) {
    found.push_back(page.where + ": " + page.bytes + page.refusal);
  }
  return found;
}

TEST(InnerPages, AreFoundWhereverTheyStand) {
  const std::string_view page =
      "<!-- <iframe> -->\n<meta http-equiv=Refresh content=\"0; URL='data:text/html,<a>'\">\n"
      "<style>a { content: '<template>' }</style><iframe src=http://a.test></iframe>\n"
      "<iframe srcdoc='&lt;p title=&quot;a&quot;>' src='data:text/html,b'></iframe><object data='data:image/png,<p>'>"
      "</object><object data='data:text/html,<p>c'></object>\n<embed src='data:image/svg+xml,<svg>'>\n"
      "<template><p class=x>a &lt; b<br><script>'</p>'</script></template><template></template>\n"
      "<noscript><img src=a></noscript><iframe src=\"javascript:'<p>'\"></iframe>"
      "<a href=\"javascript:void(document.write('%3Cb>'))\">x</a>\n<script>var h = '<p>e'</script>"
      "<script type=text/template>document.write(h)</script>\n<script>document.write(h)</script>"
      "<p onclick=\"this.innerHTML='<u>'\">";
  EXPECT_EQ(Found(page, InnerRoom(page.size())),
            (std::vector<std::string>{
                "refresh with a data: address, line 2: <a>", "frame with srcdoc, line 4: <p title=\"a\">",
                "object with a data: address, line 4: <p>c", "embed with a data: address, line 5: <svg>",
                "template, line 6: <p class=\"x\">a &lt; b<br><script>'</p>'</script></p>",
                "noscript, line 7: <img src=a>", "frame with a javascript: address, line 7: <p>",
                "link with a javascript: address that writes by document.write, line 7: <b>",
                "script that writes by document.write, line 9: <p>e",
                "handler onclick that writes by innerHTML, line 9: <u>"}));
}

TEST(InnerPages, TellWhatFindsNoRoom) {
  const std::string page = "<noscript><p>a</noscript><noscript>" + std::string(200, 'b') + "</noscript><noscript><p>c</noscript>";
  InnerRoom room(page.size());
  room.bytes = 100;
  EXPECT_EQ(Found(page, room), (std::vector<std::string>{
                                   "noscript, line 1: <p>a", "noscript, line 1: <p>c",
                                   "the page: what it carries inside itself is too long to be read to its end"}));
  room.found = 1;
  EXPECT_EQ(Found(page, room).front(), "noscript, line 1: <p>a");
  EXPECT_EQ(Found(page, room).size(), 3U);  // too long, and too many
}

}  // namespace
}  // namespace zeph
