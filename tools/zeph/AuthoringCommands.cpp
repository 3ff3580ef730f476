// SPDX-License-Identifier: Apache-2.0
// zeph package decompile, lint, test and diff: what people who write packages ask for.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/platform/CodePage.h"
#include "authoring/Lint.h"
#include "authoring/PackageDiff.h"
#include "authoring/PackageTest.h"
#include "authoring/Sources.h"
#include "tools/zeph/Common.h"
#include "judging/Pages.h"
#include "judging/RuleTexts.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;

/// A package, or a folder of sources.
struct Loaded {
  Configuration configuration;
  NamedRules rules;
};

Loaded LoadEither(const std::string& path) {
  Loaded loaded;
  std::error_code unknown;
  if (fs::is_directory(path, unknown)) {
    const std::vector<SourceFile> files = ReadSources(path);
    Diagnostics found;
    Compiled compiled = CompileSources(files, false, found);
    ReportFindings(path, found, true);
    loaded.configuration = std::move(compiled.configuration);
    loaded.rules = std::move(compiled.rules);
    loaded.configuration.BuildIndexes();
    loaded.rules.rules.Prepare();
    return loaded;
  }
  ConfigurationChoice choice;
  choice.package = path;
  UseConfiguration(choice);
  const auto pair = ActiveConfiguration();
  loaded.configuration = pair->configuration;
  loaded.rules.rules = pair->indicators;
  for (RuleText& text : LoadRuleTexts(path)) {
    loaded.rules.names.push_back(std::move(text.name));
    loaded.rules.sentences.push_back(std::move(text.sentence));
  }
  return loaded;
}

void Decompile(const std::string& package, const std::string& output) {
  const Loaded loaded = LoadEither(package);
  const XmlSources sources = DecompileSources(loaded.configuration, loaded.rules);
  if (!sources.refusal.empty()) throw CommandError(package + ": no source can say it: " + sources.refusal);
  std::error_code error;
  fs::create_directories(output, error);
  if (error) throw CommandError(output + ": can't be made: " + error.message());
  for (const PackedFile& file : sources.files) {
    const fs::path path = fs::path(output) / file.Name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << file.FileData;
    out.close();
    if (!out) throw CommandError(path.string() + ": can't be written");
  }
}

int LintFolder(const std::string& folder, bool strict) {
  const std::vector<SourceFile> files = ReadSources(folder);
  Diagnostics found;
  Compiled compiled = CompileSources(files, true, found);
  compiled.configuration.BuildIndexes();
  Lint(compiled.configuration, files, found);
  ReportFindings(folder, found, false);
  const std::size_t errors = found.Errors();
  PrintLine(std::to_string(errors) + " errors, " + std::to_string(found.All().size() - errors) + " warnings");
  return errors > 0 || (strict && !found.All().empty()) ? kExitHeld : kExitDone;
}

/// Runs the cases of a folder.
class CaseRunner {
 public:
  explicit CaseRunner(const std::string& folder) : folder_(folder), names_(LoadEither(folder).rules.names) {
    ConfigurationChoice choice;
    choice.sources = folder;
    UseConfiguration(choice);
  }

  /// What differs from what the case says; empty: nothing.
  std::vector<std::string> Run(const PackageCase& one) {
    std::int32_t classification = 0;
    char16_t siteName[kZephNameRoom] = {};
    float spooficity = 0.0F;
    ClassificationTrace trace;
    std::error_code unknown;
    const fs::path page = fs::path(one.input).is_absolute() ? fs::path(one.input) : fs::path(folder_) / one.input;
    if (PageKindOfName(one.input) && fs::is_regular_file(page, unknown)) {
      std::string error;
      std::optional<PageSource> source = ReadPageFile(page.string(), error);
      if (!source) throw CommandError(page.string() + ": " + error);
      const std::u16string known = source->savedUrl.empty() ? std::u16string(kUnknownAddress) : source->savedUrl;
      const bool keepsUrl = one.url.empty() && source->kind == PageKind::kRecording;
      const std::u16string url = one.url.empty() ? known : Widen(one.url);
      const std::unique_ptr<LoadedPage> loaded =
          OpenPage(*std::move(source), keepsUrl ? std::nullopt : std::optional(url), url);
      EngineResults* report = nullptr;  // given, so that no server is asked
      ClassifySiteTraced(&loaded->Document(), &classification, siteName, nullptr, &report, &spooficity, &trace);
      ReleaseEngineResults(report);
    } else {
      ClassifyUrlTraced(Widen(one.input).c_str(), &classification, siteName, &spooficity, &trace);
    }
    std::vector<std::string> differs;
    const std::size_t number = classification >= 0 ? static_cast<std::size_t>(classification) : 0;
    const std::string verdict = number < std::size(kVerdictNames) ? std::string(kVerdictNames[number]) : std::string();
    if (!one.verdict.empty() && verdict != one.verdict) {
      differs.push_back("- verdict " + one.verdict);
      differs.push_back("+ verdict " + verdict + " (spooficity " + std::to_string(spooficity) + ")");
    }
    const std::string brand = Narrow(siteName);
    if (one.asksBrand && brand != one.brand) {
      differs.push_back("- brand " + (one.brand.empty() ? "none" : one.brand));
      differs.push_back("+ brand " + (brand.empty() ? "none" : brand));
    }
    const auto look = [&](const std::vector<std::string>& rules, bool wanted) {
      for (const std::string& rule : rules) {
        const auto named = std::ranges::find(names_, rule);
        std::size_t index = static_cast<std::size_t>(named - names_.begin());
        if (named == names_.end()) {
          const bool isNumber = !rule.empty() && rule.size() < 8 && std::ranges::all_of(rule, [](char c) { return c >= '0' && c <= '9'; });
          index = isNumber ? std::stoul(rule) : trace.results.size();
        }
        if (index >= trace.results.size()) {
          differs.push_back("  there is no rule " + rule);
        } else if (trace.results[index].on != wanted) {
          differs.push_back(std::string("- ") + (wanted ? "fires " : "silent ") + rule);
          differs.push_back(std::string("+ ") + (wanted ? "silent " : "fires ") + rule);
        }
      }
    };
    look(one.fires, true);
    look(one.silent, false);
    return differs;
  }

