// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/AllCollectionParser.h"
#include "tests/page/Pages.h"

namespace zeph {
namespace {

AllParser ParseBoth(const RecordedDocument& page) {
  AllCollectionParser parser;
  auto& document = const_cast<RecordedDocument&>(page);
  EXPECT_GE(parser.GetAllCollectionData(&document), 0);
  EXPECT_GE(parser.ParseAllCollection(&document), 0);
  return parser.TakeData();
}

constexpr std::string_view kFields =
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'text', 'value': 'one'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'Password', 'value': 'two'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'password', 'value': 'no'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'submit', 'value': 'Go'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'button', 'value': ''}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'file', 'value': 'no'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'hidden', 'value': 'no'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'value': 'no type'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': {'status': -1}}}},"
    "{'IHTMLElement': {'get_tagName': 'input', 'getAttribute': {'type': 'text'}}},"
    "{'IHTMLElement': {'get_tagName': 'INPUT', 'getAttribute': {'type': 'text', 'value': {'status': -1}}}},"
    "{}, {'IHTMLElement': {}}";

TEST(AllCollectionParser, BothPassesGiveTheFieldsOfOneWalk) {
  const auto page = Page("'get_all': [0, 1, 2, 3, 4, null, 5, 6, 7, 8, 9, 10, 11, 12]", kFields);
  AllCollectionParser parser;
  EXPECT_EQ(parser.GetAllCollectionData(page.get()), 0);
  for (int pass = 1; pass <= 2; ++pass) {
    const AllParser& all = parser.Data();
    EXPECT_EQ(all.elementCount, 14) << pass;
    EXPECT_EQ(all.textInputCount, 3) << pass;  // a type in another case is one that isn't known
    EXPECT_EQ(all.passwordInputCount, 1) << pass;
    EXPECT_EQ(all.fileInputCount, 1) << pass;
    EXPECT_EQ(all.inputValues, u" one two") << pass;
    EXPECT_EQ(all.captions, Texts{u"Go"}) << pass;
    EXPECT_EQ(parser.ParseAllCollection(page.get()), 0);
  }
}

TEST(AllCollectionParser, SortsElementsByTag) {
  const auto page =
      Page("'get_all': [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19], 'tags': "
                      "{'html': [null, 20, 21]}",
                      "{'IHTMLElement': {'get_tagName': 'P', 'get_innerHTML': 'x'}},"
                      "{'IHTMLElement': {'get_tagName': 'P', 'get_innerHTML': ''}},"
                      "{'IHTMLElement': {'get_tagName': 'P'}},"
                      "{'IHTMLElement': {'get_tagName': 'P', 'get_innerHTML': {'status': -1}}},"  // counts nowhere
                      "{'IHTMLElement': {'get_tagName': 'DIV'}}, {'IHTMLElement': {'get_tagName': 'TR'}},"
                      "{'IHTMLElement': {'get_tagName': 'TABLE', 'getAttribute': {'background': 't.png'}}},"
                      "{'IHTMLElement': {'get_tagName': 'TD', 'getAttribute': {'BACKGROUND': 'd.png'}}},"
                      "{'IHTMLElement': {'get_tagName': 'OBJECT'}}, {'IHTMLElement': {'get_tagName': 'EMBED'}},"
                      "{'IHTMLElement': {'get_tagName': 'FRAME', 'getAttribute': {'src': 'f'}}},"
                      "{'IHTMLElement': {'get_tagName': 'IFRAME', 'getAttribute': {'src': 'i'}}},"
                      "{'IHTMLElement': {'get_tagName': 'BUTTON', 'get_innerText': 'Press'}},"
                      "{'IHTMLElement': {'get_tagName': 'A', 'get_innerText': 'link'}},"
                      "{'IHTMLElement': {'get_tagName': '!'}, 'IHTMLCommentElement': {'get_text': ''}},"
                      "{'IHTMLElement': {'get_tagName': '!'}, 'IHTMLCommentElement': {'get_text': null}},"
                      "{'IHTMLElement': {'get_tagName': '!'}},"
                      "{'IHTMLElement': {'get_tagName': 'BODY'}, 'IHTMLBodyElement': {'get_background': 'b.1.JPG'}},"
                      "{'IHTMLElement': {'get_tagName': 'SCRIPT', 'get_innerHTML': 'if (x) document.write(y)'}},"
                      "{'IHTMLElement': {'get_tagName': 'A', 'get_innerText': ''}},"
                      "{'IHTMLElement': {}}, {'IHTMLElement': {'get_outerHTML': ''}}");
  const AllParser all = ParseBoth(*page);
  EXPECT_EQ(all.blockCountA, 3);
  EXPECT_EQ(all.nonEmptyBlockCount, 1);
  EXPECT_EQ(all.blockCountB, 1);
  EXPECT_EQ(all.blockCountC, 1);
  EXPECT_EQ(all.tagCountD, 1);
  EXPECT_EQ(all.tagCountE, 1);
  EXPECT_EQ(all.backgrounds, (Texts{u"t.png", u"d.png", u"b.1.JPG"}));
  EXPECT_EQ(all.bodyBackground, u"b.1.JPG");
  EXPECT_EQ(all.bodyBackgroundExtension, u"jpg");
  EXPECT_EQ(all.sourcesOfTagG, Texts{u"f"});
  EXPECT_EQ(all.sourcesOfTagH, Texts{u"i"});
  EXPECT_EQ(all.captions, Texts{u"Press"});
  EXPECT_EQ(all.textsOfTagF, Texts{u"link"});
  EXPECT_EQ(all.comments, Texts{u""});
  EXPECT_TRUE(all.hasMarkerText);
  EXPECT_EQ(all.pageSource, u"");
  EXPECT_EQ(all.refreshSeconds, -1);
}

TEST(AllCollectionParser, KeepsTheFirstSourceThatComes) {
  const auto page = Page("'get_all': [], 'tags': {'HTML': [0, 1, 2]}",
                         "{}, {'IHTMLElement': {'get_outerHTML': '<HTML>1'}},"
                         "{'IHTMLElement': {'get_outerHTML': '<HTML>2'}}");
  EXPECT_EQ(ParseBoth(*page).pageSource, u"<HTML>1");
}

TEST(AllCollectionParser, ReadsTheDelayOfARefresh) {
  struct Row {
    std::string_view httpEquiv, content;
    std::int32_t seconds;
  };
  const Row rows[] = {
      {"refresh", "0;url=x", 0},
      {"REFRESH", "\\\"5;", 5},
      {"Refresh", "-1;", 1},
      {"refresh", "1 2-3;url=9", 123},
      {"refresh", "x5;", -1},
      {"refresh", "5", -1},
      {"refresh", ";7", -1},
      {"refresh", "4.5;", 4},
      {"refresh", "1000000000000000000000000000000;", 2147483647},
      {"content-type", "5;", -1},
  };
  for (const Row& row : rows) {
    const std::string meta = "{'IHTMLElement': {'get_tagName': 'META'}, 'IHTMLMetaElement': {'get_httpEquiv': '" +
                             std::string(row.httpEquiv) + "', 'get_content': '" + std::string(row.content) + "'}}";
    EXPECT_EQ(ParseBoth(*Page("'get_all': [0]", meta)).refreshSeconds, row.seconds) << row.content;
  }
}

TEST(AllCollectionParser, ShortcutIconIsNamedInAnyCase) {
  const auto host = [](std::string_view rel, std::string_view href) {
    return ParseBoth(*Page("'get_all': [0, 1]",
                           "{'IHTMLElement': {'get_tagName': 'LINK'}, 'IHTMLLinkElement': {'get_rel': 'SHORTCUT ICON', "
                           "'get_href': 'http://first.test/i'}},"
                           "{'IHTMLElement': {'get_tagName': 'LINK'}, 'IHTMLLinkElement': {'get_rel': '" +
                               std::string(rel) + "', 'get_href': " + std::string(href) + "}}"))
        .shortcutIconHost;
  };
  EXPECT_EQ(host("Shortcut Icon", "'http://b.test/i'"), u"b.test");
  EXPECT_EQ(host("icon", "'http://b.test/i'"), u"first.test");
  EXPECT_EQ(host("shortcut icon", "'http://['"), u"first.test");  // one that can't be read changes nothing
  EXPECT_EQ(host("shortcut icon", "null"), u"first.test");
}

}  // namespace
}  // namespace zeph
