// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Similarity.h"

namespace zeph {
namespace {

/// The whole table.
std::size_t DistanceByTable(std::u16string_view a, std::u16string_view b) {
  std::vector<std::vector<std::size_t>> table(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        table[i][j] = i + j;
        continue;
      }
      const std::size_t change = LowerOf(a[i - 1]) == LowerOf(b[j - 1]) ? 0 : 1;
      table[i][j] = std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + change});
    }
  }
  return table[a.size()][b.size()];
}

TEST(EditDistance, AgreesWithTheWholeTable) {
  std::mt19937 random(3);
  const std::u16string_view alphabets[] = {u"aAb", u"abcdefgh", u"\u0416\u0436\u00b6\u0136ab"};
  for (int i = 0; i < 3000; ++i) {
    const std::u16string_view alphabet = alphabets[i % 3];
    std::u16string texts[2];
    const std::size_t most = i % 5 == 0 ? 200 : 20;  // some of more rows than one machine word has bits
    for (std::u16string& text : texts) {
      text.resize(random() % most);
      for (char16_t& c : text) c = alphabet[random() % alphabet.size()];
    }
    if (i % 2 == 0) {  // alike but for a few places
      texts[1] = texts[0];
      for (auto n = random() % 6; n > 0; --n) {
        const std::size_t at = random() % (texts[1].size() + 1);
        if (n % 2 == 0) {
          texts[1].insert(at, 1, alphabet[0]);
        } else {
          texts[1].erase(at, 1);
        }
      }
    }
    ASSERT_EQ(EditDistance(texts[0], texts[1]), DistanceByTable(texts[0], texts[1]))
        << Narrow(texts[0]) << " and " << Narrow(texts[1]);
  }
  for (const std::size_t length : {63U, 64U, 65U, 128U, 129U}) {
    EXPECT_EQ(EditDistance(std::u16string(length, u'a'), std::u16string(length, u'b')), length);
    EXPECT_EQ(EditDistance(std::u16string(length, u'a'), u""), length);
  }
}

TEST(IsSimilarWithin, LooksAtTheLengthsFirst) {
  struct {
    std::u16string_view text, candidate;
    float threshold, distance;
    bool similar;
  } const rows[] = {
      {u"paypal", u"PayPa1", 0.2F, 1.0F / 6.0F, true},
      {u"abcd", u"abcx", 0.25F, 0.25F, false},   // the threshold itself is too far
      {u"abcde", u"abcd", 0.25F, 0.2F, true},    // but a gap of lengths as wide goes on to the distance
      {u"abcdef", u"abcd", 0.25F, 0.5F, false},  // the gap, as a share of the candidate
      {u"abc", u"", 0.5F, 1.0F, false},
      {u"abc", u"", 1.0F, 1.0F, false},
      {u"", u"", 1.5F, 0.0F, true},
      {u"", u"ab", 3.0F, 2.0F, true},  // an empty text takes the distance undivided
  };
  for (const auto& row : rows) {
    float distance = -1.0F;
    EXPECT_EQ(IsSimilarWithin(row.text, row.candidate, row.threshold, distance), row.similar) << Narrow(row.text);
    EXPECT_EQ(distance, row.distance) << Narrow(row.text);
  }
}

TEST(ContainsNormalized, FindsTheFirstWordOfTheCleanedText) {
  struct {
    std::u16string_view text;
    std::vector<std::u16string> words;
    std::ptrdiff_t index;
  } const rows[] = {
      {u"MyBaank.example", {u"bank"}, 0},
      {u"my b-a-n-k", {u"shop", u"b.annk", u"bank"}, 1},  // words are cleaned too
      {u"my bank", {u"Bank"}, -1},                        // but not folded
      {u"a/b", {u"ab"}, -1},
      {u"my bankk", {u"bankk"}, 0},  // a run at the end stays, in both
      {u"my bankk x", {u"bankk"}, -1},
      {u"bank", {}, -1},
      {u"bank", {u"..."}, 0},  // nothing left of the word: found anywhere
      // The bank's short name inside the name of the home pages isn't the bank's.
      {u"Citi-Bank", {u"citi"}, 0},
      {u"www.geocities.example", {u"citi"}, -1},
      {u"geo-citties", {u"citi"}, -1},
      {u"geocities.example/citibank", {u"citi"}, 0},
      {u"citi at geocities", {u"citi"}, 0},
      {u"geocitizen", {u"citi"}, 0},
      {u"geocities", {u"citie"}, 0},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ContainsNormalized(row.text, row.words), row.index) << Narrow(row.text);
  }
}

}  // namespace
}  // namespace zeph
