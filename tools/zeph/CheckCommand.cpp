// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <sstream>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/EngineResults.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/OrderedJobs.h"
#include "tools/zeph/Pages.h"
#include "tools/zeph/Privacy.h"
#include "tools/zeph/Reasons.h"
#include "tools/zeph/Records.h"

namespace zeph {

namespace {

struct CheckOptions {
  ConfigurationChoice configuration;
  PrivacyChoice privacy;
  PageOptions page;
  std::vector<std::string> inputs;
  bool json = false;
  bool explain = false;
  bool exitCode = false;
  unsigned jobs = 1;
};

/// What one call gave. An out-parameter that the call didn't write is absent.
struct Verdict {
  std::int32_t result = 0;
  std::optional<std::int32_t> classification;
  std::optional<float> spooficity;
  std::optional<std::u16string> siteName;
  ClassificationTrace trace;
  std::string urlSource;  ///< where a page's URL was found, when nobody gave it
  bool isPage = false;
  std::vector<std::string> unsent;  ///< what would have left the machine

  [[nodiscard]] bool IsHeld() const {
    return classification == kZephSpoofing || classification == kZephSpoofingConfirmed ||
           classification == kZephScriptAttack;
  }
};

/// Out-parameters that show whether they were written.
class Outputs {
 public:
  explicit Outputs(std::size_t nameRoom) : siteName_(nameRoom, kUnwritten) {}
  std::int32_t* Classification() { return &classification_; }
  char16_t* SiteName() { return siteName_.data(); }
  float* Spooficity() { return &spooficity_; }

  void MoveInto(Verdict& verdict) const {
    if (classification_ != 0) verdict.classification = classification_;
    if (!std::isnan(spooficity_)) verdict.spooficity = spooficity_;
    if (siteName_.front() != kUnwritten) verdict.siteName = siteName_.c_str();
  }

