// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Server.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/platform/CodePage.h"
#include "gateways/net/Http.h"
#include "gateways/net/Loops.h"
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
using net::Acceptor;
using net::Client;
using net::Counted;
using net::Error;
using net::kHeaderLimit;
using net::Loop;
using net::ResponseText;
using net::Seat;
using net::Socket;

constexpr std::size_t kReadAtOnce = 8 * 1024;
constexpr unsigned kStatusConnections = 16;  ///< beside the others, so that a crowd of them can't hide the page

/// What all connections share.
struct Shared {
  explicit Shared(const ServerOptions& given)
      : options(given),
        verdicts(options.verdictFile),
        reports(options.reportDatabase, options.reportLimitMb),
        tls(options.readPem),
        rate(options.ratePerAddress),
        seats(options.addressLimit != 0 ? options.addressLimit : std::max(1U, options.connectionLimit / 2),
              std::max(1U, options.connectionLimit)) {}

  const ServerOptions options;
  VerdictFile verdicts;
  ReportStore reports;
  Activity activity;
  net::Tls tls;
  net::RateLimit rate;
  net::Shares seats;
  SparingLog refusals;
  std::atomic<unsigned> connections{0};
  std::atomic<unsigned> statusConnections{0};
  std::atomic<unsigned> underWay{0};  ///< requests that have come and aren't answered
  std::atomic<bool> stopping{false};
};

/// One client of the engine's exchange.
class Session : public Client {
 public:
  Session(Loop& loop, Seat seat, Socket socket, std::string address, Shared& shared)
      : Client(loop, std::move(seat), shared.options.clientTimeout),
        shared_(shared),
        stream_(std::move(socket), *shared.tls.Current()),
        address_(std::move(address)) {}

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
      if (!parser_->is_header_done() && net::HasFoldedLine({static_cast<const char*>(bytes.data()), bytes.size()})) {
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

  void Handle() {
    request_.emplace(shared_.underWay);
    const auto& request = parser_->get();
    keepAlive_ = request.keep_alive() && !shared_.stopping;
    if (!shared_.rate.Allows(address_)) return Refuse(http::status::too_many_requests);
    if (!net::NamesItsHost(request)) return Refuse(http::status::bad_request);
    if (request.method() != http::verb::post) return Refuse(http::status::method_not_allowed);
    const auto parsed = ParseEngineRequest({request.target().data(), request.target().size()}, request.body());
    if (!parsed) return Refuse(http::status::bad_request);
    if (parsed->kind == RequestKind::kCheck) {
      const std::int32_t answer = shared_.verdicts.Current()->Find(parsed->url);
      shared_.activity.NoteCheck(parsed->url, answer);
      return Answer(http::status::ok, AnswerBytes(answer));
    }
    HoldTimeout();
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
      : Client(loop, std::move(seat), shared.options.clientTimeout), shared_(shared), socket_(std::move(socket)) {}

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
                        StatusPage({shared_.activity, shared_.reports, shared_.verdicts.State(), shared_.options.version,
                                    shared_.options.describePackage ? shared_.options.describePackage() : ""}),
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

/// The engines' exchange and the page that tells of it.
class ClassificationDoor : public net::Door {
 public:
  explicit ClassificationDoor(const ServerOptions& options) : shared_(options) {}

  void Open(Loop& control, net::Workers& workers) override {
    const ServerOptions& options = shared_.options;
    acceptor_ = net::Listen(control, options.listen);
    if (options.status) statusAcceptor_ = net::Listen(control, *options.status);
    net::AcceptAll(*acceptor_, [this, &workers](Socket accepted) { Seated(workers, std::move(accepted)); });
    if (statusAcceptor_) {
      net::AcceptAll(*statusAcceptor_, [this, &control](Socket socket) {
        if (!HasRoom(shared_.statusConnections, kStatusConnections)) return;
        Seat seat{Counted(shared_.statusConnections), Counted(control.connections), {}};
        std::make_shared<StatusSession>(control, std::move(seat), std::move(socket), shared_)->Start();
      });
    }
    const std::uint16_t port = net::PortOf(*acceptor_);
    Log("Serve", "listening on " + options.listen.address + ":" + std::to_string(port), kLogInformation);
    if (options.opened) options.opened(port, statusAcceptor_ ? net::PortOf(*statusAcceptor_) : std::uint16_t{0});
  }

  void Reload() override {
    shared_.verdicts.Reread();
    if (const std::string why = shared_.tls.Reload(); !why.empty()) {
      Log("Serve", why + "; the certificate stays as it is", kLogError);
    }
  }

  void Close() override {
    Log("Serve", "stopping", kLogInformation);
    shared_.stopping = true;
    Error ignored;
    acceptor_->close(ignored);
    if (statusAcceptor_) statusAcceptor_->close(ignored);
  }

  [[nodiscard]] bool IsDone() const override { return shared_.underWay == 0; }

  void Finish() override {
    shared_.reports.Finish();  // the store hands its outcomes to the loops
    acceptor_.reset();
    statusAcceptor_.reset();
    Log("Serve", "stopped", kLogInformation);
  }

 private:
  bool HasRoom(const std::atomic<unsigned>& connections, unsigned limit) {
    if (connections < limit) return true;
    shared_.activity.NoteRefusal();
    return false;
  }

  /// A socket that isn't taken closes.
  void Seated(net::Workers& workers, Socket accepted) {
    if (!HasRoom(shared_.connections, shared_.options.connectionLimit)) return;
    std::string address = net::PeerOf(accepted);
    net::Share ofAddress(shared_.seats, address);
    if (!ofAddress.GrowTo(1)) return shared_.activity.NoteRefusal();
    // Counted at once: the next may be here before the loop has taken this one.
    Loop& loop = workers.Next();
    Seat seat{Counted(shared_.connections), Counted(loop.connections), std::move(ofAddress)};
    asio::post(loop.io, [&, seat = std::move(seat), address = std::move(address),
                         socket = net::MoveTo(loop, std::move(accepted))]() mutable {
      std::make_shared<Session>(loop, std::move(seat), std::move(socket), std::move(address), shared_)->Start();
    });
  }

  Shared shared_;
  std::optional<Acceptor> acceptor_;
  std::optional<Acceptor> statusAcceptor_;
};

}  // namespace

std::shared_ptr<net::Door> MakeDoor(const ServerOptions& options) {
  EnsureFolder(Widen(GetDataFolder()));  // of the log
  return std::make_shared<ClassificationDoor>(options);
}

}  // namespace zeph::server
