// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/Files.h"
#include "gateways/http/HttpDoor.h"
#include "gateways/net/Endpoint.h"
#include "gateways/net/Service.h"
#include "tools/classification-server/Certificates.h"
#include "tools/classification-server/Server.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/PrepareEngine.h"

namespace zeph {

namespace {

constexpr std::size_t kPemLimit = 1 << 20;
constexpr int kCertificateDays = 825;
constexpr std::uint16_t kEnginePort = 8443;
constexpr std::uint16_t kHttpPort = 8080;

std::string EngineVersionText() {
  std::array<std::int32_t, 5> version{};
  if (GetEngineVersion(version.data()) != 0) return "unknown";
  return std::to_string(version[1]) + "." + std::to_string(version[2]) + "." + std::to_string(version[3]);
}

struct ServeOptions {
  ConfigurationChoice configuration;
  std::string privacy = "none";
  server::ServerOptions server;
  http_door::HttpOptions http;
  std::string listen = "127.0.0.1:8443";
  std::string httpListen;
  std::string status;
  std::string certificateFile;
  std::string keyFile;
  std::string selfSignedFor;
  bool httpTls = false;
  unsigned bodyLimitMb = 32;
  unsigned memoryLimitMb = 512;
  unsigned connectionLimit = 2000;
  unsigned addressLimit = 0;
  unsigned rate = 0;
  unsigned timeoutSeconds = 10;
  unsigned drainSeconds = 5;
};

net::Endpoint EndpointOf(const std::string& text, std::uint16_t port) {
  const auto endpoint = net::ReadEndpoint(text, {"127.0.0.1", port, ""});
  if (!endpoint) throw CommandError("\"" + text + "\" is no ADDRESS:PORT");
  return *endpoint;
}

std::string ReadPem(const std::string& path) {
  const auto text = ReadWholeFile(path, kPemLimit);
  if (!text) throw CommandError(path + ": can't be read");
  return *text;
}

void WritePrivate(const std::string& path, const std::string& text) {
  if (!WriteWholeFile(path, text) || !SetFileMode(path, 0600)) throw CommandError(path + ": can't be written");
}

/// Once the port is this server's: another that already runs keeps its own.
void PublishAuthority(const std::string& pem) {
  const std::string path = std::filesystem::absolute("zeph-test-authority.pem").string();
  WritePrivate(path, pem);
  std::cerr << "zeph: made a test authority. To trust it: SSL_CERT_FILE=" << path << " zeph check ..." << std::endl;
}

/// The certificates that all doors have: those of files, which may be renewed, or one of a test authority, made anew for
/// each start and kept nowhere but for the authority's own certificate, which others need to trust it.
std::function<net::Pem()> CertificatesOf(const ServeOptions& options, std::string& authority) {
  if (!options.selfSignedFor.empty()) {
    const server::Identity signer = server::MakeAuthority("Zeph test authority");
    const server::Identity own = server::IssueCertificate(signer, options.selfSignedFor, kCertificateDays);
    authority = server::CertificatePem(signer);
    return [pem = net::Pem{server::CertificatePem(own) + authority, server::KeyPem(own)}] { return pem; };
  }
  if (options.certificateFile.empty() || options.keyFile.empty()) {
    throw CommandError("a server needs --certificate and --key, or --self-signed");
  }
  return [certificate = options.certificateFile, key = options.keyFile] {
    return net::Pem{ReadPem(certificate), ReadPem(key)};
  };
}

/// The package in force, for the status page.
std::string DescribePackage(const ConfigurationChoice& choice) {
  const std::string source = ConfigurationSource(choice);
  if (source.empty()) return "none loaded";
  const std::int64_t written = LastWriteTime(source);
  if (written == 0) return source;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto days = std::chrono::duration_cast<std::chrono::hours>(now - std::chrono::nanoseconds(written)).count() / 24;
  return source + ", " + (days < 1 ? "less than a day" : std::to_string(days) + (days == 1 ? " day" : " days")) + " old";
}

/// What judges needs a configuration. One that isn't there yet may come; one that was named must be right.
void PrepareToJudge(const ServeOptions& options) {
  try {
    UseConfiguration(options.configuration);
  } catch (const CommandError& failure) {
    if (!options.configuration.package.empty() || !options.configuration.sources.empty()) throw;
    PrintError(std::string(failure.what()) + "; not ready until there is one");
  }
}

void Serve(ServeOptions& options) {
  const bool judges = !options.httpListen.empty();
  const bool answersEngines = !options.server.verdictFile.empty() || !options.server.reportDatabase.empty();
  if (!judges && !answersEngines) {
    throw CommandError("nothing to serve: --http for those who ask for verdicts, or --verdicts and --reports for engines");
  }
  if (answersEngines && (options.server.verdictFile.empty() || options.server.reportDatabase.empty())) {
    throw CommandError("engines are answered with --verdicts and --reports");
  }
  if (!answersEngines && !options.status.empty()) throw CommandError("--status shows what --verdicts and --reports serve");
  std::string authority;
  std::function<net::Pem()> readPem;
  if (answersEngines || options.httpTls) readPem = CertificatesOf(options, authority);
  const auto threads = std::max(2U, std::thread::hardware_concurrency());
  const auto timeout = std::chrono::seconds(options.timeoutSeconds);
  std::optional<PrivacyGuard> privacy;
  std::vector<std::shared_ptr<net::Door>> doors;

  std::string said;  // whoever starts it and waits for its ports reads one line
  try {
    if (answersEngines) {
      options.server.listen = EndpointOf(options.listen, kEnginePort);
      if (!options.status.empty()) options.server.status = EndpointOf(options.status, 0);
      options.server.readPem = readPem;
      options.server.clientTimeout = timeout;
      options.server.connectionLimit = options.connectionLimit;
      options.server.addressLimit = options.addressLimit;
      options.server.ratePerAddress = options.rate;
      if (judges) options.server.describePackage = [choice = options.configuration] { return DescribePackage(choice); };
      options.server.opened = [&said](std::uint16_t port, std::uint16_t statusPort) {
        said += " on port " + std::to_string(port);
        if (statusPort != 0) said += ", status page on port " + std::to_string(statusPort);
      };
      doors.push_back(server::MakeDoor(options.server));
    }
    if (judges) {
      PrepareToJudge(options);
      privacy.emplace(PrivacyOf(options.privacy));
      http_door::HttpOptions& http = options.http;
      http.listen = EndpointOf(options.httpListen, kHttpPort);
      if (options.httpTls) http.readPem = readPem;
      http.bodyLimit = std::size_t{options.bodyLimitMb} << 20U;
      http.memoryLimit = std::size_t{options.memoryLimitMb} << 20U;
      http.connectionLimit = options.connectionLimit;
      http.addressLimit = options.addressLimit;
      http.ratePerClient = options.rate;
      http.clientTimeout = timeout;
      http.judges = threads;
      http.mayAskServer = options.privacy != "none";
      http.packageSource = [choice = options.configuration] { return ConfigurationSource(choice); };
      http.opened = [&](std::uint16_t port) {
        said += said.empty() ? " " : ", ";
        said += options.httpTls ? "HTTPS on " : "HTTP on ";
        said += port != 0 ? "port " + std::to_string(port) : options.httpListen;
      };
      doors.push_back(http_door::MakeDoor(http));
    }
    net::RunService(doors, {threads, std::chrono::seconds(options.drainSeconds)}, [&] {
      if (!authority.empty()) PublishAuthority(authority);
      std::cerr << "zeph: serving" << said << std::endl;
    });
  } catch (const CommandError&) {
    throw;
  } catch (const std::runtime_error& failure) {
    throw CommandError(failure.what());
  }
}

}  // namespace

void AddServeCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("serve", "Give verdicts over HTTP, or be a classification server for engines");
  auto options = std::make_shared<ServeOptions>();
  options->server.version = options->http.version = EngineVersionText();
  command->add_option("--http", options->httpListen,
                      "Give verdicts over HTTP here: ADDRESS:PORT, port 0 for a free one, or unix:/PATH");
  command->add_flag("--http-tls", options->httpTls, "HTTPS there, with --certificate and --key or --self-signed");
  command->add_option("--tokens", options->http.tokenFile,
                      "File of those who may ask over HTTP, \"NAME TOKEN\" a line; read again upon SIGHUP");
  command->add_option("--access-log", options->http.accessLog,
                      "File of JSON lines, one a request over HTTP; - for standard error");
  command->add_option("--body-limit", options->bodyLimitMb, "Megabytes of a request's body over HTTP")
      ->check(CLI::Range(1U, 350U))
      ->capture_default_str();
  command->add_option("--memory-limit", options->memoryLimitMb, "Megabytes of all such bodies; half of it for one client")
      ->check(CLI::Range(1U, 1U << 20))
      ->capture_default_str();
  command->add_option("--requests", options->http.requestLimit,
                      "Requests that wait for a verdict at a time; half of them of one client")
      ->check(CLI::Range(2U, 1U << 20))
      ->capture_default_str();
  command->add_option("--drain", options->drainSeconds, "Seconds to answer at the end what has come")
      ->check(CLI::Range(0U, 3600U))
      ->capture_default_str();
  command->add_option("--listen", options->listen, "Where engines connect: ADDRESS:PORT, port 0 for a free one")
      ->capture_default_str();
  command->add_option("--verdicts", options->server.verdictFile,
                      "Answer engines by this list, one a line: VERDICT url|host|suffix PATTERN; read again when it "
                      "changes, and upon SIGHUP");
  command->add_option("--reports", options->server.reportDatabase, "SQLite database that engines' reports go into");
  command->add_option("--certificate", options->certificateFile, "Certificate chain (PEM); read again upon SIGHUP");
  command->add_option("--key", options->keyFile, "Its key (PEM)");
  command
      ->add_option("--self-signed", options->selfSignedFor,
                   "Make a certificate of a test authority for this host (default 127.0.0.1)")
      ->expected(0, 1)
      ->default_str("127.0.0.1");
  command->add_option("--status", options->status,
                      "Also show a status page, over plain HTTP: PORT of the loopback address, or ADDRESS:PORT");
  command->add_option("--connections", options->connectionLimit, "Connections at a time, for each door")
      ->capture_default_str();
  command
      ->add_option("--connections-per-address", options->addressLimit,
                   "Connections at a time from one address; 0 for half of all")
      ->capture_default_str();
  command->add_option("--report-limit", options->server.reportLimitMb, "Megabytes that the database may grow to")
      ->check(CLI::Range(1U, 1U << 20))
      ->capture_default_str();
  command
      ->add_option("--timeout", options->timeoutSeconds,
                   "Seconds that a client has for the handshake, for each request, and to take its answer")
      ->check(CLI::Range(1U, 3600U))
      ->capture_default_str();
  command
      ->add_option("--rate", options->rate,
                   "Requests a second from one address or token, in bursts of twice that; 0 for any number")
      ->capture_default_str();
  AddConfigurationOptions(*command, options->configuration);
  AddPrivacyOptions(*command, options->privacy, options->configuration);
  command->footer(
      "Verdicts of the list: trustworthy, spoofing, unclassified, report, confirmed. SIGTERM stops it with nothing lost.\n"
      "docs/gateways/http.md tells how verdicts are asked for, docs/server.md how engines are led to it.");
  command->callback([options] { Serve(*options); });
}

}  // namespace zeph
