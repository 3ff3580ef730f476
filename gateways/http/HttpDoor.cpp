// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/HttpDoor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <unistd.h>

#include "DetectionEngine/base/DebugLog.h"
#include "gateways/http/AccessLog.h"
#include "gateways/http/CheckRequest.h"
#include "gateways/http/JudgePool.h"
#include "gateways/http/Judges.h"
#include "gateways/http/Metrics.h"
#include "gateways/http/OpenApi.h"
#include "gateways/http/Tokens.h"
#include "gateways/net/Http.h"
#include "gateways/net/Loops.h"
#include "judging/Answers.h"

namespace zeph::http_door {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using net::Acceptor;
using net::Clock;
using net::Counted;
using net::Error;
using net::kHeaderLimit;
using net::Loop;
using net::Seat;
using net::Socket;

constexpr std::size_t kReadAtOnce = 32 * 1024;
constexpr std::size_t kBufferKept = 8 * 1024;  ///< of a connection that waits for its next request
/// A question so short is judged where it is read: it costs less than to hand it to another thread.
constexpr std::size_t kShortQuestion = 2 * 1024;
/// A batch is judged in slices, so that others get in between and no answer is held whole.
constexpr std::size_t kSliceBytes = 64 * 1024;
constexpr std::size_t kSliceLines = 128;
constexpr std::chrono::milliseconds kSliceTime{20};
constexpr std::chrono::seconds kLookEvery{1};
constexpr std::string_view kJsonType = "application/json";
constexpr std::string_view kLinesType = "application/x-ndjson";
constexpr std::string_view kRetryAfter = "Retry-After: 1\r\n";

void Log(const std::string& text, int level) {
  constexpr int kServerModule = 1;
  if (LogIsWanted(level)) DebugLog("Http", text.c_str(), "", 0, level, kServerModule);
}

/// What all connections share.
struct Shared {
  explicit Shared(const HttpOptions& given)
      : options(given),
        accessLog(options.accessLog),
        judges(options.packageSource),
        rate(options.ratePerClient),
        seats(options.addressLimit != 0 ? options.addressLimit : std::max(1U, options.connectionLimit / 2),
              std::max(1U, options.connectionLimit)),
        bodies(std::max(options.bodyLimit, options.memoryLimit / 2), std::max(options.bodyLimit, options.memoryLimit)),
        requests(std::max(1U, options.requestLimit / 2), std::max(1U, options.requestLimit)),
        openApi(OpenApiDocument(options.version)),
        pool(options.judges) {
    if (options.readPem) tls.emplace(options.readPem);
    if (const std::string why = ReadTokens(); !why.empty()) throw std::runtime_error(why);
  }

  /// Empty, or why they stay as they are.
  std::string ReadTokens() {
    if (options.tokenFile.empty()) return {};
    std::string error;
    auto read = Tokens::Read(options.tokenFile, error);
    if (!read) return error;
    const std::lock_guard lock(mutex);
    tokens = std::make_shared<const Tokens>(*std::move(read));
    return {};
  }
  std::shared_ptr<const Tokens> CurrentTokens() {
    const std::lock_guard lock(mutex);
    return tokens;
  }
  [[nodiscard]] bool IsReady() const { return judges.HavePackage() && !stopping; }

