// SPDX-License-Identifier: Apache-2.0
// Loops of connections: who gets one, which thread serves it, and by when its client must have done something.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <time.h>

#include "gateways/net/Endpoint.h"
#include "gateways/net/Shares.h"

namespace zeph::net {

namespace asio = boost::asio;
using Error = boost::system::error_code;
using Clock = std::chrono::steady_clock;
// A loop's own kind of socket: the general one pays for being able to stand on any executor. TCP and unix sockets alike.
using Executor = asio::io_context::executor_type;
using Protocol = asio::generic::stream_protocol;
using Socket = asio::basic_stream_socket<Protocol, Executor>;
using Acceptor = asio::basic_socket_acceptor<Protocol, Executor>;
using Timer = asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Executor>;

/// Counts something while it lives.
class Counted {
 public:
  explicit Counted(std::atomic<unsigned>& count) : count_(&count) { ++count; }
  Counted(Counted&& other) noexcept : count_(std::exchange(other.count_, nullptr)) {}
  ~Counted() {
    if (count_ != nullptr) --*count_;
  }
  Counted& operator=(Counted&&) = delete;

 private:
  std::atomic<unsigned>* count_;
};

/// A connection's place among all of its kind, in its loop, and among its client's.
struct Seat {
  Counted amongAll;
  Counted inLoop;
  Share ofClient;
};

class Client;

/// One thread's connections. They stay with it for life, so that nothing of theirs needs a lock.
struct Loop {
  std::atomic<unsigned> connections{0};  ///< that it was given and that are still there
  std::unordered_set<Client*> clients;
  asio::io_context io{1};
  Timer deadlines{io};
  std::array<char, 16 * 1024> drained{};  ///< what nobody reads

  /// Cuts off, again and again, whoever has let a deadline pass.
  void WatchDeadlines();
};

/// A connection: its socket, and the time by which its client must have done the next thing. Lives as long as an
/// operation of its is under way; on its loop's thread.
class Client : public std::enable_shared_from_this<Client> {
 public:
  Client(Loop& loop, Seat seat, std::chrono::milliseconds timeout)
      : loop_(loop), seat_(std::move(seat)), timeout_(timeout) {
    loop_.clients.insert(this);
  }
  virtual ~Client() { loop_.clients.erase(this); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  [[nodiscard]] Clock::time_point Deadline() const { return deadline_; }
  /// Ends every operation that is under way.
  void Cut() {
    Error ignored;
    OwnSocket().close(ignored);
  }

 protected:
  virtual Socket& OwnSocket() = 0;

  /// The end of a client that may still be sending: a socket that closes with bytes unread resets the connection, and
  /// an answer that is on its way is lost. So it is heard out, within the deadline and a limit.
  void CloseAfterAnswer();

  void SetTimeout() { deadline_ = Clock::now() + timeout_; }
  /// It is this process's turn.
  void HoldTimeout() { deadline_ = Clock::time_point::max(); }
  [[nodiscard]] Loop& OwnLoop() const { return loop_; }

 private:
  void Drain(std::size_t limit);

  Loop& loop_;
  Seat seat_;
  std::chrono::milliseconds timeout_;
  Clock::time_point deadline_ = Clock::time_point::max();
};

/// The loops that answer, each on a thread, and the choice of the one that gets the next connection.
///
/// A loop takes all that it has time for before the next is used: threads that take turns at work for one wake each
/// other, and wait for a processor in the middle of an answer. A connection stays where it was put, so that a loop that
/// has little time, or was given so many since the last look that its share says little, gets no more; if that goes for
/// all of them, the emptiest does. On the control loop's thread.
class Workers {
 public:
  Workers(Loop& control, unsigned count);
  ~Workers() { Stop(); }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  Loop& Next();
  /// Ends the threads. Their connections stay, and what is still handed to a loop is kept and not done.
  void Stop();

 private:
  struct Worker {
    Loop loop;
    clockid_t clock{};                ///< of its thread's share of a processor
    std::chrono::nanoseconds used{};  ///< of it, by the last look
    bool isBusy = false;              ///< for more than half of the time before that
    unsigned given = 0;               ///< connections since then
    std::jthread thread;
  };

  void Look();

  std::list<Worker> workers_;
  Timer looks_;
  Clock::time_point lookedAt_ = Clock::now();
};

/// Throws std::runtime_error with where and why. A unix socket that nobody listens at any more is taken over; everybody
/// who may enter its folder may use it.
[[nodiscard]] Acceptor Listen(Loop& loop, const Endpoint& endpoint);
/// The port in use; 0 of a unix socket.
[[nodiscard]] std::uint16_t PortOf(const Acceptor& acceptor);

/// Who is at the other end: the address without its port, or "unix:" and the user's number. The addresses of one IPv6
/// network count as one, since whoever has one has all.
[[nodiscard]] std::string PeerOf(Socket& socket);

/// The same connection on another loop, without delay of what is sent.
[[nodiscard]] Socket MoveTo(Loop& loop, Socket socket);

/// How long to wait when there is no room for another connection.
inline constexpr std::chrono::milliseconds kAcceptPause{50};

/// Accepts until the acceptor is closed. take(socket) runs on the acceptor's loop, whose the socket is.
template <class Take>
void AcceptAll(Acceptor& acceptor, Take take) {
  acceptor.async_accept([&acceptor, take](Error error, Socket socket) {
    if (!acceptor.is_open()) return;
    if (!error) {
      take(std::move(socket));
      return AcceptAll(acceptor, take);
    }
    // No descriptor is free, most likely, and none will be at once.
    const auto pause = std::make_shared<Timer>(acceptor.get_executor(), kAcceptPause);
    pause->async_wait([&acceptor, take, pause](Error) {
      if (acceptor.is_open()) AcceptAll(acceptor, take);
    });
  });
}

}  // namespace zeph::net
