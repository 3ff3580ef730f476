// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <pthread.h>
#include <sys/resource.h>
#include <time.h>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tools/classification-server/Activity.h"
#include "tools/classification-server/Log.h"
#include "tools/classification-server/ReportStore.h"
#include "tools/classification-server/Requests.h"
#include "tools/classification-server/VerdictList.h"

namespace zeph::server {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using Clock = std::chrono::steady_clock;
// A loop's own kind of socket: the general one pays for being able to stand on any executor.
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<tcp, Executor>;
using Acceptor = asio::basic_socket_acceptor<tcp, Executor>;
using Timer = asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Executor>;

constexpr std::chrono::seconds kStopTimeout{5};
constexpr std::chrono::milliseconds kStopLook{10};       ///< how often to see whether all is answered
constexpr std::chrono::milliseconds kAcceptPause{50};    ///< when there is no room for another connection
constexpr std::chrono::milliseconds kDeadlineLook{250};  ///< how late a client may be cut off
constexpr std::chrono::milliseconds kLoadLook{250};      ///< how often to see which loops have time
constexpr unsigned kUnseenConnections = 32;              ///< that a loop is given between two looks
constexpr std::uint32_t kHeaderLimit = 8 * 1024;
constexpr std::size_t kDrainLimit = 256 * 1024;
constexpr std::size_t kReadAtOnce = 8 * 1024;
constexpr unsigned kVersionWithHosts = 11;
constexpr std::size_t kAddressesWatched = 100'000;
constexpr unsigned kStatusConnections = 16;  ///< beside the others, so that a crowd of them can't hide the page

/// How many requests an address may still send: a bucket that fills at the rate. Any thread.
class RateLimit {
 public:
  explicit RateLimit(unsigned perSecond) : perSecond_(perSecond) {}

  bool Allows(const std::string& address) {
    if (perSecond_ == 0) return true;
    const std::lock_guard lock(mutex_);
    // A crowd of addresses starts afresh rather than growing without bound.
    if (buckets_.size() > kAddressesWatched) buckets_.clear();
    const auto now = std::chrono::steady_clock::now();
    const double full = 2.0 * perSecond_;
    const auto [bucket, isNew] = buckets_.try_emplace(address, Bucket{full, now});
    auto& [tokens, filledAt] = bucket->second;
    tokens = std::min(full, tokens + std::chrono::duration<double>(now - filledAt).count() * perSecond_);
    filledAt = now;
    if (tokens < 1.0) return false;
    tokens -= 1.0;
    return true;
  }

 private:
  struct Bucket {
    double tokens;
    std::chrono::steady_clock::time_point filledAt;
  };
  unsigned perSecond_;
  std::mutex mutex_;
  std::unordered_map<std::string, Bucket> buckets_;
};

/// How many connections an address has. The addresses of one IPv6 network count as one, since whoever has one has all.
/// Any thread.
class AddressSeats {
 public:
  explicit AddressSeats(unsigned limit) : limit_(limit) {}

  [[nodiscard]] bool Take(const std::string& address) {
    const std::lock_guard lock(mutex_);
    unsigned& taken = taken_[address];
    if (taken == limit_) return false;
    ++taken;
    return true;
  }
  void GiveBack(const std::string& address) {
    const std::lock_guard lock(mutex_);
    const auto found = taken_.find(address);
    if (found != taken_.end() && --found->second == 0) taken_.erase(found);
  }

  static std::string NameOf(asio::ip::address address) {
    if (address.is_v4()) return address.to_string();
    if (address.to_v6().is_v4_mapped()) {
      return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
    }
    auto bytes = address.to_v6().to_bytes();
    constexpr std::size_t kNetworkBytes = 8;
    std::fill(bytes.begin() + kNetworkBytes, bytes.end(), static_cast<unsigned char>(0));
    return asio::ip::address_v6(bytes).to_string() + "/64";
  }

 private:
  unsigned limit_;
  std::mutex mutex_;
  std::unordered_map<std::string, unsigned> taken_;
};

/// An address's seat, given back at the end.
class AddressSeat {
 public:
  AddressSeat() = default;
  AddressSeat(AddressSeats& seats, std::string address) : seats_(&seats), address_(std::move(address)) {}
  AddressSeat(AddressSeat&& other) noexcept
      : seats_(std::exchange(other.seats_, nullptr)), address_(std::move(other.address_)) {}
  ~AddressSeat() {
    if (seats_ != nullptr) seats_->GiveBack(address_);
  }
  AddressSeat& operator=(AddressSeat&&) = delete;

