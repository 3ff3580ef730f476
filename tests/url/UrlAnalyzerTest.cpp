// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "tests/url/LiteralTokenizer.h"
#include "tests/url/RandomUrls.h"

namespace zeph {
namespace {

using Texts = std::vector<std::u16string>;

TokenTable TableOf(const std::vector<std::pair<std::u16string_view, double>>& entries) {
  TokenTable table;
  for (const auto& [token, probability] : entries) table.insert_or_assign(token, probability);
  return table;
}

// Probabilities from a short list, so that distances tie and repeated tokens push others out. With and without words,
// the keys pinned, as a configuration does, and not.
TEST(UrlAnalyzer, ChoosesAndScoresAsTheLiteralStepsDo) {
  RandomUrls urls(4);
  const Texts list = {u"bank", u"login", u"ank", u"co", u"an", u"er", u"a", u"b", u"e", u"o", u"1"};
  const WordSet listed(list);
  const WordSet none;
  for (int round = 0; round < 300; ++round) {
    const WordSet& words = round % 3 == 0 ? none : listed;
    TokenTable table;
    std::vector<std::u16string> sample;
    while (sample.size() < 12) sample.push_back(sample.size() % 3 == 0 ? urls.Strange() : urls.Usual());
    for (const std::u16string& url : sample) {
      const Texts tokens = TokensOf(url, words).value_or(Texts());
      for (const std::u16string& token : tokens) {
        constexpr double kProbabilities[] = {0.5, 0.4000000059604645, 0.6, 0.1, 0.9, 0.99, 0.0, 1.0, 0.45, -0.5, 2.0};
        if (urls.Below(2) == 0) table.insert_or_assign(token, kProbabilities[urls.Below(round % 2 == 0 ? 11 : 6)]);
      }
    }
    if (round % 3 == 1) table.PinWords(kWordCodes, list);
    UrlAnalyzer analyzer(table, words);
    EXPECT_EQ(analyzer.Score(), -1.0);
    for (const std::u16string& url : sample) {
      const std::int32_t scoreClass = analyzer.Classify(url);
      const auto chosen = literal::Choose(TokensOf(url, words).value_or(Texts()), table);
      ASSERT_EQ(analyzer.ChosenTokens(), chosen) << Narrow(url);
      const double score = literal::Score(chosen);
      if (std::isnan(score)) {
        ASSERT_TRUE(std::isnan(analyzer.Score())) << Narrow(url);
        ASSERT_EQ(scoreClass, kUrlScoreMiddle) << Narrow(url);
      } else {
        ASSERT_EQ(analyzer.Score(), score) << Narrow(url);
      }
    }
  }
}

TEST(UrlAnalyzer, GivesAClassByTheScore) {
  struct {
    std::vector<std::pair<std::u16string_view, double>> table;
    std::int32_t scoreClass;
    std::string_view why;
  } const rows[] = {
      {{}, kUrlScoreLow, "tokens that the table lacks speak for a URL"},
      {{{u"BD*http", 0.999999}, {u"BS*test", 0.9999999}, {u"BI*AM", 0.999}}, kUrlScoreHigh, "strong tokens"},
      {{{u"BD*http", 1.0}, {u"BS*test", 0.0}}, kUrlScoreMiddle, "no number"},
      {{{u"BD*http", 1.0}}, kUrlScoreHigh, "certain"},
  };
  for (const auto& row : rows) {
    const TokenTable table = TableOf(row.table);
    const WordSet words;
    UrlAnalyzer analyzer(table, words);
    EXPECT_EQ(analyzer.Classify(u"http://h.test/"), row.scoreClass) << row.why << " " << analyzer.Score();
  }
  // Right at the limits, which are single-precision values: one token alone is its own score.
  const WordSet words;
  const auto classOf = [&](double probability) {
    TokenTable table;
    const Texts tokens = TokensOf(u"x:", words).value();
    for (const std::u16string& token : tokens) table.insert_or_assign(token, 0.5);
    table.insert_or_assign(u"BD*x", probability);
    UrlAnalyzer analyzer(table, words);
    const std::int32_t scoreClass = analyzer.Classify(u"x:");
    EXPECT_NEAR(analyzer.Score(), probability, 1e-12);
    return scoreClass;
  };
  EXPECT_EQ(classOf(0.85000001), kUrlScoreMiddle);
  EXPECT_EQ(classOf(0.85000003), kUrlScoreHigh);
  EXPECT_EQ(classOf(0.15000001), kUrlScoreMiddle);
  EXPECT_EQ(classOf(0.150000005), kUrlScoreLow);
}

TEST(UrlAnalyzer, CountsATextThatCannotBeTakenApartAsOneWithoutTokens) {
  const TokenTable table = TableOf({{u"BD*http", 0.9}});
  const WordSet words;
  UrlAnalyzer analyzer(table, words);
  EXPECT_EQ(analyzer.Classify(u"http://h.test/"), kUrlScoreLow);
  EXPECT_FALSE(analyzer.ChosenTokens().empty());
  EXPECT_EQ(analyzer.Classify(u"http://?x"), kUrlScoreLow);
  EXPECT_EQ(analyzer.Score(), 0.0);
  EXPECT_TRUE(analyzer.ChosenTokens().empty());
}

// Nine tokens of scheme, port, host and extension and 16 of the folders, all equally weak, fill the places. A strong
// one takes that of the weak one whose key comes first; once more, and it leaves a place free for a token behind it.
TEST(UrlAnalyzer, ARepeatedTokenFirstPushesAnotherOut) {
  const WordSet words;
  const TokenTable table = TableOf({{u"BK*strong", 0.8}});
  const std::u16string url = u"http://h.test/a/b/c/d/e/f/g/h/i/j/k/l/m/n/o/p/";
  UrlAnalyzer analyzer(table, words);
  const auto holds = [&](std::u16string_view token) {
    return analyzer.ChosenTokens().count(std::u16string(token)) == 1;
  };
  analyzer.Classify(url + u"strong/");
  EXPECT_TRUE(holds(u"BK*strong") && holds(u"BD*http") && !holds(u"ALAE*0") && !holds(u"BKBL*17"));
  analyzer.Classify(url + u"strong/strong/");
  EXPECT_TRUE(holds(u"BK*strong") && !holds(u"BD*http") && !holds(u"ALAE*0") && holds(u"BKBL*AT"));
  EXPECT_EQ(analyzer.ChosenTokens().size(), 25U);
}

TEST(UrlScoreCache, KeepsTheLastUrls) {
  UrlScoreCache cache;
  const auto url = [](int i) { return u"http://h.test/" + NumberText(i); };
  for (int i = 0; i < 25; ++i) cache.Add(url(i), {kUrlScoreHigh, i + 0.5});
  for (int i = 0; i < 25; ++i) {
    ASSERT_TRUE(cache.Find(url(i))) << i;
    EXPECT_EQ(cache.Find(url(i))->score, i + 0.5);
  }
  cache.Add(url(25), {kUrlScoreLow, 0.0});
  EXPECT_FALSE(cache.Find(url(0)));
  EXPECT_TRUE(cache.Find(url(1)));
  EXPECT_EQ(cache.Find(url(25))->scoreClass, kUrlScoreLow);
  EXPECT_FALSE(cache.Find(u"http://h.test/2 "));
}

TEST(UrlScoreCache, FindsTheOldestOfTwoAlikeWhereverTheyStand) {
  UrlScoreCache cache;
  for (int i = 0; i < 40; ++i) cache.Add(u"filler", {kUrlScoreMiddle, 0.5});
  cache.Add(u"twice", {kUrlScoreHigh, 1.0});
  for (int i = 0; i < 12; ++i) cache.Add(u"filler", {kUrlScoreMiddle, 0.5});
  cache.Add(u"twice", {kUrlScoreLow, 0.0});
  EXPECT_EQ(cache.Find(u"twice")->scoreClass, kUrlScoreHigh);
}

TEST(ScoreUrl, SharesItsCacheWithRecords) {
  const WordSet words;
  const TokenTable high = TableOf({{u"BD*http", 1.0}});
  const TokenTable low;
  UrlParser parser;
  ASSERT_EQ(parser.DecodeUrl(u"http://shared.test/1"), 0);
  EXPECT_EQ(ScoreRecord(parser.Record(), high, words).scoreClass, kUrlScoreHigh);
  EXPECT_EQ(ScoreUrl(u"http://shared.test/1", low, words).scoreClass, kUrlScoreHigh);  // whatever the table is now
  for (int i = 2; i < 27; ++i) ScoreUrl(u"http://shared.test/" + NumberText(i), low, words);
  EXPECT_EQ(ScoreUrl(u"http://shared.test/1", low, words).scoreClass, kUrlScoreLow);
}

}  // namespace
}  // namespace zeph
