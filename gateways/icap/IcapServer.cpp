// SPDX-License-Identifier: Apache-2.0
#include "gateways/icap/IcapServer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <unordered_set>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/write.hpp>
#include <sys/resource.h>

#include "gateways/Notify.h"
#include "gateways/icap/Encodings.h"
#include "gateways/icap/IcapReader.h"
#include "gateways/icap/PageType.h"
#include "gateways/icap/Replies.h"
#include "gateways/proxy/ProxyAddress.h"

namespace zeph::icap {

namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using Error = boost::system::error_code;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kDeadlineLook{250};  ///< how late a client may be cut off
constexpr std::chrono::milliseconds kAcceptPause{50};    ///< when there is no room for another connection
constexpr std::chrono::milliseconds kStopLook{20};
constexpr std::chrono::seconds kStopTimeout{10};
constexpr std::chrono::seconds kPackageLook{1};
constexpr std::chrono::seconds kCounterLook{60};
constexpr std::chrono::seconds kDrainTimeout{2};
constexpr std::size_t kReadAtOnce = 16 * 1024;
constexpr std::size_t kDrainLimit = 256 * 1024;
constexpr std::size_t kSniffed = 2048;
constexpr int kPreview = 1024;
constexpr std::string_view kContinue = "ICAP/1.0 100 Continue\r\n\r\n";
constexpr std::string_view kLastChunk = "0\r\n\r\n";

struct Counters {
  std::atomic<std::uint64_t> judged{0};
  std::atomic<std::uint64_t> held{0};
  std::atomic<std::uint64_t> tooLong{0};
  std::atomic<std::uint64_t> noMemory{0};
  std::atomic<std::uint64_t> unknownEncoding{0};
  std::atomic<std::uint64_t> notJudged{0};
  std::atomic<std::uint64_t> cut{0};
  std::atomic<std::uint64_t> refused{0};
  std::atomic<std::uint64_t> malformed{0};
  std::atomic<std::uint64_t> timedOut{0};

