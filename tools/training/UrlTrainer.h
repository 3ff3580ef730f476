// SPDX-License-Identifier: Apache-2.0
// Learns the table of the URL score and its word list from labelled URLs: the weights through the engine's own choice
// of the strongest tokens, and its two cuts where a wanted share of the legitimate URLs lies above.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"
#include "tools/training/UrlList.h"
#include "tools/training/WordList.h"

namespace zeph::training {

struct TrainingOptions {
  WordLimits words;
  std::size_t tokens = 60'000;     ///< of the table, at most
  std::size_t leastGroups = 4;     ///< a token that fewer groups have stays unknown
  double highRate = 0.0006;        ///< share of legitimate URLs in class high
  double lowRate = 0.03;           ///< share of them that isn't in class low
  double legitimateImportance = 4; ///< of a legitimate URL, where a phishing one has 1
  double penalty = 8.0;
  int rounds = 2;                  ///< of choosing the strongest tokens and fitting those
  std::vector<std::u16string> neutral; ///< tokens set to one half beside those that are always
};

/// What a package's URLAnalysis.xml says.
struct UrlModel {
  std::vector<std::u16string> words;
  std::map<std::u16string, double> probabilities;
};

/// How a model came about.
struct TrainingReport {
  std::size_t learned[2] = {};    ///< legitimate and phishing rows that it was fitted on
  std::size_t held[2] = {};       ///< and those that its cuts were placed by
  std::size_t groups[2] = {};     ///< of the first
  std::size_t met = 0;            ///< different tokens
  double unknown = 0.0;           ///< tokens of a URL that the table lacks, on average
};

/// learned are sorted by group, held out ones place the cuts. redirectors see through addresses as the engine does.
/// say(text) tells how far it has come. The same rows give the same model.
[[nodiscard]] UrlModel TrainUrlModel(std::span<const UrlRow> learned, std::span<const UrlRow> heldOut,
                                     std::span<const Redirector> redirectors, const TrainingOptions& options,
                                     const std::function<void(const std::string&)>& say, TrainingReport& report);

/// What marks how addresses were collected, not what stands behind them; it never becomes evidence.
[[nodiscard]] bool IsNeutral(std::u16string_view token);

/// The logit of the score that a model gives each row. Rows that can't be taken apart get 0.
[[nodiscard]] std::vector<double> ScoreRows(const UrlModel& model, std::span<const UrlRow> rows,
                                            std::span<const Redirector> redirectors);

/// The source text of a model, for URLAnalysis.xml: words in their order, tokens sorted.
[[nodiscard]] std::string SourceText(const UrlModel& model, std::string_view comment);

}  // namespace zeph::training
