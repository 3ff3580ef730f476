// SPDX-License-Identifier: Apache-2.0
#include "tests/server/TlsServer.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zeph::test {

namespace {

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

}  // namespace

TestAuthority::TestAuthority() : self_(zeph::server::MakeAuthority("Zeph test authority")) {}

Identity TestAuthority::Issue(const std::string& host, int validDays) const {
  return zeph::server::IssueCertificate(self_, host, validDays);
}

void TestAuthority::WriteTo(const std::string& path) const {
  std::ofstream file(path);
  file << zeph::server::CertificatePem(self_);
  Require(static_cast<bool>(file.flush()), "authority file");
}

std::string Connection::ReadRequest() {
  std::string request;
  std::string buffer(16384, '\0');
  for (;;) {
    const std::size_t headerEnd = request.find("\r\n\r\n");
    if (headerEnd != std::string::npos) {
      const std::size_t at = request.find("Content-Length: ");
      const std::size_t length = at == std::string::npos ? 0 : std::stoul(request.substr(at + 16));
      if (request.size() >= headerEnd + 4 + length) return request;
    }
    const int count = SSL_read(ssl_, buffer.data(), static_cast<int>(buffer.size()));
    if (count <= 0) return request;
    request.append(buffer, 0, static_cast<std::size_t>(count));
  }
}

bool Connection::Write(const std::string& data) {
  return SSL_write(ssl_, data.data(), static_cast<int>(data.size())) > 0;
}

void Connection::Answer(const std::string& body, const std::string& status) {
  Write("HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

TlsServer::TlsServer(const Identity& identity, std::function<void(Connection&)> handler)
    : context_(SSL_CTX_new(TLS_server_method())), handler_(std::move(handler)) {
  Require(SSL_CTX_use_certificate(context_.get(), identity.certificate.get()) == 1, "certificate");
  Require(SSL_CTX_use_PrivateKey(context_.get(), identity.key.get()) == 1, "key");
  listener_ = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  Require(bind(listener_, reinterpret_cast<sockaddr*>(&address), size) == 0 && listen(listener_, 64) == 0, "listen");
  getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { Accept(); });
}

TlsServer::~TlsServer() {
  stopping_ = true;
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  {
    const std::lock_guard lock(mutex_);
    for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
  }
  for (std::thread& thread : threads_) thread.join();
  close(listener_);
}

void TlsServer::Accept() {
  for (;;) {
    const int client = accept(listener_, nullptr, nullptr);
    if (client < 0 || stopping_) {
      if (client >= 0) close(client);
      return;
    }
    const std::lock_guard lock(mutex_);
    sockets_.push_back(client);
    threads_.emplace_back([this, client] { Serve(client); });
  }
}

void TlsServer::Serve(int socket) {
  const std::unique_ptr<SSL, FreeWith<SSL_free>> ssl(SSL_new(context_.get()));
  SSL_set_fd(ssl.get(), socket);
  if (SSL_accept(ssl.get()) == 1) {
    Connection connection(ssl.get());
    handler_(connection);
    SSL_shutdown(ssl.get());
  }
  const std::lock_guard lock(mutex_);
  std::erase(sockets_, socket);
  close(socket);
}

}  // namespace zeph::test
