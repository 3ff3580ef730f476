// SPDX-License-Identifier: Apache-2.0
// A real TLS server on loopback, and a test authority, for tests of the exchange.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <openssl/ssl.h>

#include "tools/classification-server/Certificates.h"

namespace zeph::test {

using zeph::server::FreeWith;
using zeph::server::Identity;
using ContextPtr = std::unique_ptr<SSL_CTX, FreeWith<SSL_CTX_free>>;

/// Signs server certificates, and is trusted by whoever names its file.
class TestAuthority {
 public:
  TestAuthority();
  /// A certificate for a host, valid from a day ago to validDays from now (negative: it has run out).
  [[nodiscard]] Identity Issue(const std::string& host, int validDays) const;
  /// Writes the authority's certificate for SSL_CERT_FILE.
  void WriteTo(const std::string& path) const;

 private:
  Identity self_;
};

/// One connection in the hands of a test's handler.
class Connection {
 public:
  explicit Connection(SSL* ssl) : ssl_(ssl) {}
  /// Reads until the whole request is there; gives it, or what came before the client went.
  std::string ReadRequest();
  /// False when the client is gone.
  bool Write(const std::string& data);
  /// A whole answer with that body.
  void Answer(const std::string& body, const std::string& status = "200 OK");

 private:
  SSL* ssl_;
};

/// Accepts on a free port of 127.0.0.1 until it is destroyed, each connection on a thread of its own.
class TlsServer {
 public:
  TlsServer(const Identity& identity, std::function<void(Connection&)> handler);
  ~TlsServer();
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;

  [[nodiscard]] int Port() const { return port_; }
  /// Wakes handlers that wait for it.
  [[nodiscard]] bool IsStopping() const { return stopping_; }

 private:
  void Accept();
  void Serve(int socket);

  ContextPtr context_;
  std::function<void(Connection&)> handler_;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::mutex mutex_;
  std::vector<int> sockets_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace zeph::test
