// SPDX-License-Identifier: Apache-2.0
#include "tools/training/Evaluation.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Method.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph::training {
namespace {

constexpr double kDecided = 1000.0;  ///< the score of what a mark decides
constexpr std::size_t kShownCases = 20;
constexpr std::size_t kShownReasons = 6;
constexpr double kSliceCut = 0.001;

std::string_view ShapeName(const UrlRecord& record) {
  if (!record.ExtraInfo.empty() && record.ExtraInfo.front() == u'?') return "query";
  return record.UrlPath.size() > 1 ? "path" : "bare host";
}

std::string RuleName(const IndicatorRule& rule) {
  std::string name;
  for (const IndicatorExpression& expression : rule.Expressions) {
    if (!name.empty()) name += rule.OperatorID == 1 ? " or " : " and ";
    const Method* const method = FindMethod(expression.MethodID);
    const Field* const field = method != nullptr && method->ReadsField() ? FindField(expression.FieldID) : nullptr;
    if (field != nullptr) name += std::string(field->name) + " ";
    name += method != nullptr ? std::string(method->name) : "unknown method";
    const std::string value = Narrow(expression.ExpressionValue.Value);
    if (!value.empty() && value.size() <= 12) name += " " + value;
  }
  if (rule.OperatorID == 2) name = "not " + name;
  return name.empty() ? "always" : name;
}

float WeightInForce(const Indicators& indicators, const RuleAnswers& answers, std::size_t rule) {
  if (!answers.evaluated[rule]) return kNoWeight;
  return answers.on[rule] ? indicators.Entries[rule].OnWeight : indicators.Entries[rule].OffWeight;
}

/// What a weight adds to the logit; a mark more than anything.
double PullOf(float weight) {
  if (weight == kNoWeight) return 0.0;
  if (weight == kWeightSpoofing || weight == kWeightScriptAttack) return kDecided;
  if (weight == kWeightTrustworthy || weight == kWeightUnclassified) return -kDecided;
  return std::log(static_cast<double>(weight) / (1.0 - static_cast<double>(weight)));
}

/// Whether it would be held if one rule said nothing; SIZE_MAX for none. Follows computeSpooficity: the first mark in
/// list order decides.
bool IsHeldWithout(const Indicators& indicators, const RuleAnswers& answers, std::size_t left) {
  double logit = 0.0;
  for (std::size_t i = 0; i < answers.on.size(); ++i) {
    if (i == left) continue;
    const double pull = PullOf(WeightInForce(indicators, answers, i));
    if (std::abs(pull) == kDecided) return pull > 0;
    logit += pull;
  }
  return logit > std::log(0.89 / 0.11);
}

std::vector<std::string> ReasonsOf(const Indicators& indicators, const RuleAnswers& answers) {
  std::vector<std::pair<double, std::size_t>> pulls;
  for (std::size_t i = 0; i < answers.on.size(); ++i) {
    const double pull = PullOf(WeightInForce(indicators, answers, i));
    if (pull != 0.0) pulls.emplace_back(-std::abs(pull), i);
  }
  std::ranges::sort(pulls);
  std::vector<std::string> reasons;
  for (const auto& [strength, rule] : pulls) {
    if (reasons.size() == kShownReasons) break;
    const float weight = WeightInForce(indicators, answers, rule);
    std::string shown = std::to_string(weight);
    shown.resize(std::min<std::size_t>(shown.size(), 5));
    reasons.push_back("rule " + std::to_string(rule) + (answers.on[rule] ? "" : " (off)") + ", " + shown + ": " +
                      RuleName(indicators.Entries[rule].Rule));
  }
  return reasons;
}

std::string Letters(std::string_view text) {
  std::string letters;
  for (const char c : text) {
    if (c >= 'A' && c <= 'Z') {
      letters += static_cast<char>(c | 0x20);
    } else if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80) {
      letters += c;
    }
  }
  return letters;
}

}  // namespace

