// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
#include "documents/html/TreeBuilder.h"

namespace zeph {
namespace {

struct Page {
  explicit Page(std::string_view html, std::shared_ptr<const PageResources> resources = nullptr)
      : document(html, {u"http://www.example.test/shop/list.html", u"http://from.example/", {}, std::move(resources)}) {
  }

  DocumentObject* First(std::u16string_view tagName) {
    return document.get_all().value->tags(tagName).value->item(0).value;
  }
  std::string Inner(std::u16string_view tagName) {
    return Narrow(First(tagName)->QueryElement()->get_innerHTML().value.value());
  }
  std::string Text(std::u16string_view tagName) {
    return Narrow(First(tagName)->QueryElement()->get_innerText().value.value());
  }
  std::string Attribute(std::u16string_view tagName, std::u16string_view name) {
    const AttributeAnswer answer = First(tagName)->QueryElement()->getAttribute(name);
    return answer.value.kind == AttributeValue::Kind::kString ? Narrow(answer.value.text) : "(none)";
  }

  HtmlDocument document;
};

std::vector<std::string> TagNames(IHTMLElementCollection* list) {
  std::vector<std::string> names;
  for (std::int32_t i = 0; i < list->get_length().value; ++i) {
    names.push_back(Narrow(list->item(i).value->QueryElement()->get_tagName().value.value()));
  }
  return names;
}

using Names = std::vector<std::string>;

TEST(OldMarkup, IsWrittenAsTheBrowserOfOldGaveIt) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      // Names and values.
      {"<p class=Big ID='a-b_/#9'>x", "<P class=Big id=a-b_/#9>x</P>"},
      {"<p class='a b' title='' lang=\"d.e\">", "<P class=\"a b\" title=\"\" lang=\"d.e\"></P>"},
      {"<input checked value='a\"b&c<d>'>", "<INPUT checked=\"\" value=\"a&quot;b&amp;c<d>\">"},
      {"<p title='\xC3\xA9'>", "<P title=\"\xC3\xA9\"></P>"},
      // No end tags for what holds nothing; all others have theirs.
      {"<br><hr><img src=x><p>a<p>b", "<BR><HR><IMG src=\"http://www.example.test/shop/x\"><P>a</P><P>b</P>"},
      {"<svg><path/><foreignObject>x</svg>", "<SVG><PATH></PATH><FOREIGNOBJECT>x</FOREIGNOBJECT></SVG>"},
      // Text and what isn't text.
      {"a &lt; b &amp; c &gt; d&nbsp;e &eacute;", "a &lt; b &amp; c &gt; d&nbsp;e \xC3\xA9"},
      {"<script>if (a < b && c) x('</p>')</script>", "<SCRIPT>if (a < b && c) x('</p>')</SCRIPT>"},
      {"<!-- a < b --><style>p > a {}</style>", "<!-- a < b --><STYLE>p > a {}</STYLE>"},
      {"<textarea><b>&amp;</textarea>", "<TEXTAREA>&lt;b&gt;&amp;</TEXTAREA>"},
      {"<noscript><p>a</noscript><iframe><p></iframe>", "<NOSCRIPT><p>a</NOSCRIPT><IFRAME><p></IFRAME>"},
      {"<template><p>a</template>", "<TEMPLATE><P>a</P></TEMPLATE>"},
      // Addresses: of links, areas, images and icons absolute, of forms, scripts and frames as they stand.
      {"<a href=../x>y</a>", "<A href=\"http://www.example.test/x\">y</A>"},
      {"<form action=x.php><script src=y.js></script><iframe src=z></iframe></form>",
       "<FORM action=\"x.php\"><SCRIPT src=\"y.js\"></SCRIPT><IFRAME src=z></IFRAME></FORM>"},
      {"<a href='java\nscript:x()'>y</a><a href=''>z</a>", "<A href=\"javascript:x()\">y</A><A href=\"\">z</A>"},
      // As a browser writes and reads them.
      {"<a href='HTTP://WWW.Evil.Test'>y</a><img src='https://CDN.test:443/a b/../\xC3\xA9?x#y'>",
       "<A href=\"http://www.evil.test/\">y</A><IMG src=\"https://cdn.test/%C3%A9?x#y\">"},
      {"<a href='https:///evil.test/x'>y</a><a href=' ht\ttps:evil\n.test '>z</a><a href='\\\\evil.test'>z</a>",
       "<A href=\"https://evil.test/x\">y</A><A href=\"https://evil.test/\">z</A><A href=\"http://evil.test/\">z</A>"},
      {"<form action='https:///evil.test'></form><form action=//evil.test/x></form><form action=/x?y></form>"
       "<form action=//www.example.test/z></form>",
       "<FORM action=\"https://evil.test/\"></FORM><FORM action=\"http://evil.test/x\"></FORM><FORM "
       "action=\"/x?y\"></FORM><FORM action=\"//www.example.test/z\"></FORM>"},
      {"<script src='HTTPS:\\\\Evil.Test\\x.js'></script><script src=//cdn.test></script>",
       "<SCRIPT src=\"https://evil.test/x.js\"></SCRIPT><SCRIPT src=\"http://cdn.test/\"></SCRIPT>"},
      {"<base href=http://evil.test/><form action=x.php></form>",
       "<BASE href=\"http://evil.test/\"><FORM action=\"http://evil.test/x.php\"></FORM>"},
      // Types in lower case, and none where there is none.
      {"<INPUT TYPE=PASSWORD><input><button type=Submit></button><ol type=A>",
       "<INPUT type=password><INPUT><BUTTON type=submit></BUTTON><OL type=A></OL>"},
  };
  for (const auto& [page, expected] : rows)
    EXPECT_EQ(Page("<body>" + std::string(page)).Inner(u"BODY"), expected) << page;
}

