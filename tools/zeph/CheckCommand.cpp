// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <thread>
#include <utility>

#include <unistd.h>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/html/Decoder.h"
#include "judging/Answers.h"
#include "judging/Collections.h"
#include "judging/Json.h"
#include "judging/Judge.h"
#include "judging/Letter.h"
#include "judging/Privacy.h"
#include "judging/RuleTexts.h"
#include "judging/ShownText.h"
#include "tools/zeph/CharsetOption.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/OrderedJobs.h"
#include "tools/zeph/PrepareEngine.h"
#include "tools/zeph/RunTotals.h"

namespace zeph {

namespace {

struct CheckOptions {
  ConfigurationChoice configuration;
  JudgeOptions judge;
  std::string privacy = "none";
  std::string map;
  std::vector<std::string> inputs;
  std::string format;  ///< empty: for a person
  std::string sort;
  std::string group;
  std::string colour = "auto";
  bool json = false;
  bool held = false;
  bool exitCode = false;
  bool stdinPage = false;
  unsigned jobs = 0;  ///< 0: as many as there are processors
};

/// How answers are written in one format.
struct Format {
  std::string_view name;
  std::string (*head)();
  std::string (*row)(const Judgement& judgement, bool explains, bool colours);
  std::string (*groupHead)();
  std::string (*groupRow)(const Group& group);
  bool isForPeople;
};

std::string NoText() { return {}; }

std::string GroupText(const Group& group) {
  std::ostringstream text;
  text << std::setw(6) << group.held << "  " << std::setw(6) << group.inputs << "  " << std::fixed
       << std::setprecision(3) << group.highest << "  " << Shown(group.name) << "  " << Shown(group.example);
  return text.str();
}
std::string GroupHead() { return "  held  inputs  score  group and the input of the highest score"; }

std::string GroupCsv(const Group& group) {
  std::ostringstream score;
  score << std::fixed << std::setprecision(3) << group.highest;
  return CsvField(group.name) + "," + std::to_string(group.held) + "," + std::to_string(group.inputs) + "," +
         score.str() + "," + CsvField(group.example);
}

std::string GroupJson(const Group& group) {
  JsonWriter json;
  WriteObject(json, "group", group.name, "held", group.held, "inputs", group.inputs, "spooficity", group.highest,
              "example", group.example);
  return json.Take();
}

constexpr std::array kFormats = {
    Format{"text", NoText, PersonAnswer, GroupHead, GroupText, true},
    Format{"table", TableHead, [](const Judgement& judgement, bool, bool colours) { return TableRow(judgement, colours); },
           GroupHead, GroupText, true},
    Format{"csv", CsvHead, [](const Judgement& judgement, bool, bool) { return CsvRow(judgement); },
           [] { return std::string("group,held,inputs,spooficity,example"); }, GroupCsv, false},
    Format{"ndjson", NoText, [](const Judgement& judgement, bool explains, bool) { return JsonAnswer(judgement, explains); },
           NoText, GroupJson, false},
    Format{"json", NoText, [](const Judgement& judgement, bool explains, bool) { return JsonAnswer(judgement, explains); },
           NoText, GroupJson, false},
};

std::string SortKey(const Judgement& judgement, const std::string& by) {
  // The highest score first: its complement sorts upwards, as names do. What wasn't judged comes last.
  if (by == "brand") return ImitatedBrand(judgement).empty() ? "\xFF" : ImitatedBrand(judgement);
  if (by == "host") return HostOf(judgement).empty() ? "\xFF" : HostOf(judgement);
  std::ostringstream key;
  const bool hasScore = judgement.spooficity && judgement.verdict != Verdict::kNotJudged;
  key << std::fixed << std::setprecision(7) << (hasScore ? 1.0F - *judgement.spooficity : 9.0F);
  return key.str();
}

/// What a worker hands to the printer.
struct Outcome {
  Judgement judgement;  ///< without the trace
  std::string text;
  std::string key;  ///< to sort or group by
};

/// Writes the outcomes of a run, in their order or sorted or grouped, and what they come to.
class Report {
 public:
  Report(const CheckOptions& options, const Format& format) : options_(options), format_(format) {
    const std::string head = options.group.empty() ? format.head() : format.groupHead();
    if (options.format == "json") PrintText("[");
    if (!head.empty()) PrintLine(head);
  }

  void Take(Outcome outcome) {
    totals_.Add(outcome.judgement);
    anyHeld_ = anyHeld_ || IsHeld(outcome.judgement.verdict);
    // Whoever asks for the engine's own answer has it, whatever it is.
    const bool hasAnswer = options_.judge.exact && outcome.judgement.result.has_value();
    anyUnjudged_ = anyUnjudged_ || (outcome.judgement.verdict == Verdict::kNotJudged && !hasAnswer);
    if (options_.held && !IsHeld(outcome.judgement.verdict)) return;
    if (!options_.group.empty()) return groups_.Add(outcome.key, outcome.judgement);
    if (options_.sort.empty()) return Print(outcome.text);
    sorted_.emplace_back(std::move(outcome.key), std::move(outcome.text));
  }