 private:
  AddressSeats* seats_ = nullptr;
  std::string address_;
};

/// What all connections share.
struct Shared {
  explicit Shared(const ServerOptions& options)
      : options(options),
        verdicts(options.verdictFile),
        reports(options.reportDatabase, options.reportLimitMb),
        rate(options.ratePerAddress),
        seats(options.addressLimit != 0 ? options.addressLimit : std::max(1U, options.connectionLimit / 2)) {}

  const ServerOptions& options;
  VerdictFile verdicts;
  ReportStore reports;
  Activity activity;
  RateLimit rate;
  AddressSeats seats;
  SparingLog refusals;
  std::atomic<unsigned> connections{0};
  std::atomic<unsigned> statusConnections{0};
  std::atomic<unsigned> underWay{0};  ///< requests that have come and aren't answered
  std::atomic<bool> stopping{false};
};

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

/// A connection's place among all of its kind, and in its loop.
struct Seat {
  Counted amongAll;
  Counted inLoop;
  AddressSeat ofAddress;
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
  Client(Loop& loop, Seat seat, const Shared& shared)
      : loop_(loop), seat_(std::move(seat)), timeout_(shared.options.clientTimeout) {
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
  /// an answer that is on its way is lost. So it is heard out, within the deadline and the limit.
  void CloseAfterAnswer() {
    Error ignored;
    OwnSocket().shutdown(tcp::socket::shutdown_send, ignored);
    Drain(kDrainLimit);
  }

  void SetTimeout() { deadline_ = Clock::now() + timeout_; }
  void WaitForStore() { deadline_ = Clock::time_point::max(); }
  [[nodiscard]] Loop& OwnLoop() const { return loop_; }

 private:
  void Drain(std::size_t limit) {
    OwnSocket().async_read_some(asio::buffer(loop_.drained),
                                [self = shared_from_this(), limit](Error error, std::size_t count) {
                                  if (!error && count < limit) self->Drain(limit - count);
                                });
  }

  Loop& loop_;
  Seat seat_;
  std::chrono::milliseconds timeout_;
  Clock::time_point deadline_ = Clock::time_point::max();
};

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

std::string ResponseText(http::status status, bool keepAlive, std::string_view type, std::string_view body,
                         std::string_view moreHeaders = "") {
  const auto reason = http::obsolete_reason(status);
  std::string text = "HTTP/1.1 " + std::to_string(static_cast<unsigned>(status)) + " ";
  text.append(reason.data(), reason.size()).append("\r\nContent-Type: ").append(type);
  text.append("\r\nContent-Length: ").append(std::to_string(body.size()));
  text.append(keepAlive ? "\r\nConnection: keep-alive" : "\r\nConnection: close");
  text.append("\r\nCache-Control: no-store\r\n").append(moreHeaders).append("\r\n").append(body);
  return text;
}

/// A line of a header that goes on in the next, which is long forbidden: readers differ in what they make of it.
bool HasFoldedLine(std::string_view text) {
  const std::string_view header = text.substr(0, text.find("\r\n\r\n"));
  return header.find("\n ") != std::string_view::npos || header.find("\n\t") != std::string_view::npos;
}

/// One client of the engine's exchange.
class Session : public Client {
 public:
  Session(Loop& loop, Seat seat, Socket socket, asio::ssl::context& tls, Shared& shared)
      : Client(loop, std::move(seat), shared), shared_(shared), stream_(std::move(socket), tls) {
    Error ignored;
    address_ = AddressSeats::NameOf(stream_.next_layer().remote_endpoint(ignored).address());
  }

  void Start() {
    SetTimeout();
    stream_.async_handshake(asio::ssl::stream_base::server, [self = Self()](Error error) {
      if (!error) self->Read();
    });
  }

 private:
  Socket& OwnSocket() override { return stream_.next_layer(); }
  std::shared_ptr<Session> Self() { return std::static_pointer_cast<Session>(shared_from_this()); }

  void Read() {
    if (shared_.stopping) return Close();
    parser_.emplace();
    parser_->body_limit(kBodyLimit);
    parser_->header_limit(kHeaderLimit);
    parser_->eager(true);
    SetTimeout();
    Parse();
  }