TEST(OldMarkup, OuterAndInnerAreSlices) {
  Page page("<!doctype html><title>t</title><div id=d>a<!--c--><b>x</b></div>");
  IHTMLElement* const div = page.First(u"DIV")->QueryElement();
  EXPECT_EQ(Narrow(*div->get_outerHTML().value), "<DIV id=d>a<!--c--><B>x</B></DIV>");
  EXPECT_EQ(Narrow(*div->get_innerHTML().value), "a<!--c--><B>x</B>");
  EXPECT_EQ(Narrow(*page.First(u"HTML")->QueryElement()->get_outerHTML().value),
            "<HTML><HEAD><TITLE>t</TITLE></HEAD><BODY><DIV id=d>a<!--c--><B>x</B></DIV></BODY></HTML>");
  EXPECT_EQ(Narrow(*page.First(u"!")->QueryElement()->get_outerHTML().value), "<!--c-->");
  EXPECT_EQ(page.Inner(u"!"), "");
  // Text that misnested markup tears apart is one text all the same.
  EXPECT_EQ(Page("a<table a=b>b<tr a=c>c").Inner(u"BODY"), "abc<TABLE a=b><TBODY><TR a=c></TR></TBODY></TABLE>");
}

TEST(VisibleText, IsWhatAReaderSees) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"a  b\n\tc", "a b c"},
      {"  <b> a </b> <i>b</i>c ", "a bc"},
      {"<p>a</p><p>b</p>", "a\r\nb\r\n"},
      {"a<div>b</div>c", "a\r\nb\r\nc"},
      {"<div><div><p>a</p></div></div>b", "a\r\nb"},
      {"<div></div><p></p>a", "a"},
      {"a<br>b<br><br>c", "a\r\nb\r\n\r\nc"},
      {"<p>a <br> b</p>", "a\r\nb\r\n"},
      {"a<hr>b", "a\r\nb"},
      {"<ul><li>a<li>b</ul>", "a\r\nb\r\n"},
      {"<table><tr><td>a<td>b<tr><td>c</table>", "a b\r\nc\r\n"},
      {"<select><option>a<option>b</select>", "a b"},
      {"<pre>a  b\nc</pre>", "a  b\nc\r\n"},
      {"x <textarea> a  b</textarea>", "x  a  b"},
      {"a&nbsp; &nbsp;b",
       "a\xC2\xA0 \xC2\xA0"
       "b"},
      {"a<script>b</script><style>c</style><noscript>d</noscript><iframe>e</iframe>", "a"},
      {"a<span hidden>b</span><span style='color:red; DISPLAY : None'>c<b>d</b></span>e", "ae"},
      {"<p style='display:block'>a</p><p style='display:none;display:block'>b</p>", "a\r\nb\r\n"},
      {"a<template>b</template><template shadowrootmode=open>c</template>d", "acd"},
      {"a<!--b-->c<svg><text>d</text></svg>", "acd"},
      {"<title>a</title><p>b", "b\r\n"},
      // The blanks on both sides of an image or a field stay two, where words stand in the line.
      {"<p>Give your <img> and <input> here <img>.</p>", "Give your  and  here .\r\n"},
      {"<p> <img> is it<img> so</p><p><img> <img></p>", " is it so\r\n"},
      {"a <select></select> b <textarea> </textarea> c <button></button> d", "a  b   c  d"},
      {"a <input type=HIDDEN> b <img hidden> c<table><tr><td>d <img><td><img> e", "a b c\r\nd  e\r\n"},
      // Not text, whatever stands there.
      {"a<svg><title>c</title><desc>d</desc><style>e</style><defs>f</defs><metadata>g</metadata><text>h<title>i</"
       "title></"
       "text>"
       "<foreignObject><p>j</p></foreignObject></svg>k",
       "ah\r\nj\r\nk"},
      {"a<canvas>b</canvas><video>c</video><audio>d</audio><object data=x>e</object><object>f</object>g", "afg"},
      {"<details>a<summary>b</summary>c<summary>d</summary></details><details open><summary>e</summary>f</details>",
       "b\r\ne\r\nf\r\n"},
      {"a<dialog>b</dialog><dialog open>c</dialog>d", "a\r\nc\r\nd"},
      // Without ink and width.
      {"Pay&#8203;Pal Pa&shy;y&#xFEFF;P&zwj;al <pre>P&zwnj;ay&#x2060;</pre>&#8203; x", "PayPal PayPal\r\nPay\r\nx"},
      {"\xD9\x85\xDB\x8C\xE2\x80\x8C\xD8\xAE a\xE2\x80\x8C\xD8\xAE\xF3\xA0\x80\xA1z",
       "\xD9\x85\xDB\x8C\xE2\x80\x8C\xD8\xAE a\xD8\xAEz"},
  };
  for (const auto& [page, expected] : rows) EXPECT_EQ(Page(page).Text(u"BODY"), expected) << page;

  Page page("<p>x <a>y </a><b>z</b><button> save  it </button></p><i hidden>h</i>");
  EXPECT_EQ(page.Text(u"A"), "y");
  EXPECT_EQ(page.Text(u"B"), "z");
  EXPECT_EQ(page.Text(u"BUTTON"), "save it");
  EXPECT_EQ(page.Text(u"I"), "");
  EXPECT_EQ(page.Text(u"HEAD"), "");
}

