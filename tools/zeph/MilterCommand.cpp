// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <map>

#include "gateways/milter/Milter.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

struct Options {
  milter::MilterOptions milter;
  ConfigurationChoice configuration;
  unsigned timeLimit = 30;
};

void Serve(Options& options) {
  UseConfiguration(options.configuration);
  const PrivacyGuard privacy(Privacy::kNone);
  options.milter.timeLimit = std::chrono::seconds(options.timeLimit);
  // What was chosen stays; the default package is followed, and then its sentences are those of the package in force.
  if (!options.configuration.sources.empty() || !options.configuration.package.empty()) {
    options.milter.sources = ConfigurationSource(options.configuration);
  }
  options.milter.log = [](const std::string& line) { std::cerr << "zeph milter: " + line + "\n" << std::flush; };
  try {
    milter::ServeMilter(options.milter);
  } catch (const milter::MilterError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

void AddMilterCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("milter", "Judge letters on their way through a mail server");
  auto options = std::make_shared<Options>();
  command->add_option("--listen", options->milter.listen, "Where the mail server connects: inet:PORT@HOST or unix:PATH")
      ->required();
  command
      ->add_option("--action", options->milter.action, "What happens to a letter that is held: tag, reject, quarantine")
      ->transform(CLI::CheckedTransformer(std::map<std::string, milter::Action>{{"tag", milter::Action::kTag},
                                                                                {"reject", milter::Action::kReject},
                                                                                {"quarantine", milter::Action::kQuarantine}}))
      ->default_str("tag");
  command
      ->add_option("--on-failure", options->milter.onFailure,
                   "What happens to a letter on which the engine has no answer: pass, or wait (the sender tries again)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, milter::OnFailure>{
          {"pass", milter::OnFailure::kPass}, {"wait", milter::OnFailure::kWait}, {"tempfail", milter::OnFailure::kWait}}))
      ->default_str("pass");
  command->add_option("--time-limit", options->timeLimit, "Seconds that a letter waits for a judge")
      ->check(CLI::Range(1U, 240U))
      ->capture_default_str();
  constexpr std::size_t kLeast = 1024;
  constexpr std::size_t kMost = std::size_t{1} << 30;
  command->add_option("--max-size", options->milter.maxSize, "Bytes of a letter that are judged (10MiB, 500K); the rest isn't")
      ->transform(CLI::AsSizeValue(false))
      ->check([=](const std::string& text) {
        const std::size_t size = std::strtoull(text.c_str(), nullptr, 10);
        return size >= kLeast && size <= kMost ? std::string() : "--max-size: from 1KiB to 1GiB";
      })
      ->default_str("10MiB");
  command->add_option("--jobs", options->milter.judges, "Letters that are judged at once (default: one a processor)")
      ->check(CLI::Range(1U, 256U));
  command->add_option("--metrics", options->milter.metrics, "File that the figures go into, in Prometheus' text format");
  AddConfigurationOptions(*command, options->configuration);
  command->footer(
      "Each letter gets a header, X-Zeph: VERDICT; brand=...; reason=...; score=...; those of this name that it brought\n"
      "are removed. Nothing is sent. SIGUSR1 logs the figures, SIGTERM ends it. A package that takes the default one's\n"
      "place is used from the next letter on. docs/gateways/postfix.md tells how a mail server is led to it.");
  command->callback([options] { Serve(*options); });
}

}  // namespace zeph
