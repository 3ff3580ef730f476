// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Server.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <sys/resource.h>

#include "DetectionEngine/engine/DebugLog.h"
#include "tools/classification-server/Activity.h"
#include "tools/classification-server/ReportStore.h"
#include "tools/classification-server/Requests.h"
#include "tools/classification-server/VerdictList.h"

namespace zeph::server {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

constexpr std::chrono::seconds kClientTimeout{10};  ///< for a handshake, for a request to come, for an answer to go
constexpr std::chrono::seconds kStopTimeout{5};
constexpr std::chrono::milliseconds kStopLook{10};     ///< how often to see whether all is answered
constexpr std::chrono::milliseconds kAcceptPause{50};  ///< when there is no room for another connection
constexpr std::uint32_t kHeaderLimit = 8 * 1024;
constexpr std::size_t kAddressesWatched = 100'000;
constexpr int kServerModule = 1;  ///< the log file of servers

void Log(const char* label, const std::string& text, int level) {
  if (LogIsWanted(level)) DebugLog(label, text.c_str(), "", 0, level, kServerModule);
}

/// How many requests an address may still send: a bucket that fills at the rate. One strand at a time uses it.
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

/// What all connections share.
struct Shared {
  explicit Shared(const ServerOptions& options)
      : verdicts(options.verdictFile),
        reports(options.reportDatabase),
        rate(options.ratePerAddress),
        connectionLimit(options.connectionLimit) {}

  VerdictFile verdicts;
  ReportStore reports;
  Activity activity;
  RateLimit rate;
  unsigned connectionLimit;
  std::atomic<unsigned> connections{0};
  std::atomic<unsigned> underWay{0};  ///< requests that have come and aren't answered
  std::atomic<bool> stopping{false};
};

/// Counts something while it lives.
class Counted {
 public:
  explicit Counted(std::atomic<unsigned>& count) : count_(count) { ++count_; }
  ~Counted() { --count_; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  std::atomic<unsigned>& count_;
};

Response MakeResponse(http::status status, unsigned version, bool keepAlive, std::string body, const char* type) {
  Response response(status, version);
  response.set(http::field::content_type, type);
  response.set(http::field::cache_control, "no-store");
  response.keep_alive(keepAlive);
  response.body() = std::move(body);
  response.prepare_payload();
  return response;
}

/// One client of the engine's exchange. Lives as long as an operation of its is under way.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(tcp::socket socket, asio::ssl::context& tls, Shared& shared)
      : seat_(shared.connections), shared_(shared), stream_(std::move(socket), tls) {
    boost::system::error_code ignored;
    address_ = beast::get_lowest_layer(stream_).socket().remote_endpoint(ignored).address().to_string();
  }

  void Start() {
    SetTimeout();
    stream_.async_handshake(asio::ssl::stream_base::server, [self = shared_from_this()](beast::error_code error) {
      if (!error) self->Read();
    });
  }

 private:
  void SetTimeout() { beast::get_lowest_layer(stream_).expires_after(kClientTimeout); }