/// An inline style, or rules for the element (#i, class "c d", in DIV, in SECTION .s): whether its text is seen.
TEST(VisibleText, IsHiddenByStyles) {
  constexpr std::string_view kHiding[] = {"display:/**/none",
                                          "DISPLAY : n\\6fne ! important",
                                          "visibility:hidden",
                                          "visibility:visible;visibility:collapse",
                                          "font-size:0",
                                          "font:0/0 a",
                                          "font-size:.5px",
                                          "font-size:0%",
                                          "opacity:0",
                                          "opacity:.01",
                                          "opacity:0%",
                                          "position:absolute;left:-9999px",
                                          "position:fixed;top:-100vh",
                                          "position:relative;left:-99em",
                                          "position:absolute;inset:0 0 0 -9999px",
                                          "margin-left:-9999px",
                                          "margin:0 0 0 -2000px",
                                          "text-indent:-9999px",
                                          "text-indent:100%;overflow:hidden;white-space:nowrap",
                                          "position:absolute;clip:rect(0 0 0 0)",
                                          "position:absolute;clip:rect(1px, 1px, 1px, 1px)",
                                          "clip-path:inset(50%)",
                                          "clip-path:circle(0)",
                                          "clip-path:polygon(0 0,0 0,0 0)",
                                          "height:0;overflow:hidden",
                                          "max-height:0px;overflow:hidden",
                                          "width:1px;height:1px;overflow:hidden",
                                          "transform:scale(0)",
                                          "transform:translateX(-9999px)",
                                          "content-visibility:hidden",
                                          "height:calc(0px);overflow:clip"};
  constexpr std::string_view kShowing[] = {"",
                                           "display:none;display:block",
                                           "display:none!important;display:block!important",
                                           "dis/**/play:none",
                                           "font-size:0;font-size:12px",
                                           "left:-9999px",
                                           "position:absolute;left:-20px",
                                           "clip:rect(0 0 0 0)",
                                           "height:0",
                                           "opacity:.9",
                                           "text-indent:-20px",
                                           "text-indent:100%",
                                           "clip-path:inset(0)",
                                           "display:nonesuch",
                                           "content:'display:none'",
                                           "background:url(display:none;opacity:0)",
                                           "transform:scale(.9)",
                                           "max-height:none;overflow:hidden",
                                           "width:100%;overflow:hidden",
                                           "/*display:none",
                                           "font:12px/0 a",
                                           "x{display:none}"};
  constexpr std::string_view kPage = "<section class=s><div id=i class='c d' data-k=v>seen</div></section>";
  for (const bool hides : {true, false}) {
    for (const std::string_view style : hides ? std::span<const std::string_view>(kHiding) : kShowing) {
      const std::string rules(style);
      EXPECT_EQ(Page("<div style=\"" + rules + "\">seen</div>").Text(u"BODY").empty(), hides) << style;
      EXPECT_EQ(Page("<style>.c{" + rules + "}</style>" + std::string(kPage)).Text(u"BODY").empty(), hides) << style;
    }
  }
  const std::pair<std::string_view, bool> sheets[] = {{"div{display:none}", true},
                                                      {"DIV.d.c{display:none}", true},
                                                      {"p,#i{display:none}", true},
                                                      {"*{opacity:0}", true},
                                                      {".s .c{display:none}", true},
                                                      {".s>.c{display:none}", true},
                                                      {"html .s > div#i{display:none}", true},
                                                      {"html>.c{display:none}", false},
                                                      {".c .s{display:none}", false},
                                                      {".x,.c.x{display:none}", false},
                                                      {".C{display:none}", false},
                                                      {"[data-k]{display:none}", true},
                                                      {"div[data-k='v']{display:none}", true},
                                                      {"div[data-k=w]{display:none}", false},
                                                      {"<!-- .c{display:none} -->", true},
                                                      {"@import 'x'; @charset \"y\"; .c{display:none}", true},
                                                      // The cascade.
                                                      {".c{display:none}.d{display:block}", false},
                                                      {".d{display:block}.c{display:none}", true},
                                                      {"#i{display:block}.c{display:none}", false},
                                                      {".c{display:none!important}#i{display:block}", true},
                                                      {".c.d{display:block}.c{display:none}", false},
                                                      {".c{display:none;.d{color:red}display:block}", false},
                                                      {".s{visibility:hidden}.c{visibility:visible}", false},
                                                      {".s{font-size:0}.c{font-size:1em}", true},
                                                      {".s{font-size:0}.c{font-size:1rem}", false},
                                                      {".s{display:none}.c{display:block}", true},
                                                      // What isn't asked can show, and never hides.
                                                      {".c:not(.x){display:none}", false},
                                                      {"p + .c{display:none}", false},
                                                      {".c{display:none}p ~ .c{display:block}", false},
                                                      {".c{display:none}.c:hover{display:block}", true},
                                                      {".c::before{display:none}", false},
                                                      {".c:hover{display:none}", false},
                                                      // Media.
                                                      {"@media print{.c{display:none}}", false},
                                                      {"@media screen and (min-width:600px){.c{display:none}}", true},
                                                      {"@media (max-width:600px){.c{display:none}} .x{}", false},
                                                      {"@media all{@supports (x:y){.c{display:none}}}", true},
                                                      {"@keyframes c{from{opacity:0}}@font-face{}.x{}", false},
                                                      // A page that only a script shows is shown.
                                                      {"html,body{display:none;opacity:0;font-size:0}", false}};
  for (const auto& [sheet, hides] : sheets) {
    const std::string page = "<!doctype html><style>" + std::string(sheet) + "</style>" + std::string(kPage);
    EXPECT_EQ(Page(page).Text(u"BODY").empty(), hides) << sheet;
  }
  EXPECT_EQ(
      Page("<style media=print>.c{opacity:0}</style><style type=text/x>.c{opacity:0}</style>" + std::string(kPage))
          .Text(u"BODY"),
      "seen\r\n");
  EXPECT_EQ(Page("<style>.C{opacity:0}</style>" + std::string(kPage)).Text(u"BODY"), "");  // quirks
  EXPECT_EQ(Page("<style>p{display:block}</style><p hidden>seen").Text(u"BODY"), "seen\r\n");
  EXPECT_EQ(Page("<span style='height:0;overflow:hidden'>seen</span>").Text(u"BODY"), "seen");  // in a line, no box
}