  const HttpOptions options;
  AccessLog accessLog;
  Metrics metrics;
  Judges judges;
  net::RateLimit rate;
  net::Shares seats;
  net::Shares bodies;
  net::Shares requests;
  const std::string openApi;
  std::optional<net::Tls> tls;
  std::mutex mutex;
  std::shared_ptr<const Tokens> tokens;  ///< null: whoever can connect may ask
  std::atomic<unsigned> connections{0};
  std::atomic<unsigned> underWay{0};  ///< requests that have come and aren't answered
  std::atomic<bool> stopping{false};
  JudgePool pool;
};

enum class Route : std::uint8_t { kCheck, kMetrics, kHealth, kReady, kOpenApi };
struct RouteRow {
  std::string_view path;
  http::verb method;
  Route route;
  bool needsToken;  ///< where there are tokens
};
constexpr std::array kRoutes = {
    RouteRow{"/v1/check", http::verb::post, Route::kCheck, true},
    RouteRow{"/v1/openapi.json", http::verb::get, Route::kOpenApi, false},
    RouteRow{"/metrics", http::verb::get, Route::kMetrics, true},
    RouteRow{"/healthz", http::verb::get, Route::kHealth, false},
    RouteRow{"/readyz", http::verb::get, Route::kReady, false},
};

std::string_view View(beast::string_view text) { return {text.data(), text.size()}; }

/// One client's connection. Stream is a socket, or TLS on one.
template <class Stream>
class Session : public net::Client {
 public:
  template <class... Tls>
  Session(Loop& loop, Seat seat, std::string address, Shared& shared, Socket socket, Tls&... tls)
      : Client(loop, std::move(seat), shared.options.clientTimeout),
        shared_(shared),
        stream_(std::move(socket), tls...),
        address_(std::move(address)) {}

  void Start() {
    SetTimeout();
    if constexpr (kIsTls) {
      stream_.async_handshake(asio::ssl::stream_base::server, [self = Self()](Error error) {
        if (!error) self->Read();
      });
    } else {
      Read();
    }
  }

 private:
  static constexpr bool kIsTls = !std::is_same_v<Stream, Socket>;

  /// What is told of a request once it is answered.
  struct Outcome {
    std::uint64_t judged = 0;
    std::uint64_t held = 0;
    std::uint64_t sent = 0;
    unsigned status = 200;
    std::string host;
    std::string verdict;
  };

  Socket& OwnSocket() override {
    if constexpr (kIsTls) {
      return stream_.next_layer();
    } else {
      return stream_;
    }
  }
  std::shared_ptr<Session> Self() { return std::static_pointer_cast<Session>(shared_from_this()); }

