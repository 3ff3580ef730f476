// SPDX-License-Identifier: Apache-2.0
// The real classification server in a process of its own, and clients that need not keep to any protocol.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/ssl.h>
#include <sys/types.h>

#include "tools/classification-server/Certificates.h"

namespace zeph::test {

/// "zeph serve" with a certificate of its own on a free port of 127.0.0.1, in a folder that holds "verdicts" and gets
/// "reports" and the authority's file. Killed when it is destroyed.
class ServerProcess {
 public:
  [[nodiscard]] static std::string Program();
  enum class Doors : std::uint8_t { kEngines, kHttp, kBoth };
  /// Comes back once the server listens. Throws std::runtime_error with what it said when it doesn't.
  explicit ServerProcess(const std::string& folder, std::vector<std::string> moreArguments = {},
                         Doors doors = Doors::kEngines, const std::string& program = Program());
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  [[nodiscard]] int Port() const { return port_; }
  [[nodiscard]] int HttpPort() const { return httpPort_; }
  [[nodiscard]] int StatusPort() const { return statusPort_; }
  [[nodiscard]] std::size_t OpenDescriptors() const;
  void Signal(int signal) const;
  /// Waits for its end. True when it ended by itself without fault; else what it said is on standard error.
  bool EndsWell();

 private:
  pid_t process_ = -1;
  int said_ = -1;
  int port_ = 0;
  int statusPort_ = 0;
  int httpPort_ = 0;
};

struct Answer {
  int status = 0;
  std::string body;
  std::string head;
};

/// A connection to 127.0.0.1, with or without TLS. What doesn't come within a minute counts as never.
class Client {
 public:
  enum class Kind : std::uint8_t { kPlain, kTls };
  Client(int port, Kind kind, const char* fromAddress = nullptr);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// False when there is no connection, or no handshake, or the server has gone.
  bool Send(std::string_view data);
  /// The next answer whole; nothing when the server went before that.
  std::optional<Answer> Receive();
  std::optional<Answer> Exchange(std::string_view data) { return Send(data) ? Receive() : std::nullopt; }
  /// Takes and drops what comes until the server closes the connection, which it is not told to do. False when it
  /// doesn't.
  bool IsCutOff();
  /// Closes the one direction and stays to hear the answer.
  void SayNoMore();
  /// Ends the connection at once, as a crash does.
  void Reset();

 private:
  template <auto Free>
  using FreeWith = zeph::server::FreeWith<Free>;

  std::optional<std::string> ReadSome();

  int socket_ = -1;
  std::unique_ptr<SSL_CTX, FreeWith<SSL_CTX_free>> context_;
  std::unique_ptr<SSL, FreeWith<SSL_free>> ssl_;
  std::string received_;
};

}  // namespace zeph::test