  /// Takes what has come, and reads on until the request is whole. The parser would join lines that are folded, and the
  /// header stands in the buffer whole before it takes any of it: so that is looked through first.
  void Parse() {
    Error error;
    while (buffer_.size() != 0 && !parser_->is_done() && !error) {
      const auto bytes = buffer_.data();
      if (!parser_->is_header_done() && HasFoldedLine({static_cast<const char*>(bytes.data()), bytes.size()})) {
        return Refuse(http::status::bad_request);
      }
      buffer_.consume(parser_->put(bytes, error));
    }
    if (parser_->is_done()) return Handle();
    if (error == http::error::body_limit || error == http::error::header_limit) {
      return Refuse(http::status::payload_too_large);
    }
    if (error && error != http::error::need_more) return Refuse(http::status::bad_request);
    const std::size_t room = std::min(kReadAtOnce, buffer_.max_size() - buffer_.size());
    stream_.async_read_some(buffer_.prepare(room), [self = Self()](Error failed, std::size_t count) {
      if (failed) return self->Close();
      self->buffer_.commit(count);
      self->Parse();
    });
  }

  /// A request as HTTP wants it: it names its host, once, unless it is of the old kind.
  [[nodiscard]] static bool NamesItsHost(const http::request<http::string_body>& request) {
    const std::size_t count = request.count(http::field::host);
    return count == 1 || (count == 0 && request.version() < kVersionWithHosts);
  }

  void Handle() {
    request_.emplace(shared_.underWay);
    const auto& request = parser_->get();
    keepAlive_ = request.keep_alive() && !shared_.stopping;
    if (!shared_.rate.Allows(address_)) return Refuse(http::status::too_many_requests);
    if (!NamesItsHost(request)) return Refuse(http::status::bad_request);
    if (request.method() != http::verb::post) return Refuse(http::status::method_not_allowed);
    const auto parsed = ParseEngineRequest({request.target().data(), request.target().size()}, request.body());
    if (!parsed) return Refuse(http::status::bad_request);
    if (parsed->kind == RequestKind::kCheck) {
      const std::int32_t answer = shared_.verdicts.Current()->Find(parsed->url);
      shared_.activity.NoteCheck(parsed->url, answer);
      return Answer(http::status::ok, AnswerBytes(answer));
    }
    WaitForStore();
    // Handed on to the loop without a copy left behind: this must not end on the store's thread.
    auto answer = [self = Self()](bool kept) mutable {
      auto& io = self->OwnLoop().io;
      asio::post(io, [self = std::move(self), kept] {
        if (!kept) return self->Refuse(http::status::service_unavailable);
        self->shared_.activity.NoteReport();
        self->Answer(http::status::ok, AnswerBytes(0));
      });
    };
    shared_.reports.Add(parsed->url, parsed->reportCode, parsed->context.value_or(""), std::move(answer));
  }

  void Refuse(http::status status) {
    shared_.activity.NoteRefusal();
    shared_.refusals.Write("Session", address_ + ": refused with " + std::to_string(static_cast<int>(status)),
                           kLogWarning);
    keepAlive_ = false;
    Answer(status, "");
  }

  void Answer(http::status status, std::string_view body) {
    response_ = ResponseText(status, keepAlive_, "application/octet-stream", body);
    SetTimeout();
    asio::async_write(stream_, asio::buffer(response_), [self = Self()](Error error, std::size_t) {
      self->request_.reset();
      if (error) return;
      if (self->keepAlive_) return self->Read();
      self->Close();
    });
  }

  void Close() {
    SetTimeout();
    stream_.async_shutdown([self = Self()](Error error) {
      if (error) self->CloseAfterAnswer();
    });
  }

  std::optional<Counted> request_;  ///< while one is under way
  Shared& shared_;
  asio::ssl::stream<Socket> stream_;
  std::string address_;
  beast::flat_buffer buffer_{kBodyLimit + kHeaderLimit};
  std::optional<http::request_parser<http::string_body>> parser_;
  std::string response_;
  bool keepAlive_ = false;
};

/// A name that a person types to reach a page on their own machine. Any other may be a stranger's that was pointed at
/// this address, so that a page of the stranger's reads along.
bool IsPlainHost(std::string_view host) {
  const std::size_t colon = host.rfind(':');
  if (colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos) host = host.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  Error error;
  asio::ip::make_address(std::string(host), error);
  return !error || host == "localhost";
}

/// One look at the status page, over plain HTTP.
class StatusSession : public Client {
 public:
  StatusSession(Loop& loop, Seat seat, Socket socket, Shared& shared)
      : Client(loop, std::move(seat), shared), shared_(shared), socket_(std::move(socket)) {}