TEST(HtmlDocument, ListsHoldTheirElementsInSourceOrder) {
  Page page(
      "<!--0--><html><head><title> A \n p&#8203;a&shy;ge </title><link rel='Shortcut Icon' href=/i.ico></head><body>"
      "<a>no link</a><a href=1>a</a><map><area href=2><area></map><img src=3><form></form><script>s</script>"
      "<template><a href=x></a><img><form></form><script></script></template></body></html><!--9-->");
  HtmlDocument& document = page.document;
  EXPECT_EQ(TagNames(document.get_all().value), (Names{"!", "HTML", "HEAD", "TITLE", "LINK", "BODY", "A", "A", "MAP",
                                                       "AREA", "AREA", "IMG", "FORM", "SCRIPT", "TEMPLATE", "!"}));
  EXPECT_EQ(TagNames(document.get_links().value), (Names{"A", "AREA"}));
  EXPECT_EQ(document.get_images().value->get_length().value, 1);
  EXPECT_EQ(document.get_forms().value->get_length().value, 1);
  EXPECT_EQ(document.get_scripts().value->get_length().value, 1);
  EXPECT_EQ(Narrow(*document.get_title().value), "A page");
  EXPECT_EQ(Narrow(*document.get_URL().value), "http://www.example.test/shop/list.html");
  EXPECT_EQ(Narrow(*document.get_referrer().value), "http://from.example/");
  EXPECT_EQ(document.get_all().value->item(16).value, nullptr);
  EXPECT_EQ(document.get_all().value->item(-1).value, nullptr);
  EXPECT_EQ(document.get_all().value->item(3).value, document.get_all().value->tags(u"title").value->item(0).value);
  EXPECT_EQ(document.UrlCache(), nullptr);

  EXPECT_EQ(document.get_body().value, page.First(u"BODY"));
  EXPECT_EQ(TagNames(Page("").document.get_all().value), (Names{"HTML", "HEAD", "BODY"}));
  Page frames("<frameset><frame src=a><frame src=b></frameset>");
  EXPECT_EQ(frames.document.get_body().value, frames.First(u"FRAMESET"));
  EXPECT_EQ(frames.Attribute(u"FRAME", u"SRC"), "a");
}