  /// The exit status.
  int Finish() {
    std::ranges::stable_sort(sorted_, {}, &std::pair<std::string, std::string>::first);
    for (const auto& [key, text] : sorted_) Print(text);
    if (!options_.group.empty()) {
      for (const Group& group : groups_.Sorted()) Print(format_.groupRow(group));
    }
    if (options_.format == "json") PrintLine("\n]");
    if (format_.isForPeople && totals_.Inputs() > 1) PrintLine("\n" + Shown(totals_.Text()));
    if (anyUnjudged_) {
      PrintError(totals_.Complaint());
      return kExitError;
    }
    return options_.exitCode && anyHeld_ ? kExitHeld : kExitDone;
  }

 private:
  void Print(const std::string& text) {
    if (options_.format != "json") return PrintLine(text);
    PrintText((printed_++ == 0 ? "\n" : ",\n") + text);
  }

  const CheckOptions& options_;
  const Format& format_;
  RunTotals totals_;
  Groups groups_;
  std::vector<std::pair<std::string, std::string>> sorted_;
  std::size_t printed_ = 0;
  bool anyHeld_ = false;
  bool anyUnjudged_ = false;
};

bool WantsColours(const CheckOptions& options, const Format& format) {
  if (!format.isForPeople || options.colour == "never") return false;
  const char* const refused = std::getenv("NO_COLOR");
  return options.colour == "always" || (isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0'));
}

/// All of standard input as one page or letter.
Input StandardInput() {
  Input input{"standard input", "", ""};
  Content content;
  std::string piece(1 << 16, '\0');
  while (std::cin && content.bytes.size() <= html::kMaxMarkup) {
    std::cin.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    content.bytes.append(piece, 0, static_cast<std::size_t>(std::cin.gcount()));
  }
  // Who pipes a page means a page, whatever it begins with.
  if (!IsLetter(content.bytes, {}, {}) && !PageKindOfContent(content.bytes)) content.mediaType = "text/html";
  input.content = std::move(content);
  return input;
}

/// The argument may be a file of many.
bool MayHoldMany(const Input& input) {
  std::error_code error;
  return input.refusal.empty() && !PageKindOfName(input.text) && std::filesystem::is_regular_file(input.text, error);
}

int Check(const CheckOptions& options) {
  UseConfiguration(options.configuration);
  if (options.judge.exact) PrepareEngine(true);
  const PrivacyGuard privacy(PrivacyOf(options.privacy));
  PageMap map;
  if (!options.map.empty()) {
    std::string error;
    std::optional<PageMap> read = PageMap::Read(options.map, error);
    if (!read) throw CommandError(error);
    map = *std::move(read);
  }
  std::vector<Input> inputs;
  bool isEndless = false;
  for (const std::string& argument : options.inputs) {
    isEndless = isEndless || argument == "-";
    if (argument == "-") {
      inputs.push_back({argument, "", ""});
      continue;
    }
    for (Input& input : InputsOf(argument, map)) inputs.push_back(std::move(input));
  }
  if (options.stdinPage) inputs.push_back(StandardInput());
  isEndless = isEndless || std::ranges::any_of(inputs, MayHoldMany);

  const Format& format = *std::ranges::find(kFormats, options.format, &Format::name);
  const bool colours = WantsColours(options, format);
  JudgeOptions judgeOptions = options.judge;
  if (judgeOptions.explains) judgeOptions.ruleTexts = LoadRuleTexts(ConfigurationSource(options.configuration));
  const Judge judge(std::move(judgeOptions));
  const auto work = [&](const Input& input) {
    Outcome outcome;
    outcome.judgement = judge.Of(input);
    outcome.text = format.row(outcome.judgement, options.judge.explains, colours);
    if (!options.sort.empty()) outcome.key = SortKey(outcome.judgement, options.sort);
    if (options.group == "brand") outcome.key = ImitatedBrand(outcome.judgement);
    if (options.group == "domain") outcome.key = DomainOf(outcome.judgement);
    outcome.judgement.trace = {};
    outcome.judgement.reasons.clear();
    return outcome;
  };
  Report report(options, format);
  Progress progress("checked", isEndless ? 0 : inputs.size());
  const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
  OrderedJobs<Input, Outcome> jobs(
      options.jobs != 0 ? options.jobs
      : isEndless       ? processors
                        : static_cast<unsigned>(std::min<std::size_t>(processors, inputs.size())),
      work, [&](Outcome outcome) {
        progress.Step();
        report.Take(std::move(outcome));
      });
  std::size_t bytesAhead = 0;
  const auto addAll = [&](Collection& collection) {
    while (std::optional<Input> entry = collection.Next()) {
      // Threads may have many entries ahead of them, but not many large ones.
      constexpr std::size_t kMostAhead = std::size_t{64} << 20;
      const std::size_t size = entry->content ? entry->content->bytes.size() : 0;
      if (bytesAhead > 0 && bytesAhead + size > kMostAhead) {
        jobs.Finish();
        bytesAhead = 0;
      }
      bytesAhead += size;
      jobs.Add(*std::move(entry));
    }
  };
  for (Input& input : inputs) {
    if (input.text != "-") {
      const bool isPlain = options.judge.exact || input.content || !input.refusal.empty();
      const auto collection = isPlain ? nullptr : OpenCollection(input.text, input.pageUrl);
      collection != nullptr ? addAll(*collection) : jobs.Add(std::move(input));
      continue;
    }
    ForEachLine(
        [&](std::string line) {
          jobs.Add(options.judge.exact ? Input{std::move(line), "", ""} : InputOfLine(std::move(line), map));
        },
        [&] { jobs.Finish(); });  // whoever sends the next line may wait for the answers to those before
  }
  jobs.Finish();
  progress.Hide();
  return report.Finish();
}

}  // namespace

void AddCheckCommand(CLI::App& program, int& exitStatus) {
  CLI::App* command = program.add_subcommand("check", "Give a verdict on URLs and pages");
  auto options = std::make_shared<CheckOptions>();
  command
      ->add_option("input", options->inputs,
                   "URLs, page files (.json recording, .html, .mhtml), letters (.eml), files of many (mbox, WARC, HAR, a "
                   ".txt list; .gz, .zst), or folders of these; - reads one a line, a page's address behind a tab");
  command->add_flag("--stdin-page", options->stdinPage, "Standard input is one page or letter; --url is its address");
  auto* format = command->add_option("--format", options->format, "How answers are written (default: text)")
                     ->check(CLI::IsMember({"text", "table", "csv", "ndjson", "json"}));
  command->add_flag("--json", options->json, "One JSON object a line, as --format ndjson")->excludes(format);
  command->add_flag("--explain", options->judge.explains, "Show which rules made the verdict");
  command->add_flag("--held", options->held, "Write only what is held");
  auto* sort = command->add_option("--sort", options->sort, "Sort by score (highest first), brand or host")
                   ->check(CLI::IsMember({"score", "brand", "host"}));
  command->add_option("--group", options->group, "One line for each imitated brand, or each domain")
      ->check(CLI::IsMember({"brand", "domain"}))
      ->excludes(sort);
  command->add_option("--color", options->colour, "Colours: auto (on a terminal, unless NO_COLOR is set), always, never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
  command->add_flag("--exit-code", options->exitCode, "Exit with 1 when something is held for spoofing");
  command->add_option("--jobs", options->jobs, "Threads (default: one a processor); the order of the output stays")
      ->check(CLI::Range(1U, 256U));
  command->add_option("--url", options->judge.url, "The address of pages that don't say it");
  command->add_option("--page-url", options->judge.pageUrl, "The address to judge every page by, instead of its own");
  command->add_option("--map", options->map, "File of addresses of pages: a path, a tab and an address a line");
  AddCharsetOption(*command, options->judge.charset);
  command->add_flag("--trust-claimed-url", options->judge.trustsClaims,
                    "Judge a page by the address that it claims itself (canonical link, base, mark of a saved page)");
  command->add_flag("--exact", options->judge.exact,
                    "Hand each input to the engine as it stands: nothing is trimmed, completed or read as a browser does");
  AddConfigurationOptions(*command, options->configuration);
  AddPrivacyOptions(*command, options->privacy, options->configuration);
  command->footer(
      "The verdict is one of: trustworthy, spoofing, spoofing confirmed by the server, script attack, unclassified, not\n"
      "judged (and why; the exit status is then 2). Spooficity runs from 0 to 1; above 0.89 something is held.\n"
      "An address is read as a browser reads it, completed (evil.test) and made one again (hxxp://evil[.]test).\n"
      "A page needs its address to be trusted: url.txt beside it, --map, --url, a second column, a recording's own.");
  command->callback([options, &exitStatus] {
    if (options->inputs.empty() && !options->stdinPage) throw CLI::RequiredError("input");
    if (options->format.empty()) options->format = options->json ? "ndjson" : "text";
    exitStatus = Check(*options);
  });
}

}  // namespace zeph
