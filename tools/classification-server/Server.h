// SPDX-License-Identifier: Apache-2.0
// A small classification server: answers checks from a list, keeps reports, shows what it has done.
//
// Built on Boost.Beast because it serves any number of slow clients from a few threads, uses the same OpenSSL as the
// engine, and leaves limits and time-outs to its user.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace zeph::server {

struct ServerOptions {
  std::string listenAddress = "127.0.0.1";
  std::uint16_t listenPort = 8443;  ///< 0: a free one
  std::string statusAddress;        ///< of the status page; empty: none
  std::uint16_t statusPort = 0;
  std::string certificatePem;  ///< the chain, the server's own certificate first
  std::string keyPem;
  std::string verdictFile;
  std::string reportDatabase;
  unsigned threads = 2;
  unsigned reportLimitMb = 1024;    ///< how large the database may grow
  unsigned connectionLimit = 2000;  ///< more are closed at once
  unsigned addressLimit = 0;        ///< the same for one address; 0: half of all
  /// For a handshake, for a request to come whole, for an answer to go. A kept connection may be silent as long.
  std::chrono::milliseconds clientTimeout{10'000};
  unsigned ratePerAddress = 0;  ///< requests a second from one address, in bursts of twice that; 0: any number
};

/// Serves until SIGTERM or SIGINT, and reads the list of verdicts again upon SIGHUP; then takes no more connections,
/// answers what it has begun (for at most five seconds), writes the reports that it has and returns. Calls ready with
/// the ports in use once it listens; what that throws ends it. Throws std::runtime_error with the reason when it can't
/// start.
void Serve(const ServerOptions& options,
           const std::function<void(std::uint16_t port, std::uint16_t statusPort)>& ready);

}  // namespace zeph::server
