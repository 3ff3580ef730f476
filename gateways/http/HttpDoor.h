// SPDX-License-Identifier: Apache-2.0
// The engine over HTTP: POST /v1/check with an address, a page, a letter or a recording, answered in the JSON of the
// command line; what watches over it asks /metrics, /healthz and /readyz.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "gateways/net/Endpoint.h"
#include "gateways/net/Service.h"
#include "gateways/net/Tls.h"

namespace zeph::http_door {

struct HttpOptions {
  net::Endpoint listen{"127.0.0.1", 8080, ""};
  std::function<net::Pem()> readPem;  ///< of the certificate, upon SIGHUP again; empty: no TLS
  std::string tokenFile;              ///< of those who may ask, upon SIGHUP again; empty: whoever can connect
  std::string accessLog;              ///< its file; "-": standard error; empty: none
  std::size_t bodyLimit = std::size_t{32} << 20;     ///< bytes of one body
  std::size_t memoryLimit = std::size_t{512} << 20;  ///< bytes of all bodies at a time; half of it for one client
  unsigned connectionLimit = 2000;                   ///< more are refused
  unsigned addressLimit = 0;                         ///< the same for one address; 0: half of all
  unsigned requestLimit = 256;  ///< that wait for a verdict or get one; half of it for one client
  unsigned ratePerClient = 0;   ///< requests a second, in bursts of twice that; 0: any number
  unsigned judges = 2;          ///< threads that judge
  bool mayAskServer = false;    ///< a judgement may wait for the classification server
  /// For a handshake, for a request to come whole, for an answer to go. A kept connection may be silent as long.
  std::chrono::milliseconds clientTimeout{10'000};
  std::string version;                         ///< of the program
  std::function<std::string()> packageSource;  ///< where the configuration in force comes from, see Judges
  std::function<void(std::uint16_t port)> opened;  ///< called once it listens, with the port in use; 0 of a unix socket
};

/// A client is whom a token names; without tokens, an address. Throws std::runtime_error with the reason when a
/// certificate, the tokens or the log can't be used.
[[nodiscard]] std::shared_ptr<net::Door> MakeDoor(const HttpOptions& options);

}  // namespace zeph::http_door
