// SPDX-License-Identifier: Apache-2.0
#include "tools/training/Regression.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <thread>

#include <lbfgs.h>

namespace zeph::training {
namespace {

/// Sums are made in so many parts whatever the machine, and added in their order, so that they round alike everywhere.
constexpr std::size_t kParts = 4;

struct Problem {
  const SparseRows& rows;
  std::span<const double> penalties;
  double penalty;
  std::vector<std::vector<double>> gradients;  ///< of each part
};

double LossOfPart(Problem& problem, std::size_t part, const double* weights) {
  const SparseRows& rows = problem.rows;
  std::vector<double>& gradient = problem.gradients[part];
  std::ranges::fill(gradient, 0.0);
  double loss = 0.0;
  for (std::size_t row = rows.size() * part / kParts; row < rows.size() * (part + 1) / kParts; ++row) {
    double logit = rows.fixed[row];
    const auto features = rows.Row(row);
    for (const std::uint32_t feature : features) logit += weights[feature];
    const double margin = rows.isPhishing[row] ? logit : -logit;
    // log(1 + exp(-margin)), safe for large margins of either sign.
    const double rest = std::exp(-std::abs(margin));
    loss += rows.importance[row] * (std::log1p(rest) + std::max(0.0, -margin));
    const double miss = margin > 0 ? rest / (1 + rest) : 1 / (1 + rest);
    const double slope = rows.importance[row] * (rows.isPhishing[row] ? -miss : miss);
    for (const std::uint32_t feature : features) gradient[feature] += slope;
  }
  return loss;
}

lbfgsfloatval_t Evaluate(void* instance, const lbfgsfloatval_t* weights, lbfgsfloatval_t* gradient, int count,
                         lbfgsfloatval_t) {
  Problem& problem = *static_cast<Problem*>(instance);
  double losses[kParts];
  {
    std::vector<std::jthread> threads;
    for (std::size_t part = 0; part < kParts; ++part) {
      threads.emplace_back([&, part] { losses[part] = LossOfPart(problem, part, weights); });
    }
  }
  double loss = 0.0;
  for (const double part : losses) loss += part;
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    const double penalty = problem.penalty * problem.penalties[i];
    loss += 0.5 * penalty * weights[i] * weights[i];
    gradient[i] = penalty * weights[i];
    for (const std::vector<double>& part : problem.gradients) gradient[i] += part[i];
  }
  return loss;
}

}  // namespace

void FitLogistic(const SparseRows& rows, std::span<const double> penalties, const FitOptions& options,
                 std::vector<double>& weights) {
  if (weights.empty() || rows.size() == 0) return;
  Problem problem{rows, penalties, options.penalty, {kParts, std::vector<double>(weights.size())}};
  lbfgs_parameter_t parameter;
  lbfgs_parameter_init(&parameter);
  parameter.max_iterations = options.iterations;
  parameter.epsilon = 1e-5;
  parameter.past = 5;
  parameter.delta = 1e-5;
  // The library's own room: its vector instructions run over the end.
  const std::unique_ptr<lbfgsfloatval_t, decltype(&lbfgs_free)> room(lbfgs_malloc(static_cast<int>(weights.size())),
                                                                     lbfgs_free);
  std::ranges::copy(weights, room.get());
  // Whatever ends it, the weights so far are the best; a flat end isn't a failure.
  lbfgs(static_cast<int>(weights.size()), room.get(), nullptr, Evaluate, nullptr, &problem, &parameter);
  std::copy_n(room.get(), weights.size(), weights.begin());
}

}  // namespace zeph::training
