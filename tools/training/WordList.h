// SPDX-License-Identifier: Apache-2.0
// Learns the words that the tokeniser looks for inside words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/training/UrlList.h"

namespace zeph::training {

struct WordLimits {
  std::size_t words = 20'000;  ///< of three letters and more
  std::size_t leastGroups = 6; ///< a word that fewer groups have is chance
};

/// Pieces of 3 to 8 letters and digits that tell the two kinds apart, counted once a group; the longest first, and
/// behind them all pairs and all single ones, so that hardly anything of a name stays unknown. rows are sorted by
/// group. Room is bounded by the words that are frequent, not by the rows.
[[nodiscard]] std::vector<std::u16string> LearnWords(std::span<const UrlRow> rows, const WordLimits& limits);

/// How sure it is that something seen so often in groups of one kind and of the other tells them apart: the logarithm
/// of the odds ratio over its standard error. Above zero: it speaks for phishing.
[[nodiscard]] double Evidence(double inPhishing, double phishing, double inLegitimate, double legitimate) noexcept;

}  // namespace zeph::training