TEST(HtmlDocument, ElementsAnswerTheirInterfacesAndNoOthers) {
  Page page(
      "<body background=b.GIF><base href=/deep/er/><link rel=ICON href=x><meta http-equiv=Refresh content='5; url=y'>"
      "<form action=go.php></form><a href=y#z>t</a><area href=q><img src=p.png><script "
      "src=s.js>code</script><!--note-->");
  EXPECT_EQ(Narrow(*page.First(u"BODY")->QueryBody()->get_background().value), "b.GIF");
  EXPECT_EQ(Narrow(*page.First(u"LINK")->QueryLink()->get_rel().value), "ICON");
  EXPECT_EQ(Narrow(*page.First(u"LINK")->QueryLink()->get_href().value), "http://www.example.test/deep/er/x");
  EXPECT_EQ(Narrow(*page.First(u"META")->QueryMeta()->get_httpEquiv().value), "Refresh");
  EXPECT_EQ(Narrow(*page.First(u"META")->QueryMeta()->get_content().value), "5; url=y");
  EXPECT_EQ(Narrow(*page.First(u"FORM")->QueryForm()->get_action().value), "go.php");
  EXPECT_EQ(Narrow(*page.First(u"A")->QueryAnchor()->get_href().value), "http://www.example.test/deep/er/y#z");
  EXPECT_EQ(Narrow(*page.First(u"AREA")->QueryArea()->get_href().value), "http://www.example.test/deep/er/q");
  EXPECT_EQ(Narrow(*page.First(u"IMG")->QueryImg()->get_src().value), "http://www.example.test/deep/er/p.png");
  EXPECT_EQ(Narrow(*page.First(u"SCRIPT")->QueryScript()->get_src().value), "s.js");
  EXPECT_EQ(Narrow(*page.First(u"SCRIPT")->QueryScript()->get_text().value), "code");
  EXPECT_EQ(Narrow(*page.First(u"!")->QueryComment()->get_text().value), "note");
  EXPECT_EQ(page.First(u"A")->QueryArea(), nullptr);
  EXPECT_EQ(page.First(u"FORM")->QueryAnchor(), nullptr);
  EXPECT_EQ(page.First(u"!")->QueryBody(), nullptr);
  EXPECT_FALSE(Page("<body>").First(u"BODY")->QueryBody()->get_background().value.has_value());
}