  void Read() {
    if (shared_.stopping) return Close();
    if (buffer_.size() == 0 && buffer_.capacity() > kBufferKept) buffer_.shrink_to_fit();
    parser_.emplace();
    parser_->header_limit(kHeaderLimit);
    parser_->body_limit(shared_.options.bodyLimit);
    route_ = nullptr;
    query_ = {};
    client_ = address_;
    headerSeen_ = false;
    outcome_ = {};
    answer_.clear();
    batchAt_ = 0;
    lines_ = 0;
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
        return Refuse({400, "a folded line", "the header"});
      }
      buffer_.consume(parser_->put(bytes, error));
      if (parser_->is_header_done() && !headerSeen_ && (!error || error == http::error::need_more)) {
        headerSeen_ = true;
        parser_->eager(true);  // the header is looked at before any of the body is taken
        if (!AcceptHeader()) return;
        if (!parser_->is_done() && View(parser_->get()[http::field::expect]) == "100-continue") return SendContinue();
      }
    }
    if (error == http::error::body_limit) {
      return Refuse({413, "more than " + std::to_string(shared_.options.bodyLimit) + " bytes", "the body"});
    }
    if (error == http::error::header_limit) return Refuse({431, "more than 8 KB", "the header"});
    if (error && error != http::error::need_more) {
      return Refuse({400, error.message(), parser_->is_header_done() ? "the body" : "the header"});
    }
    if (headerSeen_ && !body_.GrowTo(parser_->get().body().size())) {
      return Refuse({503, "too many bytes of bodies are held", ""});
    }
    if (parser_->is_done()) return Handle();
    const std::size_t room = std::min(headerSeen_ ? kReadAtOnce : kBufferKept, buffer_.max_size() - buffer_.size());
    if (room == 0) return Refuse({400, "a line is too long", "the body"});
    stream_.async_read_some(buffer_.prepare(room), [self = Self()](Error failed, std::size_t count) {
      if (failed) return self->Close();
      self->buffer_.commit(count);
      self->Parse();
    });
  }

  /// False when the request was refused by its header.
  bool AcceptHeader() {
    const auto& request = parser_->get();
    const auto refuse = [&](Problem problem, std::string_view moreHeaders = "") {
      Refuse(problem, moreHeaders);
      return false;
    };
    const std::string_view target = View(request.target());
    const std::string_view path = PathOf(target);
    const auto route = std::ranges::find(kRoutes, path, &RouteRow::path);
    if (!net::NamesItsHost(request)) return refuse({400, "there is to be one", "Host"});
    if (route == kRoutes.end()) return refuse({404, "there is no such path", std::string(path.substr(0, 200))});
    route_ = &*route;
    if (request.method() != route->method) {
      const auto allowed = http::to_string(route->method);
      return refuse({405, "another method is wanted", ""}, "Allow: " + std::string(View(allowed)) + "\r\n");
    }
    if (route->needsToken && !IsKnown()) {
      return refuse({401, "a token is wanted", "Authorization"}, "WWW-Authenticate: Bearer\r\n");
    }
    body_ = net::Share(shared_.bodies, client_);
    if (route->route != Route::kCheck) return true;
    if (!shared_.rate.Allows(client_)) return refuse({429, "too many requests", ""}, kRetryAfter);
    Problem problem;
    const auto query = ReadQuery(target, problem);
    if (!query) return refuse(problem);
    query_ = *query;
    if (const auto encoding = View(request[http::field::content_encoding]); !encoding.empty() && encoding != "identity") {
      return refuse({415, "encoded bodies aren't taken", "Content-Encoding"}, "Accept-Encoding: identity\r\n");
    }
    kind_ = KindOfBody(View(request[http::field::content_type]));
    if (kind_ == BodyKind::kUnknown) {
      return refuse({415, "neither application/json nor application/x-ndjson nor a page nor a message", "Content-Type"});
    }
    if (kind_ != BodyKind::kContent && !query_.url.empty()) return refuse({400, "url goes with a page", "the query"});
    return true;
  }

  bool IsKnown() {
    const auto tokens = shared_.CurrentTokens();
    if (tokens == nullptr) return true;
    constexpr std::string_view kScheme = "Bearer ";
    const auto& request = parser_->get();
    const std::string_view given = View(request[http::field::authorization]);
    if (request.count(http::field::authorization) != 1 || !given.starts_with(kScheme)) return false;
    const std::string_view name = tokens->NameOf(given.substr(kScheme.size()));
    if (name.empty()) return false;
    client_ = name;
    return true;
  }

  void SendContinue() {
    static constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
    asio::async_write(stream_, asio::buffer(kContinue.data(), kContinue.size()), [self = Self()](Error error, std::size_t) {
      if (error) return self->Close();
      self->Parse();
    });
  }

  void Handle() {
    request_.emplace(shared_.underWay);
    startedAt_ = Clock::now();
    switch (route_->route) {
      case Route::kCheck:
        return Check();
      case Route::kMetrics:
        return Answer(200, "text/plain; version=0.0.4; charset=utf-8", MetricsText());
      case Route::kHealth:
        return Answer(200, "text/plain", "ok\n");
      case Route::kReady:
        if (!shared_.IsReady()) return Refuse({503, shared_.stopping ? "closing" : "no package is loaded", ""});
        return Answer(200, "text/plain", "ready\n");
      case Route::kOpenApi:
        return Answer(200, kJsonType, shared_.openApi);
    }
  }

  std::string MetricsText() {
    const auto judges = shared_.judges.Current();
    Metrics::Gauges gauges;
    gauges.version = shared_.options.version;
    gauges.isReady = shared_.IsReady();
    gauges.packageVersion = judges->version;
    gauges.packageWritten = judges->lastWrite;
    gauges.loadFailures = shared_.judges.LoadFailures();
    gauges.connections = shared_.connections;
    gauges.requests = shared_.requests.InUse();
    gauges.waiting = shared_.pool.Waiting();
    gauges.bodyBytes = shared_.bodies.InUse();
    gauges.logLinesLost = shared_.accessLog.Lost();
    return shared_.metrics.Text(gauges);
  }

  void Check() {
    judging_ = net::Share(shared_.requests, client_);
    if (!judging_.GrowTo(1)) return Refuse({503, "too many requests wait for a verdict", ""});
    if (kind_ == BodyKind::kObject && parser_->get().body().size() <= kShortQuestion && !shared_.options.mayAskServer) {
      Problem problem;
      auto question = ReadQuestion(parser_->get().body(), problem);
      if (!question) return Refuse(problem);
      if (question->isAddress) {
        JudgeQuestion(*std::move(question));
        return AnswerJudged();
      }
    }
    HoldTimeout();
    HandOn();
  }

  /// Has the whole question, or the next slice of a batch, judged on another thread. Nothing else happens here meanwhile.
  void HandOn() {
    shared_.pool.Add(client_, [self = Self()]() mutable {
      self->JudgeGuarded();
      // Handed back to the loop without a copy left behind: this must not end on the judging thread.
      auto& io = self->OwnLoop().io;
      asio::post(io, [self = std::move(self)] {
        self->kind_ == BodyKind::kLines ? self->SendSlice() : self->AnswerJudged();
      });
    });
  }

  void JudgeGuarded() {
    try {
      if (kind_ == BodyKind::kLines) return JudgeSlice();
      Problem problem;
      if (kind_ == BodyKind::kObject) {
        auto question = ReadQuestion(parser_->get().body(), problem);
        if (question) return JudgeQuestion(*std::move(question));
      } else {
        return JudgeQuestion(ContentOfBody());
      }
      outcome_.status = problem.status;
      answer_ = ProblemJson(problem);
    } catch (const std::exception& failure) {
      Log(std::string("a request can't be judged: ") + failure.what(), kLogError);
      outcome_.status = 500;
      answer_ = ProblemJson({500, "it can't be judged: memory ran out", ""});
      batchAt_ = std::string::npos;
    }
  }

  Question ContentOfBody() {
    auto& request = parser_->get();
    Question question;
    question.isAddress = false;
    question.content.bytes = std::move(request.body());
    question.content.mediaType = View(request[http::field::content_type]);
    question.content.url =
        !query_.url.empty() ? query_.url : std::string(View(request[http::field::content_location]));
    return question;
  }

  Judgement JudgementOn(Question question) {
    const auto judges = shared_.judges.Current();
    const Judge& judge = query_.explains ? judges->explaining : judges->plain;
    if (question.isAddress) return judge.OfAddress(question.address);
    const std::string url = question.content.url;
    Judgement judgement = judge.OfContent(std::move(question.content));
    judgement.input = url;  // nothing else names what came in a request
    return judgement;
  }

  void Note(const Judgement& judgement) {
    shared_.metrics.NoteJudgement(judgement);
    ++outcome_.judged;
    if (IsHeld(judgement.verdict)) ++outcome_.held;
  }

  void JudgeQuestion(Question question) {
    const Judgement judgement = JudgementOn(std::move(question));
    Note(judgement);
    if (!shared_.options.accessLog.empty()) {
      outcome_.host = HostOf(judgement);
      outcome_.verdict = NameOf(judgement.verdict);
    }
    answer_ = JsonAnswer(judgement, query_.explains);
    answer_ += '\n';
  }

  void JudgeSlice() {
    const std::string_view body = parser_->get().body();
    const auto until = Clock::now() + kSliceTime;
    std::string slice;
    for (std::size_t count = 0; batchAt_ < body.size() && count < kSliceLines && slice.size() < kSliceBytes; ++count) {
      if (count != 0 && Clock::now() > until) break;
      const std::string_view line = body.substr(batchAt_, body.find('\n', batchAt_) - batchAt_);
      batchAt_ += line.size() + 1;
      ++lines_;
      if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
      Problem problem;
      if (auto question = ReadQuestion(line, problem)) {
        const Judgement judgement = JudgementOn(*std::move(question));
        Note(judgement);
        slice += JsonAnswer(judgement, query_.explains);
      } else {
        shared_.metrics.NoteBadQuestion();
        problem.where = "line " + std::to_string(lines_) + (problem.where.empty() ? "" : ", " + problem.where);
        slice += ProblemJson(problem);
      }
      slice += '\n';
    }
    answer_ = std::move(slice);
  }

  void SendSlice() {
    const bool isFirst = outcome_.sent == 0;
    const bool isLast = batchAt_ >= parser_->get().body().size();
    const bool isChunked = parser_->get().version() >= net::kVersionWithHosts;
    if (!isFirst && outcome_.status != 200) return Cut();  // the answer that has begun can't be taken back
    if (isFirst && outcome_.status != 200) return Answer(outcome_.status, kJsonType, answer_);
    std::string text;
    if (isFirst) {
      keepAlive_ = isChunked && KeepsAlive();
      text = net::ResponseHead(http::status::ok, keepAlive_, kLinesType, isChunked ? "Transfer-Encoding: chunked" : "");
    }
    if (isChunked && !answer_.empty()) {
      std::array<char, 32> size{};
      std::snprintf(size.data(), size.size(), "%zx\r\n", answer_.size());
      text.append(size.data()).append(answer_).append("\r\n");
    } else {
      text.append(answer_);
    }
    if (isChunked && isLast) text.append("0\r\n\r\n");
    response_ = std::move(text);
    outcome_.sent += response_.size();
    SetTimeout();
    asio::async_write(stream_, asio::buffer(response_), [self = Self(), isLast](Error error, std::size_t) {
      if (error) return;
      if (isLast) return self->Finish();
      self->HoldTimeout();
      self->HandOn();
    });
  }

  void AnswerJudged() { Answer(outcome_.status, kJsonType, answer_); }

  /// moreHeaders: whole lines. Whoever is refused for want of room may come back.
  void Refuse(const Problem& problem, std::string_view moreHeaders = "") {
    if (!request_) request_.emplace(shared_.underWay);
    if (startedAt_ == Clock::time_point()) startedAt_ = Clock::now();
    Answer(problem.status, kJsonType, ProblemJson(problem) + "\n",
           problem.status == 503 && moreHeaders.empty() ? kRetryAfter : moreHeaders);
  }

  [[nodiscard]] bool KeepsAlive() const {
    return parser_->is_done() && parser_->get().keep_alive() && !shared_.stopping;
  }

  void Answer(unsigned status, std::string_view type, std::string_view body, std::string_view moreHeaders = "") {
    keepAlive_ = KeepsAlive();
    outcome_.status = status;
    response_ = net::ResponseText(static_cast<http::status>(status), keepAlive_, type, body, moreHeaders);
    outcome_.sent = response_.size();
    SetTimeout();
    asio::async_write(stream_, asio::buffer(response_), [self = Self()](Error error, std::size_t) {
      if (error) return;
      self->Finish();
    });
  }

  void Finish() {
    const auto took = Clock::now() - startedAt_;
    startedAt_ = {};
    shared_.metrics.NoteRequest(outcome_.status, took);
    if (!shared_.options.accessLog.empty()) {
      const auto& request = parser_->get();
      const auto method = headerSeen_ ? http::to_string(request.method()) : beast::string_view();
      shared_.accessLog.Write({client_, View(method), headerSeen_ ? PathOf(View(request.target())) : std::string_view(),
                               outcome_.status, request.body().size(), outcome_.sent, took, outcome_.judged,
                               outcome_.held, outcome_.host, outcome_.verdict});
    }
    request_.reset();
    judging_ = {};
    parser_->get().body() = {};
    body_ = {};
    response_ = {};
    if (keepAlive_) return Read();
    Close();
  }

  void Close() {
    request_.reset();
    judging_ = {};
    body_ = {};
    SetTimeout();
    if constexpr (kIsTls) {
      stream_.async_shutdown([self = Self()](Error error) {
        if (error) self->CloseAfterAnswer();
      });
    } else {
      CloseAfterAnswer();
    }
  }

  std::optional<Counted> request_;  ///< while one is under way
  Shared& shared_;
  Stream stream_;
  std::string address_;
  std::string client_;
  beast::flat_buffer buffer_{kReadAtOnce + kHeaderLimit};
  std::optional<http::request_parser<http::string_body>> parser_;
  const RouteRow* route_ = nullptr;
  Query query_;
  BodyKind kind_ = BodyKind::kUnknown;
  net::Share body_;     ///< of the room for bodies
  net::Share judging_;  ///< of the requests that wait
  Clock::time_point startedAt_;
  Outcome outcome_;
  std::string answer_;
  std::string response_;
  std::size_t batchAt_ = 0;  ///< how far a batch is judged
  std::size_t lines_ = 0;
  bool headerSeen_ = false;
  bool keepAlive_ = false;
};

