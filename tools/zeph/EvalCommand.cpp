// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <thread>
#include <unordered_map>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "judging/Json.h"
#include "judging/PageList.h"
#include "judging/Pages.h"
#include "tools/training/Evaluation.h"
#include "tools/training/HtmlReport.h"
#include "tools/training/Split.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;
using namespace training;

struct EvalOptions {
  std::vector<std::string> phishing;
  std::vector<std::string> legitimate;
  std::string brands;
  std::string html;
  std::string baseline;
  std::string only;
  bool json = false;
  bool withoutBareHosts = false;
  ConfigurationChoice configuration;
};

/// What is to be judged: rows of lists, or pages.
struct Inputs {
  std::vector<UrlRow> rows;  ///< of a page, url is its address
  std::vector<std::string> pages;  ///< of each row the file; empty for a URL
  ReadingReport reading;
  std::unordered_map<std::string, std::string> brands;  ///< by plain form
};

/// The address of a page in a folder of its own: the first line of url.txt beside it.
std::string AddressBeside(const std::string& page) {
  std::ifstream file(fs::path(page).parent_path() / "url.txt");
  std::string line;
  std::getline(file, line);
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
  return line;
}

Inputs ReadInputs(const EvalOptions& options) {
  Inputs inputs;
  for (const bool isPhishing : {true, false}) {
    std::vector<std::string> lists;
    for (const std::string& path : isPhishing ? options.phishing : options.legitimate) {
      std::error_code ignored;
      if (!fs::is_directory(path, ignored) && !PageKindOfName(path)) {
        lists.push_back(path);
        continue;
      }
      for (const Input& input : InputsOf(path, PageMap())) {
        const std::string& page = input.text;
        if (!input.refusal.empty()) throw CommandError(page + ": " + input.refusal);
        UrlRow row;
        row.url = AddressBeside(page);
        row.source = fs::path(path).filename().string();
        row.isPhishing = isPhishing;
        inputs.rows.push_back(row);
        inputs.pages.push_back(page);
      }
    }
    for (const std::string& list : lists) {
      ReadUrlList(list, isPhishing, [&](UrlRow&& row) {
        inputs.rows.push_back(std::move(row));
        inputs.pages.emplace_back();
      }, inputs.reading);
    }
  }
  if (!options.brands.empty()) {
    ForEachLine(options.brands, [&](std::string_view line, std::size_t) {
      const std::size_t tab = line.find('\t');
      if (tab == std::string_view::npos) return;
      const std::string_view brand = line.substr(tab + 1);
      inputs.brands.emplace(PlainForm(line.substr(0, tab)), brand.substr(0, brand.find('\t')));
    });
  }
  if (!options.only.empty()) {
    const Split split(options.only);
    std::vector<UrlRow> rows;
    std::vector<std::string> pages;
    for (std::size_t i = 0; i < inputs.rows.size(); ++i) {
      if (!split.IsHeldOut(inputs.rows[i])) continue;
      rows.push_back(std::move(inputs.rows[i]));
      pages.push_back(std::move(inputs.pages[i]));
    }
    inputs.rows = std::move(rows);
    inputs.pages = std::move(pages);
  }
  return inputs;
}

JudgedCase JudgePage(const UrlRow& row, const std::string& path) {
  JudgedCase judged;
  judged.input = path;
  judged.isPhishing = row.isPhishing;
  judged.slices["source"] = row.source;
  std::string error;
  std::optional<PageSource> source = ReadPageFile(path, error);
  if (!source) {
    PrintError(path + ": " + error);
    return judged;
  }
  try {
    std::optional<std::u16string> url;
    if (source->recording == nullptr) url = row.url.empty() ? source->savedUrl : Widen(row.url);
    if (url && url->empty()) url = source->claimedUrl;
    const std::unique_ptr<LoadedPage> page = OpenPage(*std::move(source), url, url.value_or(u""));
    std::int32_t classification = 0;
    float spooficity = 0.0F;
    std::vector<char16_t> siteName(4096);
    ClassificationTrace trace;
    const std::int32_t result = ClassifySiteTraced(&page->Document(), &classification, siteName.data(), nullptr, nullptr,
                                                   &spooficity, &trace);
    if (trace.pair != nullptr) TakeVerdict(judged, result, classification, spooficity, *trace.pair, trace.results);
    judged.slices["brand"] = judged.brand.empty() ? "none named" : "named";
  } catch (const CommandError& error) {
    PrintError(error.what());
  }
  return judged;
}

std::vector<JudgedCase> JudgeAll(const Inputs& inputs) {
  std::vector<JudgedCase> cases(inputs.rows.size());
  std::atomic<std::size_t> next{0};
  Progress progress("judged", inputs.rows.size());
  std::mutex mutex;
  {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
      threads.emplace_back([&] {
        constexpr std::size_t kRun = 256;
        for (std::size_t begin = next.fetch_add(kRun); begin < cases.size(); begin = next.fetch_add(kRun)) {
          for (std::size_t row = begin; row < std::min(cases.size(), begin + kRun); ++row) {
            cases[row] = inputs.pages[row].empty() ? JudgeUrl(inputs.rows[row])
                                                   : JudgePage(inputs.rows[row], inputs.pages[row]);
            const auto brand = inputs.brands.find(PlainForm(inputs.rows[row].url));
            if (brand != inputs.brands.end()) cases[row].wantedBrand = brand->second;
          }
          const std::lock_guard lock(mutex);
          for (std::size_t row = begin; row < std::min(cases.size(), begin + kRun); ++row) progress.Step();
        }
      });
    }
  }
  return cases;
}