TEST(HtmlDocument, AttributesAreFoundByNameInAnyCase) {
  Page page("<input VALUE='V' checked><input type=HIDDEN><p onClick=x data-some-very-long-attribute-name=y type=A>");
  EXPECT_EQ(page.Attribute(u"INPUT", u"value"), "V");
  EXPECT_EQ(page.Attribute(u"INPUT", u"CHECKED"), "");
  EXPECT_EQ(page.Attribute(u"INPUT", u"name"), "(none)");
  EXPECT_EQ(page.Attribute(u"INPUT", u"TYPE"), "text");
  EXPECT_EQ(page.Attribute(u"P", u"TYPE"), "A");
  EXPECT_EQ(page.Attribute(u"P", u"Data-Some-Very-Long-Attribute-Name"), "y");
  EXPECT_EQ(page.Attribute(u"P", u"data-never-seen-in-this-page-at-all"), "(none)");
  IHTMLElementCollection* const inputs = page.document.get_all().value->tags(u"input").value;
  EXPECT_EQ(Narrow(inputs->item(1).value->QueryElement()->getAttribute(u"type").value.text), "hidden");
}

TEST(HtmlDocument, ControlsBelongToTheirForms) {
  struct Row {
    std::string_view page;
    std::vector<int> inputs;  ///< of each form
  };
  const Row rows[] = {
      {"<form><input><input></form><input><form><input></form>", {2, 1}},
      // A form that a table cuts short still owns what follows it.
      {"<table><form><tr><td><input></td></tr><tr><td><input></td></tr></form></table><input>", {2}},
      {"<div><form><input></div><input></form><input>", {2}},
      {"<form id=a></form><form id=b><input form=a><input form=none><input></form><input form=b>", {1, 2}},
      {"<form><div></form><input></div>", {1}},
      {"<form><template><input></template></form>", {0}},
  };
  for (const Row& row : rows) {
    Page page(row.page);
    std::vector<int> counts;
    IHTMLElementCollection* const forms = page.document.get_forms().value;
    for (std::int32_t i = 0; i < forms->get_length().value; ++i) {
      counts.push_back(forms->item(i).value->QueryForm()->tags(u"INPUT").value->get_length().value);
    }
    EXPECT_EQ(counts, row.inputs) << row.page;
  }
  Page page("<form><select><option></select><textarea></textarea><b><i>x</i></b></form><i></i>");
  IHTMLFormElement* const form = page.First(u"FORM")->QueryForm();
  EXPECT_EQ(form->tags(u"SELECT").value->get_length().value, 1);
  EXPECT_EQ(form->tags(u"textarea").value->get_length().value, 1);
  EXPECT_EQ(form->tags(u"I").value->get_length().value, 1);
  EXPECT_EQ(form->tags(u"INPUT").value->get_length().value, 0);
}

