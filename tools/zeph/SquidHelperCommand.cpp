// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>
#include <thread>

#include <unistd.h>

#include "gateways/squid/Helper.h"
#include "judging/Privacy.h"
#include "tools/zeph/Common.h"

namespace zeph {

void AddSquidHelperCommand(CLI::App& program) {
  struct Options {
    ConfigurationChoice configuration;
    squid::HelperOptions helper;
    std::string privacy = "none";
    bool noChannels = false;
    bool passUnjudged = false;
  };
  CLI::App* command = program.add_subcommand("squid-helper", "Answer Squid's external_acl_type about addresses");
  auto options = std::make_shared<Options>();
  options->helper.threads = std::max(1U, std::thread::hardware_concurrency());
  command->add_flag("--no-channels", options->noChannels,
                    "Lines begin with the address, and answers keep their order: Squid's concurrency=0");
  command->add_flag("--pass-unjudged", options->passUnjudged,
                    "Say ERR of what can't be judged; upon BH Squid refuses the request");
  command->add_option("--jobs", options->helper.threads, "Threads (default: one a processor)")
      ->check(CLI::Range(1U, 256U));
  AddConfigurationOptions(*command, options->configuration);
  AddPrivacyOptions(*command, options->privacy, options->configuration);
  command->footer(
      "Reads \"CHANNEL URL\" lines, writes \"CHANNEL OK\" (held), \"ERR\" (not held) or \"BH\" (not judged).\n"
      "docs/gateways/squid.md has the lines for squid.conf.");
  command->callback([options] {
    UseConfiguration(options->configuration);
    const PrivacyGuard privacy(PrivacyOf(options->privacy));
    CurrentJudge judge([options] { return ConfigurationSource(options->configuration); });
    options->helper.hasChannels = !options->noChannels;
    if (options->passUnjudged) options->helper.unjudged = squid::Unjudged::kPasses;
    squid::RunHelper(STDIN_FILENO, STDOUT_FILENO, options->helper, judge);
  });
}

}  // namespace zeph