class HttpDoor : public net::Door {
 public:
  explicit HttpDoor(const HttpOptions& options) : shared_(options) {}

  void Open(Loop& control, net::Workers& workers) override {
    shared_.judges.Look();
    acceptor_ = net::Listen(control, shared_.options.listen);
    net::AcceptAll(*acceptor_, [this, &workers](Socket accepted) { Take(workers, std::move(accepted)); });
    looks_.emplace(control.io);
    LookLater();
    const std::uint16_t port = net::PortOf(*acceptor_);
    Log("listening on " + (shared_.options.listen.path.empty()
                               ? shared_.options.listen.address + ":" + std::to_string(port)
                               : "unix:" + shared_.options.listen.path), kLogInformation);
    if (shared_.options.opened) shared_.options.opened(port);
  }

  void Reload() override {
    const auto tell = [](const std::string& why) {
      if (!why.empty()) Log(why + "; what was in force stays so", kLogError);
    };
    tell(shared_.ReadTokens());
    if (shared_.tls) tell(shared_.tls->Reload());
    tell(shared_.accessLog.Reopen());
    shared_.pool.Add("", [this] { shared_.judges.Look(); });
  }

  void Close() override {
    shared_.stopping = true;
    Error ignored;
    acceptor_->close(ignored);
    RemoveSocketFile();
  }

