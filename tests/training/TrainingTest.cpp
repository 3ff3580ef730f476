// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "tools/training/Evaluation.h"
#include "tools/training/Figures.h"
#include "tools/training/HtmlReport.h"
#include "tools/training/RuleWeights.h"
#include "tools/training/Split.h"
#include "tools/training/UrlTrainer.h"

namespace zeph::training {
namespace {

namespace fs = std::filesystem;

class Lists : public testing::Test {
 protected:
  Lists() { fs::create_directories(folder_); }
  ~Lists() override { fs::remove_all(folder_); }

  std::string Write(const std::string& name, const std::string& content) {
    const fs::path path = folder_ / name;
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }
  UrlSet Read(const std::vector<std::string>& phishing, const std::vector<std::string>& legitimate, SetLimits limits = {}) {
    return ReadUrlSet(phishing, legitimate, limits, [](std::size_t) {});
  }

 private:
  fs::path folder_ = fs::temp_directory_path() / ("zeph-lists-" + std::to_string(std::random_device()()));
};

/// Sites of the kinds that plainly differ: one kind asks to verify, the other writes about gardens.
std::string MadeList(bool isPhishing, unsigned seed, std::size_t count) {
  std::mt19937 random(seed);
  std::string list;
  for (std::size_t i = 0; i < count; ++i) {
    std::string name;
    for (int letter = 0; letter < 6; ++letter) name += static_cast<char>('a' + random() % 26);
    list += "https://" + (isPhishing ? "verify-" + name + ".top/account/" : name + "garden.org/roses/") + name + "\n";
  }
  return list;
}

TEST_F(Lists, AreReadWithWhateverTheySay) {
  const std::string plain = Write("plain.txt", "# a comment\n\nevil.example/a\nhttp://evil.example/b\r\nnot a url://\nhttp:///x\n");
  const std::string columns = Write("columns.tsv", "date\turl\tkey\textra\n2025-01\thttps://a.example/\tmine\tx\n");
  std::vector<UrlRow> rows;
  ReadingReport report;
  for (const std::string& list : {plain, columns}) ReadUrlList(list, true, [&](UrlRow&& row) { rows.push_back(row); }, report);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].url, "http://evil.example/a");
  EXPECT_EQ(rows[1].url, "http://evil.example/b");
  EXPECT_EQ(rows[1].group, "evil.example");
  EXPECT_EQ(rows[1].source, "plain.txt");
  EXPECT_EQ(rows[2].group, "mine");
  EXPECT_EQ(rows[2].date, "2025-01");
  EXPECT_EQ(report.bad, 2U);
  EXPECT_NE(report.firstBad.find("plain.txt:5: "), std::string::npos) << report.firstBad;
  EXPECT_THROW(ReadUrlList(plain + ".missing", true, [](UrlRow&&) {}, report), TrainingError);
}

TEST_F(Lists, AreSeenThroughCompression) {
  const std::string plain = Write("list", "http://a.example/\nhttp://b.example/\n");
  for (const char* tool : {"gzip", "xz", "bzip2", "zstd"}) {
    if (std::system(("command -v " + std::string(tool) + " >/dev/null").c_str()) != 0) continue;
    const std::string packed = plain + "." + tool;
    ASSERT_EQ(std::system((std::string(tool) + " -c " + plain + " > " + packed).c_str()), 0);
    std::size_t lines = 0;
    ForEachLine(packed, [&](std::string_view line, std::size_t) { lines += line.starts_with("http://") ? 1 : 0; });
    EXPECT_EQ(lines, 2U) << tool;
    // Cut in the middle: an error, not a shorter list.
    std::string half(fs::file_size(packed) / 2, '\0');
    std::ifstream(packed, std::ios::binary).read(half.data(), static_cast<std::streamsize>(half.size()));
    const std::string cut = Write("cut", half);
    EXPECT_THROW(ForEachLine(cut, [](std::string_view, std::size_t) {}), TrainingError) << tool;
  }
}

TEST_F(Lists, KeepEachAddressOnceAndNoneOfBothKinds) {
  const std::string phishing = Write("p", "http://www.evil.example/\nhttps://evil.example\nhttp://both.example/x\n");
  const std::string legitimate = Write("l", "https://both.example/x\nhttps://good.example/1\nhttps://good.example/2\nhttps://good.example/3\n");
  SetLimits limits;
  limits.perGroup = 2;
  const UrlSet set = Read({phishing}, {legitimate}, limits);
  EXPECT_EQ(set.report.repeated, 1U);
  EXPECT_EQ(set.report.contradictory, 2U);
  EXPECT_EQ(set.report.crowded, 1U);
  EXPECT_EQ(set.rows.size(), 3U);
  // A hoster's customers are groups of their own.
  EXPECT_EQ(GroupOfHost("a.b.example.co.uk"), "example.co.uk");
  EXPECT_EQ(GroupOfHost("www.someone.blogspot.com"), "someone.blogspot.com");
  EXPECT_EQ(GroupOfHost("192.0.2.7"), "192.0.2.7");
}

