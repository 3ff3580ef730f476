// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "DetectionEngine/base/Md5Hex.h"
#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/scoring/PageRecognition.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"
#include "tests/page/Pages.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

TEST(ShowsMail, ByCaptions) {
  const auto shows = [](std::u16string_view captions, std::u16string_view url) {
    return ShowsMail(u"", captions, url);
  };
  EXPECT_TRUE(shows(u" Inbox Compose Drafts Trash", u"http://x.uk/"));
  EXPECT_FALSE(shows(u" Inbox Compose Drafts", u"http://x.uk/"));
  // "reply all" holds "reply": each word of the list counts.
  EXPECT_TRUE(shows(u" Reply to all, Reply all, Forward", u"http://x.uk/"));
  const std::u16string_view german = u" Antworten Weiterleiten L\u00d6SCHEN Posteingang";
  EXPECT_TRUE(shows(german, u"http://www.x.de/"));
  EXPECT_FALSE(shows(german, u"http://www.x.at/"));
  EXPECT_FALSE(shows(german, u"not a url"));
  EXPECT_TRUE(shows(u" Responder Reenviar Eliminar Redactar", u"http://x.com.mx/"));
}

TEST(ShowsMail, ByTheHeadOfAMessage) {
  struct Row {
    std::u16string_view text;
    bool shows;
  };
  const Row rows[] = {
      {u"From: a\r\nTo: b\r\nHello", true},
      {u"Hi\r\n  12 From: a\r\n\r\n  Subject: b", true},  // digits and blanks may stand before
      {u"Message From: a\r\nSubject: b", false},
      {u"Dated: x\r\nSubject: b", false},  // a letter behind the word
      {u"From: a", false},
      {u"date\r\n1\r\n2\r\n3\r\n4\r\nSubject: b", true},
      {u"date\r\n1\r\n2\r\n3\r\n4\r\n5\r\nSubject: b", false},  // too far apart
      {u"date\r\n1\r\n\r\n \r\n3\r\n4\r\n5\r\n6\r\nSubject: b", false},
      {u"date\r\n1\r\n\r\n \r\n3\r\n4\r\n5\r\nSubject: b", true},  // blank lines don't count
      {u"we date\r\nfrom: a\r\ndate: b", false},                   // only the first place counts
      {u"\r\r", false},
      {u"", false},
  };
  for (const Row& row : rows) EXPECT_EQ(ShowsMail(row.text, u"", u"http://x.uk/"), row.shows) << Narrow(row.text);
  EXPECT_TRUE(ShowsMail(u"Von: a\r\nBetreff: b", u"", u"http://x.de/"));
  EXPECT_FALSE(ShowsMail(u"Von: a\r\nBetreff: b", u"", u"http://x.it/"));
}

/// The same, step by step: lines tidied into a text of their own, then searched.
bool HoldsHeadStepByStep(std::u16string_view text) {
  std::vector<std::u16string> lines;
  std::u16string tidy = ToLower(text);
  if (SplitAt(tidy, u'\r', lines) > 0) tidy.clear();
  for (const std::u16string& line : lines) {
    if (!IsBlank(line)) tidy += u'\r' + line;
  }
  std::vector<std::size_t> places;
  for (const std::u16string_view word : {u"date", u"from:", u"to:", u"cc:", u"bcc:", u"subject"}) {
    const std::size_t at = tidy.find(word);
    if (at == std::u16string::npos) continue;
    const std::size_t behind = at + word.size();
    bool opens = behind == tidy.size() || !IsAlpha(tidy[behind]);
    for (std::size_t i = at; opens && i > 0 && tidy[i - 1] != u'\r'; --i) opens = !IsAlpha(tidy[i - 1]);
    if (opens) places.push_back(at);
  }
  if (places.size() < 2) return false;
  std::ranges::sort(places);
  lines.clear();
  return SplitAt(tidy.substr(places[0], places[1] - places[0]), u'\r', lines) - 1 < 6;
}