  void Start() {
    SetTimeout();
    request_.header_limit(kHeaderLimit);
    http::async_read_header(socket_, buffer_, request_, [self = Self()](Error error, std::size_t) {
      if (!error) self->Answer();
    });
  }

 private:
  Socket& OwnSocket() override { return socket_; }
  std::shared_ptr<StatusSession> Self() { return std::static_pointer_cast<StatusSession>(shared_from_this()); }

  std::string Response() const {
    const auto& request = request_.get();
    const auto host = request[http::field::host];
    if (!IsPlainHost({host.data(), host.size()})) {
      return ResponseText(http::status::misdirected_request, false, "text/plain", "reach this page by its address\n");
    }
    if (request.method() != http::verb::get) {
      return ResponseText(http::status::method_not_allowed, false, "text/plain", "this page only reads\n",
                          "Allow: GET\r\n");
    }
    if (request.target() != "/") {
      return ResponseText(http::status::not_found, false, "text/plain", "there is only /\n");
    }
    return ResponseText(http::status::ok, false, "text/html; charset=utf-8",
                        StatusPage(shared_.activity, shared_.reports),
                        "Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'\r\n");
  }

  void Answer() {
    response_ = Response();
    SetTimeout();
    asio::async_write(socket_, asio::buffer(response_), [self = Self()](Error error, std::size_t) {
      if (!error) self->CloseAfterAnswer();
    });
  }

  const Shared& shared_;
  Socket socket_;
  beast::flat_buffer buffer_{2 * kHeaderLimit};
  http::request_parser<http::empty_body> request_;
  std::string response_;
};

Acceptor Listen(Loop& loop, const std::string& address, std::uint16_t port) {
  Error error;
  const auto ip = asio::ip::make_address(address, error);
  if (error) throw std::runtime_error(address + ": " + error.message());
  try {
    Acceptor acceptor(loop.io, tcp::endpoint(ip, port), true);
    acceptor.listen(asio::socket_base::max_listen_connections);
    return acceptor;
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error(address + ":" + std::to_string(port) + ": " + failure.code().message());
  }
}

/// The loops that answer, each on a thread, and the choice of the one that gets the next connection.
///
/// A loop takes all that it has time for before the next is used: threads that take turns at work for one wake each
/// other, and wait for a processor in the middle of an answer. A connection stays where it was put, so that a loop that
/// has little time, or was given so many since the last look that its share says little, gets no more; if that goes for
/// all of them, the emptiest does. On the control loop's thread.
class Workers {
 public:
  Workers(Loop& control, unsigned count) : looks_(control.io) {
    for (unsigned index = 0; index < count; ++index) {
      Worker& worker = workers_.emplace_back();
      worker.loop.WatchDeadlines();
      worker.thread = std::jthread([&worker] { worker.loop.io.run(); });
      pthread_getcpuclockid(worker.thread.native_handle(), &worker.clock);
    }
    Look();
  }
  ~Workers() { Stop(); }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  Loop& Next() {
    auto next = std::ranges::find_if(
        workers_, [](const Worker& worker) { return !worker.isBusy && worker.given < kUnseenConnections; });
    if (next == workers_.end()) {
      next =
          std::ranges::min_element(workers_, {}, [](const Worker& worker) { return worker.loop.connections.load(); });
    }
    ++next->given;
    return next->loop;
  }

  /// Ends the threads. Their connections stay, and what is still handed to a loop is kept and not done.
  void Stop() {
    for (Worker& worker : workers_) worker.loop.io.stop();
    for (Worker& worker : workers_) {
      if (worker.thread.joinable()) worker.thread.join();
    }
  }

 private:
  struct Worker {
    Loop loop;
    clockid_t clock{};                ///< of its thread's share of a processor
    std::chrono::nanoseconds used{};  ///< of it, by the last look
    bool isBusy = false;              ///< for more than half of the time before that
    unsigned given = 0;               ///< connections since then
    std::jthread thread;
  };