void TakeVerdict(JudgedCase& judged, std::int32_t result, std::int32_t classification, float spooficity,
                 const ConfigurationPair& pair, std::span<const IndicatorResult> results) {
  judged.isJudged = result == 0;
  if (!judged.isJudged) return;
  judged.isHeld = classification == kZephSpoofing || classification == kZephSpoofingConfirmed ||
                  classification == kZephScriptAttack;
  judged.spooficity = static_cast<double>(spooficity);
  judged.answers = AnswersOf(results, judged.isPhishing);
  judged.brand = TopBrand(pair.indicators, results);
  const std::optional<double> logit = LogitOf(pair.indicators, judged.answers);
  judged.score = logit ? *logit : judged.isHeld ? kDecided : -kDecided;
}

JudgedCase JudgeUrl(const UrlRow& row) {
  JudgedCase judged;
  judged.input = row.url;
  judged.isPhishing = row.isPhishing;
  judged.slices["source"] = row.source;
  const std::string year = row.date.substr(0, 4);
  if (year.size() == 4 && year.find_first_not_of("0123456789") == std::string::npos) judged.slices["year"] = year;
  std::int32_t classification = 0;
  float spooficity = 0.0F;
  std::vector<char16_t> siteName(4096);
  ClassificationTrace trace;
  const std::int32_t result =
      ClassifyUrlTraced(Widen(row.url).c_str(), &classification, siteName.data(), &spooficity, &trace);
  if (trace.pair == nullptr) return judged;
  TakeVerdict(judged, result, classification, spooficity, *trace.pair, trace.results);
  UrlParser parser;
  if (parser.DecodeUrl(Widen(row.url)) == 0) {
    const UrlRecord& record = parser.Record();
    judged.slices["shape"] = ShapeName(record);
    judged.slices["host"] = record.HostIsIp ? "address"
                            : FindInNetLocations(record.HostName, trace.pair->configuration.WebHostingSites)
                                ? "hoster's customer"
                                : "own name";
  }
  judged.slices["brand"] = judged.brand.empty() ? "none named" : "named";
  return judged;
}

bool IsSameBrand(std::string_view label, std::u16string_view brand, const Configuration& configuration) {
  const std::string wanted = Letters(label);
  if (wanted.empty() || brand.empty()) return false;
  const std::string name = Letters(Narrow(configuration.GetCompanyName(brand)));
  const std::string domain = Letters(Narrow(brand.substr(0, brand.find(u'.'))));
  return wanted == name || wanted == domain || (wanted.size() >= 4 && name.find(wanted) != std::string::npos) ||
         (name.size() >= 4 && wanted.find(name) != std::string::npos);
}

