// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

struct ReportOptions {
  ConfigurationChoice configuration;
  std::string url;
  std::int32_t code = 0;
  std::optional<std::string> context;
};

void Report(const ReportOptions& options) {
  UseConfiguration(options.configuration);
  const std::string server = Narrow(ActiveConfiguration()->configuration.Resources.Server);
  if (server.empty()) throw CommandError("the configuration names no server; --server HOST does");
  const std::u16string context = Widen(options.context.value_or(""));
  const std::int32_t result =
      ReportURL(Widen(options.url).c_str(), options.code, options.context ? context.c_str() : nullptr);
  if (result != 0) throw CommandError(options.url + ": not reported to " + server + " (the log tells why)");
  PrintShown(options.url + ": reported to " + server);
}

}  // namespace

void AddReportCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("report", "Tell the classification server about a URL");
  auto options = std::make_shared<ReportOptions>();
  command->add_option("url", options->url, "The URL; it leaves this machine")->required();
  command->add_option("--code", options->code, "What is reported; the engine itself uses 3 and 6")->required();
  command->add_option("--context", options->context, "A text that goes along, at most 255 bytes of it");
  command->add_option("--server", options->configuration.server, "Host to tell instead of the configuration's server");
  AddConfigurationOptions(*command, options->configuration);
  command->callback([options] { Report(*options); });
}

}  // namespace zeph
