// SPDX-License-Identifier: Apache-2.0
#include "tools/zeph/Common.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <utility>

#include <unistd.h>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "judging/ShownText.h"
#include "authoring/Sources.h"
#include "tools/zeph/PrepareEngine.h"

namespace zeph {

namespace {

constexpr double kProgressAfterMs = 1000.0;
constexpr double kProgressEveryMs = 200.0;

double NowMs() {
  using Milliseconds = std::chrono::duration<double, std::milli>;
  return Milliseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// No text source is longer.
constexpr std::size_t kMaxSource = std::size_t{1} << 30;

std::string ReadFile(const std::filesystem::path& path) {
  std::error_code error;
  auto content = ReadWholeFile(path.string(), kMaxSource, &error);
  if (!content) throw CommandError(path.string() + ": " + (error ? error.message() : "can't be read"));
  return *std::move(content);
}

}  // namespace

void AddConfigurationOptions(CLI::App& command, ConfigurationChoice& choice) {
  auto* package = command.add_option("--package", choice.package, "Package to load instead of the default one");
  command.add_option("--sources", choice.sources, "Folder of text sources to use instead of a package")
      ->excludes(package);
  command.add_option("--installation", choice.installation, "What the engine runs as: client or server")
      ->check(CLI::IsMember({"client", "server"}))
      ->capture_default_str();
}

std::shared_ptr<const ConfigurationPair> ActiveConfiguration() { return Process().configurationMgr.Active(); }

std::string ConfigurationSource(const ConfigurationChoice& choice) {
  return choice.sources.empty() ? Process().configurationMgr.LoadedPackage() : choice.sources;
}

void UseConfiguration(const ConfigurationChoice& choice) {
  PrepareEngine(false);
  ConfigurationMgr& manager = Process().configurationMgr;
  std::shared_ptr<ConfigurationPair> changed;
  if (!choice.sources.empty()) {
    changed = std::make_shared<ConfigurationPair>(*manager.Active());
    LoadTextSources(choice.sources, *changed);
  } else if (!choice.package.empty()) {
    if (!FileExists(choice.package)) throw CommandError(choice.package + ": no such package");
    if (!manager.LoadPackage(Widen(choice.package))) {
      throw CommandError(choice.package + ": not loaded: " + manager.LastFailure().substr(choice.package.size() + 2));
    }
  } else {
    // Who puts an older package back, or takes one away, means it; a command needn't be held to what is later.
    manager.FollowEveryChange(true);
    if (!manager.Run()) throw CommandError("no default package could be loaded: " + manager.LastFailure());
  }
  const bool isClient = choice.installation == "client";
  const auto active = manager.Active();
  if (changed == nullptr && (active->configuration.IsClient != isClient || !choice.server.empty())) {
    changed = std::make_shared<ConfigurationPair>(*active);
  }
  if (changed == nullptr) {
    // What was asked for stays, whatever newer package the one that was loaded knows of.
    if (!choice.package.empty()) manager.Publish(active);
    return;
  }
  changed->configuration.IsClient = isClient;
  if (!choice.server.empty()) changed->configuration.Resources.Server = Widen(choice.server);
  manager.Publish(std::move(changed));
}

std::vector<SourceFile> ReadSources(const std::string& folder) {
  std::vector<SourceFile> files;
  for (const std::string& path : SourceFiles(folder)) files.push_back({path, ReadFile(path)});
  return files;
}

void ReportFindings(const std::string& folder, const Diagnostics& found, bool errorsEndIt) {
  constexpr std::size_t kShown = 100;
  std::size_t shown = 0;
  for (const Diagnostic& one : found.All()) {
    if (shown++ < kShown) std::cerr << Render(one);
  }
  if (shown > kShown) std::cerr << "... and " << shown - kShown << " more\n";
  const std::size_t errors = found.Errors();
  if (errors == 0 || !errorsEndIt) return;
  throw CommandError(folder + ": " + std::to_string(errors) + (errors == 1 ? " error" : " errors"));
}

void LoadTextSources(const std::string& folder, ConfigurationPair& pair) {
  const std::vector<SourceFile> files = ReadSources(folder);
  Diagnostics found;
  Compiled compiled = CompileSources(files, false, found, std::move(pair.configuration));
  ReportFindings(folder, found, true);
  if (compiled.tooMuch) throw CommandError(folder + ": more than a package can hold");
  pair.configuration = std::move(compiled.configuration);
  pair.indicators = std::move(compiled.rules.rules);
  pair.configuration.BuildIndexes();
  pair.indicators.Prepare();
}

std::vector<std::string> SourceFiles(const std::string& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> paths;
  std::filesystem::directory_iterator entry(folder, error);
  for (const std::filesystem::directory_iterator end; !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    // The notes of a package's makers and its tests lie beside its sources.
    const std::filesystem::path extension = entry->path().extension();
    if (entry->is_regular_file(unknown) && extension != ".md" && extension != ".test") paths.push_back(entry->path());
  }
  if (error) throw CommandError(folder + ": " + error.message());
  if (paths.empty()) throw CommandError(folder + ": holds no text sources");
  const auto rank = [](const std::filesystem::path& path) {
    const std::string name = path.filename().string();
    return name == "TrustedDomains.xml" ? 0 : name == "SafeList" ? 1 : 2;
  };
  std::ranges::sort(paths, [&](const auto& a, const auto& b) {
    return rank(a) != rank(b) ? rank(a) < rank(b) : a.filename().string() < b.filename().string();
  });
  std::vector<std::string> files;
  std::ranges::transform(paths, std::back_inserter(files), [](const auto& path) { return path.string(); });
  return files;
}

void AddPrivacyOptions(CLI::App& command, std::string& level, ConfigurationChoice& configuration) {
  command
      .add_option("--privacy", level,
                  "What the classification server may be told of a page that is held for spoofing: its full URL, the "
                  "URL without query (partial), or nothing (none)")
      ->check(CLI::IsMember({"full", "partial", "none"}))
      ->capture_default_str();
  command.add_option("--server", configuration.server, "Host to ask instead of the configuration's server");
}

Privacy PrivacyOf(const std::string& level) {
  return level == "full" ? Privacy::kFull : level == "partial" ? Privacy::kPartial : Privacy::kNone;
}

void ForEachLine(const std::function<void(std::string)>& take, const std::function<void()>& idle) {
  std::string line;
  for (;;) {
    if (idle && std::cin.rdbuf()->in_avail() <= 0) idle();
    if (!std::getline(std::cin, line)) return;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    take(line);
  }
}

void ForEachInput(const std::vector<std::string>& inputs, const std::function<void(const std::string&)>& take,
                  const std::function<void()>& idle) {
  for (const std::string& input : inputs) {
    if (input == "-") {
      ForEachLine(take, idle);
    } else {
      take(input);
    }
  }
}

void PrintText(std::string_view text) {
  std::cout << text;
  if (!std::cout) throw CommandError("standard output: can't be written");
}

void PrintLine(std::string_view line) {
  std::cout << line << '\n';
  if (std::cin.rdbuf()->in_avail() <= 0) std::cout.flush();
  if (!std::cout) throw CommandError("standard output: can't be written");
}

void PrintShown(std::string_view line) { PrintLine(Shown(line)); }

void PrintError(std::string_view line) { std::cerr << "zeph: " << Shown(line) << std::endl; }

Progress::Progress(std::string what, std::size_t total)
    : what_(std::move(what)), total_(total), startedMs_(NowMs()), terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() { Hide(); }

void Progress::Hide() {
  if (std::exchange(shown_, false)) std::cerr << "\r\x1b[K" << std::flush;
}

void Progress::Step() {
  ++done_;
  if (!terminal_) return;
  const double now = NowMs();
  if (now - startedMs_ < kProgressAfterMs || now - shownMs_ < kProgressEveryMs) return;
  shownMs_ = now;
  shown_ = true;
  Show();
}

void Progress::Show() const {
  std::cerr << '\r' << what_ << ' ' << done_;
  if (total_ != 0) std::cerr << " of " << total_;
  std::cerr << "\x1b[K" << std::flush;
}

}  // namespace zeph
