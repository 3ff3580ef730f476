// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iostream>
#include <string_view>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Similarity.h"
#include "tools/zeph/Common.h"

namespace {

/// The command whose name is nearest to a word that is none; empty when none is near.
std::string NearestCommand(const CLI::App& program, const std::string& word) {
  constexpr std::size_t kFarthest = 2;
  std::string nearest;
  std::size_t distance = kFarthest + 1;
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
    const std::size_t here = zeph::EditDistance(zeph::Widen(command->get_name()), zeph::Widen(word));
    if (here < distance) {
      distance = here;
      nearest = command->get_name();
    }
  }
  return nearest;
}

/// What is wrong with a command line, and what to do.
std::string Advice(const CLI::App& program, int argc, char** argv, const CLI::ParseError& error) {
  // The words up to the first that is no command, and the command that they name.
  const CLI::App* app = &program;
  std::string named = "zeph";
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.starts_with('-')) break;
    const auto commands = app->get_subcommands([](const CLI::App*) { return true; });
    const auto found = std::ranges::find(commands, word, &CLI::App::get_name);
    if (found == commands.end()) {
      if (commands.empty()) break;
      const std::string nearest = NearestCommand(*app, word);
      return "no command \"" + word + "\"" + (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?") + " (" +
             named + " --help lists them)";
    }
    app = *found;
    named += " " + word;
  }
  return std::string(error.what()) + " (" + named + " --help tells more)";
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  CLI::App program{
      "zeph tells whether a URL or a page imitates a known brand.\n"
      "\n"
      "  zeph check https://example.org/login page.html     a verdict for each\n"
      "  zeph check --explain URL                           and which rules made it\n"
      "  zeph check --json - < urls.txt                     one JSON object a line\n"
      "\n"
      "Nothing is sent anywhere unless you ask for it (check --privacy).",
      "zeph"};
  program.require_subcommand(1);
  program.fallthrough(false);
  program.set_help_all_flag("--help-all", "Help for every command");
  program.set_version_flag("--version", ZEPH_VERSION);

  int exitStatus = zeph::kExitDone;
  zeph::AddCheckCommand(program, exitStatus);
  zeph::AddEvalCommand(program, exitStatus);
  zeph::AddBrandCommands(program);
  zeph::AddIcapCommand(program);
  zeph::AddInspectCommand(program, exitStatus);
  zeph::AddRecordCommand(program, exitStatus);
  zeph::AddReportCommand(program, exitStatus);
  zeph::AddMilterCommand(program);
  zeph::AddPackageCommand(program, exitStatus);
  zeph::AddRulesCommand(program, exitStatus);
  zeph::AddServeCommand(program, exitStatus);
  zeph::AddSettingsCommand(program, exitStatus);
  zeph::AddSquidHelperCommand(program);
  zeph::AddTrainCommand(program, exitStatus);

  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.exit(error);
    zeph::PrintError(Advice(program, argc, argv, error));
    return zeph::kExitError;
  } catch (const zeph::CommandError& error) {
    std::cout.flush();
    zeph::PrintError(error.what());
    return zeph::kExitError;
  } catch (const std::exception& error) {
    std::cout.flush();
    zeph::PrintError(std::string("it can't go on: ") + error.what());
    return zeph::kExitError;
  }
  std::cout.flush();
  return exitStatus;
}
