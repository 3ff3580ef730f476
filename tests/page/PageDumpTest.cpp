// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/PageDump.h"
#include "tests/page/Pages.h"

namespace zeph {
namespace {

std::string Dump(RecordedDocument& page, Status expected = 0) {
  PageDump dump;
  EXPECT_EQ(dump.Build(&page, u"visible"), expected);
  std::string text = Narrow(dump.Text());
  std::erase(text, '\r');
  return text;
}

std::string Blocks(std::string_view structure, std::string_view images, std::string_view tags) {
  return "<Visible.Text>\nvisible\n</Visible.Text>\n\n<Html.Structure>\n" + std::string(structure) +
         "\n</Html.Structure>\n\n<Images>\n" + std::string(images) + "\n</Images>\n\n<Distinctive.Tags>\n" +
         std::string(tags) + "\n</Distinctive.Tags>\n";
}

std::string Node(std::string_view name, std::string_view children, std::string_view attributes = "") {
  return "{'IHTMLDOMNode': {'get_nodeName': '" + std::string(name) + "', 'get_childNodes': [" + std::string(children) +
         "], 'get_attributes': {" + std::string(attributes) + "}}}";
}

TEST(PageDump, ShowsTheSkeletonOfThePage) {
  const auto page = Page(
      "'get_body': 0",
      Node("BODY", "1, 2, null, {'status': -1}, 6, 7, 8, 9, 10, 11, 12, 13, 14", "'id': 'top'") + "," +
          Node("DIV", "3", "'class': 'MsoNormal'") + "," + Node("SPAN", "", "'CLASS': 'c', 'id': 5, 'title': 'x'") +
          "," + Node("BR", "4, 5") + "," + Node("#text", "", "'class': 'c'") + ", {}," +
          Node("INPUT", "", "'type': 'image', 'src': 'i.png'") + "," +
          Node("INPUT", "", "'type': 'hidden', 'id': 'h'") + "," + Node("INPUT", "") + "," +
          Node("IMG", "", "'src': 'a.png'") + "," + Node("IMG", "", "'src': ''") + "," + Node("FORM", "", "'id': 'f'") +
          "," + Node("div", "") + "," +
          // Without its children an element isn't closed.
          "{'IHTMLDOMNode': {'get_nodeName': 'TABLE'}}," +
          "{'IHTMLDOMNode': {'get_nodeName': {'status': -1}, 'get_childNodes': [9], 'get_attributes': {'id': 'x'}}}");
  EXPECT_EQ(Dump(*page),
            Blocks("<DIV>\n<BR>\n</DIV>\n<SPAN>\n</SPAN>\n<INPUT type=\"image\">\n<IMG>\n<IMG>\n<TABLE>\n<IMG>",
                   "i.png\na.png\na.png",
                   "<BODY id=\"top\">\n<DIV>\n<#text class=\"c\">\n<SPAN class=\"c\" id=\"5\">\n<INPUT id=\"h\">"));
}

TEST(PageDump, WithoutBodyOrDocument) {
  EXPECT_EQ(Dump(*Page("'get_body': null", "")), Blocks("", "", ""));
  EXPECT_EQ(Dump(*Page("'get_body': {'status': -7}", ""), -7), Blocks("", "", ""));
  EXPECT_EQ(PageDump().Build(nullptr, u""), kStatusUnexpected);
}

TEST(PageDump, StopsAtItsLimits) {
  const auto children = [](int count) {
    std::string list = "0";
    for (int i = 1; i < count; ++i) list += ",0";
    return list;
  };
  // The body is a node too.
  const std::string leaf = Node("HR", "");
  EXPECT_NE(Dump(*Page("'get_body': 1", leaf + "," + Node("BODY", children(19999)))), Blocks("", "", ""));
  EXPECT_EQ(Dump(*Page("'get_body': 1", leaf + "," + Node("BODY", children(20000)))), Blocks("", "", ""));
  // A node below itself: 150 levels are looked at.
  const std::string deep = Dump(*Page("'get_body': 0", Node("UL", "0")));
  EXPECT_EQ(std::ranges::count(deep, 'U'), 150);
  // Two nodes below themselves, and a node that holds little but what doesn't come: too much.
  EXPECT_EQ(Dump(*Page("'get_body': 0", Node("UL", "0, 0"))), Blocks("", "", ""));
  std::string missing = "0, 0";
  for (int i = 0; i < 100000; ++i) missing += ",null";
  EXPECT_EQ(Dump(*Page("'get_body': 0", Node("UL", missing))), Blocks("", "", ""));
  // A long name, over and over.
  EXPECT_EQ(Dump(*Page("'get_body': 0", Node("UL", "0, 0", "'id': '" + std::string(10000, 'x') + "'"))),
            Blocks("", "", ""));
}

}  // namespace
}  // namespace zeph
