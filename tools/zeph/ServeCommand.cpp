// SPDX-License-Identifier: Apache-2.0
#include <charconv>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

#include "DetectionEngine/platform/Files.h"
#include "tools/classification-server/Certificates.h"
#include "tools/classification-server/Server.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

constexpr std::size_t kPemLimit = 1 << 20;
constexpr int kCertificateDays = 825;

struct ServeOptions {
  server::ServerOptions server;
  std::string listen = "127.0.0.1:8443";
  std::string status;
  std::string certificateFile;
  std::string keyFile;
  std::string selfSignedFor;
  unsigned timeoutSeconds = 10;
};

/// A port alone leaves the address as it is.
void SplitAddress(const std::string& text, std::string& address, std::uint16_t& port) {
  const std::size_t colon = text.rfind(':');
  const std::string number = colon == std::string::npos ? text : text.substr(colon + 1);
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, port);
  if (error != std::errc{} || rest != end) throw CommandError("\"" + text + "\" is no ADDRESS:PORT");
  if (colon == std::string::npos) return;
  address = text.substr(0, colon);
  if (address.starts_with('[') && address.ends_with(']')) address = address.substr(1, address.size() - 2);
}

std::string ReadPem(const std::string& path) {
  const auto text = ReadWholeFile(path, kPemLimit);
  if (!text) throw CommandError(path + ": can't be read");
  return *text;
}

void WritePrivate(const std::string& path, const std::string& text) {
  if (!WriteWholeFile(path, text) || !SetFileMode(path, 0600)) throw CommandError(path + ": can't be written");
}

/// A test authority and a certificate of it, made anew for each start and kept nowhere but for the authority's
/// certificate, which others need to trust it and which is given.
std::string MakeSelfSigned(ServeOptions& options) {
  const server::Identity authority = server::MakeAuthority("Zeph test authority");
  const server::Identity own = server::IssueCertificate(authority, options.selfSignedFor, kCertificateDays);
  options.server.certificatePem = server::CertificatePem(own) + server::CertificatePem(authority);
  options.server.keyPem = server::KeyPem(own);
  return server::CertificatePem(authority);
}

/// Once the port is this server's: another that already runs keeps its own.
void PublishAuthority(const std::string& pem) {
  const std::string path = std::filesystem::absolute("zeph-test-authority.pem").string();
  WritePrivate(path, pem);
  std::cerr << "zeph: made a test authority. To trust it: SSL_CERT_FILE=" << path << " zeph check ..." << std::endl;
}

void Ready(std::uint16_t port, std::uint16_t statusPort) {
  std::cerr << "zeph: serving on port " << port;
  if (statusPort != 0) std::cerr << ", status page on port " << statusPort;
  std::cerr << std::endl;
}

void Serve(ServeOptions& options) {
  SplitAddress(options.listen, options.server.listenAddress, options.server.listenPort);
  if (!options.status.empty()) {
    options.server.statusAddress = "127.0.0.1";
    SplitAddress(options.status, options.server.statusAddress, options.server.statusPort);
  }
  std::string authority;
  if (!options.selfSignedFor.empty()) {
    authority = MakeSelfSigned(options);
  } else if (options.certificateFile.empty() || options.keyFile.empty()) {
    throw CommandError("a server needs --certificate and --key, or --self-signed");
  } else {
    options.server.certificatePem = ReadPem(options.certificateFile);
    options.server.keyPem = ReadPem(options.keyFile);
  }
  options.server.clientTimeout = std::chrono::seconds(options.timeoutSeconds);
  options.server.threads = std::max(2U, std::thread::hardware_concurrency());
  try {
    server::Serve(options.server, [&](std::uint16_t port, std::uint16_t statusPort) {
      if (!authority.empty()) PublishAuthority(authority);
      Ready(port, statusPort);
    });
  } catch (const CommandError&) {
    throw;
  } catch (const std::runtime_error& failure) {
    throw CommandError(failure.what());
  }
}

}  // namespace

void AddServeCommand(CLI::App& program, int&) {
  CLI::App* command = program.add_subcommand("serve", "Run a small classification server of your own");
  auto options = std::make_shared<ServeOptions>();
  command->add_option("--listen", options->listen, "Where engines connect: ADDRESS:PORT, port 0 for a free one")
      ->capture_default_str();
  command
      ->add_option("--verdicts", options->server.verdictFile,
                   "List of verdicts, one a line: VERDICT url|host|suffix PATTERN; read again when it changes, and "
                   "upon SIGHUP")
      ->required();
  command->add_option("--reports", options->server.reportDatabase, "SQLite database that reports go into")->required();
  command->add_option("--certificate", options->certificateFile, "Certificate chain (PEM)");
  command->add_option("--key", options->keyFile, "Its key (PEM)");
  command
      ->add_option("--self-signed", options->selfSignedFor,
                   "Make a certificate of a test authority for this host (default 127.0.0.1)")
      ->expected(0, 1)
      ->default_str("127.0.0.1");
  command->add_option("--status", options->status,
                      "Also show a status page, over plain HTTP: PORT of the loopback address, or ADDRESS:PORT");
  command->add_option("--connections", options->server.connectionLimit, "Connections at a time")->capture_default_str();
  command
      ->add_option("--connections-per-address", options->server.addressLimit,
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
      ->add_option("--rate", options->server.ratePerAddress,
                   "Requests a second from one address, in bursts of twice that; 0 for any number")
      ->capture_default_str();
  command->footer(
      "Verdicts: trustworthy, spoofing, unclassified, report, confirmed. SIGTERM stops it with nothing lost.\n"
      "docs/server.md tells how engines are led to it.");
  command->callback([options] { Serve(*options); });
}

}  // namespace zeph