TEST(ShowsMail, ByTheHeadOfAMessageAsStepByStep) {
  constexpr std::u16string_view kPieces[] = {u"Date", u"from:", u"To:",    u"cc:",      u"bcc:", u"subject",
                                             u"\r",   u"\r",    u"\r\n",   u"\r\n",     u"\n",   u" ",
                                             u"a",    u"1",     u"\u00e9", u"\r\n \r\n"};
  std::mt19937 random(11);
  int heads = 0;
  for (int round = 0; round < 20000; ++round) {
    std::u16string text;
    for (auto length = random() % 30; length > 0; --length) text += kPieces[random() % std::size(kPieces)];
    const bool holds = HoldsHeadStepByStep(text);
    ASSERT_EQ(ShowsMail(text, u"", u"http://x.uk/"), holds) << Narrow(text);
    heads += holds ? 1 : 0;
  }
  EXPECT_GT(heads, 2000);
}

class RememberedSite : public FoldersTest {
 protected:
  RememberedSite() {
    SetSettingsKeyPath("Vendor", "Module");
    SettingsStore().EnsureKey();
  }
};

TEST_F(RememberedSite, IsKnownByItsDomainOrItsHost) {
  EXPECT_FALSE(IsRememberedSite(u"http://www.mail.test/"));
  RememberSite(u"http://www.mail.test/inbox");
  std::u16string slot;
  EXPECT_EQ(SettingsStore().Read(4, slot), 0);
  EXPECT_EQ(slot, Md5Hex(u"mail.test"));
  EXPECT_TRUE(IsRememberedSite(u"http://other.mail.test/"));
  EXPECT_FALSE(IsRememberedSite(u"http://mail.example/"));
  EXPECT_FALSE(IsRememberedSite(u""));
  SettingsStore().Write(4, Md5Hex(u"a.mail.test"));  // as another method notes a host
  EXPECT_TRUE(IsRememberedSite(u"http://a.mail.test/"));
  EXPECT_FALSE(IsRememberedSite(u"http://b.mail.test/"));
  RememberSite(u"http://1.2.3.4/");
  EXPECT_TRUE(IsRememberedSite(u"http://1.2.3.4/x"));
  EXPECT_FALSE(IsRememberedSite(u"http://1.2.3.5/"));
}

TEST_F(RememberedSite, IsSetByAPageThatShowsMail) {
  PageData page;
  page.url = Decoded(u"http://www.mail.test/");
  EXPECT_FALSE(RecognisedPage(page, true).on);
  page.all.captions = {u"Inbox", u"Compose"};
  page.all.textsOfTagF = {u"Drafts", u"Trash"};
  EXPECT_FALSE(RecognisedPage(page, false).on);
  EXPECT_FALSE(IsRememberedSite(page.url.RawUrl));
  EXPECT_TRUE(RecognisedPage(page, true).on);
  page.all = {};
  EXPECT_TRUE(RecognisedPage(page, true).on);

  EXPECT_TRUE(FromRememberedSite(u"http://x.mail.test/", true).on);
  EXPECT_FALSE(FromRememberedSite(u"http://x.test/", true).on);
  EXPECT_TRUE(FromRememberedSite(u"", true).on);
  EXPECT_FALSE(FromRememberedSite(u"", false).on);
}

TEST(SavedCopy, IsToldByFoldersAndComments) {
  struct Row {
    Texts comments, images, scripts;
    std::u16string_view match;
  };
  const Row rows[] = {
      {{}, {u"a.png"}, {u"b.js"}, u""},
      {{}, {u"Page_Files/a.png"}, {}, u"[name]_files/ folder"},
      {{u"saved from url=x"}, {}, {u"x_fichiers/b.js"}, u"[name]_files/ folder"},
      {{u"saved from ", u"url="}, {}, {}, u"saved from url"},
      {{u"Saved from url="}, {}, {}, u""},
      {{u"saved from url=", u"Mirrored from x"}, {}, {}, u"mirrored site"},
      {{u"Page saved with x"}, {}, {}, u""},
      {{u"Page saved with x saved date: y"}, {}, {}, u"saved in one file"},
  };
  for (const Row& row : rows) {
    const IndicatorResult result = SavedCopy(row.comments, row.images, row.scripts);
    EXPECT_EQ(result.matchText, row.match);
    EXPECT_EQ(result.on, !row.match.empty()) << Narrow(row.match);
  }
}

}  // namespace
}  // namespace zeph