std::string Percent(double share) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(share != 0.0 && share < 0.01 ? 3 : 1) << 100 * share << "%";
  return text.str();
}

std::string InWords(const Rate& rate) {
  return Percent(rate.value) + " (" + Percent(rate.low) + " to " + Percent(rate.high) + ", " + std::to_string(rate.hits) +
         " of " + std::to_string(rate.all) + ")";
}

void PrintForPerson(const Evaluation& now, const std::optional<Evaluation>& before,
                    const std::optional<Comparison>& comparison, const ReadingReport& reading) {
  std::ostringstream out;
  const auto then = [&](const Rate& rate) { return before ? "   before " + Percent(rate.value) : std::string(); };
  out << now.inputs[1] << " phishing, " << now.inputs[0] << " legitimate";
  if (now.unjudged > 0) out << ", " << now.unjudged << " can't be judged";
  if (reading.bad > 0) out << "; " << reading.bad << " lines left out, the first " << reading.firstBad;
  out << "\n\nphishing held      " << InWords(now.held[1]) << then(before ? before->held[1] : Rate())
      << "\nlegitimate held    " << InWords(now.held[0]) << then(before ? before->held[0] : Rate()) << '\n';
  for (std::size_t i = 0; i < now.foundAt.size(); ++i) {
    out << "found at " << std::left << std::setw(10) << Percent(now.foundAt[i].first) << InWords(now.foundAt[i].second)
        << then(before ? before->foundAt[i].second : Rate()) << '\n';
  }
  out << "area under curve   " << std::fixed << std::setprecision(4) << now.area;
  if (before) out << "   before " << before->area;
  const std::size_t named = now.brandsRight + now.brandsWrong + now.brandsUnnamed;
  if (named > 0) {
    out << "\nbrand right        " << InWords(RateOf(now.brandsRight, named)) << "; wrong " << now.brandsWrong
        << ", not named " << now.brandsUnnamed;
  }
  if (comparison) {
    out << "\nphishing now held " << comparison->found.size() << ", no longer held " << comparison->lost.size()
        << "; legitimate now held " << comparison->accused.size() << ", no longer held " << comparison->cleared.size();
  }
  out << "\n\nheld by slice                                    phishing               legitimate\n";
  std::string dimension;
  for (const SliceFigures& slice : now.slices) {
    if (slice.dimension != dimension) out << (dimension = slice.dimension) << '\n';
    out << "  " << std::left << std::setw(40) << slice.value << std::right;
    for (const bool kind : {true, false}) {
      if (slice.held[kind].all == 0) {
        out << std::setw(24) << "-";
      } else {
        out << std::setw(13) << slice.held[kind].all << std::setw(11) << Percent(slice.held[kind].value);
      }
    }
    out << '\n';
  }
  std::string text = out.str();
  text.pop_back();
  PrintLine(text);
}

void WriteRate(JsonWriter& json, const Rate& rate) {
  WriteObject(json, "hits", rate.hits, "all", rate.all, "rate", rate.value, "low", rate.low, "high", rate.high);
}

void WriteKinds(JsonWriter& json, std::string_view name, const Rate (&rates)[2]) {
  json.Key(name);
  json.BeginObject();
  json.Key("phishing");
  WriteRate(json, rates[1]);
  json.Key("legitimate");
  WriteRate(json, rates[0]);
  json.EndObject();
}

void WriteWorst(JsonWriter& json, std::string_view name, const std::vector<WorstCase>& cases) {
  json.Key(name);
  json.BeginArray();
  for (const WorstCase& one : cases) {
    WriteObject(json, "input", one.input, "spooficity", one.spooficity, "reasons", one.reasons);
  }
  json.EndArray();
}

