// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tools/training/Evaluation.h"
#include "tools/training/RuleWeights.h"
#include "tools/training/Split.h"
#include "tools/training/UrlTrainer.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;
using namespace training;

struct TrainOptions {
  std::vector<std::string> phishing;
  std::vector<std::string> legitimate;
  std::string output;
  std::string validate = "group:0.1";
  std::string neutral;
  bool weights = false;
  std::vector<std::uint32_t> stages = {0, 7};
  double heldRate = 0.0005;
  SetLimits limits;
  TrainingOptions training;
  ConfigurationChoice configuration;
};

std::string ReadWhole(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  if (!file) throw CommandError(path.string() + ": can't be read");
  return text.str();
}

void WriteWhole(const fs::path& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (!file) throw CommandError(path.string() + ": can't be written");
}

/// Says how far it has come, with the time, on standard error.
class Narrator {
 public:
  void operator()(const std::string& text) const {
    using Seconds = std::chrono::duration<double>;
    char time[32];
    std::snprintf(time, sizeof time, "%7.1f s  ", Seconds(std::chrono::steady_clock::now() - began_).count());
    PrintError(time + text);
  }

 private:
  std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

std::vector<std::u16string> ReadTokens(const std::string& path) {
  std::vector<std::u16string> tokens;
  if (path.empty()) return tokens;
  ForEachLine(path, [&](std::string_view line, std::size_t) {
    if (!line.empty() && line.front() != '#') tokens.push_back(Widen(line));
  });
  return tokens;
}

std::string ReportText(const TrainOptions& options, const ReadingReport& reading, const TrainingReport& report,
                       const UrlModel& model) {
  std::ostringstream text;
  text << "# How URLAnalysis.xml was learned\n\n| | phishing | legitimate |\n|---|---|---|\n"
       << "| learned from | " << report.learned[1] << " | " << report.learned[0] << " |\n"
       << "| in groups | " << report.groups[1] << " | " << report.groups[0] << " |\n"
       << "| held out, the cuts were placed by them | " << report.held[1] << " | " << report.held[0] << " |\n\n"
       << "Lists: " << reading.rows << " addresses read; " << reading.bad << " bad lines left out"
       << (reading.firstBad.empty() ? "" : ", the first " + reading.firstBad) << "; " << reading.repeated << " repeated; "
       << reading.contradictory << " in lists of both kinds; " << reading.crowded << " beyond " << options.limits.perGroup
       << " of a group.\n\n"
       << "Split: " << options.validate << ". Table: " << model.probabilities.size() << " tokens of " << report.met
       << " met, each in " << options.training.leastGroups << " groups or more; " << model.words.size()
       << " words. Of a URL " << report.unknown << " chosen tokens are unknown on average. Class high begins where "
       << 100 * options.training.highRate << "% of the held out legitimate addresses lie above, class low where "
       << 100 * options.training.lowRate << "% do. A legitimate address counts "
       << options.training.legitimateImportance << " times, penalty " << options.training.penalty << ", "
       << options.training.rounds << " rounds of choosing the strongest tokens.\n";
  return text.str();
}

void TrainTable(const TrainOptions& options, const UrlSet& set, std::vector<UrlRow> learned, std::vector<UrlRow> heldOut,
                const Narrator& say) {
  TrainingOptions training = options.training;
  training.neutral = ReadTokens(options.neutral);
  TrainingReport report;
  const UrlModel model = TrainUrlModel(learned, heldOut, ActiveConfiguration()->configuration.Redirectors, training, say, report);
  WriteWhole(fs::path(options.output) / "URLAnalysis.xml",
             SourceText(model, "Learned from " + std::to_string(report.learned[1]) + " phishing and " +
                                   std::to_string(report.learned[0]) + " legitimate addresses by zeph train. Words first, in "
                                   "the order in which they are looked for; then tokens and how much each speaks for "
                                   "phishing."));
  WriteWhole(fs::path(options.output) / "URLAnalysis.md", ReportText(options, set.report, report, model));
  say("wrote " + (fs::path(options.output) / "URLAnalysis.xml").string() + ": " + std::to_string(model.words.size()) +
      " words, " + std::to_string(model.probabilities.size()) + " tokens");
}

/// Asks the rules of the configuration in force, with other weights, about the rows.
std::vector<RuleAnswers> Ask(const Indicators& indicators, std::span<const UrlRow> rows) {
  auto pair = std::make_shared<ConfigurationPair>(*ActiveConfiguration());
  pair->indicators = indicators;
  Process().configurationMgr.Publish(std::move(pair));
  std::vector<RuleAnswers> answers;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].group != rows[begin].group) begin = i;
    JudgedCase judged = JudgeUrl(rows[i]);
    if (!judged.isJudged) continue;
    // Of a crowd each counts less.
    judged.answers.importance = 1.0 / std::sqrt(static_cast<double>(i - begin + 1));
    answers.push_back(std::move(judged.answers));
  }
  return answers;
}