  [[nodiscard]] std::uint64_t Unjudged() const { return tooLong + noMemory + unknownEncoding + notJudged; }
  [[nodiscard]] std::string Text() const {
    std::ostringstream text;
    text << "zeph: icap: judged " << judged << ", held " << held << "; passed unjudged: too long " << tooLong
         << ", no memory left " << noMemory << ", unknown encoding " << unknownEncoding << ", not judged " << notJudged
         << "; judged by their front alone " << cut << "; clients refused " << refused << ", malformed " << malformed
         << ", timed out " << timedOut << '\n';
    return text.str();
  }
};

class Session;

/// What the connections share. All but counters on the one thread that serves them.
struct Shared {
  Shared(const IcapOptions& options, CurrentJudge& judge)
      : options(options), judge(judge), pool(std::max(1U, options.threads)) {}
  ~Shared() { pool.join(); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  [[nodiscard]] unsigned PerClient() const {
    return options.connectionsPerClient != 0 ? options.connectionsPerClient : std::max(1U, options.connections / 2);
  }

  const IcapOptions& options;
  CurrentJudge& judge;
  Counters counters;
  std::unordered_set<Session*> sessions;
  std::map<std::string, unsigned> clients;  ///< connections by address
  std::size_t buffered = 0;                 ///< bytes of pages
  std::string tag;                          ///< of the package in force
  bool stopping = false;
  asio::io_context io{1};  ///< below what sessions use: its handlers are the last to own some
  asio::thread_pool pool;  ///< judges
};

/// What there is to judge.
struct Question {
  std::string url;
  bool isPage = false;
  Content content;  ///< of a page, still encoded
  std::vector<std::string> encodings;
  bool isUntold = false;  ///< whether it is a page shows in its content
};

struct Verdicts {
  Judgement judgement;
  std::string tag;
};

Judgement JudgePage(const Judge& judge, Question question, std::size_t limit, Counters& counters) {
  Judgement judgement;
  const Decoding how = Decode(question.encodings, limit, question.content.bytes);
  if (how == Decoding::kUnknown) {
    ++counters.unknownEncoding;
    judgement.reason = "its encoding isn't known";
    return judgement;
  }
  if (how == Decoding::kCut) ++counters.cut;
  if (question.isUntold && !LooksLikePage(std::string_view(question.content.bytes).substr(0, kSniffed))) return judgement;
  if (question.content.bytes.empty()) return judgement;
  question.content.url = question.url;
  judgement = judge.OfContent(question.content);
  // An address that can't be used must not keep the page that lies there from being looked at.
  if (judgement.verdict == Verdict::kNotJudged && !judgement.result && !question.content.url.empty()) {
    question.content.url.clear();
    judgement = judge.OfContent(std::move(question.content));
  }
  ++(judgement.verdict == Verdict::kNotJudged ? counters.notJudged : counters.judged);
  return judgement;
}

Verdicts Decide(Shared& shared, Question question) {
  Verdicts verdicts;
  try {
    const auto standing = shared.judge.Now();
    verdicts.tag = standing->version;
    if (question.isPage) {
      verdicts.judgement = JudgePage(standing->judge, std::move(question), shared.options.bodyLimit, shared.counters);
    } else {
      verdicts.judgement = standing->judge.OfAddress(question.url);
      ++(verdicts.judgement.verdict == Verdict::kNotJudged ? shared.counters.notJudged : shared.counters.judged);
    }
  } catch (const std::exception&) {  // no memory, most likely: the others go on
    ++shared.counters.notJudged;
    verdicts.judgement = {};
  }
  if (IsHeld(verdicts.judgement.verdict)) ++shared.counters.held;
  // It may hold a package that is replaced in the meantime.
  verdicts.judgement.trace = {};
  return verdicts;
}

/// The address that an HTTP request to a proxy asks for; empty when it tells none.
std::string UrlOf(const std::string& requestHead) {
  const std::optional<Headers> headers = ReadHeaders(requestHead, false);
  const std::string_view first = headers->first;
  const std::size_t start = first.find(' ');
  const std::size_t end = first.rfind(' ');
  if (start == std::string_view::npos || end <= start) return {};
  const std::string_view target = first.substr(start + 1, end - start - 1);
  if (first.substr(0, start) == "CONNECT") return ProxyAddress(target);
  const std::optional<std::string_view> host = headers->Find("host");
  if (!target.starts_with('/') && target != "*") return std::string(target);
  if (!host || host->empty()) return {};
  return std::string("http://").append(*host).append(target == "*" ? "/" : target);
}

/// One client's connection: reads a request, and answers it before it reads the next.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Shared& shared, tcp::socket socket, std::string address)
      : shared_(shared), socket_(std::move(socket)), address_(std::move(address)) {
    shared_.sessions.insert(this);
    ++shared_.clients[address_];
  }
  ~Session() {
    DropBody();
    shared_.sessions.erase(this);
    const auto client = shared_.clients.find(address_);
    if (--client->second == 0) shared_.clients.erase(client);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Start() { Read(); }

  [[nodiscard]] Clock::time_point Deadline() const { return std::min(deadline_, messageDeadline_); }
  [[nodiscard]] bool IsIdle() const { return reader_.IsIdle() && isReading_; }
  /// All is said.
  [[nodiscard]] bool IsEnding() const { return isEnding_; }
  /// Ends every operation that is under way.
  void Cut() {
    Error ignored;
    socket_.close(ignored);
  }

 private:
  /// What becomes of a body's pieces.
  enum class Body : std::uint8_t {
    kKept,     ///< for the page to be judged
    kDropped,  ///< the client needs none of it back
    kPassed,   ///< goes back piece by piece
  };

  void SetDeadline() { deadline_ = Clock::now() + shared_.options.timeout; }

  void Read() {
    SetDeadline();
    if (reader_.IsIdle()) messageDeadline_ = Clock::time_point::max();
    isReading_ = true;
    socket_.async_read_some(asio::buffer(in_), [self = shared_from_this()](Error error, std::size_t count) {
      self->isReading_ = false;
      if (error) return;
      if (self->reader_.IsIdle()) self->messageDeadline_ = Clock::now() + self->shared_.options.messageTimeout;
      self->bytes_ = std::string_view(self->in_.data(), count);
      self->Advance();
    });
  }

  void Advance() {
    while (true) {
      switch (reader_.Next(bytes_)) {
        case IcapReader::Event::kNeedMore:
          return Read();
        case IcapReader::Event::kHead:
          if (!TakeHead()) return;
          break;
        case IcapReader::Event::kData:
          if (!TakeData()) return;
          break;
        case IcapReader::Event::kPreviewEnd:
          return TakePreviewEnd();
        case IcapReader::Event::kEnd:
          return TakeEnd();
        case IcapReader::Event::kBad:
          ++shared_.counters.malformed;
          return Refuse(400);
      }
    }
  }

  /// Sends what stands in out_, and the pieces behind it that somebody else keeps.
  template <class Then>
  void Send(Then then, std::string_view more = {}, std::string_view last = {}) {
    SetDeadline();
    const std::array<asio::const_buffer, 3> pieces = {asio::buffer(out_), asio::buffer(more), asio::buffer(last)};
    asio::async_write(socket_, pieces, [self = shared_from_this(), then](Error error, std::size_t) {
      if (!error) (self.get()->*then)();
    });
  }

  /// The connection's last word.
  void Refuse(int status) {
    out_ = ReplyHead(status, shared_.tag, "null-body=0", true);
    Send(&Session::Close);
  }

  /// A socket that closes with bytes unread resets the connection, and an answer that is on its way is lost: so the
  /// client is heard out, within a deadline and a limit.
  void Close() {
    Error ignored;
    socket_.shutdown(tcp::socket::shutdown_send, ignored);
    deadline_ = Clock::now() + kDrainTimeout;
    isEnding_ = true;
    Drain(kDrainLimit);
  }
  void Drain(std::size_t limit) {
    socket_.async_read_some(asio::buffer(in_), [self = shared_from_this(), limit](Error error, std::size_t count) {
      if (!error && count < limit) self->Drain(limit - count);
    });
  }

  [[nodiscard]] bool Closes() const { return reader_.Request().isClosing || shared_.stopping; }
  /// The client bears with an answer that the message may stay as it is.
  [[nodiscard]] bool May204() const {
    return reader_.Request().allows204 || (reader_.Request().hasPreview && !hasContinued_);
  }

  /// False when the message goes on later.
  bool TakeHead() {
    const IcapRequest& request = reader_.Request();
    const bool isRequests = request.service == "reqmod";
    if (!isRequests && request.service != "respmod") return Refuse(404), false;
    if (request.method == "OPTIONS") {
      if (request.hasBody) return Refuse(400), false;
      return true;
    }
    if (request.method != (isRequests ? "REQMOD" : "RESPMOD")) return Refuse(405), false;
    if (isRequests) {
      Question question;
      question.url = UrlOf(request.requestHead);
      if (question.url.empty()) return StartBody();
      Ask(std::move(question), &Session::TakeUrlVerdict);
      return false;
    }
    const std::optional<Headers> response = ReadHeaders(request.responseHead, false);
    type_ = PageTypeOf(*response);
    if (!request.hasBody || type_ == PageType::kOther) return StartBody();
    if (SaysTooLong(response->Find("content-length"))) {
      ++shared_.counters.tooLong;
      return StartBody();
    }
    encodings_ = WordsOf(response->FindAll("content-encoding"));
    mediaType_ = type_ == PageType::kUntold ? "text/html" : std::string(*response->Find("content-type"));
    body_ = Body::kKept;
    return true;
  }

  [[nodiscard]] bool SaysTooLong(std::optional<std::string_view> length) const {
    if (!length || length->find_first_not_of("0123456789") != std::string_view::npos) return false;
    const std::string limit = std::to_string(shared_.options.bodyLimit);
    const std::string_view digits = length->substr(std::min(length->find_first_not_of('0'), length->size()));
    return digits.size() != limit.size() ? digits.size() > limit.size() : digits > limit;
  }

  void TakeUrlVerdict() {
    if (StartBody()) Advance();
  }

  /// Of a message whose body is not to be judged. False when it goes on later.
  bool StartBody() {
    body_ = Body::kDropped;
    if (IsHeld(verdict_.verdict) || May204() || !reader_.Request().hasBody) return true;
    body_ = Body::kPassed;
    out_ = HeadOfSame(reader_.Request(), shared_.tag, Closes());
    Send(&Session::Advance);
    return false;
  }

  bool TakeData() {
    const std::string_view data = reader_.Data();
    if (body_ == Body::kDropped) return true;
    if (body_ == Body::kPassed) return PassOn("", data);
    const bool isTooLong = kept_.size() + data.size() > shared_.options.bodyLimit;
    if (!isTooLong && shared_.buffered + data.size() <= shared_.options.memoryLimit) {
      kept_.append(data);
      shared_.buffered += data.size();
      return true;
    }
    ++(isTooLong ? shared_.counters.tooLong : shared_.counters.noMemory);
    if (May204()) {
      body_ = Body::kDropped;
      DropBody();
      return true;
    }
    body_ = Body::kPassed;
    std::string front = HeadOfSame(reader_.Request(), shared_.tag, Closes());
    if (!kept_.empty()) front.append(ChunkLine(kept_.size())).append(kept_).append("\r\n");
    DropBody();
    return PassOn(std::move(front), data);
  }

  bool PassOn(std::string front, std::string_view data) {
    out_ = std::move(front.append(ChunkLine(data.size())));
    Send(&Session::Advance, data, "\r\n");
    return false;
  }

  void TakePreviewEnd() {
    if (body_ != Body::kKept) return Finish();
    if (type_ == PageType::kUntold && !kept_.empty()) {
      std::string front = kept_;
      // As far as a piece of a stream can be undone.
      if (Decode(encodings_, kSniffed, front) != Decoding::kUnknown && !LooksLikePage(front)) return Finish();
    }
    hasContinued_ = true;
    reader_.Continue();
    out_ = kContinue;
    Send(&Session::Advance);
  }

  void TakeEnd() {
    if (reader_.Request().method == "OPTIONS") return AnswerOptions();
    if (body_ == Body::kPassed) {
      out_ = kLastChunk;
      return Send(&Session::Finished);
    }
    if (body_ == Body::kDropped || kept_.empty()) return Finish();
    Question question;
    question.url = UrlOf(reader_.Request().requestHead);
    question.isPage = true;
    question.isUntold = type_ == PageType::kUntold;
    question.encodings = encodings_;
    question.content.mediaType = mediaType_;
    if (May204()) {
      question.content.bytes.swap(kept_);
      inJudgement_ = question.content.bytes.size();
    } else {
      question.content.bytes = kept_;
    }
    Ask(std::move(question), &Session::Finish);
  }

  /// Has it judged, and calls then with verdict_ set.
  void Ask(Question question, void (Session::*then)()) {
    deadline_ = Clock::time_point::max();
    messageDeadline_ = Clock::time_point::max();
    asio::post(shared_.pool, [self = shared_from_this(), then, question = std::move(question)]() mutable {
      Verdicts verdicts = Decide(self->shared_, std::move(question));
      auto& io = self->shared_.io;
      // Without a copy left behind: a session must not end on this thread.
      asio::post(io, [self = std::move(self), then, verdicts = std::move(verdicts)]() mutable {
        if (!verdicts.tag.empty()) self->shared_.tag = std::move(verdicts.tag);
        self->verdict_ = std::move(verdicts.judgement);
        self->messageDeadline_ = Clock::now() + self->shared_.options.messageTimeout;
        ((*self).*then)();
      });
    });
  }

  /// The answer to a message that was not passed on piece by piece.
  void Finish() {
    if (IsHeld(verdict_.verdict)) {
      out_ = BlockingReply(verdict_, shared_.tag, Closes());
    } else if (May204()) {
      out_ = ReplyHead(204, shared_.tag, "null-body=0", Closes());
    } else {
      out_ = HeadOfSame(reader_.Request(), shared_.tag, Closes());
      if (reader_.Request().hasBody && kept_.empty()) out_ += kLastChunk;
      if (!kept_.empty()) {
        out_ += ChunkLine(kept_.size());
        return Send(&Session::Finished, kept_, "\r\n0\r\n\r\n");
      }
    }
    Send(&Session::Finished);
  }

  void AnswerOptions() {
    const bool isRequests = reader_.Request().service == "reqmod";
    const std::string fields = std::string("Methods: ") + (isRequests ? "REQMOD" : "RESPMOD") +
                               "\r\nService: Zeph\r\nService-ID: zeph\r\nMax-Connections: " +
                               std::to_string(shared_.PerClient()) + "\r\nOptions-TTL: 300\r\nAllow: 204\r\nPreview: " +
                               std::to_string(isRequests ? 0 : kPreview) + "\r\nTransfer-Preview: *\r\n";
    out_ = ReplyHead(200, shared_.tag, "null-body=0", Closes(), fields);
    Send(&Session::Finished);
  }

  void Finished() {
    DropBody();
    if (Closes()) return Close();
    reader_.Reset();
    verdict_ = {};
    encodings_.clear();
    mediaType_.clear();
    hasContinued_ = false;
    // What a large answer took isn't kept for small ones.
    out_ = {};
    Advance();
  }

  void DropBody() {
    shared_.buffered -= kept_.size() + std::exchange(inJudgement_, 0);
    kept_ = {};
  }

  Shared& shared_;
  tcp::socket socket_;
  std::string address_;
  IcapReader reader_;
  std::array<char, kReadAtOnce> in_{};
  std::string_view bytes_;  ///< of in_, not read yet
  std::string out_;
  std::string kept_;             ///< the body of a page so far
  std::size_t inJudgement_ = 0;  ///< bytes of it that were handed over
  Body body_ = Body::kDropped;
  PageType type_ = PageType::kOther;
  std::vector<std::string> encodings_;
  std::string mediaType_;
  Judgement verdict_;
  bool hasContinued_ = false;
  bool isReading_ = false;
  bool isEnding_ = false;
  Clock::time_point deadline_ = Clock::time_point::max();
  Clock::time_point messageDeadline_ = Clock::time_point::max();
};

/// Accepts connections, watches over them, and ends it all.
class Service {
 public:
  Service(const IcapOptions& options, CurrentJudge& judge)
      : shared_(options, judge),
        acceptor_(shared_.io),
        signals_(shared_.io, SIGTERM, SIGINT, SIGHUP),
        acceptPause_(shared_.io),
        deadlines_(shared_.io),
        packages_(shared_.io),
        reports_(shared_.io) {
    shared_.tag = judge.Now()->version;
    Listen();
  }

