// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "tests/scoring/ScoringFixture.h"

namespace zeph::test {
namespace {

constexpr std::uint32_t kTitle = 6;
constexpr std::uint32_t kBrandLinks = 19;
constexpr std::uint32_t kContains = 6;
constexpr std::uint32_t kEarlierOff = 19;
constexpr std::uint32_t kNone = 20;
constexpr std::uint32_t kEarlierOn = 26;
constexpr std::uint32_t kScoreInRange = 48;

IndicatorExpression Expression(std::uint32_t field, std::uint32_t method, const char16_t* value,
                               std::uint32_t valueType = kValueText) {
  IndicatorExpression expression{field, method, {}};
  expression.ExpressionValue = Prepared(valueType, value);
  return expression;
}

/// On when the title, "abc", holds it.
IndicatorExpression Holds(const char16_t* text) { return Expression(kTitle, kContains, text); }

Indicator Rule(std::uint32_t operatorId, std::vector<IndicatorExpression> expressions, std::uint32_t category = 0) {
  Indicator indicator;
  indicator.Rule = {operatorId, std::move(expressions), 0, category};
  return indicator;
}

struct Runner : World {
  explicit Runner(std::vector<Indicator> rules) {
    pageData.body.title = u"abc";
    pageData.links.hostTally = {{u"www.bank.test", 2}};
    configuration.TrustedDomainInfos[u"bank.test"].DT = {u"bank.test"};
    configuration.BuildIndexes();
    indicators.Entries = std::move(rules);
    indicators.Prepare();
    results.resize(indicators.Entries.size());
  }
  void Run(std::uint32_t stage = 0) { RunStage(indicators, configuration, pageData, stage, results); }
};

TEST(Operators, CombineTheExpressions) {
  struct Row {
    const char* name;
    std::uint32_t operatorId;
    std::vector<IndicatorExpression> expressions;
    bool on;
    bool evaluated;
    const char* matchText;
  };
  const IndicatorExpression unknown = Expression(kTitle, kNone, u"a");
  const std::vector<Row> rows = {
      {"and of none", 0, {}, true, true, ""},
      {"or of none", 1, {}, false, true, ""},
      {"not of none", 2, {}, false, true, ""},
      {"an operator that doesn't exist, of none", 3, {}, false, true, ""},
      {"and", 0, {Holds(u"a"), Holds(u"b")}, true, true, "a"},
      {"and, second off", 0, {Holds(u"a"), Holds(u"x")}, false, true, "a"},
      {"and, first off", 0, {Holds(u"x"), Holds(u"a")}, false, true, ""},
      {"or, second on", 1, {Holds(u"x"), Holds(u"a")}, true, true, ""},
      {"or, first on", 1, {Holds(u"a"), Holds(u"b")}, true, true, "a"},
      {"not", 2, {Holds(u"a")}, false, true, "a"},
      {"not, off", 2, {Holds(u"x"), Holds(u"a")}, true, true, ""},
      {"other", 200, {Holds(u"a"), Holds(u"x")}, true, true, "a"},
      {"other, first off", 3, {Holds(u"x"), Holds(u"a")}, false, true, ""},
      {"and, no method behind one that is on", 0, {Holds(u"a"), unknown}, false, false, "a"},
      {"and, no method behind one that is off", 0, {Holds(u"x"), unknown}, false, true, ""},
      {"or, no method", 1, {unknown, Holds(u"a")}, true, false, ""},
      {"not, no method", 2, {unknown}, true, false, ""},
      {"a method beyond the table", 1, {Expression(kTitle, 66, u"a")}, false, false, ""},
  };
  for (const Row& row : rows) {
    Runner runner({Rule(row.operatorId, row.expressions)});
    runner.Run();
    EXPECT_EQ(runner.results[0].on, row.on) << row.name;
    EXPECT_EQ(runner.results[0].evaluated, row.evaluated) << row.name;
    EXPECT_EQ(Narrow(runner.results[0].matchText), row.matchText) << row.name;
    EXPECT_GE(runner.results[0].elapsedMs, 0.0) << row.name;
  }
}

TEST(RunStage, LeavesTheRulesOfOtherStagesAlone) {
  Runner runner({Rule(0, {}, 0), Rule(0, {}, 7), Rule(0, {}, kCategoryNever), Rule(0, {}, 0)});
  runner.results[1].matchText.Lend(u"kept");
  runner.Run(0);
  EXPECT_TRUE(runner.results[0].evaluated && runner.results[3].evaluated);
  EXPECT_FALSE(runner.results[1].evaluated || runner.results[2].evaluated);
  runner.Run(7);
  EXPECT_TRUE(runner.results[1].evaluated);
  EXPECT_EQ(runner.results[1].matchText, u"");
  EXPECT_FALSE(runner.results[2].evaluated);
}

TEST(RunStage, ARuleSeesTheAnswersBeforeIt) {
  Runner runner({
      Rule(0, {Expression(0, kEarlierOn, u"2")}),   // not yet
      Rule(0, {Expression(0, kEarlierOff, u"2")}),  // not yet
      Rule(0, {Holds(u"a")}),
      Rule(0, {Expression(0, kEarlierOn, u"2")}),
      Rule(0, {Expression(0, kEarlierOff, u"2")}),
      Rule(0, {Expression(0, kEarlierOn, u"99")}),
      Rule(0, {Expression(0, kEarlierOff, u"-1")}),
  });
  runner.Run();
  const std::vector<bool> on = {false, true, true, true, false, false, true};
  for (std::size_t i = 0; i < on.size(); ++i) {
    EXPECT_EQ(runner.results[i].on, on[i]) << "rule " << i;
    if (i != 2) {
      EXPECT_EQ(runner.results[i].fieldText, on[i] ? u"true" : u"false") << "rule " << i;
    }
  }
}

TEST(RunStage, ARuleSeesTheScoreBeforeIt) {
  Runner runner({
      Rule(0, {Expression(0, kScoreInRange, u"0.5,0.5")}),
      Rule(0, {Holds(u"a")}),
      Rule(0, {Expression(0, kScoreInRange, u"0.74,0.76")}),
      Rule(0, {Expression(0, kScoreInRange, u"0.5,0.5")}),
  });
  runner.indicators.Entries[1].OnWeight = 0.75F;
  runner.Run();
  EXPECT_TRUE(runner.results[0].on);
  EXPECT_TRUE(runner.results[2].on);
  EXPECT_FALSE(runner.results[3].on);
}

TEST(RunStage, AFieldThatCountsIsReadWhereNobodyLooksAtIt) {
  struct Row {
    const char* name;
    std::vector<IndicatorExpression> expressions;
    bool counted;
  };
  const std::vector<Row> rows = {
      {"passed over", {Holds(u"x"), Expression(kBrandLinks, kContains, u"a")}, true},
      {"behind the one passed over", {Holds(u"x"), Holds(u"a"), Expression(kBrandLinks, kContains, u"a")}, false},
      {"no method", {Expression(kBrandLinks, kNone, u"a")}, true},
      {"a method without a field", {Expression(kBrandLinks, kEarlierOn, u"0")}, true},
      {"another field", {Expression(kTitle, kContains, u"a")}, false},
  };
  for (const Row& row : rows) {
    Runner runner({Rule(0, row.expressions)});
    runner.Run();
    EXPECT_EQ(runner.pageData.links.brandLinkCount, row.counted ? 2 : 0) << row.name;
  }
}

TEST(RunStage, ARuleWithoutAKnownMethodHasNoWeight) {
  Runner runner({Rule(1, {Expression(kTitle, kNone, u"a"), Holds(u"a")})});
  runner.indicators.Entries[0].OnWeight = 1.0F;
  runner.Run();
  float spooficity = 0.0F;
  bool isFinal = true;
  EXPECT_EQ(computeSpooficity(runner.indicators, runner.results, spooficity, isFinal), 3);
  EXPECT_EQ(spooficity, 0.5F);
}

TEST(MethodTable, AnswersWhereItsRowSaysAndNowhereElse) {
  constexpr std::uint32_t kEqualAndNoted = 51;  // as EqualToValue, and writes into the user's settings
  World world;
  TrustedDomainInfo& bank = world.configuration.TrustedDomainInfos[u"bank.test"];
  bank.UT = bank.TT = bank.CT = {u"bank"};
  world.configuration.TrustedDomains.Entries.push_back({kDomain, u"bank.test", {}, 0, {}});
  world.configuration.SafeList.Add({kDomain, u"bank.test", {}, 0, {}});
  world.configuration.BuildIndexes();
  const FieldValue fields[] = {NumberField(9),       ListField({u"bank.test"}), TextField(u"bank.test"),
                               FlagField(true),      NumbersField({9}),         NumberWithTextField(9, u"bank.test"),
                               FieldValue{}};
  for (const Method& method : kMethods) {
    if (!method.ReadsField() || method.number == kEqualAndNoted) continue;
    EXPECT_EQ(FindMethod(method.number), &method);
    std::size_t answered = 0;  // bit i: a reading of number i was on
    for (const FieldValue& field : fields) {
      for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U}) {
        for (const char16_t* const value : {u"0", u"4", u"8", u"9", u"10", u"bank", u"bank.test", u"1,bank", u"test"}) {
          if (!world.Run(method.number, field, Prepared(type, value)).on) continue;
          std::size_t readings = 0;
          for (std::size_t i = 0; i < method.readings.size(); ++i) {
            const Reading& reading = method.readings[i];
            const bool takesType = !reading.bindsType || FormRow(reading.value).type == type;
            if (field.kind != FieldKind::kNone && (reading.fields & Only(field.kind)) != 0 && takesType) readings |= 1U << i;
          }
          EXPECT_NE(readings, 0U) << method.name << " on " << KindName(field.kind) << ", type " << type << ", "
                                  << Narrow(value);
          answered |= readings;
        }
      }
    }
    for (std::size_t i = 0; i < method.readings.size(); ++i) {
      EXPECT_TRUE(method.readings[i].value == ValueForm::kNone || (answered >> i & 1U) != 0) << method.name << ' ' << i;
    }
  }
  for (const std::uint32_t none : {7U, 20U, 29U, 42U, 53U, 62U, 66U, 255U, 0xFFFFFFFFU}) {
    EXPECT_EQ(FindMethod(none), nullptr) << none;
  }
}

}  // namespace
}  // namespace zeph::test