TEST_F(Lists, OfTooManyRowsTheSameStayWhateverTheirOrder) {
  const std::string list = MadeList(true, 1, 500);
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < list.size();) {
    const std::size_t feed = list.find('\n', at);
    lines.push_back(list.substr(at, feed + 1 - at));
    at = feed + 1;
  }
  std::string turned;
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) turned += *line;
  SetLimits limits;
  limits.rows = 100;
  std::vector<std::string> kept[2];
  int i = 0;
  for (const std::string& path : {Write("forth", list), Write("back", turned)}) {
    for (const UrlRow& row : Read({path}, {}, limits).rows) kept[i].push_back(row.url);
    ++i;
  }
  EXPECT_EQ(kept[0], kept[1]);
  EXPECT_LE(kept[0].size(), 100U);
  EXPECT_GE(kept[0].size(), 40U);
}

TEST(Split, KeepsGroupsTogether) {
  std::vector<UrlRow> rows;
  for (int i = 0; i < 600; ++i) {
    UrlRow row;
    row.url = "http://" + std::to_string(i) + ".example/";
    row.group = "group" + std::to_string(i % 100);
    row.date = i % 7 == 0 ? "2025-11" : "2024-01";
    row.source = i % 5 == 0 ? "one" : "other";
    rows.push_back(row);
  }
  for (const char* text : {"group:0.2", "date:2025", "source:one"}) {
    std::vector<UrlRow> learned;
    std::vector<UrlRow> heldOut;
    const Split split(text);
    split.Part(rows, learned, heldOut);
    std::set<std::string> groups;
    for (const UrlRow& row : learned) groups.insert(row.group);
    for (const UrlRow& row : heldOut) {
      EXPECT_FALSE(groups.contains(row.group)) << text;
      EXPECT_TRUE(split.IsHeldOut(row)) << text;
    }
    EXPECT_GT(heldOut.size(), 50U) << text;
  }
  for (const char* text : {"", "group", "group:0", "group:x", "group:0.9", "date:", "half"}) {
    EXPECT_THROW(Split{text}, TrainingError) << text;
  }
}

TEST_F(Lists, TeachWhatTheyPlainlySay) {
  const std::string phishing = Write("p", MadeList(true, 1, 300));
  const std::string legitimate = Write("l", MadeList(false, 2, 600));
  const auto train = [&](const UrlSet& set) {
    std::vector<UrlRow> learned;
    std::vector<UrlRow> heldOut;
    Split("group:0.2").Part(set.rows, learned, heldOut);
    TrainingReport report;
    return TrainUrlModel(learned, heldOut, {}, {}, [](const std::string&) {}, report);
  };
  const UrlModel model = train(Read({phishing}, {legitimate}));
  EXPECT_EQ(SourceText(model, "x"), SourceText(train(Read({phishing}, {legitimate})), "x"));
  // Others of the same kinds: all phishing high, hardly a legitimate one not low.
  const UrlSet others = Read({Write("p2", MadeList(true, 3, 200))}, {Write("l2", MadeList(false, 4, 200))});
  const std::vector<double> scores = ScoreRows(model, others.rows, {});
  const double high = std::log(0.85 / 0.15);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < scores.size(); ++i) wrong += others.rows[i].isPhishing != (scores[i] > high) ? 1 : 0;
  EXPECT_LE(wrong, 4U);
  // How lists were collected says nothing: scheme, www, a bare host.
  EXPECT_TRUE(IsNeutral(u"BD*https"));
  for (const char16_t* token : {u"BD*https", u"BE*-1", u"BKBL*0", u"BH*"}) {
    const auto found = model.probabilities.find(token);
    EXPECT_TRUE(found == model.probabilities.end() || found->second == 0.5);
  }
  for (const auto& [token, probability] : model.probabilities) {
    EXPECT_GT(probability, 0.0);
    EXPECT_LT(probability, 1.0);
  }
}

