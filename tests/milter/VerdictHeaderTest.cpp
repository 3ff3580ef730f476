// SPDX-License-Identifier: Apache-2.0
// What letters are marked with, whatever strangers put into names and reasons.
#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include "gateways/milter/VerdictHeader.h"

namespace zeph::milter {
namespace {

Judgement Held(std::u16string brand, std::string sentence) {
  Judgement letter;
  letter.verdict = Verdict::kSpoofing;
  letter.siteName = std::move(brand);
  letter.spooficity = 0.9876F;
  Judgement part = letter;
  part.where = "link 2";
  part.reasons.push_back({"rule", std::move(sentence), "", 0.9F, 0.1F});
  letter.parts = {Judgement{}, part};
  letter.worst = 1;
  return letter;
}

std::string Unfolded(std::string text) {
  for (std::size_t at = 0; (at = text.find("\n\t", at)) != std::string::npos;) text.replace(at, 2, " ");
  return text;
}

TEST(VerdictHeader, TellsVerdictBrandReasonAndScoreInOrder) {
  EXPECT_EQ(Unfolded(VerdictHeader(Held(u"Bank", "It isn't its own."), "cut")),
            "spoofing; brand=\"Bank\"; reason=\"It isn't its own.\"; score=0.988; where=\"link 2\"; note=\"cut\"");
  Judgement unjudged;
  unjudged.reason = "too costly";
  unjudged.spooficity = 0.5F;
  EXPECT_EQ(VerdictHeader(unjudged, ""), "not-judged; reason=\"too costly\"");
}

TEST(VerdictHeader, NothingThatStrangersWriteLeavesItsPlace) {
  struct Row {
    std::u16string brand;
    std::string sentence;
    std::string expected;  ///< stands in the unfolded header
  };
  const Row rows[] = {
      {u"A\"; score=0", "x", R"(brand="A\"; score=0"; reason)"},
      {u"A\r\nBcc: b", "c\n\td\\", R"(brand="A\\x0d\\x0aBcc: b"; reason="c\\x0a\\x09d\\")"},
      {u"Cr\u00e9dit", "\xc3\xa9 'x'", "brand*=UTF-8''Cr%C3%A9dit; reason*=UTF-8''%C3%A9%20%27x%27"},
      {u"A", std::string(1000, 'x'), ".\"; score"},
      {u"\u202eA", std::string(199, 'x') + "\xc3\xa9\xc3\xa9", R"(brand="\\u202eA")"},
  };
  for (const Row& row : rows) {
    const std::string header = VerdictHeader(Held(row.brand, row.sentence), "");
    EXPECT_NE(Unfolded(header).find(row.expected), std::string::npos) << header;
    EXPECT_TRUE(std::ranges::all_of(header, [](char c) { return (c >= 0x20 && c < 0x7F) || c == '\n' || c == '\t'; }));
    std::istringstream lines("X-Zeph: " + header);
    std::string line;
    for (int number = 0; std::getline(lines, line); ++number) {
      EXPECT_LE(line.size(), 78U) << line;
      EXPECT_EQ(line.starts_with('\t'), number > 0) << header;
      EXPECT_FALSE(line.ends_with(' ')) << header;
    }
    for (const char c : HeldSentence(Held(row.brand, row.sentence))) EXPECT_TRUE(c >= 0x20 && c < 0x7F);
  }
}

}  // namespace
}  // namespace zeph::milter
