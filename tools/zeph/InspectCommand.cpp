// SPDX-License-Identifier: Apache-2.0
#include <iomanip>
#include <sstream>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/page/BrandCounts.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "DetectionEngine/url/UrlTokenizer.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/Pages.h"
#include "tools/zeph/Records.h"

namespace zeph {

namespace {

/// Options of all inspect commands; those that a command doesn't offer keep their defaults.
struct InspectOptions {
  ConfigurationChoice configuration;
  std::vector<std::string> inputs;
  PageOptions page;
  bool brandCounts = false;
};

void InspectUrl(const std::string& input) {
  const auto pair = ActiveConfiguration();
  UrlParser parser;
  const int result = parser.DecodeWithRedirectors(Widen(input), pair->configuration.Redirectors);
  JsonWriter json;
  WriteObject(json, "result", result, "record", parser.Record());
  PrintLine(json.Take());
}

/// One line for one form of the tokeniser.
template <class Url>
void PrintTokens(std::string_view form, const Configuration& configuration, const Url& url) {
  JsonWriter json;
  json.BeginObject();
  WriteMember(json, "form", form);
  const auto tokens = TokensOf(url, configuration.UrlWordSet);
  WriteMember(json, "tokens", tokens);
  if (tokens) {
    UrlAnalyzer analyzer(configuration.UrlAnalysisTable, configuration.UrlWordSet);
    const std::int32_t scoreClass = analyzer.Classify(url);
    WriteMember(json, "chosen", analyzer.ChosenTokens());
    WriteMember(json, "score", analyzer.Score());
    WriteMember(json, "class", scoreClass);
  }
  json.EndObject();
  PrintLine(json.Take());
}

void InspectTokens(const std::string& input) {
  const auto pair = ActiveConfiguration();
  const std::u16string url = Widen(input);
  PrintTokens("text", pair->configuration, std::u16string_view(url));
  UrlParser parser;
  parser.DecodeUrl(url);
  PrintTokens("record", pair->configuration, parser.Record());
}

void InspectPage(const std::string& input, const InspectOptions& options) {
  const auto pair = ActiveConfiguration();
  const std::unique_ptr<LoadedPage> page = LoadPage(input, options.page);
  PageData pageData;
  pageData.configuration = &pair->configuration;
  pageData.referrer = TextOf(page->Document().get_referrer());
  std::u16string namedUrl;
  const std::u16string pageUrl = Widen(options.page.pageUrl);
  DecodePageUrls(TextOf(page->Document().get_URL()), pageUrl.empty() ? nullptr : pageUrl.c_str(), pair->configuration,
                 pageData, namedUrl);

  struct Ran {
    std::string_view name;
    Status status;
  };
  std::vector<Ran> ran;
  PageReading reading{&page->Document(), pageData, {}};
  for (const PageStep& step : PageSteps()) {
    const bool isDump = &step == &PageSteps()[kStepPageDump];
    if (isDump && pair->configuration.IsClient) continue;
    const Status status = step.run(reading);
    ran.push_back({step.name, status});
    if (step.IsBad(status)) break;
  }
  if (options.brandCounts) {
    LinkBrandCount(pageData);
    ImageBrandCount(pageData);
    ScriptBrandCount(pageData);
  }

  JsonWriter json;
  json.BeginObject();
  json.Key("collectors");
  json.BeginArray();
  for (const Ran& step : ran) WriteObject(json, "name", step.name, "status", step.status);
  json.EndArray();
  WriteMember(json, "pageData", pageData);
  json.EndObject();
  PrintLine(json.Take());
}

void InspectPackage() {
  const auto pair = ActiveConfiguration();
  JsonWriter json;
  WriteObject(json, "Configuration", pair->configuration, "Indicators", pair->indicators);
  PrintLine(json.Take());
}

void InspectStrings() {
  JsonWriter json;
  json.BeginObject();
  for (std::uint32_t entry = 0; entry < kStringCount; ++entry) {
    std::ostringstream name;
    name << "0x" << std::uppercase << std::hex << std::setw(2) << std::setfill('0') << entry;
    WriteMember(json, name.str(), StringEntry(entry));
  }
  json.EndObject();
  PrintLine(json.Take());
}

}  // namespace

void AddInspectCommand(CLI::App& program, int&) {
  CLI::App* inspect = program.add_subcommand("inspect", "Show what the engine makes of something, as JSON");
  inspect->require_subcommand(1);
  auto options = std::make_shared<InspectOptions>();

  const auto add = [&](const char* name, const char* help, bool takesInputs, bool usesConfiguration) {
    CLI::App* command = inspect->add_subcommand(name, help);
    if (takesInputs) {
      command->add_option("input", options->inputs, "Inputs in order; - reads one a line from standard input")
          ->required();
    }
    if (usesConfiguration) AddConfigurationOptions(*command, options->configuration);
    return command;
  };

  add("url", "The decoded record of URLs", true, true)->callback([options] {
    UseConfiguration(options->configuration);
    ForEachInput(options->inputs, InspectUrl);
  });
  add("tokens", "The tokens of URLs, those that were chosen, and the score", true, true)->callback([options] {
    UseConfiguration(options->configuration);
    ForEachInput(options->inputs, InspectTokens);
  });
  CLI::App* page = add("page", "All that is read from pages", true, true);
  AddPageOptions(*page, options->page);
  page->add_flag("--brand-counts", options->brandCounts, "Count brands among links, images and scripts first");
  page->callback([options] {
    UseConfiguration(options->configuration);
    ForEachInput(options->inputs, [&](const std::string& input) { InspectPage(input, *options); });
  });
  add("tree", "The parsed tree of HTML files, one node a line, with scripts off: NOSCRIPT holds elements", true, false)
      ->callback([options] {
        ForEachInput(options->inputs, [](const std::string& input) { PrintPageTree(input, PrintText); });
      });
  add("package", "The whole loaded configuration", false, true)->callback([options] {
    UseConfiguration(options->configuration);
    InspectPackage();
  });
  add("strings", "The texts that the engine works with", false, false)->callback(InspectStrings);
}

}  // namespace zeph
