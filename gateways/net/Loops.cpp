// SPDX-License-Identifier: Apache-2.0
#include "gateways/net/Loops.h"

#include <algorithm>
#include <stdexcept>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zeph::net {

namespace {

constexpr std::chrono::milliseconds kDeadlineLook{250};  ///< how late a client may be cut off
constexpr std::chrono::milliseconds kLoadLook{250};      ///< how often to see which loops have time
constexpr unsigned kUnseenConnections = 32;              ///< that a loop is given between two looks
constexpr std::size_t kDrainLimit = 256 * 1024;

std::string NameOf(const asio::ip::address& address) {
  if (address.is_v4()) return address.to_string();
  if (address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
  }
  auto bytes = address.to_v6().to_bytes();
  constexpr std::size_t kNetworkBytes = 8;
  std::fill(bytes.begin() + kNetworkBytes, bytes.end(), static_cast<unsigned char>(0));
  return asio::ip::address_v6(bytes).to_string() + "/64";
}

/// The address and port of an endpoint of the internet; nothing for others.
bool AsTcp(const Protocol::endpoint& endpoint, asio::ip::tcp::endpoint& tcp) {
  const int family = endpoint.protocol().family();
  if ((family != AF_INET && family != AF_INET6) || endpoint.size() > tcp.capacity()) return false;
  std::copy_n(reinterpret_cast<const char*>(endpoint.data()), endpoint.size(), reinterpret_cast<char*>(tcp.data()));
  tcp.resize(endpoint.size());
  return true;
}

/// Takes the file of a unix socket away when nobody listens at it.
void RemoveStaleSocket(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
  asio::io_context io;
  asio::local::stream_protocol::socket probe(io);
  Error error;
  probe.connect(asio::local::stream_protocol::endpoint(path), error);
  if (error == asio::error::connection_refused) unlink(path.c_str());
}

}  // namespace

void Loop::WatchDeadlines() {
  deadlines.expires_after(kDeadlineLook);
  deadlines.async_wait([this](Error) {
    const auto now = Clock::now();
    // Cutting only closes sockets; the clients go when their operations have ended.
    for (Client* const client : clients) {
      if (client->Deadline() < now) client->Cut();
    }
    WatchDeadlines();
  });
}

void Client::CloseAfterAnswer() {
  Error ignored;
  OwnSocket().shutdown(asio::socket_base::shutdown_send, ignored);
  Drain(kDrainLimit);
}

void Client::Drain(std::size_t limit) {
  OwnSocket().async_read_some(asio::buffer(loop_.drained),
                              [self = shared_from_this(), limit](Error error, std::size_t count) {
                                if (!error && count < limit) self->Drain(limit - count);
                              });
}

Workers::Workers(Loop& control, unsigned count) : looks_(control.io) {
  for (unsigned index = 0; index < count; ++index) {
    Worker& worker = workers_.emplace_back();
    worker.loop.WatchDeadlines();
    worker.thread = std::jthread([&worker] { worker.loop.io.run(); });
    pthread_getcpuclockid(worker.thread.native_handle(), &worker.clock);
  }
  Look();
}

Loop& Workers::Next() {
  auto next = std::ranges::find_if(
      workers_, [](const Worker& worker) { return !worker.isBusy && worker.given < kUnseenConnections; });
  if (next == workers_.end()) {
    next = std::ranges::min_element(workers_, {}, [](const Worker& worker) { return worker.loop.connections.load(); });
  }
  ++next->given;
  return next->loop;
}

void Workers::Stop() {
  for (Worker& worker : workers_) worker.loop.io.stop();
  for (Worker& worker : workers_) {
    if (worker.thread.joinable()) worker.thread.join();
  }
}

void Workers::Look() {
  const auto now = Clock::now();
  for (Worker& worker : workers_) {
    timespec time{};
    clock_gettime(worker.clock, &time);
    const auto used = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    worker.isBusy = used - worker.used > (now - lookedAt_) / 2;
    worker.used = used;
    worker.given = 0;
  }
  lookedAt_ = now;
  looks_.expires_after(kLoadLook);
  looks_.async_wait([this](Error) { Look(); });
}

Acceptor Listen(Loop& loop, const Endpoint& endpoint) {
  std::string name = endpoint.address + ":" + std::to_string(endpoint.port);
  try {
    Acceptor acceptor(loop.io);
    if (!endpoint.path.empty()) {
      name = "unix:" + endpoint.path;
      RemoveStaleSocket(endpoint.path);
      const asio::local::stream_protocol::endpoint local(endpoint.path);
      acceptor.open(Protocol(AF_UNIX, 0));
      acceptor.bind(local);
      chmod(endpoint.path.c_str(), 0666);
    } else {
      Error error;
      const auto ip = asio::ip::make_address(endpoint.address, error);
      if (error) throw std::runtime_error(endpoint.address + ": " + error.message());
      const asio::ip::tcp::endpoint tcp(ip, endpoint.port);
      acceptor.open(Protocol(tcp.protocol()));
      acceptor.set_option(asio::socket_base::reuse_address(true));
      acceptor.bind(tcp);
    }
    acceptor.listen(asio::socket_base::max_listen_connections);
    return acceptor;
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error(name + ": " + failure.code().message());
  }
}

std::uint16_t PortOf(const Acceptor& acceptor) {
  Error ignored;
  asio::ip::tcp::endpoint tcp;
  return AsTcp(acceptor.local_endpoint(ignored), tcp) ? tcp.port() : std::uint16_t{0};
}

std::string PeerOf(Socket& socket) {
  Error error;
  asio::ip::tcp::endpoint tcp;
  if (AsTcp(socket.remote_endpoint(error), tcp)) return NameOf(tcp.address());
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return "unix";
  return "unix:" + std::to_string(peer.uid);
}

Socket MoveTo(Loop& loop, Socket socket) {
  Error ignored;
  const auto protocol = socket.local_endpoint(ignored).protocol();
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  return {loop.io, protocol, socket.release()};
}

}  // namespace zeph::net