  [[nodiscard]] std::uint16_t Port() const { return acceptor_.local_endpoint().port(); }

  void Run() {
    Accept();
    AwaitSignals();
    WatchDeadlines();
    WatchPackages();
    WatchCounters();
    shared_.io.run();
    std::cerr << shared_.counters.Text() << std::flush;
  }

 private:
  void Listen() {
    const std::string where = shared_.options.address + ":" + std::to_string(shared_.options.port);
    Error error;
    const auto address = asio::ip::make_address(shared_.options.address, error);
    if (error) throw std::runtime_error(shared_.options.address + ": no address to listen on");
    const tcp::endpoint endpoint(address, shared_.options.port);
    acceptor_.open(endpoint.protocol(), error);
    if (!error) acceptor_.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error) acceptor_.bind(endpoint, error);
    if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
    if (error) throw std::runtime_error(where + ": can't be listened on: " + error.message());
  }

  void Accept() {
    acceptor_.async_accept([this](Error error, tcp::socket socket) {
      if (!acceptor_.is_open()) return;
      if (!error) {
        Seat(std::move(socket));
        return Accept();
      }
      acceptPause_.expires_after(kAcceptPause);
      acceptPause_.async_wait([this](Error) {
        if (acceptor_.is_open()) Accept();
      });
    });
  }

