// SPDX-License-Identifier: Apache-2.0
#include "tools/training/Figures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace zeph::training {

Rate RateOf(std::size_t hits, std::size_t all) noexcept {
  Rate rate;
  rate.hits = hits;
  rate.all = all;
  if (all == 0) return rate;
  constexpr double z = 1.96;
  const auto n = static_cast<double>(all);
  const double p = static_cast<double>(hits) / n;
  const double middle = p + z * z / (2 * n);
  const double spread = z * std::sqrt(p * (1 - p) / n + z * z / (4 * n * n));
  const double norm = 1 + z * z / n;
  rate.value = p;
  rate.low = std::clamp((middle - spread) / norm, 0.0, p);
  rate.high = std::clamp((middle + spread) / norm, p, 1.0);
  return rate;
}

ScoreCurve::ScoreCurve(std::vector<double> phishing, std::vector<double> legitimate)
    : phishing_(std::move(phishing)), legitimate_(std::move(legitimate)) {
  std::ranges::sort(phishing_);
  std::ranges::sort(legitimate_);
}

double ScoreCurve::CutAt(double falsePositiveRate) const {
  if (legitimate_.empty()) return std::numeric_limits<double>::infinity();
  const auto above = static_cast<std::size_t>(falsePositiveRate * static_cast<double>(legitimate_.size()));
  return above >= legitimate_.size() ? -std::numeric_limits<double>::infinity()
                                     : legitimate_[legitimate_.size() - 1 - above];
}

Rate ScoreCurve::FoundAt(double falsePositiveRate) const {
  const auto above = std::ranges::upper_bound(phishing_, CutAt(falsePositiveRate));
  return RateOf(static_cast<std::size_t>(phishing_.end() - above), phishing_.size());
}

double ScoreCurve::Area() const {
  if (phishing_.empty() || legitimate_.empty()) return 0.5;
  double pairs = 0.0;
  for (auto below = legitimate_.begin(), equal = below; const double score : phishing_) {
    below = std::lower_bound(below, legitimate_.end(), score);
    equal = std::upper_bound(std::max(below, equal), legitimate_.end(), score);
    pairs += static_cast<double>(below - legitimate_.begin()) + 0.5 * static_cast<double>(equal - below);
  }
  return pairs / static_cast<double>(phishing_.size()) / static_cast<double>(legitimate_.size());
}

std::vector<CurvePoint> ScoreCurve::Points(std::size_t most) const {
  std::vector<CurvePoint> points = {{0.0, 0.0}};
  if (phishing_.empty() || legitimate_.empty()) return points;
  const double least = 1.0 / static_cast<double>(legitimate_.size());
  for (std::size_t i = 0; i < most; ++i) {
    const double rate = std::pow(least, 1.0 - static_cast<double>(i) / static_cast<double>(most - 1));
    points.push_back({rate, FoundAt(rate).value});
  }
  points.push_back({1.0, 1.0});
  return points;
}

std::vector<CalibrationBin> Calibrate(std::span<const double> scores, const std::vector<bool>& isPhishing) {
  constexpr std::size_t kBins = 10;
  std::vector<CalibrationBin> bins(kBins);
  for (std::size_t i = 0; i < scores.size(); ++i) {
    const auto place = static_cast<std::size_t>(std::clamp(scores[i], 0.0, 1.0) * kBins);
    CalibrationBin& bin = bins[std::min(place, kBins - 1)];
    ++bin.all;
    bin.phishing += isPhishing[i] ? 1 : 0;
    bin.meanScore += scores[i];
  }
  for (CalibrationBin& bin : bins) {
    if (bin.all > 0) bin.meanScore /= static_cast<double>(bin.all);
  }
  return bins;
}

}  // namespace zeph::training
