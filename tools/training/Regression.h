// SPDX-License-Identifier: Apache-2.0
// Logistic regression over sparse yes-or-no features. The optimiser is libLBFGS; a library that brings the whole
// regression (liblinear, say) knows neither the fixed part of a row that this needs nor weights of rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zeph::training {

/// Rows of features that are on, one behind another.
struct SparseRows {
  std::vector<std::uint32_t> features;
  std::vector<std::size_t> ends;   ///< of each row, in features
  std::vector<double> fixed;       ///< of each row: what its logit has before any feature
  std::vector<double> importance;  ///< of each row, in the sum that is minimised
  std::vector<bool> isPhishing;

  [[nodiscard]] std::size_t size() const noexcept { return ends.size(); }
  [[nodiscard]] std::span<const std::uint32_t> Row(std::size_t row) const {
    const std::size_t begin = row == 0 ? 0 : ends[row - 1];
    return {features.data() + begin, ends[row] - begin};
  }
};

struct FitOptions {
  double penalty = 3.0;  ///< half of it is multiplied with the weights' squares
  int iterations = 150;
};

/// The weights that minimise the loss, from where they stand; penalties has a factor of the penalty for each. The same
/// on any number of processors.
void FitLogistic(const SparseRows& rows, std::span<const double> penalties, const FitOptions& options,
                 std::vector<double>& weights);

}  // namespace zeph::training
