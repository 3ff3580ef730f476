// SPDX-License-Identifier: Apache-2.0
// One POST over TLS, in the steps that its callers log: open, send until a response comes, read its first bytes.
//
// Always TLS; the server's certificate must chain to an authority that the system trusts (OpenSSL's default store, and
// so SSL_CERT_FILE and SSL_CERT_DIR without raised privileges), but may be out of date or name another host. The
// system's proxy settings hold (https_proxy, all_proxy, no_proxy). Nothing is cached, no connection is kept, no
// redirect followed, no credentials sent. ZEPH_CONNECT_TO=HOST:PORT:ADDRESS:PORT leads the connection for a host
// elsewhere and changes nothing else; it is ignored with raised privileges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace zeph {

class HttpPost {
 public:
  HttpPost();
  ~HttpPost();
  HttpPost(const HttpPost&) = delete;
  HttpPost& operator=(const HttpPost&) = delete;

  /// False when the client library can't be used.
  bool Open(std::string_view userAgent);
  /// Takes the host; false when it can't be one.
  bool Connect(std::string_view host, std::uint16_t port);
  /// Asks for one of these public keys beside all else: "sha256//" and the hash in base64, several behind each other
  /// with ";" between. False when the client library doesn't take it.
  bool Pin(std::string_view keys);
  /// Takes the path; false when it can't be one.
  bool OpenRequest(std::string_view path);

  enum class SendResult : std::uint8_t { kResponse, kUntrustedAuthority, kFailed };
  /// Sends and waits until a final response's header stands. errorCode receives the client library's number on
  /// failure. Has no limit of its own: Abort ends it.
  SendResult Send(std::string_view header, std::string_view body, int& errorCode);

  /// Reads up to size bytes of the response's body into buffer, until there are that many, the body ends, it fails or
  /// timeoutMs have passed; gives their number. Stops the exchange: what follows in the body isn't read.
  std::size_t Read(char* buffer, std::size_t size, int timeoutMs);

  /// The response's status, such as 200; 0 before there is one.
  [[nodiscard]] long Status() const;
  /// Nothing more will come.
  [[nodiscard]] bool HasEnded() const noexcept;
  /// The body has come to the end that its header announced.
  [[nodiscard]] bool IsWhole() const noexcept;

  /// Makes a running Send or Read return soon, and later ones at once. Any thread, any number of times.
  void Abort() noexcept;

 private:
  struct Exchange;
  std::unique_ptr<Exchange> exchange_;
};

}  // namespace zeph