 private:
  std::string folder_;
  std::vector<std::string> names_;
};

int TestFolder(const std::string& folder) {
  std::vector<SourceFile> files;
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    if (!entry->is_regular_file(unknown) || entry->path().extension() != ".test") continue;
    std::ifstream in(entry->path(), std::ios::binary);
    if (!in) throw CommandError(entry->path().string() + ": can't be read");
    files.push_back({entry->path().string(), {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()}});
  }
  if (error) throw CommandError(folder + ": " + error.message());
  if (files.empty()) throw CommandError(folder + ": no file of cases, whose name ends in .test");
  std::ranges::sort(files, {}, &SourceFile::name);
  Diagnostics found;
  std::vector<PackageCase> cases;
  for (const SourceFile& file : files) std::ranges::move(ReadCases(file, found), std::back_inserter(cases));
  ReportFindings(folder, found, true);
  CaseRunner runner(folder);
  std::size_t failed = 0;
  for (const PackageCase& one : cases) {
    const std::vector<std::string> differs = runner.Run(one);
    if (differs.empty()) continue;
    ++failed;
    PrintLine(one.place.file->name + ":" + std::to_string(LineOf(one.place)) + ": " + one.input);
    for (const std::string& line : differs) PrintLine("  " + line);
  }
  PrintLine(std::to_string(cases.size()) + " cases, " + std::to_string(failed) + " failed");
  return failed == 0 ? kExitDone : kExitHeld;
}

void Diff(const std::string& before, const std::string& after) {
  const Loaded one = LoadEither(before);
  const Loaded other = LoadEither(after);
  const std::vector<std::string> lines = DiffPackages(one.configuration, one.rules, other.configuration, other.rules);
  for (const std::string& line : lines) PrintLine(line);
  if (lines.empty()) PrintLine("they say the same");
}

}  // namespace

void AddAuthoringCommands(CLI::App& package, int& exitStatus) {
  struct Paths {
    std::string one;
    std::string other;
    bool strict = false;
  };
  const auto add = [&](const char* name, const char* what) {
    return std::pair(package.add_subcommand(name, what), std::make_shared<Paths>());
  };

  const auto [decompile, decompiled] = add("decompile", "Write the sources of a package: rules and brands by name, XML for the rest");
  decompile->add_option("package", decompiled->one, "The package, or a folder of sources")->required();
  decompile->add_option("--output", decompiled->other, "Folder to write into")->required();
  decompile->callback([paths = decompiled] { Decompile(paths->one, paths->other); });

  const auto [lint, linted] = add("lint", "Tell what is wrong with a folder of sources, and what looks wrong");
  lint->add_option("sources", linted->one, "Folder of the sources")->required();
  lint->add_flag("--strict", linted->strict, "Exit with 1 on warnings too");
  lint->footer("Exit status 1: something is wrong.");
  lint->callback([paths = linted, &exitStatus] { exitStatus = LintFolder(paths->one, paths->strict); });

  const auto [test, tested] = add("test", "Run the cases that stand beside the sources, in files that end in .test");
  test->add_option("sources", tested->one, "Folder of the sources")->required();
  test->footer("Exit status 1: a case failed. docs/rules.md tells how cases are written.");
  test->callback([paths = tested, &exitStatus] { exitStatus = TestFolder(paths->one); });

  const auto [diff, differing] = add("diff", "Say in words what changed from one package to another");
  diff->add_option("old", differing->one, "A package, or a folder of sources")->required();
  diff->add_option("new", differing->other, "Another")->required();
  diff->callback([paths = differing] { Diff(paths->one, paths->other); });
}

}  // namespace zeph
