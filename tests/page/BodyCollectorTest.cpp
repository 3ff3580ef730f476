// SPDX-License-Identifier: Apache-2.0
#include <iterator>
#include <random>

#include "DetectionEngine/page/BodyCollector.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "tests/page/Pages.h"

namespace zeph {
namespace {

/// With the document that lends its texts.
struct CollectedBody : BodyData {
  std::shared_ptr<RecordedDocument> page;
};

CollectedBody CollectText(std::string_view text) {
  CollectedBody body;
  body.page =
      Page("'get_body': 0", "{'IHTMLElement': {'get_innerText': '" + std::string(text) + "', 'get_innerHTML': '<P>'}}");
  EXPECT_EQ(CollectBodyData(body.page.get(), body), 0);
  EXPECT_EQ(body.html, u"<P>");
  return body;
}

TEST(BodyCollector, CountsWordsAndLineBreaks) {
  struct Row {
    std::string_view text;
    std::int32_t words, breaks;
  };
  const Row rows[] = {{"", 0, 0},           {" \\r\\n ", 0, 2},          {"two words", 2, 0},
                      {"two words ", 2, 0}, {" a\\nb\\u3000c\\r", 3, 2}, {"a\\u00a0b\\u2007c\\u202fd", 4, 0}};
  for (const Row& row : rows) {
    const CollectedBody body = CollectText(row.text);
    EXPECT_EQ(body.wordCount, row.words) << row.text;
    EXPECT_EQ(body.lineBreakCount, row.breaks) << row.text;
  }
}

TEST(BodyCollector, CountsLongTextsAsOneUnitAfterAnother) {
  constexpr std::string_view kUnits[] = {"a",   "b", " ",       " ",       "\\r", "\\n",
                                         "\\t", ".", "\\u3000", "\\u00e9", "c",   "\\u00a0"};
  std::mt19937 random(3);
  for (int round = 0; round < 500; ++round) {
    const std::size_t plain = random() % 2 == 0 ? 8 : std::size(kUnits);  // ASCII alone, or all
    std::string text;
    for (auto length = random() % 90; length > 0; --length) text += kUnits[random() % plain];
    const CollectedBody body = CollectText(text);
    std::int32_t words = 0;
    std::int32_t breaks = 0;
    bool inWord = false;
    for (const char16_t c : body.visibleText) {
      words += !inWord && !IsSpace(c) ? 1 : 0;
      breaks += c == u'\r' || c == u'\n' ? 1 : 0;
      inWord = !IsSpace(c);
    }
    ASSERT_EQ(body.wordCount, words) << text;
    ASSERT_EQ(body.lineBreakCount, breaks) << text;
  }
}

TEST(BodyCollector, StatusIsThatOfTheTitle) {
  struct Row {
    std::string_view document, element;
    Status status;
    std::u16string_view title;
  };
  const Row rows[] = {
      {"'get_title': 't'", "", 0, u"t"},
      {"'get_body': {'status': -1}, 'get_title': 't'", "", 0, u"t"},
      {"'get_body': 0, 'get_title': 't'", "'get_innerText': {'status': -2}", -2, u""},
      {"'get_body': 0, 'get_title': 't'", "'get_innerHTML': {'status': -3}", -3, u""},
      {"'get_body': 0, 'get_title': {'status': -4}", "'get_innerText': 'welcome to x'", -4, u""},
  };
  for (const Row& row : rows) {
    BodyData body;
    const auto page = Page(row.document, "{'IHTMLElement': {" + std::string(row.element) + "}}");
    EXPECT_EQ(CollectBodyData(page.get(), body), row.status) << row.document;
    EXPECT_EQ(body.title, row.title) << row.document;
    EXPECT_TRUE(body.markerPhrases.empty()) << row.document;
  }
}

TEST(BodyCollector, TakesPhrasesBehindMarkers) {
  EXPECT_EQ(CollectText("Hi. Welcome  to A. WELCOME TO the Bank of a b c d e").markerPhrases,
            Texts{u"welcome to the bank of a b  "});
  EXPECT_EQ(CollectText("welcome to welcome to x").markerPhrases,
            (Texts{u"welcome to welcome to x ", u"welcome to x "}));
  // The last marker is looked for once more in the last two lines.
  EXPECT_EQ(CollectText("one\\r\\n\\u00a9 A\\r\\ntwo 1").markerPhrases,
            (Texts{u"\u00a9 a\r\ntwo 1 ", u"\u00a9 a\r\ntwo "}));
  EXPECT_EQ(CollectText("\\u00a9 A\\nb\\nc\\nd").markerPhrases, Texts{u"\u00a9 a\nb\nc\nd "});
  EXPECT_EQ(CollectText("\\u00a9 A\\nb").markerPhrases, Texts{u"\u00a9 a\nb "});
  EXPECT_EQ(CollectText("\\n\\u00a9 A\\n1").markerPhrases, (Texts{u"\u00a9 a\n1 ", u"\u00a9 a "}));
}

TEST(BodyCollector, PhraseEndsWithItsSeventhWord) {
  const auto phrases = [](std::u16string_view text) {
    const auto page = Page("", "");
    KeptTexts kept(*page);
    BodyData body;
    ExtractPhrases(text, u" m", kept, body);
    return body;
  };
  EXPECT_EQ(phrases(u"x m 2 3 4 5 6 7 8").markerPhrases, Texts{u" m 2 3 4 5 6 7  "});
  EXPECT_EQ(phrases(u"x m 2 3 4 5 6 7").markerPhrases, Texts{u" m 2 3 4 5 6 7 "});
  EXPECT_EQ(phrases(u"x m\t\t2 3 4 5 6 7\n\n8").markerPhrases, Texts{u" m\t\t2 3 4 5 6 7\n "});
  EXPECT_EQ(phrases(u"x m m m").markerPhrases, (Texts{u" m m m ", u" m m ", u" m "}));
}

TEST(BodyCollector, PhrasesOfOneEndlessWordAreBounded) {
  const std::u16string text(std::size_t{1} << 22, u'm');
  const auto page = Page("", "");
  KeptTexts kept(*page);
  BodyData body;
  EXPECT_THROW(ExtractPhrases(text, u"m", kept, body), TooCostly);
  EXPECT_EQ(page->Budget()->Failure(), kStatusTooCostly);
}

}  // namespace
}  // namespace zeph