void WriteEvaluation(JsonWriter& json, const Evaluation& evaluation) {
  json.BeginObject();
  WriteMember(json, "phishing", evaluation.inputs[1]);
  WriteMember(json, "legitimate", evaluation.inputs[0]);
  WriteMember(json, "unjudged", evaluation.unjudged);
  WriteKinds(json, "held", evaluation.held);
  json.Key("foundAt");
  json.BeginArray();
  for (const auto& [rate, found] : evaluation.foundAt) {
    json.BeginObject();
    WriteMember(json, "falsePositiveRate", rate);
    json.Key("found");
    WriteRate(json, found);
    json.EndObject();
  }
  json.EndArray();
  WriteMember(json, "area", evaluation.area);
  json.Key("brands");
  WriteObject(json, "right", evaluation.brandsRight, "wrong", evaluation.brandsWrong, "unnamed", evaluation.brandsUnnamed);
  json.Key("calibration");
  json.BeginArray();
  for (const CalibrationBin& bin : evaluation.calibration) {
    WriteObject(json, "meanScore", bin.meanScore, "phishing", bin.phishing, "all", bin.all);
  }
  json.EndArray();
  json.Key("slices");
  json.BeginArray();
  for (const SliceFigures& slice : evaluation.slices) {
    json.BeginObject();
    WriteMember(json, "dimension", slice.dimension);
    WriteMember(json, "value", slice.value);
    WriteKinds(json, "held", slice.held);
    WriteKinds(json, "aboveCut", slice.aboveCut);
    json.EndObject();
  }
  json.EndArray();
  json.Key("rules");
  json.BeginArray();
  for (const RuleFigures& rule : evaluation.rules) {
    json.BeginObject();
    WriteMember(json, "rule", rule.rule);
    WriteMember(json, "asks", rule.name);
    WriteMember(json, "onWeight", rule.onWeight);
    WriteMember(json, "offWeight", rule.offWeight);
    WriteKinds(json, "fired", rule.fired);
    WriteKinds(json, "heldWithout", rule.heldWithout);
    json.EndObject();
  }
  json.EndArray();
  WriteWorst(json, "wronglyHeld", evaluation.wronglyHeld);
  WriteWorst(json, "missed", evaluation.missed);
  json.EndObject();
}

std::string NameOf(const ConfigurationChoice& choice) {
  return !choice.package.empty() ? choice.package : !choice.sources.empty() ? choice.sources : "the default package";
}

void Eval(const EvalOptions& options) {
  Inputs inputs = ReadInputs(options);
  if (options.withoutBareHosts) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < inputs.rows.size(); ++i) {
      const std::string plain = PlainForm(inputs.rows[i].url);
      if (plain.find_first_of("/?") == std::string::npos) continue;
      std::swap(inputs.rows[kept], inputs.rows[i]);
      std::swap(inputs.pages[kept++], inputs.pages[i]);
    }
    inputs.rows.resize(kept);
    inputs.pages.resize(kept);
  }
  if (inputs.rows.empty()) throw CommandError("nothing to judge");
  std::optional<Evaluation> before;
  std::vector<JudgedCase> casesBefore;
  ConfigurationChoice baseline = options.configuration;
  if (!options.baseline.empty()) {
    baseline.package.clear();
    baseline.sources.clear();
    (fs::is_directory(options.baseline) ? baseline.sources : baseline.package) = options.baseline;
    UseConfiguration(baseline);
    casesBefore = JudgeAll(inputs);
    before = Evaluate(casesBefore, *ActiveConfiguration());
  }
  UseConfiguration(options.configuration);
  const std::vector<JudgedCase> cases = JudgeAll(inputs);
  const Evaluation evaluation = Evaluate(cases, *ActiveConfiguration());
  std::optional<Comparison> comparison;
  if (before) comparison = Compare(casesBefore, cases);
  if (!options.html.empty()) {
    const std::string page = HtmlReport({"How good the package is", NameOf(options.configuration), options.baseline},
                                        evaluation, before, comparison);
    std::ofstream file(options.html, std::ios::binary | std::ios::trunc);
    file << page;
    file.close();
    if (!file) throw CommandError(options.html + ": can't be written");
  }
  if (!options.json) return PrintForPerson(evaluation, before, comparison, inputs.reading);
  JsonWriter json;
  json.BeginObject();
  json.Key("evaluation");
  WriteEvaluation(json, evaluation);
  if (before) {
    json.Key("baseline");
    WriteEvaluation(json, *before);
    json.Key("changed");
    WriteObject(json, "found", comparison->found, "lost", comparison->lost, "accused", comparison->accused, "cleared",
                comparison->cleared);
  }
  json.EndObject();
  PrintLine(json.Take());
}

}  // namespace

void AddEvalCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("eval", "Tell how good a package is on labelled URLs or pages");
  const auto options = std::make_shared<EvalOptions>();
  command->add_option("--phishing", options->phishing, "Lists of phishing URLs, or folders of pages")->required();
  command->add_option("--legitimate", options->legitimate, "Lists of legitimate URLs, or folders of pages")->required();
  command->add_option("--brands", options->brands, "List of URLs and the brand that each imitates, parted by a tab");
  command->add_option("--only", options->only, "Judge only: group:SHARE (what zeph train holds out), date:FROM, source:NAME");
  command->add_flag("--without-bare-hosts", options->withoutBareHosts, "Leave out addresses without path and query");
  command->add_option("--html", options->html, "Write a page with curves, slices, rules and the worst mistakes");
  command->add_flag("--json", options->json, "One JSON object instead of text");
  command->add_option("--baseline", options->baseline, "Package or folder of sources to compare with");
  AddConfigurationOptions(*command, options->configuration);
  command->footer("A folder's pages are judged by the address in the first line of url.txt beside each.\n"
                  "Intervals hold with 95% confidence. docs/training.md explains the figures.");
  command->callback([options] {
    try {
      Eval(*options);
    } catch (const TrainingError& error) {
      throw CommandError(error.what());
    }
  });
}

}  // namespace zeph
