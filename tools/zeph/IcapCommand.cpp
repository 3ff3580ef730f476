// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <charconv>
#include <iostream>
#include <memory>
#include <thread>

#include "gateways/icap/IcapServer.h"
#include "judging/Privacy.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

struct IcapCommandOptions {
  ConfigurationChoice configuration;
  icap::IcapOptions icap;
  std::string listen = "127.0.0.1:1344";
  std::string privacy = "none";
  unsigned bodyMb = 10;
  unsigned memoryMb = 512;
  unsigned timeoutSeconds = 60;
};

void TakeListen(const std::string& text, icap::IcapOptions& options) {
  const std::size_t colon = text.rfind(':');
  const std::string number = text.substr(colon == std::string::npos ? text.size() : colon + 1);
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, options.port);
  if (error != std::errc{} || rest != end) throw CommandError("\"" + text + "\" is no ADDRESS:PORT");
  options.address = text.substr(0, colon);
  if (options.address.starts_with('[') && options.address.ends_with(']')) {
    options.address = options.address.substr(1, options.address.size() - 2);
  }
}

void Serve(IcapCommandOptions& options) {
  TakeListen(options.listen, options.icap);
  options.icap.bodyLimit = std::size_t{options.bodyMb} << 20U;
  options.icap.memoryLimit = std::size_t{options.memoryMb} << 20U;
  options.icap.timeout = std::chrono::seconds(options.timeoutSeconds);
  options.icap.messageTimeout = 5 * options.icap.timeout;
  UseConfiguration(options.configuration);
  const PrivacyGuard privacy(PrivacyOf(options.privacy));
  CurrentJudge judge([&options] { return ConfigurationSource(options.configuration); });
  try {
    icap::RunIcap(options.icap, judge, [](std::uint16_t port) {
      std::cerr << "zeph: icap on port " << port << std::endl;
    });
  } catch (const std::runtime_error& failure) {
    throw CommandError(failure.what());
  }
}

}  // namespace

void AddIcapCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("icap", "Judge what passes a web proxy, as an ICAP service");
  auto options = std::make_shared<IcapCommandOptions>();
  options->icap.threads = std::max(1U, std::thread::hardware_concurrency());
  command->add_option("--listen", options->listen, "Where proxies connect: ADDRESS:PORT, port 0 for a free one")
      ->capture_default_str();
  command->add_option("--connections", options->icap.connections, "Connections at a time")
      ->check(CLI::Range(1U, 100'000U))
      ->capture_default_str();
  command
      ->add_option("--connections-per-client", options->icap.connectionsPerClient,
                   "Connections at a time from one address; 0 for half of all")
      ->capture_default_str();
  command->add_option("--body-limit", options->bodyMb, "Megabytes of a page that is judged; longer ones pass")
      ->check(CLI::Range(1U, 1024U))
      ->capture_default_str();
  command->add_option("--memory-limit", options->memoryMb, "Megabytes of pages that wait at a time; beyond it pages pass")
      ->check(CLI::Range(1U, 1U << 20U))
      ->capture_default_str();
  command->add_option("--timeout", options->timeoutSeconds,
                      "Seconds for a client to send or take anything; five times that for a whole exchange")
      ->check(CLI::Range(1U, 3600U))
      ->capture_default_str();
  command->add_option("--jobs", options->icap.threads, "Threads that judge (default: one a processor)")
      ->check(CLI::Range(1U, 256U));
  AddConfigurationOptions(*command, options->configuration);
  AddPrivacyOptions(*command, options->privacy, options->configuration);
  command->footer(
      "Services: icap://HOST:PORT/reqmod judges addresses, icap://HOST:PORT/respmod pages. SIGTERM lets what is under way\n"
      "end. docs/gateways/squid.md has the lines for squid.conf.");
  command->callback([options] { Serve(*options); });
}

}  // namespace zeph
