// SPDX-License-Identifier: Apache-2.0
// What tells how well a score parts two kinds.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace zeph::training {

/// A share of a count, and the interval that it lies in with 95% confidence (Wilson's, which holds near 0 and 1 too).
struct Rate {
  std::size_t hits = 0;
  std::size_t all = 0;
  double value = 0.0;  ///< 0 of nothing
  double low = 0.0;
  double high = 1.0;
};
[[nodiscard]] Rate RateOf(std::size_t hits, std::size_t all) noexcept;

struct CurvePoint {
  double falsePositives = 0.0;
  double truePositives = 0.0;
};

/// The scores of both kinds, sorted.
class ScoreCurve {
 public:
  ScoreCurve(std::vector<double> phishing, std::vector<double> legitimate);

  /// How much phishing lies above the lowest cut that at most this share of the legitimate ones exceed.
  [[nodiscard]] Rate FoundAt(double falsePositiveRate) const;
  /// That cut; infinity when there is nothing to place it by.
  [[nodiscard]] double CutAt(double falsePositiveRate) const;
  /// The chance that a phishing score is above a legitimate one; equal ones count half.
  [[nodiscard]] double Area() const;
  /// From no false positives to all, at most so many points, dense where false positives are few.
  [[nodiscard]] std::vector<CurvePoint> Points(std::size_t most) const;

 private:
  std::vector<double> phishing_;
  std::vector<double> legitimate_;
};

/// Of scores that claim to be probabilities: how many of each tenth are phishing.
struct CalibrationBin {
  std::size_t phishing = 0;
  std::size_t all = 0;
  double meanScore = 0.0;
};
[[nodiscard]] std::vector<CalibrationBin> Calibrate(std::span<const double> scores, const std::vector<bool>& isPhishing);

}  // namespace zeph::training