Evaluation Evaluate(const std::vector<JudgedCase>& cases, const ConfigurationPair& pair) {
  Evaluation evaluation;
  const Indicators& indicators = pair.indicators;
  std::vector<double> scores[2];
  std::vector<double> spooficities;
  std::vector<bool> isPhishing;
  std::size_t held[2] = {};
  for (auto& histogram : evaluation.histogram) histogram.assign(kScoreBins, 0);
  for (const JudgedCase& one : cases) {
    ++evaluation.inputs[one.isPhishing];
    if (!one.isJudged) {
      ++evaluation.unjudged;
      continue;
    }
    scores[one.isPhishing].push_back(one.score);
    spooficities.push_back(one.spooficity);
    isPhishing.push_back(one.isPhishing);
    held[one.isPhishing] += one.isHeld ? 1 : 0;
    const double place = std::clamp((one.score - kLowestScore) * 2, 0.0, static_cast<double>(kScoreBins - 1));
    ++evaluation.histogram[one.isPhishing][static_cast<std::size_t>(place)];
    if (one.isPhishing && one.isHeld && !one.wantedBrand.empty()) {
      ++(one.brand.empty()                                                    ? evaluation.brandsUnnamed
         : IsSameBrand(one.wantedBrand, one.brand, pair.configuration) ? evaluation.brandsRight
                                                                              : evaluation.brandsWrong);
    }
  }
  for (const bool kind : {false, true}) evaluation.held[kind] = RateOf(held[kind], scores[kind].size());
  const ScoreCurve curve(scores[1], scores[0]);
  for (const double rate : {0.01, 0.001, 0.0001}) evaluation.foundAt.emplace_back(rate, curve.FoundAt(rate));
  evaluation.area = curve.Area();
  evaluation.curve = curve.Points(80);
  evaluation.calibration = Calibrate(spooficities, isPhishing);

  struct Tally {
    std::size_t all[2] = {}, held[2] = {}, above[2] = {};
  };
  std::map<std::pair<std::string, std::string>, Tally> tallies;
  const double cut = curve.CutAt(kSliceCut);
  for (const JudgedCase& one : cases) {
    if (!one.isJudged) continue;
    for (const auto& slice : one.slices) {
      Tally& tally = tallies[slice];
      ++tally.all[one.isPhishing];
      tally.held[one.isPhishing] += one.isHeld ? 1 : 0;
      tally.above[one.isPhishing] += one.score > cut ? 1 : 0;
    }
  }
  for (const auto& [slice, tally] : tallies) {
    SliceFigures& figures = evaluation.slices.emplace_back();
    figures.dimension = slice.first;
    figures.value = slice.second;
    for (const bool kind : {false, true}) {
      figures.held[kind] = RateOf(tally.held[kind], tally.all[kind]);
      figures.aboveCut[kind] = RateOf(tally.above[kind], tally.all[kind]);
    }
  }

  for (std::size_t rule = 0; rule < indicators.Entries.size(); ++rule) {
    RuleFigures& figures = evaluation.rules.emplace_back();
    figures.rule = rule;
    figures.name = RuleName(indicators.Entries[rule].Rule);
    figures.onWeight = indicators.Entries[rule].OnWeight;
    figures.offWeight = indicators.Entries[rule].OffWeight;
    std::size_t fired[2] = {}, without[2] = {}, all[2] = {};
    for (const JudgedCase& one : cases) {
      if (!one.isJudged || rule >= one.answers.on.size()) continue;
      ++all[one.isPhishing];
      fired[one.isPhishing] += one.answers.on[rule] ? 1 : 0;
      const bool speaks = WeightInForce(indicators, one.answers, rule) != kNoWeight;
      without[one.isPhishing] += (speaks ? IsHeldWithout(indicators, one.answers, rule) : one.isHeld) ? 1 : 0;
    }
    for (const bool kind : {false, true}) {
      figures.fired[kind] = RateOf(fired[kind], all[kind]);
      figures.heldWithout[kind] = RateOf(without[kind], all[kind]);
    }
  }

  const auto worst = [&](bool kind, auto isWrong, auto isWorse) {
    std::vector<const JudgedCase*> wrong;
    for (const JudgedCase& one : cases) {
      if (one.isJudged && one.isPhishing == kind && isWrong(one)) wrong.push_back(&one);
    }
    std::ranges::sort(wrong, [&](const JudgedCase* a, const JudgedCase* b) {
      return a->score != b->score ? isWorse(a->score, b->score) : a->input < b->input;
    });
    std::vector<WorstCase> shown;
    for (const JudgedCase* one : wrong) {
      if (shown.size() == kShownCases) break;
      shown.push_back({one->input, one->spooficity, ReasonsOf(indicators, one->answers)});
    }
    return shown;
  };
  evaluation.wronglyHeld = worst(false, [](const JudgedCase& one) { return one.isHeld; }, std::greater<>());
  evaluation.missed = worst(true, [](const JudgedCase& one) { return !one.isHeld; }, std::less<>());
  return evaluation;
}

Comparison Compare(const std::vector<JudgedCase>& before, const std::vector<JudgedCase>& now) {
  Comparison comparison;
  for (std::size_t i = 0; i < std::min(before.size(), now.size()); ++i) {
    if (before[i].isHeld == now[i].isHeld) continue;
    (now[i].isPhishing ? (now[i].isHeld ? comparison.found : comparison.lost)
                       : (now[i].isHeld ? comparison.accused : comparison.cleared))
        .push_back(now[i].input);
  }
  return comparison;
}

}  // namespace zeph::training