  [[nodiscard]] bool IsDone() const override { return shared_.underWay == 0; }

  void Finish() override {
    shared_.pool.Stop();
    acceptor_.reset();
    looks_.reset();
  }

 private:
  /// A socket that isn't taken closes; where that can be done at once, with a word.
  void Take(net::Workers& workers, Socket accepted) {
    std::string address = net::PeerOf(accepted);
    net::Share ofAddress(shared_.seats, address);
    if (!ofAddress.GrowTo(1)) {
      shared_.metrics.NoteRefusedConnection();
      if (shared_.tls) return;
      static const std::string kFull = net::ResponseText(http::status::service_unavailable, false, kJsonType,
                                                         ProblemJson({503, "too many connections", ""}) + "\n", kRetryAfter);
      Error ignored;
      accepted.non_blocking(true, ignored);
      accepted.write_some(asio::buffer(kFull), ignored);
      accepted.shutdown(asio::socket_base::shutdown_send, ignored);
      return;
    }
    shared_.metrics.NoteConnection();
    Loop& loop = workers.Next();
    Seat seat{Counted(shared_.connections), Counted(loop.connections), std::move(ofAddress)};
    asio::post(loop.io, [&, seat = std::move(seat), address = std::move(address),
                         socket = net::MoveTo(loop, std::move(accepted))]() mutable {
      if (shared_.tls) {
        using Stream = asio::ssl::stream<Socket>;
        const auto context = shared_.tls->Current();
        std::make_shared<Session<Stream>>(loop, std::move(seat), std::move(address), shared_, std::move(socket), *context)
            ->Start();
      } else {
        std::make_shared<Session<Socket>>(loop, std::move(seat), std::move(address), shared_, std::move(socket))->Start();
      }
    });
  }

  void LookLater() {
    looks_->expires_after(kLookEvery);
    looks_->async_wait([this](Error error) {
      if (error) return;
      if (!looking_.exchange(true)) {
        shared_.pool.Add("", [this] {
          shared_.judges.Look();
          looking_ = false;
        });
      }
      LookLater();
    });
  }

  void RemoveSocketFile() const {
    if (!shared_.options.listen.path.empty()) ::unlink(shared_.options.listen.path.c_str());
  }

  Shared shared_;
  std::optional<Acceptor> acceptor_;
  std::optional<net::Timer> looks_;
  std::atomic<bool> looking_{false};
};

}  // namespace

std::shared_ptr<net::Door> MakeDoor(const HttpOptions& options) { return std::make_shared<HttpDoor>(options); }

}  // namespace zeph::http_door