TEST(Figures, AreThoseOfAHandfulByHand) {
  const ScoreCurve curve({1, 2, 3, 4}, {0, 1, 2, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(curve.FoundAt(0.0).hits, 2U);   // above 2
  EXPECT_EQ(curve.FoundAt(0.1).hits, 3U);   // above 1
  EXPECT_EQ(curve.FoundAt(1.0).hits, 4U);
  EXPECT_DOUBLE_EQ(curve.Area(), (8.5 + 9.5 + 10 + 10) / 40);
  EXPECT_DOUBLE_EQ(ScoreCurve({}, {1}).Area(), 0.5);
  const Rate none = RateOf(0, 1000);
  EXPECT_EQ(none.low, 0.0);
  EXPECT_NEAR(none.high, 0.0038, 0.0001);
  const Rate some = RateOf(50, 100);
  EXPECT_NEAR(some.low, 0.404, 0.001);
  EXPECT_NEAR(some.high, 0.596, 0.001);
  EXPECT_EQ(RateOf(0, 0).value, 0.0);
}

/// The answers of three rules: the level, one that fires on phishing, one that fires on anything.
std::vector<RuleAnswers> MadeAnswers() {
  std::mt19937 random(5);
  std::vector<RuleAnswers> answers;
  for (int i = 0; i < 4000; ++i) {
    RuleAnswers one;
    one.isPhishing = i % 2 == 0;
    one.evaluated = {true, true, true, true};
    one.on = {true, random() % 100 < (one.isPhishing ? 60U : 1U), random() % 2 == 0, random() % 100 < (one.isPhishing ? 1U : 30U)};
    answers.push_back(one);
  }
  return answers;
}

TEST(RuleWeights, AreWhatTheRulesAreWorth) {
  Indicators rules;
  for (int i = 0; i < 5; ++i) {
    Indicator rule;
    rule.OnWeight = 0.5F;
    rule.Rule.Category = i == 4 ? 3 : 0;
    if (i > 0) rule.Rule.Expressions.emplace_back();
    rules.Entries.push_back(rule);
  }
  rules.Entries[4].OnWeight = 0.7F;
  WeightOptions options;
  options.heldRate = 0.02;
  const auto answers = MadeAnswers();
  FitRuleWeights(rules, options, [&](const Indicators&) { return answers; });
  EXPECT_GT(rules.Entries[1].OnWeight, 0.9F);
  EXPECT_NEAR(rules.Entries[2].OnWeight, 0.5F, 0.1F);
  EXPECT_LT(rules.Entries[3].OnWeight, 0.2F);
  EXPECT_EQ(rules.Entries[4].OnWeight, 0.7F);  // of another stage
  std::size_t held[2] = {};
  for (const RuleAnswers& one : answers) held[one.isPhishing] += *LogitOf(rules, one) > std::log(0.89 / 0.11) ? 1 : 0;
  EXPECT_LE(held[0], 40U);
  EXPECT_GT(held[1], 1000U);

  const std::string source =
      "<!-- 0: kept <OnWeight>9</OnWeight> -->\n<Indicator>\n<Category>0</Category>\n<OnWeight>0.5</OnWeight>\n</Indicator>\n"
      "<Indicator>\n<OnWeight>0.5\n<OnWeight>0.5</OnWeight>\n</Indicator>\n<Indicator>\n</Indicator>\n";
  rules.Entries[0].OnWeight = 0.25F;
  rules.Entries[1].OnWeight = 0.75F;
  EXPECT_EQ(WithWeights(source, rules),
            "<!-- 0: kept <OnWeight>9</OnWeight> -->\n<Indicator>\n<Category>0</Category>\n<OnWeight>0.25</OnWeight>\n"
            "</Indicator>\n<Indicator>\n<OnWeight>0.5\n<OnWeight>0.75</OnWeight>\n</Indicator>\n<Indicator>\n</Indicator>\n");
}

TEST(Evaluation, TellsWhatARuleIsWorthAndWritesInputsAsText) {
  ConfigurationPair pair;
  for (const float weight : {0.95F, 0.6F}) {
    Indicator rule;
    rule.OnWeight = weight;
    pair.indicators.Entries.push_back(rule);
  }
  std::vector<JudgedCase> cases;
  for (int i = 0; i < 40; ++i) {
    JudgedCase one;
    one.input = "http://x.example/<script>alert(" + std::to_string(i) + ")</script>";
    one.isPhishing = i < 20;
    one.isJudged = true;
    one.answers.evaluated = {true, true};
    one.answers.on = {i < 10 || i == 30, true};
    one.score = one.answers.on[0] ? 3.3 : 0.4;
    one.isHeld = one.answers.on[0];
    one.wantedBrand = "Bank";
    one.slices["source"] = "\"&<b>";
    cases.push_back(one);
  }
  const Evaluation evaluation = Evaluate(cases, pair);
  EXPECT_EQ(evaluation.held[1].hits, 10U);
  EXPECT_EQ(evaluation.held[0].hits, 1U);
  EXPECT_EQ(evaluation.rules[0].fired[1].hits, 10U);
  EXPECT_EQ(evaluation.rules[0].heldWithout[1].hits, 0U);
  EXPECT_EQ(evaluation.rules[1].heldWithout[1].hits, 10U);
  EXPECT_EQ(evaluation.brandsUnnamed, 10U);
  ASSERT_EQ(evaluation.wronglyHeld.size(), 1U);
  const std::string page = HtmlReport({"<title>", "a & b", ""}, evaluation, evaluation, Compare(cases, cases));
  EXPECT_EQ(page.find("<script"), std::string::npos);
  EXPECT_EQ(page.find("<b>\"&"), std::string::npos);
  EXPECT_NE(page.find("&lt;script&gt;alert(30)"), std::string::npos);
}

}  // namespace
}  // namespace zeph::training
