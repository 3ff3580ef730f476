// SPDX-License-Identifier: Apache-2.0
// How good a package is on labelled inputs: what was held, what lies where along the score, which rule did what.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "tools/training/Figures.h"
#include "tools/training/RuleWeights.h"
#include "tools/training/UrlList.h"

namespace zeph::training {

/// One labelled input and what the engine said to it.
struct JudgedCase {
  std::string input;
  std::map<std::string, std::string> slices;  ///< dimension to value
  std::string wantedBrand;                    ///< as the label names it; may be empty
  bool isPhishing = false;
  bool isJudged = false;  ///< the engine could take it apart
  bool isHeld = false;
  double spooficity = 0.0;
  double score = 0.0;  ///< the logit; what a mark decides lies beyond all others
  std::u16string brand;
  RuleAnswers answers;
};

/// Judges one URL with the configuration in force.
[[nodiscard]] JudgedCase JudgeUrl(const UrlRow& row);
/// Fills what a verdict and the rules' results say; for pages, which others classify.
void TakeVerdict(JudgedCase& judged, std::int32_t result, std::int32_t classification, float spooficity,
                 const ConfigurationPair& pair, std::span<const IndicatorResult> results);

struct SliceFigures {
  std::string dimension;
  std::string value;
  Rate held[2];       ///< of legitimate and phishing inputs
  Rate aboveCut[2];   ///< above the cut at 0.1% false positives of all
};

struct RuleFigures {
  std::size_t rule = 0;
  std::string name;
  float onWeight = 0.0F;
  float offWeight = 0.0F;
  Rate fired[2];        ///< on legitimate and on phishing inputs
  Rate heldWithout[2];  ///< what would be held if the rule said nothing
};

struct WorstCase {
  std::string input;
  double spooficity = 0.0;
  std::vector<std::string> reasons;  ///< the rules that count most
};

struct Evaluation {
  std::size_t inputs[2] = {};  ///< legitimate and phishing
  std::size_t unjudged = 0;
  Rate held[2];
  std::vector<std::pair<double, Rate>> foundAt;  ///< false positive rate, phishing above that cut
  double area = 0.5;
  std::size_t brandsRight = 0;
  std::size_t brandsWrong = 0;
  std::size_t brandsUnnamed = 0;
  std::vector<CurvePoint> curve;
  std::vector<CalibrationBin> calibration;
  std::vector<std::size_t> histogram[2];  ///< of scores, from kLowestScore on, a bin for each half
  std::vector<SliceFigures> slices;
  std::vector<RuleFigures> rules;
  std::vector<WorstCase> wronglyHeld;
  std::vector<WorstCase> missed;
};
inline constexpr double kLowestScore = -10.0;
inline constexpr std::size_t kScoreBins = 40;

[[nodiscard]] Evaluation Evaluate(const std::vector<JudgedCase>& cases, const ConfigurationPair& pair);

/// The label's brand and the engine's are the same: by company name or domain, case and punctuation aside.
[[nodiscard]] bool IsSameBrand(std::string_view label, std::u16string_view brand, const Configuration& configuration);

/// What changed from one package to another on the same inputs.
struct Comparison {
  std::vector<std::string> found, lost;        ///< phishing that is held now; that no longer is
  std::vector<std::string> cleared, accused;   ///< legitimate that no longer is held; that is now
};
[[nodiscard]] Comparison Compare(const std::vector<JudgedCase>& before, const std::vector<JudgedCase>& now);

}  // namespace zeph::training
