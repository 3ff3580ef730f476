// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include "tools/zeph/Common.h"

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
  zeph::AddInspectCommand(program, exitStatus);
  zeph::AddRecordCommand(program, exitStatus);
  zeph::AddReportCommand(program, exitStatus);
  zeph::AddPackageCommand(program, exitStatus);
  zeph::AddRulesCommand(program, exitStatus);
  zeph::AddServeCommand(program, exitStatus);
  zeph::AddSettingsCommand(program, exitStatus);
  zeph::AddTrainCommand(program, exitStatus);

  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.exit(error);
    zeph::PrintError(std::string(error.what()) + " (zeph --help tells more)");
    return zeph::kExitError;
  } catch (const zeph::CommandError& error) {
    std::cout.flush();
    zeph::PrintError(error.what());
    return zeph::kExitError;
  }
  std::cout.flush();
  return exitStatus;
}