  void Read() {
    if (shared_.stopping) return Close();
    parser_.emplace();
    parser_->body_limit(kBodyLimit);
    parser_->header_limit(kHeaderLimit);
    SetTimeout();
    http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](beast::error_code error, std::size_t) {
      if (!error) return self->Handle(self->parser_->release());
      if (error == http::error::body_limit || error == http::error::header_limit) {
        return self->Refuse(http::status::payload_too_large, 11);
      }
      if (error.category() == http::make_error_code(http::error::bad_method).category() &&
          error != http::error::end_of_stream && error != http::error::partial_message) {
        return self->Refuse(http::status::bad_request, 11);
      }
      self->Close();
    });
  }

  void Handle(Request request) {
    request_.emplace(shared_.underWay);
    const unsigned version = request.version();
    keepAlive_ = request.keep_alive() && !shared_.stopping;
    if (!shared_.rate.Allows(address_)) return Refuse(http::status::too_many_requests, version);
    if (request.method() != http::verb::post) return Refuse(http::status::method_not_allowed, version);
    const auto parsed = ParseEngineRequest({request.target().data(), request.target().size()}, request.body());
    if (!parsed) return Refuse(http::status::bad_request, version);
    if (parsed->kind == RequestKind::kCheck) {
      const std::int32_t answer = shared_.verdicts.Current()->Find(parsed->url);
      shared_.activity.NoteCheck(parsed->url, answer);
      return Answer(http::status::ok, version, AnswerBytes(answer));
    }
    beast::get_lowest_layer(stream_).expires_never();  // the store answers, sooner or later
    shared_.reports.Add(parsed->url, parsed->reportCode, parsed->context.value_or(""),
                        [self = shared_from_this(), version](bool kept) {
                          asio::post(self->stream_.get_executor(), [self, version, kept] {
                            if (!kept) return self->Refuse(http::status::service_unavailable, version);
                            self->shared_.activity.NoteReport();
                            self->Answer(http::status::ok, version, AnswerBytes(0));
                          });
                        });
  }

  void Refuse(http::status status, unsigned version) {
    shared_.activity.NoteRefusal();
    Log("Session", address_ + ": refused with " + std::to_string(static_cast<int>(status)), kLogWarning);
    keepAlive_ = false;
    Answer(status, version, "");
  }

  void Answer(http::status status, unsigned version, std::string body) {
    response_ = MakeResponse(status, version, keepAlive_, std::move(body), "application/octet-stream");
    SetTimeout();
    http::async_write(stream_, response_, [self = shared_from_this()](beast::error_code error, std::size_t) {
      self->request_.reset();
      if (error) return;
      if (self->keepAlive_) return self->Read();
      self->Close();
    });
  }

  void Close() {
    SetTimeout();
    stream_.async_shutdown([self = shared_from_this()](beast::error_code) {});
  }

  Counted seat_;
  std::optional<Counted> request_;  ///< while one is under way
  Shared& shared_;
  beast::ssl_stream<beast::tcp_stream> stream_;
  std::string address_;
  beast::flat_buffer buffer_{kBodyLimit + kHeaderLimit};
  std::optional<http::request_parser<http::string_body>> parser_;
  Response response_;
  bool keepAlive_ = false;
};

/// One look at the status page, over plain HTTP.
class StatusSession : public std::enable_shared_from_this<StatusSession> {
 public:
  StatusSession(tcp::socket socket, Shared& shared)
      : seat_(shared.connections), shared_(shared), stream_(std::move(socket)) {}

  void Start() {
    stream_.expires_after(kClientTimeout);
    http::async_read(stream_, buffer_, request_, [self = shared_from_this()](beast::error_code error, std::size_t) {
      if (!error) self->Answer();
    });
  }

 private:
  void Answer() {
    const bool isPage = request_.method() == http::verb::get && request_.target() == "/";
    response_ = MakeResponse(isPage ? http::status::ok : http::status::not_found, request_.version(), false,
                             isPage ? StatusPage(shared_.activity, shared_.reports) : "there is only /\n",
                             isPage ? "text/html; charset=utf-8" : "text/plain");
    response_.set("Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'");
    stream_.expires_after(kClientTimeout);
    http::async_write(stream_, response_, [self = shared_from_this()](beast::error_code, std::size_t) {
      boost::system::error_code ignored;
      self->stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
    });
  }

  Counted seat_;
  Shared& shared_;
  beast::tcp_stream stream_;
  beast::flat_buffer buffer_{kHeaderLimit};
  http::request<http::empty_body> request_;
  Response response_;
};

/// All that takes connections and ends it runs on one strand.
using Control = asio::strand<asio::io_context::executor_type>;

tcp::acceptor Listen(const Control& control, const std::string& address, std::uint16_t port) {
  boost::system::error_code error;
  const auto ip = asio::ip::make_address(address, error);
  if (error) throw std::runtime_error(address + ": " + error.message());
  try {
    tcp::acceptor acceptor(control, tcp::endpoint(ip, port), true);
    acceptor.listen(asio::socket_base::max_listen_connections);
    return acceptor;
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error(address + ":" + std::to_string(port) + ": " + failure.code().message());
  }
}

