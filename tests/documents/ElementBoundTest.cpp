// SPDX-License-Identifier: Apache-2.0
// Past so many elements a page loses those that say nothing, and nothing else.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/html/Decoder.h"
#include "documents/html/PageView.h"
#include "documents/html/TreeBuilder.h"

namespace zeph::html {
namespace {

using std::string_literals::operator""s;

PageView View(std::string_view page, std::optional<std::size_t> freeElements = std::nullopt) {
  ParseOptions options;
  options.freeElements = freeElements;
  return PageView(ParseTree(DecodeMarkup(page, "utf-8").text, options), u"http://www.example.test/a/b", nullptr);
}

using Lines = std::vector<std::string>;

/// The first line in which two readings differ, both ways; empty when they are the same.
std::string Difference(const Lines& seen, const Lines& expected) {
  const auto [ours, theirs] = std::ranges::mismatch(seen, expected);
  if (ours == seen.end() && theirs == expected.end()) return {};
  const auto text = [](const Lines& lines, auto at) { return at == lines.end() ? "(end)"s : '"' + *at + '"'; };
  return text(seen, ours) + " instead of " + text(expected, theirs);
}

Lines Words(std::u16string_view text) {
  Lines words(1);
  for (const char c : Narrow(text)) {
    if (c != ' ' && c != '\r' && c != '\n' && c != '\t') {
      words.back() += c;
    } else if (!words.back().empty()) {
      words.emplace_back();
    }
  }
  if (words.back().empty()) words.pop_back();
  return words;
}

/// All that a reader of the page may go by, but for counts of its blocks and lines.
Lines Seen(PageView& view) {
  Lines lines;
  const auto add = [&](std::string_view what, NodeId id, NameId attribute) {
    lines.push_back(std::string(what) + ' ' + Narrow(view.AttributeValue(id, attribute).value_or(u"(none)")));
  };
  for (const NodeId form : view.Forms()) {
    add("form", form, name::kAction);
    for (const std::u16string_view tag : {u"INPUT", u"SELECT", u"TEXTAREA", u"BUTTON"}) {
      for (const NodeId field : view.FormElements(form, tag)) add(Narrow(tag), field, name::kType);
    }
  }
  for (const NodeId link : view.Links()) {
    add("link", link, name::kHref);
    for (const std::string& word : Words(view.InnerText(link))) lines.push_back("in a link: " + word);
  }
  for (const NodeId image : view.Images()) {
    add("image", image, name::kSrc);
    lines.back() += ' ' + std::to_string(view.ImageWidth(image)) + 'x' + std::to_string(view.ImageHeight(image));
  }
  for (const NodeId script : view.Scripts()) {
    add("script", script, name::kSrc);
    lines.push_back("text " + Narrow(view.TextContent(script)));
  }
  for (const NodeId id : view.All()) {
    for (const NameId attribute : {name::kBackground, name::kHttpEquiv}) {
      if (view.AttributeValue(id, attribute)) add(Narrow(view.TagName(id)), id, attribute);
    }
    if (view.HasTagName(id, u"LINK") && view.AttributeValue(id, name::kHref)) add("icon", id, name::kRel);
    if (view.HasTagName(id, u"IFRAME") || view.HasTagName(id, u"FRAME")) add("frame", id, name::kSrc);
    if (view.HasTagName(id, u"!")) lines.push_back("comment " + Narrow(view.TextContent(id)));
  }
  lines.push_back("title " + Narrow(view.Title()));
  if (view.Body() != 0) {
    for (const std::string& word : Words(view.InnerText(view.Body()))) lines.push_back("word " + word);
  }
  return lines;
}

/// Markup that the page begins with, again and again until no more is kept, and what stands behind that.
TEST(ElementBound, HidesNothingBehindAHeapOfTags) {
  constexpr std::string_view kPage =
      "<title>Sign in</title><form action=https://evil.test/go.php><p>Your <b>e-mail</b><br>and password"
      "<div class=row><input name=u><span></span><input type=password name=p></div>"
      "<select><option>one<option>two</select><textarea>three</textarea><table><tr><td>four<td><button><i>Log</i> in"
      "</button></table><input type=submit value=Go></form><p><input type=file><p><a href=/x>A <b>link</b> here</a>"
      "<ul><li>five<li><a href=/y><div>six</div></a>seven</ul><map><area href=/z></map>"
      "<p><img src=i.png width=3 height=4><script src=s.js></script><script>document.write(1)</script>"
      "<svg><g><script>2</script></g><a><text>eight</text></a></svg><iframe src=f></iframe>"
      "<table background=b.gif><tr><td background=c.gif>nine<td>ten</table>"
      "<div hidden>unseen<div>unseen</div>unseen</div><p style='display: none'>unseen<p>eleven"
      "<template>inert<a href=no>inert</a><input></template><noscript>no</noscript><style>s</style>"
      "<!-- saved from url=(0014)about:internet --><link rel='shortcut icon' href=i.ico>"
      "<meta http-equiv=refresh content='1;url=u'><h1>twelve</h1>thirteen";
  PageView plain = View(kPage);
  const Lines expected = Seen(plain);
  ASSERT_GT(expected.size(), 40U);
  // Those that are closed leave all as it was; those that stay open are met by the bound on depth too, which moves
  // words about.
  const std::pair<std::string_view, bool> heaps[] = {{"<b>", false},
                                                     {"<p>", true},
                                                     {"<i></i>", true},
                                                     {"<div></div>", true},
                                                     {"<div>", false},
                                                     {"<br>", true},
                                                     {"<table><td>", false},
                                                     {"<table></table>", true},
                                                     {"<ruby><rt></ruby>", true},
                                                     {"<!>", true},
                                                     {"<svg></svg>", true},
                                                     {"<b><p></b></p>", true},
                                                     {"<p class=x id=y>", true},
                                                     {"<ul><li>", false},
                                                     {"<a><b c=d></a></b>", true},
                                                     {"<other></other>", true},
                                                     {"<svg><math></svg>", true}};
  for (const auto& [heap, isClosed] : heaps) {
    std::string page;
    for (std::size_t i = 0; i < kFreeElements; ++i) page += heap;
    PageView view = View(page + std::string(kPage), kFreeElements);
    EXPECT_LE(view.All().size(), kFreeElements + 60) << heap;
    Lines seen = Seen(view);
    std::erase(seen, "comment ");
    if (isClosed) {
      EXPECT_EQ(Difference(seen, expected), "") << heap;
      continue;
    }
    Lines lists = expected;
    for (Lines* lines : {&lists, &seen}) {
      std::erase_if(*lines, [](const std::string& line) { return line.starts_with("word "); });
      std::ranges::sort(*lines);
    }
    EXPECT_EQ(Difference(seen, lists), "") << heap;
  }
}

TEST(ElementBound, LeavesTheContentInPlace) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      // Words stay apart where a block or a cell kept them apart.
      {"<p>a<p>b<i>c</i><div>d</div>e<br>f", " a bc d e f"},
      {"<table><tr><td>1<td>2<tr><th>3</table>4", " 1 2 3 4"},
      {"<table><b>1</b><tr><td>2", " 1 2"},
      {"<pre>\na\nb</pre><other>c</other>", " a\nb c"},
      {"a</p>b</br>c", "a b c"},
      {"<p>a <p> b", " a  b"},
      // What is kept stands where it stood; what was left out ends where it ended.
      {"<div hidden>a<div>b</div>c</div>d", "<DIV hidden=\"\">a b c</DIV>d"},
      {"<div><p style=display:none>a<div>b</div></div>c", " <P style=\"display:none\">a</P> b c"},
      {"<table><form><tr><td><input>a</table>b", " <FORM></FORM><INPUT>a b"},
      {"<table background=x><tr><td>a<td background=y>b</table>c",
       "<TABLE background=x> a<TD background=y> b</TD></TABLE> c"},
      {"<select><optgroup><option>a<option>b</select>c", "<SELECT> a b</SELECT> c"},
      {"<form><div><input></div></form><textarea> a</textarea>", "<FORM> <INPUT></FORM><TEXTAREA> a</TEXTAREA>"},
      {"<div><textarea>a</textarea><xmp><p></xmp><plaintext></div>",
       " <TEXTAREA>a</TEXTAREA><XMP><p></XMP><PLAINTEXT></div></PLAINTEXT>"},
      // Links, however they are nested.
      {"<a>a<a href=x>b</a>c", "a<A href=\"http://www.example.test/a/x\">b</A>c"},
      {"<a href=#x><div>a</a>b</div>c", "<A href=\"http://www.example.test/a/b#x\"> a</A>b c"},
      {"<a href=#x><p><em hidden>a</a>b</em></p>c",
       "<A href=\"http://www.example.test/a/b#x\"> <EM hidden=\"\">ab</EM></A> c"},
      {"<b hidden><p>a<div hidden>b</b>c</div>d",
       "<B hidden=\"\"> a</B><DIV hidden=\"\"><B hidden=\"\"> b</B>c</DIV>d"},
      {"<nobr>a<nobr>b</nobr>c", "abc"},
      // Foreign elements.
      {"<svg><g><title>a</title><desc><p>b</p></desc><script>c</script></g></svg>d", "<TITLE>a</TITLE><DESC> b </DESC><SCRIPT>c</SCRIPT>d"},
      {"<math><mi><b>a</b></mi><annotation-xml encoding=text/html><p>b</p></math>",
       "a<ANNOTATION-XML encoding=text/html> b </ANNOTATION-XML>"},
      // Images and comments that say nothing.
      {"<img><img alt=a><img src=''><!--1234567--><!--12345678-->", "<IMG src=\"\"><!--12345678-->"},
      {"<object><param><embed></object><label>a</label><output>b</output>", "ab"},
      {"<template><p>a</template>", "<TEMPLATE> a</TEMPLATE> "},
  };
  for (const auto& [page, expected] : rows) {
    PageView view = View("<body>"s.append(page), 0);
    EXPECT_EQ(Narrow(view.InnerMarkup(view.Body())), expected) << page;
  }
  EXPECT_EQ(Narrow(View("<frameset><frameset><frame><frame src=a></frameset></frameset>", 0).OuterMarkup(1)),
            "<HTML><HEAD></HEAD><FRAMESET> <FRAME src=a> </FRAMESET></HTML>");
}