TEST(HtmlDocument, ImagesHaveTheSizeThatIsKnown) {
  struct Resources final : PageResources {
    std::string gif = std::string("GIF89a\x14\0\x1E\0xx", 12);
    std::optional<std::string_view> Find(std::string_view url) const override {
      if (url == "http://www.example.test/shop/p.gif" || url == "cid:q") return gif;
      return std::nullopt;
    }
  };
  const std::pair<std::string_view, std::pair<int, int>> rows[] = {
      {"<img width=10 height=20px>", {10, 20}},
      {"<img style='WIDTH: 7px;height:8.5PX' width=1 height=1>", {7, 8}},
      {"<img style='width:50%;height:2em' width=50% height='3 '>", {0, 3}},
      {"<img src=p.gif>", {20, 30}},
      {"<img src=p.gif width=5>", {5, 30}},
      {"<img src=cid:q>", {20, 30}},
      {"<img src=other.gif>", {0, 0}},
      {"<img src='data:image/gif;base64,R0lGODlhBQAGAIAAAP8AAAAAACH5BAAAAAAALAAAAAABAAEAAAICRAEAOw=='>", {5, 6}},
      {"<img>", {0, 0}},
      {"<img width=99999999999999 height=-4>", {999999999, 0}},
  };
  for (const auto& [html, size] : rows) {
    Page page(html, std::make_shared<Resources>());
    IHTMLImgElement* const image = page.document.get_images().value->item(0).value->QueryImg();
    EXPECT_EQ(std::make_pair(image->get_width().value, image->get_height().value), size) << html;
  }
}

TEST(HtmlDocument, NodesGiveTheTreeOfABrowser) {
  Page page("<body class=c><p id=i>a<b>x</b>c</p><!--n--><table a=b>t<tr a=c>u</table><template><p></template></body>");
  IHTMLDOMNode* const body = page.document.get_body().value->QueryNode();
  EXPECT_EQ(Narrow(body->get_attributes().value->getNamedItem(u"CLASS").value.text), "c");
  EXPECT_EQ(body->get_attributes().value->getNamedItem(u"id").value.kind, AttributeValue::Kind::kNone);
  const auto names = [](IHTMLDOMNode* node) {
    Names result;
    IHTMLDOMChildrenCollection* const children = node->get_childNodes().value;
    for (std::int32_t i = 0; i < children->get_length().value; ++i) {
      result.push_back(Narrow(*children->item(i).value->QueryNode()->get_nodeName().value));
    }
    return result;
  };
  EXPECT_EQ(names(body), (Names{"P", "#comment", "#text", "TABLE", "TEMPLATE"}));
  EXPECT_EQ(names(page.First(u"P")->QueryNode()), (Names{"#text", "B", "#text"}));
  EXPECT_EQ(names(page.First(u"TEMPLATE")->QueryNode()), Names{});
  DocumentObject* const text = page.First(u"P")->QueryNode()->get_childNodes().value->item(0).value;
  EXPECT_EQ(text->QueryElement(), nullptr);
}