 private:
  static constexpr char16_t kUnwritten = u'\uFFFF';
  std::int32_t classification_ = 0;
  float spooficity_ = std::numeric_limits<float>::quiet_NaN();
  std::u16string siteName_;
};

/// Room for the longest name that a call can write.
std::size_t NameRoom() {
  std::size_t longest = kZephNameRoom;
  for (const auto& [domain, info] : ActiveConfiguration()->configuration.TrustedDomainInfos) {
    longest = std::max(longest, info.CN.size());
  }
  return longest + 1;
}

struct ReleaseReport {
  void operator()(EngineResults* report) const { ReleaseEngineResults(report); }
};

Verdict Classify(const std::string& input, const CheckOptions& options, std::size_t nameRoom) {
  Verdict verdict;
  Outputs outputs(nameRoom);
  verdict.trace.wantsResults = options.explain;
  verdict.isPage = std::filesystem::is_regular_file(input);
  if (!verdict.isPage) {
    verdict.result = ClassifyUrlTraced(Widen(input).c_str(), outputs.Classification(), outputs.SiteName(),
                                       outputs.Spooficity(), &verdict.trace);
    outputs.MoveInto(verdict);
    verdict.unsent = TakeUnsent();
    return verdict;
  }
  const std::unique_ptr<LoadedPage> page = LoadPage(input, options.page);
  const std::u16string pageUrl = Widen(options.page.pageUrl);
  EngineResults* report = nullptr;
  verdict.result = ClassifySiteTraced(&page->Document(), outputs.Classification(), outputs.SiteName(),
                                      pageUrl.empty() ? nullptr : pageUrl.c_str(), options.explain ? &report : nullptr,
                                      outputs.Spooficity(), &verdict.trace);
  const std::unique_ptr<EngineResults, ReleaseReport> releasing(report);
  outputs.MoveInto(verdict);
  verdict.urlSource = page->UrlSource();
  verdict.unsent = TakeUnsent();
  return verdict;
}

std::u16string BrandOf(const Verdict& verdict) {
  return verdict.trace.pair == nullptr ? std::u16string()
                                       : TopBrand(verdict.trace.pair->indicators, verdict.trace.results);
}

std::vector<Reason> ReasonsOf(const Verdict& verdict, const std::vector<RuleText>& texts) {
  return verdict.trace.pair == nullptr ? std::vector<Reason>()
                                       : ReasonsFor(*verdict.trace.pair, verdict.trace.results, texts);
}

std::string JsonText(const std::string& input, const Verdict& verdict, bool explain,
                     const std::vector<RuleText>& texts) {
  JsonWriter json;
  json.BeginObject();
  WriteMember(json, "input", input);
  WriteMember(json, "result", verdict.result);
  WriteMember(json, "classification", verdict.classification);
  WriteMember(json, "spooficity", verdict.spooficity);
  WriteMember(json, "siteName", verdict.siteName);
  if (explain) {
    WriteMember(json, "brand", BrandOf(verdict));
    json.Key("indicators");
    json.BeginArray();
    for (std::size_t i = 0; i < verdict.trace.results.size(); ++i) {
      const IndicatorResult& result = verdict.trace.results[i];
      WriteObject(json, "index", i, "evaluated", result.evaluated, "on", result.on, "fieldText", result.fieldText,
                  "matchText", result.matchText);
    }
    json.EndArray();
    WriteMember(json, "reasons", ReasonsOf(verdict, texts));
  }
  json.EndObject();
  return json.Take();
}

/// The classification in words.
std::string_view InWords(const Verdict& verdict) {
  if (!verdict.classification || verdict.result != 0) return "not classified";
  switch (*verdict.classification) {
    case kZephTrustworthy:
      return "trustworthy";
    case kZephSpoofing:
      return "SPOOFING";
    case kZephSpoofingConfirmed:
      return verdict.isPage ? "SPOOFING, confirmed by the server" : "SPOOFING";
    case kZephScriptAttack:
      return "SCRIPT ATTACK";
    default:
      return "unclassified: nothing speaks clearly for or against it";
  }
}

std::string ShownWeight(float weight) {
  std::ostringstream text;
  if (weight == kWeightTrustworthy) {
    text << "trust";
  } else if (weight == kWeightSpoofing) {
    text << "spoof";
  } else if (weight == kWeightUnclassified) {
    text << "open";
  } else if (weight == kWeightScriptAttack) {
    text << "script";
  } else {
    text << std::fixed << std::setprecision(2) << weight;
  }
  return text.str();
}

/// Why, strongest first.
void TellReasons(std::ostream& out, const std::vector<Reason>& reasons) {
  if (reasons.empty()) {
    out << "\n    no rule had anything to say\n";
    return;
  }
  out << "\n    weight  without  because\n";
  for (const Reason& reason : reasons) {
    out << "    " << std::setw(6) << ShownWeight(reason.weight) << "  " << std::fixed << std::setw(7)
        << std::setprecision(3) << reason.without << "  " << reason.sentence << " [" << reason.rule << "]\n";
    if (!reason.evidence.empty()) out << "                     " << reason.evidence << '\n';
  }
}

std::string AnswerInWords(std::int32_t answer) {
  switch (answer) {
    case 0:
      return "no answer (the log tells why)";
    case 1:
      return "1, trustworthy";
    case 2:
      return "2, spoofing";
    case 3:
      return "3, unclassified";
    case 4:
      return "4, unknown to it and asked for a report";
    case 5:
      return "5, confirmed";
    default:
      return std::to_string(answer);
  }
}

/// What the server had to do with a page's verdict.
void TellSettlement(std::ostream& out, const Verdict& verdict) {
  const Settlement& settlement = verdict.trace.settlement;
  if (verdict.unsent.empty() && settlement.serverAnswer) {
    const std::string server = Narrow(verdict.trace.pair->configuration.Resources.Server);
    out << "\n    the server " << (server.empty() ? "(the configuration names none)" : server)
        << " was asked: " << AnswerInWords(*settlement.serverAnswer);
    if (settlement.reported) out << (*settlement.reported ? "; reported to it" : "; the report failed");
  }
  if (settlement.heldBack) {
    out << "\n    held for spoofing, but the warning is held back: a score changed between two visits less than a day "
           "ago";
  }
}

std::string PersonText(const std::string& input, const Verdict& verdict, bool explain,
                       const std::vector<RuleText>& texts) {
  std::ostringstream out;
  out << Narrow(Widen(input)) << '\n' << "    " << InWords(verdict);
  if (verdict.result == -1) out << ": the URL can't be decoded";
  if (verdict.result != 0 && verdict.result != -1) out << ": the call gave " << verdict.result;
  if (verdict.result == 0 && verdict.siteName && verdict.IsHeld()) out << ", imitates " << Narrow(*verdict.siteName);
  if (verdict.result == 0 && verdict.spooficity) {
    out << " (spooficity " << std::fixed << std::setprecision(3) << *verdict.spooficity << ')';
  }
  if (!verdict.urlSource.empty()) out << "\n    the page's URL comes from " << verdict.urlSource;
  for (const std::string& request : verdict.unsent) out << "\n    not sent: " << request << " (see --privacy)";
  TellSettlement(out, verdict);
  if (explain) TellReasons(out, ReasonsOf(verdict, texts));
  std::string text = out.str();
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

/// What a worker hands to the printer.
struct Outcome {
  std::string text;
  std::string error;  ///< the input couldn't be used
  bool held = false;
};

Outcome CheckOne(const std::string& input, const CheckOptions& options, std::size_t nameRoom,
                 const std::vector<RuleText>& texts) {
  Outcome outcome;
  try {
    const Verdict verdict = Classify(input, options, nameRoom);
    outcome.held = verdict.IsHeld();
    outcome.text = options.json ? JsonText(input, verdict, options.explain, texts)
                                : PersonText(input, verdict, options.explain, texts);
  } catch (const CommandError& error) {
    outcome.error = error.what();
  }
  return outcome;
}

int Check(const CheckOptions& options) {
  UseConfiguration(options.configuration);
  const PrivacyGuard privacy(options.privacy);
  const std::vector<std::string> inputs = ExpandFolders(options.inputs);
  const std::size_t nameRoom = NameRoom();
  std::vector<RuleText> texts;
  if (options.explain) texts = LoadRuleTexts(ConfigurationSource(options.configuration));
  const bool endless = std::ranges::find(inputs, "-") != inputs.end();
  Progress progress("checked", endless ? 0 : inputs.size());
  int status = kExitDone;
  OrderedJobs<std::string, Outcome> jobs(
      options.jobs, [&](const std::string& input) { return CheckOne(input, options, nameRoom, texts); },
      [&](const Outcome& outcome) {
        progress.Step();
        if (!outcome.error.empty()) {
          PrintError(outcome.error);
          status = kExitError;
          return;
        }
        PrintLine(outcome.text);
        if (options.exitCode && outcome.held && status == kExitDone) status = kExitHeld;
      });
  ForEachInput(inputs, [&](const std::string& input) { jobs.Add(input); });
  jobs.Finish();
  return status;
}

}  // namespace

void AddCheckCommand(CLI::App& program, int& exitStatus) {
  CLI::App* command = program.add_subcommand("check", "Give a verdict on URLs and pages");
  auto options = std::make_shared<CheckOptions>();
  command
      ->add_option("input", options->inputs,
                   "URLs, page files (.json recording, .html, .mhtml) or folders of pages; - reads one a line")
      ->required();
  command->add_flag("--json", options->json, "One JSON object a line");
  command->add_flag("--explain", options->explain, "Show which rules made the verdict");
  command->add_flag("--exit-code", options->exitCode, "Exit with 1 when something is held for spoofing");
  command->add_option("--jobs", options->jobs, "Classify on this many threads; the order of the output stays")
      ->check(CLI::Range(1U, 256U))
      ->capture_default_str();
  AddPageOptions(*command, options->page);
  AddConfigurationOptions(*command, options->configuration);
  AddPrivacyOptions(*command, options->privacy, options->configuration);
  command->footer(
      "The verdict is one of: trustworthy, SPOOFING, SPOOFING confirmed by the server, SCRIPT ATTACK, unclassified.\n"
      "Spooficity runs from 0 to 1; above 0.89 something is held for spoofing.");
  command->callback([options, &exitStatus] { exitStatus = Check(*options); });
}

}  // namespace zeph