/// What 1 MB of each may become, texts and copies included.
TEST(ElementBound, HoldsForElementsThatTheParserMakesItself) {
  const std::pair<std::string_view, std::string_view> rows[] = {{"", "<b>"},
                                                                {"", "<p><b><i><u>x"},
                                                                {"", "<b><i></b>"},
                                                                {"", "<table><a>"},
                                                                {"", "<svg><math>"},
                                                                {"", "<frameset>"},
                                                                {"x", "</p>"},
                                                                {"x", "</br>"},
                                                                {"", "<a>x"},
                                                                {"<table>", "<tr><td>1<td>2"},
                                                                {"<table>", "<col>"},
                                                                {"<table><td>", "</table><table><td>"},
                                                                {"<ul>", "<li>x"},
                                                                {"<select>", "<option>x"},
                                                                {"", "<p a>x"},
                                                                {"", "<b><b a=b>"},
                                                                {"", "x<!>"},
                                                                {"<b><i><u><s><tt>", "<p>x</p>"},
                                                                {"<b a><b b><b c>", "<p>x"},
                                                                {"", "<b><p></b>x"},
                                                                {"", "<nobr>x"},
                                                                {"", "<a><div></a>"},
                                                                {"<svg>", "<g>x"}};
  for (const auto& [start, piece] : rows) {
    std::string page(start);
    while (page.size() < 1'000'000) page += piece;
    const Tree tree = ParseTree(DecodeMarkup(page, "utf-8").text);
    EXPECT_LE(tree.nodes.size(), 2 * kFreeElements + 20) << start << piece;
  }
}

/// Markup of every insertion mode says the same with all its elements and with as few as may be: but that text which
/// stands wrongly in tables stays where it stands, and that links which blocks tear apart are whole.
TEST(ElementBound, ChangesNothingThatIsSaid) {
  static const std::vector<std::string> pages = {
#include "tests/documents/ParseOraclePages.inc"
  };
  const auto said = [](const std::string& page, std::size_t freeElements) {
    PageView view = View(page, freeElements);
    Lines lines = Seen(view);
    std::string letters;
    std::erase_if(lines, [&](const std::string& line) {
      if (line.starts_with("word ")) letters += line.substr(5);
      return line.starts_with("word ") || line.starts_with("in a link") || line.starts_with("comment") ||
             line.starts_with("image (none)") || line == "frame (none)";
    });
    std::ranges::sort(letters);
    lines.push_back(letters);
    std::ranges::sort(lines);
    const auto copies = std::ranges::unique(lines);
    lines.erase(copies.begin(), copies.end());
    return lines;
  };
  for (const std::string& page : pages) EXPECT_EQ(Difference(said(page, 0), said(page, page.size())), "") << page;
}

}  // namespace
}  // namespace zeph::html