TEST(HtmlDocument, TellsItsAddressWhereThePageDoes) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"<base href=http://b.test/><link rel=Canonical href=http://c.test/x>", "http://c.test/x"},
      {"<base href=http://b.test/>", "http://b.test/"},
      {"<link rel=canonical><p>", ""},
  };
  for (const auto& [page, expected] : rows) {
    EXPECT_EQ(Narrow(Page(page).document.CanonicalUrl()), expected) << page;
  }
}

/// Markup that has no end: what stands first, what is repeated, what the parser may make of 200 KB of it.
TEST(HostileMarkup, StaysWithinItsBounds) {
  constexpr std::size_t kLength = 200'000;
  const std::pair<std::string, std::string> rows[] = {{"", "<div>"},
                                                      {"", "<b>"},
                                                      {"", "<b><i></b>"},
                                                      {"<table>", "<a>"},
                                                      {"", "<p><b><i><u>x"},
                                                      {"<div", " a"},
                                                      {"<!--", "-"},
                                                      {"<a href='", "x"},
                                                      {"", std::string(1, '\0')},
                                                      {"", "&amp;"},
                                                      {"", "<frameset>"},
                                                      {"", "<select>"},
                                                      {"", "<svg><math>"},
                                                      {"", "</p>"},
                                                      {"", "<template>"},
                                                      {"", "<table><td>"},
                                                      {"<b>", "<div></b>"},
                                                      {"", "<a><div>"},
                                                      {"", "<form><input>"},
                                                      {"<table>", "x<tr a=b>"},
                                                      {"<script>", "<!--<script>"},
                                                      {"", "<button>"},
                                                      {"", "<nobr>"},
                                                      {"", "<li>"},
                                                      {"", "<html a=b>"},
                                                      {"", "<svg><desc>"},
                                                      {"", "<object>"},
                                                      {"", "<ruby><rt>"},
                                                      {"", "<table><template>"},
                                                      {"", "<select><template>"},
                                                      {"<a><b><i>", "<aside></a></b></i>"}};
  for (const auto& [start, piece] : rows) {
    std::string html = start;
    while (html.size() < kLength) html += piece;
    Page page(html);
    IHTMLElementCollection* const all = page.document.get_all().value;
    EXPECT_LE(static_cast<std::size_t>(all->get_length().value), kLength / 2) << start << piece;
    const html::Tree tree = html::ParseTree(html::DecodeMarkup(html).text);
    std::size_t depth = 0;
    std::size_t deepest = 0;
    for (html::TreeWalk walk(tree, html::kDocument); !walk.Done(); walk.Next()) {
      depth += walk.Entering() ? 1U : std::size_t(-1);
      deepest = std::max(deepest, depth);
    }
    EXPECT_LE(deepest, html::kMaxDepth + 2) << start << piece;  // the document, and a text in the innermost element
    for (std::int32_t i = 0; i < all->get_length().value; i += 97) {
      IHTMLElement* const element = all->item(i).value->QueryElement();
      EXPECT_TRUE(element->get_innerText().value.has_value());
      EXPECT_TRUE(element->get_outerHTML().value.has_value());
    }
  }
}

}  // namespace
}  // namespace zeph
