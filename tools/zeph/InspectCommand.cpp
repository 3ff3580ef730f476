// SPDX-License-Identifier: Apache-2.0
#include <iomanip>
#include <sstream>

#include <unistd.h>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/page/BrandCounts.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "DetectionEngine/url/UrlTokenizer.h"
#include "documents/html/Decoder.h"
#include "documents/html/TreeBuilder.h"
#include "documents/html/TreePrinter.h"
#include "judging/Pages.h"
#include "judging/ShownText.h"
#include "tools/zeph/CharsetOption.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/Records.h"

namespace zeph {

namespace {

/// Options of all inspect commands; those that a command doesn't offer keep their defaults.
struct InspectOptions {
  ConfigurationChoice configuration;
  std::vector<std::string> inputs;
  std::string url;      ///< the document's own, for inputs that don't say
  std::string pageUrl;  ///< to judge the page by; empty: the document's own
  std::string charset;
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

/// A page as it is, under the address that somebody tells, the page itself among them.
std::unique_ptr<LoadedPage> OpenForInspection(const std::string& input, const InspectOptions& options) {
  std::string error;
  std::optional<PageSource> source = ReadPageFile(input, error);
  if (!source) throw CommandError(input + ": " + error);
  if (source->recording != nullptr) return OpenPage(*std::move(source), std::nullopt, {});
  if (source->charset.empty()) source->charset = options.charset;
  std::u16string url = Widen(options.url);
  if (url.empty()) url = source->savedUrl;
  if (url.empty()) url = source->claimedUrl;
  return OpenPage(*std::move(source), url, url);
}

void InspectPage(const std::string& input, const InspectOptions& options) {
  const auto pair = ActiveConfiguration();
  const std::unique_ptr<LoadedPage> page = OpenForInspection(input, options);
  PageData pageData;
  pageData.configuration = &pair->configuration;
  pageData.referrer = TextOf(page->Document().get_referrer());
  std::u16string namedUrl;
  const std::u16string pageUrl = Widen(options.pageUrl);
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
    const Status status = step.Run(reading);
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

/// Unlike a page that is classified, it is parsed for a reader without scripts: the content of NOSCRIPT is markup.
void InspectTree(const std::string& input, const std::string& charset) {
  std::string error;
  const std::optional<std::string> bytes = ReadPageBytes(input, error);
  if (!bytes) throw CommandError(input + ": " + error);
  html::ParseOptions options;
  options.noscriptIsText = false;  // the form is that of conformance tests, which run without scripts
  const auto tree = html::ParseTree(html::DecodeMarkup(*bytes, charset).text, options);
  if (isatty(STDOUT_FILENO) == 0) return html::PrintTree(tree, PrintText);
  std::string text;
  html::PrintTree(tree, [&](std::string_view piece) { text += piece; });
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    PrintShown(line);
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  }
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

/// Of several inputs each has its line, whatever becomes of another. None of them: the command ends with its reason.
void ForEachInspected(const InspectOptions& options, int& exitStatus, const std::function<void(const std::string&)>& inspect,
                      std::string_view instead) {
  const bool isAlone = options.inputs.size() == 1 && options.inputs.front() != "-";
  ForEachInput(options.inputs, [&](const std::string& input) {
    try {
      inspect(input);
    } catch (const CommandError& error) {
      if (isAlone) throw;
      PrintError(error.what());
      PrintLine(instead);
      exitStatus = kExitError;
    }
  });
}

}  // namespace

void AddInspectCommand(CLI::App& program, int& exitStatus) {
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
  page->add_option("--url", options->url, "The document's own URL, for files that don't say it");
  page->add_option("--page-url", options->pageUrl, "The URL to judge the page by, instead of the document's own");
  page->add_flag("--brand-counts", options->brandCounts, "Count brands among links, images and scripts first");
  AddCharsetOption(*page, options->charset);
  page->callback([options, &exitStatus] {
    UseConfiguration(options->configuration);
    ForEachInspected(
        *options, exitStatus, [&](const std::string& input) { InspectPage(input, *options); },
        R"({"collectors": null, "pageData": null})");
  });
  CLI::App* tree =
      add("tree", "The parsed tree of HTML files, one node a line, with scripts off: NOSCRIPT holds elements", true, false);
  AddCharsetOption(*tree, options->charset);
  tree->callback([options, &exitStatus] {
    ForEachInspected(
        *options, exitStatus, [&](const std::string& input) { InspectTree(input, options->charset); }, "");
  });
  add("package", "The whole loaded configuration", false, true)->callback([options] {
    UseConfiguration(options->configuration);
    InspectPackage();
  });
  add("strings", "The texts that the engine works with", false, false)->callback(InspectStrings);
}

}  // namespace zeph