  void Seat(tcp::socket socket) {
    Error ignored;
    std::string address = socket.remote_endpoint(ignored).address().to_string();
    socket.set_option(tcp::no_delay(true), ignored);
    const auto client = shared_.clients.find(address);
    const bool isFull = shared_.sessions.size() >= shared_.options.connections ||
                        (client != shared_.clients.end() && client->second >= shared_.PerClient());
    if (!isFull) return std::make_shared<Session>(shared_, std::move(socket), std::move(address))->Start();
    ++shared_.counters.refused;
    socket.non_blocking(true, ignored);
    socket.write_some(asio::buffer(ReplyHead(503, shared_.tag, "null-body=0", true)), ignored);
    socket.shutdown(tcp::socket::shutdown_send, ignored);
  }

  void AwaitSignals() {
    signals_.async_wait([this](Error error, int signal) {
      if (error) return;
      if (signal != SIGHUP) return Stop();
      std::cerr << shared_.counters.Text() << std::flush;
      LookForPackage();
      AwaitSignals();
    });
  }

  void WatchDeadlines() {
    deadlines_.expires_after(kDeadlineLook);
    deadlines_.async_wait([this](Error) {
      const auto now = Clock::now();
      for (Session* const session : shared_.sessions) {
        if (session->Deadline() >= now) continue;
        if (!session->IsIdle() && !session->IsEnding()) ++shared_.counters.timedOut;
        session->Cut();
      }
      WatchDeadlines();
    });
  }

