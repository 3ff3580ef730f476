// SPDX-License-Identifier: Apache-2.0
// What the commands share: errors with an exit status, the choice of the configuration, inputs by argument or line.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "authoring/Diagnostics.h"
#include "judging/PageList.h"
#include "judging/Privacy.h"

namespace zeph {

/// Exit statuses of every command.
inline constexpr int kExitDone = 0;
inline constexpr int kExitHeld = 1;   ///< under check --exit-code: something was held for spoofing
inline constexpr int kExitError = 2;  ///< the command line, a file or the configuration can't be used

/// One line that says what can't be used and why; ends the command with kExitError.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Where a command's configuration comes from.
struct ConfigurationChoice {
  std::string package;  ///< a package file; empty: the default one
  std::string sources;  ///< a folder of text sources
  std::string installation = "client";
  std::string server;  ///< overrides the configuration's server when not empty
};

void AddConfigurationOptions(CLI::App& command, ConfigurationChoice& choice);

/// Loads what was chosen into the process's manager. Throws CommandError with the reason of a refusal.
void UseConfiguration(const ConfigurationChoice& choice);

/// The folder of sources or the package that the configuration in force comes from; empty when that isn't known.
[[nodiscard]] std::string ConfigurationSource(const ConfigurationChoice& choice);

/// The configuration in force.
[[nodiscard]] std::shared_ptr<const ConfigurationPair> ActiveConfiguration();

/// The text sources of a folder, in the order in which a pack of them is handled: TrustedDomains.xml, SafeList, the
/// others by name. Throws CommandError.
[[nodiscard]] std::vector<std::string> SourceFiles(const std::string& folder);

/// The same, read. Throws CommandError.
[[nodiscard]] std::vector<SourceFile> ReadSources(const std::string& folder);

/// Says on standard error what was found. Throws CommandError behind it when errors are among it and nothing is to be
/// made of sources with errors.
void ReportFindings(const std::string& folder, const Diagnostics& found, bool errorsEndIt);

/// Adds what the sources of a folder say to a pair, and completes it as a load does. XML is taken as it stands. Throws
/// CommandError.
void LoadTextSources(const std::string& folder, ConfigurationPair& pair);

/// --privacy, and --server of the configuration choice.
void AddPrivacyOptions(CLI::App& command, std::string& level, ConfigurationChoice& configuration);
[[nodiscard]] Privacy PrivacyOf(const std::string& level);

/// Calls take for each input in order; "-" stands for the lines of standard input, empty ones among them, so that each
/// line has its answer. idle, if given, is called before the command waits for more.
void ForEachInput(const std::vector<std::string>& inputs, const std::function<void(const std::string&)>& take,
                  const std::function<void()>& idle = nullptr);
/// Reads standard input as ForEachInput does.
void ForEachLine(const std::function<void(std::string)>& take, const std::function<void()>& idle);

/// Output as it stands.
void PrintText(std::string_view text);
/// One line of output. Flushed when nothing more is waiting on standard input.
void PrintLine(std::string_view line);
/// One line that holds what strangers wrote, for a person.
void PrintShown(std::string_view line);
/// One line on standard error, behind "zeph: ", with what can't be shown escaped.
void PrintError(std::string_view line);

/// Says on standard error, when that is a terminal and the work has taken more than a second, how far it has come.
class Progress {
 public:
  Progress(std::string what, std::size_t total);  ///< total 0: not known
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void Step();
  /// Takes what is shown off the terminal.
  void Hide();

 private:
  void Show() const;

  std::string what_;
  std::size_t total_;
  std::size_t done_ = 0;
  double startedMs_;
  double shownMs_ = 0.0;
  bool terminal_;
  bool shown_ = false;
};

/// Each adds one command to the program; its callback runs the command and may throw CommandError.
/// exitStatus receives what isn't kExitDone.
void AddBrandCommands(CLI::App& program);  ///< brand, and untwist from the other side
void AddCheckCommand(CLI::App& program, int& exitStatus);
void AddMilterCommand(CLI::App& program);
void AddEvalCommand(CLI::App& program, int& exitStatus);
void AddIcapCommand(CLI::App& program);
void AddInspectCommand(CLI::App& program, int& exitStatus);
void AddRecordCommand(CLI::App& program, int& exitStatus);
void AddReportCommand(CLI::App& program, int& exitStatus);
void AddPackageCommand(CLI::App& program, int& exitStatus);
/// Below the command "package": decompile, lint, test, diff.
void AddAuthoringCommands(CLI::App& package, int& exitStatus);
/// Below the command "package": info, where, install, rollback, keygen, sign, verify.
void AddPackageLifeCommands(CLI::App& package, int& exitStatus);
void AddRulesCommand(CLI::App& program, int& exitStatus);
void AddServeCommand(CLI::App& program, int& exitStatus);
void AddSettingsCommand(CLI::App& program, int& exitStatus);
void AddSquidHelperCommand(CLI::App& program);
void AddTrainCommand(CLI::App& program, int& exitStatus);

}  // namespace zeph
