// SPDX-License-Identifier: Apache-2.0
#include <bit>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Spooficity.h"

namespace zeph {
namespace {

/// One rule and its answer.
struct Answer {
  float onWeight = kNoWeight;
  float offWeight = kNoWeight;
  bool evaluated = true;
  bool on = true;
};

struct Scored {
  std::int32_t classification = 0;
  float spooficity = -1.0F;
  bool isFinal = false;
};

Scored Score(const std::vector<Answer>& answers) {
  Indicators indicators;
  std::vector<IndicatorResult> results;
  for (const Answer& answer : answers) {
    indicators.Entries.push_back({answer.onWeight, answer.offWeight, {}});
    results.push_back({answer.evaluated, answer.on, {}, {}, 0.0});
  }
  Scored scored;
  scored.classification = computeSpooficity(indicators, results, scored.spooficity, scored.isFinal);
  return scored;
}

TEST(Spooficity, FollowsTheWeightsInForce) {
  struct Row {
    const char* name;
    std::vector<Answer> answers;
    std::int32_t classification;
    float spooficity;
    bool isFinal;
  };
  const float nearOne = std::nextafter(1.0F, 0.0F);
  const std::vector<Row> rows = {
      {"no rules", {}, 3, 0.5F, false},
      {"none evaluated", {{0.99F, 0.99F, false, true}}, 3, 0.5F, false},
      {"weights that say nothing", {{2.0F, 0.99F, true, true}, {0.99F, 2.0F, true, false}}, 3, 0.5F, false},
      {"two probabilities", {{0.9F}, {0.9F}}, 2, 0.98780489F, false},
      {"the weight when off", {{2.0F, 0.9F, true, false}}, 2, 0.9F, false},
      {"exactly the threshold", {{0.89F}}, 3, 0.89F, false},
      {"just above the threshold", {{std::nextafter(0.89F, 1.0F)}}, 2, std::nextafter(0.89F, 1.0F), false},
      {"script attack", {{0.3F}, {1.2F}, {0.0F}}, 6, 0.9F, true},
      {"spoofing", {{1.0F}}, 2, 1.0F, true},
      {"unclassified", {{-1.0F}, {1.0F}}, 3, 0.0F, true},
      {"trustworthy before spoofing", {{0.0F}, {1.0F}}, 1, 0.0F, true},
      {"negative zero is zero", {{-0.0F}}, 1, 0.0F, true},
      {"a mark that isn't evaluated", {{1.0F, 1.0F, false, true}, {0.25F}}, 3, 0.25F, false},
      {"the mark of the other answer", {{1.0F, 0.25F, true, false}}, 3, 0.25F, false},
      {"next to a mark is a probability", {{nearOne}}, 2, nearOne, false},
      {"beyond a probability", {{1.5F}, {0.5F}}, 2, 1.5F, false},
  };
  for (const Row& row : rows) {
    const Scored scored = Score(row.answers);
    EXPECT_EQ(scored.classification, row.classification) << row.name;
    EXPECT_EQ(scored.spooficity, row.spooficity) << row.name;
    EXPECT_EQ(scored.isFinal, row.isFinal) << row.name;
  }
}

TEST(Spooficity, WhatIsNoNumberIsUnclassified) {
  // Both products fall to nothing.
  const Scored scored = Score(std::vector<Answer>(400, Answer{0.5F}));
  EXPECT_TRUE(std::isnan(scored.spooficity));
  EXPECT_EQ(scored.classification, 3);
}

TEST(Spooficity, RoundsOnceAStep) {
  std::mt19937 random(11);  // NOLINT(cert-msc51-cpp): the same cases each time
  for (int round = 0; round < 2'000; ++round) {
    std::vector<Answer> answers(1 + random() % 12);
    long double spoof = 1.0L;
    long double ham = 1.0L;
    for (Answer& answer : answers) {
      answer.onWeight = static_cast<float>(random() % 10'000 + 1) / 10'007.0F;
      spoof = static_cast<float>(spoof * answer.onWeight);
      ham = static_cast<float>(ham * (1.0L - answer.onWeight));
    }
    EXPECT_EQ(Score(answers).spooficity, static_cast<float>(spoof / (ham + spoof)));
  }
}

/// One fired rule with a brand.
struct Vote {
  const char* brand;
  std::uint32_t priority = 1;
  bool on = true;
};

std::string BrandOf(const std::vector<Vote>& votes) {
  Indicators indicators;
  std::vector<IndicatorResult> results;
  for (const Vote& vote : votes) {
    Indicator indicator;
    indicator.Rule.TDPriority = vote.priority;
    indicators.Entries.push_back(indicator);
    results.push_back({true, vote.on, {}, Widen(vote.brand), 0.0});
  }
  return Narrow(TopBrand(indicators, results));
}

TEST(TopBrand, CountsVotesAndSettlesTies) {
  struct Row {
    std::vector<Vote> votes;
    const char* brand;
  };
  const std::vector<Row> rows = {
      {{}, ""},
      {{{"a", 1, false}, {"", 1}, {"b", 0}}, ""},
      {{{"a", 9}, {"a", 9}, {"b", 1}}, "a"},
      {{{"a", 5}, {"b", 2}}, "b"},
      {{{"a", 5}, {"b", 5}, {"c", 2}}, "c"},
      {{{"b", 3}, {"a", 3}}, "b"},  // the first in list order stays the lowest
      {{{"b", 9}, {"a", 9}, {"b", 9}, {"a", 9}, {"c", 1}}, "a"},
      {{{"b", 9}, {"a", 0}}, "b"},
      {{{"b", 0x7FFFFFFF}, {"a", 0x7FFFFFFF}}, "a"},  // none is below the largest number
      {{{"b", 0xFFFFFFFF}}, "b"},
  };
  for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(BrandOf(rows[i].votes), rows[i].brand) << "row " << i;
}

// The rule as it is told: a tally, and a walk over it in key order.
std::string BrandByWalk(const std::vector<Vote>& votes) {
  std::map<std::string, int> tally;
  std::string lowestBrand;
  std::int64_t lowestPriority = std::numeric_limits<std::int32_t>::max();
  for (const Vote& vote : votes) {
    if (!vote.on || vote.priority < 1 || std::string(vote.brand).empty()) continue;
    tally[vote.brand] += 1;
    if (vote.priority < lowestPriority) {
      lowestBrand = vote.brand;
      lowestPriority = vote.priority;
    }
  }
  std::string best;
  int bestCount = 0;
  for (const auto& [brand, count] : tally) {
    if (count < bestCount) continue;
    if (count == bestCount && brand != lowestBrand) continue;
    best = brand;
    bestCount = count;
  }
  return best;
}

TEST(TopBrand, AgreesWithTheRuleOnRandomVotes) {
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same cases each time
  const std::vector<const char*> brands = {"", "a", "b", "ba", "c", "example.test"};
  for (int round = 0; round < 5'000; ++round) {
    std::vector<Vote> votes(random() % 9);
    std::string trace;
    for (Vote& vote : votes) {
      vote = {brands[random() % brands.size()], static_cast<std::uint32_t>(random() % 4), random() % 4 != 0};
      trace += std::string(vote.brand) + "/" + std::to_string(vote.priority) + (vote.on ? " " : "- ");
    }
    ASSERT_EQ(BrandOf(votes), BrandByWalk(votes)) << trace;
  }
}

TEST(ResultCount, EndsAtTheFirstOfCategoryFour) {
  struct Row {
    std::vector<std::uint32_t> categories;
    std::size_t count;
  };
  const std::vector<Row> rows = {{{}, 1}, {{4}, 1}, {{4, 0}, 1}, {{0, 4}, 1}, {{0, 8, 4, 1, 4}, 2}, {{0, 1, 3}, 3}};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    Indicators indicators;
    for (const std::uint32_t category : rows[i].categories) {
      indicators.Entries.emplace_back().Rule.Category = category;
    }
    EXPECT_EQ(ResultCount(indicators), rows[i].count) << "row " << i;
  }
}

}  // namespace
}  // namespace zeph