/// Accepts until the acceptor is closed; each connection on a strand of its own.
template <class Take>
void AcceptAll(asio::io_context& io, tcp::acceptor& acceptor, Take take) {
  acceptor.async_accept(
      asio::make_strand(io), [&io, &acceptor, take](boost::system::error_code error, tcp::socket socket) {
        if (!acceptor.is_open()) return;
        if (!error) {
          take(std::move(socket));
          return AcceptAll(io, acceptor, take);
        }
        // No descriptor is free, most likely, and none will be at once.
        const auto pause = std::make_shared<asio::steady_timer>(acceptor.get_executor(), kAcceptPause);
        pause->async_wait([&io, &acceptor, take, pause](boost::system::error_code) {
          if (acceptor.is_open()) AcceptAll(io, acceptor, take);
        });
      });
}

/// Lets what is under way be answered, but not for ever; kept connections that are idle don't count.
void StopWhenDone(asio::io_context& io, asio::steady_timer& timer, const Shared& shared,
                  std::chrono::steady_clock::time_point deadline) {
  if (shared.underWay == 0 || std::chrono::steady_clock::now() >= deadline) return io.stop();
  timer.expires_after(kStopLook);
  timer.async_wait(
      [&io, &timer, &shared, deadline](boost::system::error_code) { StopWhenDone(io, timer, shared, deadline); });
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

void Serve(const ServerOptions& options, void (*ready)(std::uint16_t port, std::uint16_t statusPort)) {
  RaiseDescriptorLimit();
  Shared shared(options);
  {
    asio::io_context io(static_cast<int>(options.threads));
    asio::ssl::context tls = MakeTls(options);
    const Control control = asio::make_strand(io);
    tcp::acceptor acceptor = Listen(control, options.listenAddress, options.listenPort);
    std::optional<tcp::acceptor> statusAcceptor;
    if (!options.statusAddress.empty()) statusAcceptor = Listen(control, options.statusAddress, options.statusPort);

    // A socket that isn't taken closes.
    const auto hasRoom = [&shared] {
      if (shared.connections < shared.connectionLimit) return true;
      shared.activity.NoteRefusal();
      return false;
    };
    AcceptAll(io, acceptor, [&](tcp::socket socket) {
      if (!hasRoom()) return;
      boost::system::error_code ignored;
      socket.set_option(tcp::no_delay(true), ignored);
      std::make_shared<Session>(std::move(socket), tls, shared)->Start();
    });
    if (statusAcceptor) {
      AcceptAll(io, *statusAcceptor, [&](tcp::socket socket) {
        if (hasRoom()) std::make_shared<StatusSession>(std::move(socket), shared)->Start();
      });
    }

    asio::steady_timer stopTimer(control);
    asio::signal_set signals(control, SIGTERM, SIGINT);
    signals.async_wait([&](boost::system::error_code error, int) {
      if (error) return;
      Log("Serve", "stopping", kLogInformation);
      shared.stopping = true;
      boost::system::error_code ignored;
      acceptor.close(ignored);
      if (statusAcceptor) statusAcceptor->close(ignored);
      StopWhenDone(io, stopTimer, shared, std::chrono::steady_clock::now() + kStopTimeout);
    });

    Log("Serve", "listening on " + options.listenAddress + ":" + std::to_string(acceptor.local_endpoint().port()),
        kLogInformation);
    ready(acceptor.local_endpoint().port(),
          statusAcceptor ? statusAcceptor->local_endpoint().port() : std::uint16_t{0});
    std::vector<std::jthread> threads;
    for (unsigned i = 1; i < options.threads; ++i) threads.emplace_back([&io] { io.run(); });
    io.run();
    threads.clear();
    // While the loop still exists, since the store hands its outcomes to it.
    shared.reports.Finish();
  }
  Log("Serve", "stopped", kLogInformation);
}

}  // namespace zeph::server