void TrainWeights(const TrainOptions& options, std::span<const UrlRow> rows, const Narrator& say) {
  if (options.configuration.sources.empty()) throw CommandError("--weights needs --sources, the folder of the rules");
  WeightOptions weights;
  weights.stages = {options.stages.begin(), options.stages.end()};
  weights.heldRate = options.heldRate;
  weights.penalty = options.training.penalty;
  weights.legitimateImportance = options.training.legitimateImportance;
  Indicators indicators = ActiveConfiguration()->indicators;
  say("asking " + std::to_string(indicators.Entries.size()) + " rules about " + std::to_string(rows.size()) + " addresses");
  const std::vector<std::string> changes =
      FitRuleWeights(indicators, weights, [&](const Indicators& now) { return Ask(now, rows); });
  for (const std::string& change : changes) PrintLine(change);
  const fs::path source = fs::path(options.configuration.sources) / "Indicators.xml";
  WriteWhole(fs::path(options.output) / "Indicators.xml", WithWeights(ReadWhole(source), indicators));
  say("wrote " + (fs::path(options.output) / "Indicators.xml").string());
}

void Train(const TrainOptions& options) {
  const Narrator say;
  UseConfiguration(options.configuration);
  std::error_code error;
  fs::create_directories(options.output, error);
  if (error) throw CommandError(options.output + ": " + error.message());
  const Split split(options.validate);
  UrlSet set = ReadUrlSet(options.phishing, options.legitimate, options.limits,
                          [&](std::size_t rows) { if (rows % 200'000 == 0) say(std::to_string(rows) + " addresses read"); });
  say(std::to_string(set.report.rows) + " addresses read, " + std::to_string(set.rows.size()) + " kept");
  if (set.report.bad > 0) {
    say(std::to_string(set.report.bad) + " lines are left out, the first: " + set.report.firstBad);
  }
  std::vector<UrlRow> learned;
  std::vector<UrlRow> heldOut;
  split.Part(std::exchange(set.rows, {}), learned, heldOut);
  const auto lacks = [](const std::vector<UrlRow>& rows, bool kind) {
    return std::ranges::none_of(rows, [&](const UrlRow& row) { return row.isPhishing == kind; });
  };
  if (lacks(learned, true) || lacks(learned, false)) {
    throw CommandError("nothing to learn from: both kinds must have addresses that aren't held out");
  }
  if (options.weights) {
    if (lacks(heldOut, true) || lacks(heldOut, false)) {
      throw CommandError("weights are fitted on what is held out: both kinds must have some (--validate)");
    }
    return TrainWeights(options, heldOut, say);
  }
  TrainTable(options, set, std::move(learned), std::move(heldOut), say);
}

}  // namespace

void AddTrainCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("train", "Learn the table of the URL score, or the weights of rules, from labelled lists");
  const auto options = std::make_shared<TrainOptions>();
  command->add_option("--phishing", options->phishing, "Lists of phishing URLs, plain or compressed")->required();
  command->add_option("--legitimate", options->legitimate, "Lists of legitimate URLs")->required();
  command->add_option("--output", options->output, "Folder for what is learned")->required();
  command->add_option("--validate", options->validate, "Held out: group:SHARE, date:FROM, source:NAME or none")->capture_default_str();
  command->add_flag("--weights", options->weights, "Fit the weights of the rules in --sources on what is held out");
  command->add_option("--stages", options->stages, "With --weights: the stages whose rules are fitted")->delimiter(',')->capture_default_str();
  command->add_option("--held-rate", options->heldRate, "With --weights: share of legitimate URLs that may be held")
      ->check(CLI::Range(0.0, 1.0))->capture_default_str();
  command->add_option("--words", options->training.words.words, "Length of the word list, but for pairs and single letters")
      ->check(CLI::Range(0, 60'000))->capture_default_str();
  command->add_option("--tokens", options->training.tokens, "Size of the table")->check(CLI::Range(1, 65'535))->capture_default_str();
  command->add_option("--least", options->training.leastGroups, "Groups that a token must be seen in")->capture_default_str();
  command->add_option("--high-rate", options->training.highRate, "Share of legitimate URLs in class high")
      ->check(CLI::Range(0.0, 1.0))->capture_default_str();
  command->add_option("--low-rate", options->training.lowRate, "Share of legitimate URLs that isn't in class low")
      ->check(CLI::Range(0.0, 1.0))->capture_default_str();
  command->add_option("--importance", options->training.legitimateImportance, "What a legitimate URL counts beside a phishing one")
      ->check(CLI::PositiveNumber)->capture_default_str();
  command->add_option("--penalty", options->training.penalty, "On large weights")->check(CLI::PositiveNumber)->capture_default_str();
  command->add_option("--rounds", options->training.rounds, "Of choosing the strongest tokens and fitting them")->capture_default_str();
  command->add_option("--per-group", options->limits.perGroup, "URLs of one registrable domain that count")->capture_default_str();
  command->add_option("--most", options->limits.rows, "URLs of each kind that are kept; of more, an even sample")->capture_default_str();
  command->add_option("--neutral", options->neutral, "File of tokens that are set to one half, one a line");
  AddConfigurationOptions(*command, options->configuration);
  command->footer("A list has a URL a line, or columns parted by tabs that its first line names: url, source, date, group.\n"
                  "docs/training.md tells how lists are made, what is learned and how to measure it.");
  command->callback([options] {
    try {
      Train(*options);
    } catch (const TrainingError& error) {
      throw CommandError(error.what());
    }
  });
}

}  // namespace zeph