  /// So that a proxy hears of a new package by the tag even while nothing is judged. A load takes its time, so it isn't
  /// this thread that does it.
  void LookForPackage() {
    asio::post(shared_.pool, [this] {
      std::string tag = shared_.judge.Now()->version;
      asio::post(shared_.io, [this, tag = std::move(tag)] { shared_.tag = tag; });
    });
  }
  void WatchPackages() {
    packages_.expires_after(kPackageLook);
    packages_.async_wait([this](Error) {
      if (!shared_.stopping) LookForPackage();
      WatchPackages();
    });
  }

  void WatchCounters() {
    reports_.expires_after(kCounterLook);
    reports_.async_wait([this](Error) {
      const std::uint64_t unjudged = shared_.counters.Unjudged();
      if (std::exchange(reported_, unjudged) != unjudged) std::cerr << shared_.counters.Text() << std::flush;
      WatchCounters();
    });
  }

  void Stop() {
    NotifyManager("STOPPING=1");
    shared_.stopping = true;
    Error ignored;
    acceptor_.close(ignored);
    stopAt_ = Clock::now() + kStopTimeout;
    AwaitEnd();
  }
  void AwaitEnd() {
    for (Session* const session : shared_.sessions) {
      if (session->IsIdle()) session->Cut();
    }
    if (shared_.sessions.empty() || Clock::now() > stopAt_) return shared_.io.stop();
    acceptPause_.expires_after(kStopLook);
    acceptPause_.async_wait([this](Error) { AwaitEnd(); });
  }

  Shared shared_;
  tcp::acceptor acceptor_;
  asio::signal_set signals_;
  asio::steady_timer acceptPause_;
  asio::steady_timer deadlines_;
  asio::steady_timer packages_;
  asio::steady_timer reports_;
  std::uint64_t reported_ = 0;
  Clock::time_point stopAt_;
};

void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

void RunIcap(const IcapOptions& options, CurrentJudge& judge, const std::function<void(std::uint16_t)>& ready) {
  RaiseDescriptorLimit();
  std::signal(SIGPIPE, SIG_IGN);
  Service service(options, judge);
  ready(service.Port());
  NotifyManager("READY=1");
  service.Run();
}

}  // namespace zeph::icap