  void Look() {
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

  std::list<Worker> workers_;
  Timer looks_;
  Clock::time_point lookedAt_ = Clock::now();
};

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

/// The same connection on another loop.
Socket MoveTo(Loop& loop, Socket socket) {
  const auto protocol = socket.local_endpoint().protocol();
  return {loop.io, protocol, socket.release()};
}

/// Lets what is under way be answered, but not for ever; kept connections that are idle don't count.
void StopWhenDone(Loop& control, Timer& timer, const Shared& shared, Clock::time_point deadline) {
  if (shared.underWay == 0 || Clock::now() >= deadline) return control.io.stop();
  timer.expires_after(kStopLook);
  timer.async_wait([&control, &timer, &shared, deadline](Error) { StopWhenDone(control, timer, shared, deadline); });
}

asio::ssl::context MakeTls(const ServerOptions& options) {
  asio::ssl::context tls(asio::ssl::context::tls_server);
  tls.set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1);
  try {
    tls.use_certificate_chain(asio::buffer(options.certificatePem));
    tls.use_private_key(asio::buffer(options.keyPem), asio::ssl::context::pem);
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error("certificate and key: " + failure.code().message());
  }
  return tls;
}

/// Each connection takes a descriptor, and the usual limit is below what a server may need.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void Serve(const ServerOptions& options,
           const std::function<void(std::uint16_t port, std::uint16_t statusPort)>& ready) {
  RaiseDescriptorLimit();
  EnsureFolder(Widen(GetDataFolder()));  // of the log
  asio::ssl::context tls = MakeTls(options);
  Shared shared(options);
  // Accepts, shows the status page and ends it all; the workers answer.
  Loop control;
  Acceptor acceptor = Listen(control, options.listenAddress, options.listenPort);
  std::optional<Acceptor> statusAcceptor;
  if (!options.statusAddress.empty()) statusAcceptor = Listen(control, options.statusAddress, options.statusPort);
  control.WatchDeadlines();
  Workers workers(control, std::max(1U, options.threads));

  // A socket that isn't taken closes.
  const auto hasRoom = [&shared](const std::atomic<unsigned>& connections, unsigned limit) {
    if (connections < limit) return true;
    shared.activity.NoteRefusal();
    return false;
  };
  AcceptAll(acceptor, [&](Socket accepted) {
    if (!hasRoom(shared.connections, options.connectionLimit)) return;
    Error ignored;
    const std::string address = AddressSeats::NameOf(accepted.remote_endpoint(ignored).address());
    if (!shared.seats.Take(address)) return shared.activity.NoteRefusal();
    AddressSeat ofAddress(shared.seats, address);
    accepted.set_option(tcp::no_delay(true), ignored);
    // Counted at once: the next may be here before the loop has taken this one.
    Loop& loop = workers.Next();
    Seat seat{Counted(shared.connections), Counted(loop.connections), std::move(ofAddress)};
    asio::post(loop.io, [&, seat = std::move(seat), socket = MoveTo(loop, std::move(accepted))]() mutable {
      std::make_shared<Session>(loop, std::move(seat), std::move(socket), tls, shared)->Start();
    });
  });
  if (statusAcceptor) {
    AcceptAll(*statusAcceptor, [&](Socket socket) {
      if (!hasRoom(shared.statusConnections, kStatusConnections)) return;
      Seat seat{Counted(shared.statusConnections), Counted(control.connections), {}};
      std::make_shared<StatusSession>(control, std::move(seat), std::move(socket), shared)->Start();
    });
  }

  Timer stopTimer(control.io);
  asio::basic_signal_set<Executor> signals(control.io, SIGTERM, SIGINT);
  signals.async_wait([&](Error error, int) {
    if (error) return;
    Log("Serve", "stopping", kLogInformation);
    shared.stopping = true;
    Error ignored;
    acceptor.close(ignored);
    if (statusAcceptor) statusAcceptor->close(ignored);
    StopWhenDone(control, stopTimer, shared, Clock::now() + kStopTimeout);
  });

  asio::basic_signal_set<Executor> hangUps(control.io, SIGHUP);
  std::function<void()> awaitHangUp = [&] {
    hangUps.async_wait([&](Error error, int) {
      if (error) return;
      shared.verdicts.Reread();
      awaitHangUp();
    });
  };
  awaitHangUp();

  Log("Serve", "listening on " + options.listenAddress + ":" + std::to_string(acceptor.local_endpoint().port()),
      kLogInformation);
  ready(acceptor.local_endpoint().port(), statusAcceptor ? statusAcceptor->local_endpoint().port() : std::uint16_t{0});
  control.io.run();
  workers.Stop();
  // While the loops still exist, since the store hands its outcomes to them.
  shared.reports.Finish();
  Log("Serve", "stopped", kLogInformation);
}

}  // namespace zeph::server
