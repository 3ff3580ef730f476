// SPDX-License-Identifier: Apache-2.0
// A small classification server: answers checks from a list, keeps reports, shows what it has done.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "gateways/net/Endpoint.h"
#include "gateways/net/Service.h"
#include "gateways/net/Tls.h"

namespace zeph::server {

struct ServerOptions {
  net::Endpoint listen{"127.0.0.1", 8443, ""};
  std::optional<net::Endpoint> status;  ///< of the status page; nothing: none
  std::function<net::Pem()> readPem;    ///< of the certificate that is in force; upon SIGHUP again
  std::string verdictFile;
  std::string reportDatabase;
  unsigned reportLimitMb = 1024;    ///< how large the database may grow
  unsigned connectionLimit = 2000;  ///< more are closed at once
  unsigned addressLimit = 0;        ///< the same for one address; 0: half of all
  /// For a handshake, for a request to come whole, for an answer to go. A kept connection may be silent as long.
  std::chrono::milliseconds clientTimeout{10'000};
  unsigned ratePerAddress = 0;  ///< requests a second from one address, in bursts of twice that; 0: any number
  std::string version;          ///< of the program, for the status page
  std::function<std::string()> describePackage;  ///< in words, for the status page; may be empty
  /// Called once it listens, with the ports in use.
  std::function<void(std::uint16_t port, std::uint16_t statusPort)> opened;
};

/// The server as a door of a service: SIGHUP has the list and the certificate read again, at the end the reports that it
/// has are written. Throws std::runtime_error with the reason when list, database or certificate can't be used.
[[nodiscard]] std::shared_ptr<net::Door> MakeDoor(const ServerOptions& options);

}  // namespace zeph::server
