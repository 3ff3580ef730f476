// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "DetectionEngine/base/Md5Hex.h"
#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/scoring/ValueMethods.h"
#include "tests/platform/TestFolders.h"
#include "tests/scoring/ScoringFixture.h"

namespace zeph::test {
namespace {

TEST(NumberAbove, LooksAtNumbersOfTheKindsItKnows) {
  ExpectRows({
      {0, NumberField(6), 0, u"5", true, u"6", u"5"},
      {0, NumberField(5), 0, u"5", false, u"5", u""},
      {0, NumberField(-2), 0, u" -3x", true, u"-2", u"-3"},
      {0, NumberField(1), 0, u"no digits", true, u"1", u"0"},
      {0, NumberField(6), 1, u"5", false, u"", u""},
      {0, NumbersField({1, 2, 9, 10}), 0, u"2", true, u"9", u"2"},
      {0, NumbersField({1, 2}), 1, u"2", false, u"2", u""},
      {0, NumbersField({}), 0, u"0", false, u"", u""},
      {0, NumberWithTextField(3, u"bank.test"), 0, u"2", true, u"3", u"bank.test"},
      {0, NumberWithTextField(2, u"bank.test"), 0, u"2", false, u"2", u""},
      {0, NumberWithTextField(3, u"bank.test"), 2, u"2", false, u"", u""},
      {0, TextField(u"6"), 1, u"5", false, u"", u""},
      {0, TextField(u"6"), 0, u"5", false, u"", u""},
      {0, TextField(u"6"), 2, u"5", false, u"", u""},
      {0, FieldValue(), 0, u"-1", false, u"", u""},
  });
}

TEST(NumberBelow, WantsANumberOnBothSides) {
  ExpectRows({
      {25, NumberField(4), 0, u"5", true, u"4", u"5"},
      {25, NumberField(5), 0, u"5", false, u"5", u""},
      {25, NumberField(4), 1, u"5", false, u"", u""},
      {25, NumberWithTextField(4, u"a"), 0, u"5", false, u"", u""},
      {25, TextField(u"4"), 2, u"5", false, u"", u""},
  });
}

TEST(FlagIsSet, WritesTheFlagOut) {
  ExpectRows({
      {1, FlagField(true), 2, u"", true, u"true", u""},
      {1, FlagField(false), 2, u"", false, u"false", u""},
      {1, NumberField(1), 2, u"", false, u"", u""},
  });
}

TEST(EqualToValue, ComparesWholeAndWithCase) {
  ExpectRows({
      {2, NumberField(65), 0, u"65", true, u"A", u"A"},
      {2, NumberField(65 + 0x10000), 0, u"65601", true, u"A", u"A"},
      {2, NumberField(65), 0, u"66", false, u"", u""},
      {2, TextField(u"cgi"), 2, u"php,cgi", true, u"cgi", u"cgi"},
      {2, TextField(u"CGI"), 1, u"php,cgi", false, u"CGI", u""},
      {2, TextField(u""), 1, u",php,", false, u"", u""},
      {2, ListField({u"a", u"php", u"cgi"}), 0, u"cgi,php", true, u"php", u"php"},
      {2, ListField({u"a", u"b"}), 1, u"cgi,php", false, u"b", u""},
      {2, ListField({}), 1, u"cgi", false, u"", u""},
      {2, NumberWithTextField(65, u"A"), 1, u"65", false, u"", u""},
  });
}

class EqualAndNotedTest : public FoldersTest {
 protected:
  EqualAndNotedTest() {
    SetSettingsKeyPath("Vendor", "Module");
    SettingsStore().EnsureKey();
  }
};

TEST_F(EqualAndNotedTest, NotesTheTextOfAHitOnly) {
  const ExpressionValue value = Prepared(kValueList, u"a.test,mail.test");
  std::u16string noted;
  EXPECT_FALSE(EqualAndNoted(TextField(u"x.mail.test"), value).on);
  EXPECT_EQ(SettingsStore().Read(kRememberedSiteSlot, noted), 1);
  const IndicatorResult result = EqualAndNoted(TextField(u"mail.test"), value);
  EXPECT_TRUE(result.on);
  EXPECT_EQ(result.matchText, u"mail.test");
  EXPECT_EQ(SettingsStore().Read(kRememberedSiteSlot, noted), 0);
  EXPECT_EQ(noted, Md5Hex(u"mail.test"));
}

TEST(TextEndsWith, TakesTheFirstItem) {
  ExpectRows({
      {4, TextField(u"www.bank.test"), 1, u".example,.test,bank.test", true, u"www.bank.test", u".test"},
      {4, TextField(u"www.bank.TEST"), 1, u".test", false, u"www.bank.TEST", u""},
      {4, TextField(u"test"), 1, u"a.test", false, u"test", u""},
      {4, ListField({u"a.test"}), 1, u".test", false, u"", u""},
  });
}

TEST(TextStartsWith, TakesTheWholeValue) {
  ExpectRows({
      {22, TextField(u"http://a,b/"), 1, u"http://a,b", true, u"", u"http://a,b"},
      {22, TextField(u"HTTP://a"), 2, u"http", false, u"", u""},
      {22, TextField(u"a"), 2, u"", true, u"", u""},
      {22, ListField({u"http"}), 2, u"http", false, u"", u""},
  });
}

TEST(EnoughItemsContained, CountsUpToTheFirstItem) {
  ExpectRows({
      {5, TextField(u"FOO and bazaar"), 1, u"2,foo,bar,baz", true, u"FOO and bazaar", u"2"},
      {5, TextField(u"foo bar baz"), 2, u"2,foo,bar,baz", true, u"foo bar baz", u"2"},
      {5, TextField(u"foo"), 1, u"2,foo,bar,baz", false, u"foo", u""},
      {5, TextField(u"foo"), 1, u"2,foo,foo", true, u"foo", u"2"},
      {5, TextField(u"2"), 1, u"2,2", false, u"2", u""},
      {5, TextField(u""), 1, u"0,foo", true, u"", u"0"},
      {5, TextField(u"foo"), 1, u"-1,foo", true, u"foo", u"0"},
      {5, ListField({u"ba", u"nk"}), 1, u"1,bank", true, u"bank", u"1"},
      {5, ListField({}), 1, u"1,bank", false, u"", u""},
      {5, TextField(u"foo"), 1, u",", false, u"", u""},
      {5, NumberField(0), 1, u"0", false, u"", u""},
      {5, TextField(u"one two three four five six seven"), 1, u"7,one,two,three,four,five,six,seven,eight", true,
       u"one two three four five six seven", u"7"},
  });
}

TEST(Contains, SearchesItemsOrTheWholeValue) {
  ExpectRows({
      {6, TextField(u"My Bank"), 1, u"pay,BANK,my", true, u"My Bank", u"BANK"},
      {6, TextField(u"My Bank, inc"), 2, u"bank, INC", true, u"My Bank, inc", u"bank, INC"},
      {6, TextField(u"any"), 2, u"", true, u"any", u""},
      {6, TextField(u"any"), 1, u"", false, u"any", u""},
      {6, TextField(u"5"), 0, u"5", false, u"", u""},
      {6, TextField(u"5"), 4, u"5", false, u"", u""},
      {6, ListField({u"a", u"my bank", u"bank"}), 0, u"bank", true, u"my bank", u"bank"},
      {6, ListField({u"a", u"b"}), 2, u"bank", false, u"b", u""},
      {6, NumberField(5), 2, u"", false, u"", u""},
      {6, FlagField(true), 1, u"true", false, u"", u""},
      {6, TextField(u"seven eight"), 1, u"one,two,three,four,five,six,eight,seven", true, u"seven eight", u"eight"},
  });
}

TEST(ContainsAsWord, WantsItemsToStandAlone) {
  ExpectRows({
      {10, TextField(u"pay now"), 1, u"PAY", true, u"pay now", u"PAY"},
      {10, TextField(u"payment"), 1, u"pay", false, u"payment", u""},
      {10, TextField(u"pay2"), 1, u"pay", true, u"pay2", u"pay"},
      {10, TextField(u"payment"), 2, u"pay", true, u"payment", u"pay"},
      {10, TextField(u"pay"), 0, u"pay", false, u"", u""},
      {10, TextField(u"pays"), 1, u"pay", true, u"pays", u"pay"},  // a text's last character isn't looked at
      {10, ListField({u"repay", u"payee", u"to pay."}), 2, u"pay", true, u"to pay.", u"pay"},
      {10, TextField(u"of seven"), 1, u"one,two,three,four,five,six,even,seven", true, u"of seven", u"seven"},
  });
}

TEST(ContainsCleaned, LooksThroughPunctuationAndDoubledLetters) {
  ExpectRows({
      {23, TextField(u"MyBaank.example"), 2, u"bank", true, u"", u""},
      {23, TextField(u"my-b.a.n.k!"), 1, u"shop,bank", true, u"", u""},
      {23, TextField(u"mybank"), 0, u"bank", false, u"", u""},
      {23, TextField(u"mybank"), 4, u"bank", false, u"", u""},
      {23, TextField(u"a,b"), 2, u"a,b", true, u"", u""},
      {23, TextField(u"mybank"), 1, u"", false, u"", u""},
  });
}

TEST(KnownStructure, TakesAnEqualOneBeforeACloseOne) {
  struct Row {
    const char16_t* structure;
    const char16_t* value;
    bool on;
    const char16_t* label;
  };
  const std::vector<Row> rows = {
      {u"abcdefghij", u"0.3,abcdefghi_,close,abcdefghij,equal", true, u"equal"},
      {u"abcdefghij", u"0.3,abcdefgh__,two off,abcdefghi_,one off", true, u"two off"},
      {u"abcdefghij", u"0.1,abcdefghi_,close", false, u""},  // the distance must lie below the share
      {u"abcdefghij", u"0.0001,abcdefghij", true, u""},
      {u"abcdefghij", u"0,abcdefghij,equal", false, u""},
      {u"abcdefghij", u"none,abcdefghij,equal", false, u""},
      {u"abcdefghij", u"0.3,other,abcdefghij", false, u""},  // a label isn't compared
      {u"abcdefghij", u"0.3", false, u""},
      {u"", u"1.5,a,label", false, u""},
  };
  for (const Row& row : rows) {
    const ExpressionValue value = Prepared(kValueList, row.value);
    const IndicatorResult result = KnownStructure(row.structure, value);
    EXPECT_EQ(result.on, row.on) << Narrow(row.value);
    EXPECT_EQ(result.matchText, row.label) << Narrow(row.value);
    EXPECT_EQ(result.fieldText, u"") << Narrow(row.value);
  }
}

TEST(ScoreInRange, IncludesBothEnds) {
  struct Row {
    float spooficity;
    const char16_t* value;
    bool on;
  };
  const std::vector<Row> rows = {
      {0.3F, u"0.3,0.7", true},  {0.7F, u"0.3,0.7", true},     {0.29999F, u"0.3,0.7", false},
      {0.8F, u"0.3,0.7", false}, {0.5F, u"0.3", false},        {0.5F, u"0.3,0.7,0.9", false},
      {0.5F, u"", false},        {0.0F, u"nothing,0.7", true},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ScoreInRange(row.spooficity, Prepared(kValueList, row.value)).on, row.on)
        << row.spooficity << " in " << Narrow(row.value);
  }
}

}  // namespace
}  // namespace zeph::test
