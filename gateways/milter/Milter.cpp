// SPDX-License-Identifier: Apache-2.0
#include "gateways/milter/Milter.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>

#include <fcntl.h>
#include <libmilter/mfapi.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/Files.h"
#include "gateways/milter/Figures.h"
#include "gateways/milter/GatheredLetter.h"
#include "gateways/milter/VerdictHeader.h"
#include "judging/Answers.h"
#include "judging/Judge.h"
#include "judging/RuleTexts.h"
#include "judging/ShownText.h"

namespace zeph::milter {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostSessions = 512;
constexpr std::size_t kLettersInRoom = 16;  ///< so many of the greatest length may be under way at once
constexpr int kMostForged = 100;            ///< each costs the mail server a search; no honest letter has as many
constexpr std::chrono::seconds kFiguresEvery{60};
constexpr std::chrono::seconds kMetricsEvery{5};

/// Seats for those who judge.
class Seats {
 public:
  explicit Seats(unsigned seats) : free_(seats) {}
  [[nodiscard]] bool Take(std::chrono::seconds patience) {
    std::unique_lock lock(lock_);
    if (!freed_.wait_for(lock, patience, [this] { return free_ > 0; })) return false;
    --free_;
    return true;
  }
  void Give() {
    {
      const std::lock_guard lock(lock_);
      ++free_;
    }
    freed_.notify_one();
  }

 private:
  std::mutex lock_;
  std::condition_variable freed_;
  unsigned free_;
};

std::string_view Sentence(Failure failure) {
  switch (failure) {
    case Failure::kNoConfiguration:
      return "no configuration could be loaded";
    case Failure::kBusy:
      return "no judge was free in time";
    case Failure::kMemory:
      return "no room in memory";
    case Failure::kError:
      return "an error in the filter";
  }
  return "";
}

char* Mutable(std::string& text) { return text.data(); }

/// One connection of the mail server; its letters come one after the other.
struct Session {
  std::unique_ptr<GatheredLetter> letter;
  bool isSilent = false;    ///< the mail server waits for no answers to the letter's beginning
  bool maySkip = false;     ///< the rest of a body may be declined
  bool leadsBlank = false;  ///< the blank behind a header's colon is part of its value
};

class Server {
 public:
  explicit Server(const MilterOptions& options)
      : options_(options), room_(kLettersInRoom * options.maxSize),
        seats_(options.judges != 0 ? options.judges : std::max(1U, std::thread::hardware_concurrency())) {}

  sfsistat Negotiate(SMFICTX* context, unsigned long offered, unsigned long protocol, unsigned long* actions,
                     unsigned long* steps) {
    unsigned long needed = SMFIF_ADDHDRS | SMFIF_CHGHDRS;
    if (options_.action == Action::kQuarantine) needed |= SMFIF_QUARANTINE;
    if ((offered & needed) != needed) {
      Log("a mail server was refused: it doesn't let filters do what this one is for");
      return SMFIS_REJECT;
    }
    if (sessions_.fetch_add(1) >= kMostSessions) {
      --sessions_;
      Log("a mail server was refused: too many connections");
      return SMFIS_REJECT;
    }
    *actions = needed;
    // Body pieces are answered, so that the rest of a letter that is too long can be declined.
    constexpr unsigned long kUnused = SMFIP_NOCONNECT | SMFIP_NOHELO | SMFIP_NORCPT | SMFIP_NOUNKNOWN | SMFIP_NODATA;
    constexpr unsigned long kSilent = SMFIP_NR_MAIL | SMFIP_NR_HDR | SMFIP_NR_EOH;
    *steps = protocol & (kUnused | SMFIP_SKIP | SMFIP_HDR_LEADSPC);
    if ((protocol & kSilent) == kSilent) *steps |= kSilent;
    auto session = std::make_unique<Session>();
    session->isSilent = (*steps & kSilent) == kSilent;
    session->maySkip = (*steps & SMFIP_SKIP) != 0;
    session->leadsBlank = (*steps & SMFIP_HDR_LEADSPC) != 0;
    if (smfi_setpriv(context, session.get()) != MI_SUCCESS) {
      --sessions_;
      return SMFIS_REJECT;
    }
    session.release();  // the context holds it until Close
    return SMFIS_CONTINUE;
  }

  void Begin(Session& session) {
    End(session, true);
    session.letter = std::make_unique<GatheredLetter>(room_, options_.maxSize);
    ++figures_.inHand;
  }

  /// unfinished: before its verdict.
  void End(Session& session, bool unfinished) {
    if (session.letter == nullptr) return;
    session.letter.reset();
    --figures_.inHand;
    if (unfinished) ++figures_.broken;
  }

  void Close(Session* session) {
    if (session == nullptr) return;
    End(*session, true);
    delete session;
    --sessions_;
  }

  sfsistat Finish(SMFICTX* context, Session& session) {
    if (session.letter == nullptr) Begin(session);
    GatheredLetter& letter = *session.letter;
    const int forged = letter.ForgedHeaders();
    if (forged > kMostForged) {
      figures_.forgedHeaders += static_cast<std::uint64_t>(forged);
      ++figures_.rejected;
      return Reply(context, SMFIS_REJECT, "550", "5.7.1", "too many headers named " + std::string(kHeaderName));
    }
    const bool isCut = letter.IsCut();
    const std::variant<Judgement, Failure> answer = Ask(letter);
    if (std::holds_alternative<Failure>(answer)) return FinishUnjudged(context, session, std::get<Failure>(answer), forged);

    const Judgement& judgement = std::get<Judgement>(answer);
    figures_.CountVerdict(judgement.verdict);
    std::string note;
    if (isCut) {
      ++figures_.cut;
      note = "only the first " + std::to_string(options_.maxSize) + " bytes were judged";
    }
    if (IsHeld(judgement.verdict)) {
      // Brand and place, but no address: whoever reads logs needn't know what others were sent.
      const char* const id = smfi_getsymval(context, Mutable(queueIdMacro_));
      Log("held: letter " + (id == nullptr ? "without a queue id" : Shown(std::string_view(id).substr(0, 64))) + ", " +
          std::string(NameOf(judgement.verdict)) + ", " + HeldSentence(judgement));
      if (options_.action == Action::kReject) {
        ++figures_.rejected;
        return Reply(context, SMFIS_REJECT, "550", "5.7.1", "this letter isn't taken: " + HeldSentence(judgement));
      }
    }
    if (!Mark(context, session, forged, VerdictHeader(judgement, note))) return SMFIS_TEMPFAIL;
    if (IsHeld(judgement.verdict) && options_.action == Action::kQuarantine) {
      std::string reason = HeldSentence(judgement);
      if (smfi_quarantine(context, Mutable(reason)) != MI_SUCCESS) return SMFIS_TEMPFAIL;
      ++figures_.quarantined;
    }
    return SMFIS_CONTINUE;
  }

  void Log(const std::string& line) {
    const std::lock_guard lock(logLock_);
    if (options_.log) options_.log(line);
  }
  void LogFigures() { Log(figures_.Line()); }
  [[nodiscard]] std::string FiguresLine() const { return figures_.Line(); }

  void WriteMetrics() {
    if (options_.metrics.empty()) return;
    std::error_code error;
    const bool failed = !WriteWholeFile(options_.metrics, figures_.Metrics(), &error);
    if (failed && !metricsFailed_) Log(Shown(options_.metrics) + ": can't be written: " + error.message());
    metricsFailed_ = failed;
  }

  /// Waits until nobody judges any more, or too long for who is asked to go.
  void AwaitJudges() const {
    const auto end = Clock::now() + options_.timeLimit;
    while (finishing_ > 0 && Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }

  [[nodiscard]] static sfsistat Step(const Session& session) {
    return session.isSilent ? SMFIS_NOREPLY : SMFIS_CONTINUE;
  }

  std::atomic<int> finishing_{0};

 private:
  std::variant<Judgement, Failure> Ask(GatheredLetter& letter) {
    if (letter.LacksRoom()) return Failure::kMemory;
    if (!seats_.Take(options_.timeLimit)) return Failure::kBusy;
    struct Giving {
      Seats& seats;
      ~Giving() { seats.Give(); }
    } const giving{seats_};
    try {
      const std::shared_ptr<const Judge> judge = CurrentJudge();
      if (judge == nullptr) return Failure::kNoConfiguration;
      Content content;
      content.bytes = letter.TakeBytes();
      content.mediaType = "message/rfc822";
      return judge->OfContent(std::move(content));
    } catch (const std::bad_alloc&) {
      return Failure::kMemory;
    } catch (const std::exception& error) {
      Log(std::string("an error: ") + error.what());
      return Failure::kError;
    }
  }

  /// One for the configuration in force; null when there is none.
  std::shared_ptr<const Judge> CurrentJudge() {
    ConfigurationMgr& manager = Process().configurationMgr;
    if (!manager.Run()) return nullptr;
    const auto active = manager.Active();
    const std::lock_guard lock(judgeLock_);
    if (judge_ == nullptr || active != judgedBy_) {
      JudgeOptions options;
      options.explains = true;
      options.ruleTexts = LoadRuleTexts(options_.sources.empty() ? manager.LoadedPackage() : options_.sources);
      judge_ = std::make_shared<const Judge>(std::move(options));
      judgedBy_ = active;
    }
    return judge_;
  }

  sfsistat FinishUnjudged(SMFICTX* context, const Session& session, Failure failure, int forged) {
    figures_.CountFailure(failure);
    if (options_.onFailure == OnFailure::kWait) {
      ++figures_.deferred;
      return Reply(context, SMFIS_TEMPFAIL, "451", "4.7.1", "this letter can't be judged now; please try again later");
    }
    ++figures_.passedUnjudged;
    Judgement judgement;
    judgement.reason = Sentence(failure);
    return Mark(context, session, forged, VerdictHeader(judgement, {})) ? SMFIS_CONTINUE : SMFIS_TEMPFAIL;
  }

  /// Takes out what others wrote under our name, and writes our own. False: the mail server is gone or won't; it must not
  /// pass the letter as if it had been marked.
  bool Mark(SMFICTX* context, const Session& session, int forged, std::string value) {
    if (session.leadsBlank) value.insert(0, " ");
    std::string name(kHeaderName);
    // From the last to the first: whichever way a mail server counts behind one that is gone.
    for (int i = forged; i > 0; --i) {
      if (smfi_chgheader(context, Mutable(name), i, nullptr) != MI_SUCCESS) return false;
    }
    figures_.forgedHeaders += static_cast<std::uint64_t>(forged);
    return smfi_insheader(context, 0, Mutable(name), Mutable(value)) == MI_SUCCESS;
  }

  static sfsistat Reply(SMFICTX* context, sfsistat answer, std::string code, std::string detail, std::string text) {
    smfi_setreply(context, Mutable(code), Mutable(detail), Mutable(text));  // else the mail server has words of its own
    return answer;
  }

  const MilterOptions options_;
  Figures figures_;
  Room room_;
  Seats seats_;
  std::atomic<std::size_t> sessions_{0};
  std::string queueIdMacro_ = "i";
  std::mutex judgeLock_;
  std::shared_ptr<const Judge> judge_;
  std::shared_ptr<const ConfigurationPair> judgedBy_;
  std::mutex logLock_;
  bool metricsFailed_ = false;
};

/// The library's callbacks have nothing that leads to an object before a session has one. Never freed: its threads may
/// outlast it.
Server* theServer = nullptr;
volatile std::sig_atomic_t stopAsked = 0;

Session* SessionOf(SMFICTX* context) { return static_cast<Session*>(smfi_getpriv(context)); }

/// Nothing is thrown through a library in C. What fails is for the mail server to try again.
template <class Work>
sfsistat Guarded(SMFICTX* context, Work&& work) noexcept {
  try {
    Session* const session = SessionOf(context);
    if (session == nullptr) return SMFIS_TEMPFAIL;
    return work(*session);
  } catch (...) {
    return SMFIS_TEMPFAIL;
  }
}

sfsistat OnNegotiate(SMFICTX* context, unsigned long offered, unsigned long protocol, unsigned long, unsigned long,
                     unsigned long* actions, unsigned long* steps, unsigned long* third, unsigned long* fourth) {
  *third = 0;
  *fourth = 0;
  try {
    return theServer->Negotiate(context, offered, protocol, actions, steps);
  } catch (...) {
    return SMFIS_REJECT;
  }
}

sfsistat OnSender(SMFICTX* context, char**) {
  return Guarded(context, [](Session& session) {
    theServer->Begin(session);
    return Server::Step(session);
  });
}

sfsistat OnHeader(SMFICTX* context, char* name, char* value) {
  return Guarded(context, [&](Session& session) {
    if (session.letter == nullptr) theServer->Begin(session);
    session.letter->AddHeader(name, value);
    return Server::Step(session);
  });
}

sfsistat OnHeadersEnd(SMFICTX* context) {
  return Guarded(context, [&](Session& session) {
    if (session.letter == nullptr) theServer->Begin(session);
    session.letter->EndHeaders();
    return Server::Step(session);
  });
}

sfsistat OnBody(SMFICTX* context, unsigned char* bytes, std::size_t size) {
  return Guarded(context, [&](Session& session) -> sfsistat {
    if (session.letter == nullptr) theServer->Begin(session);
    session.letter->AddBody({reinterpret_cast<const char*>(bytes), size});
    return session.letter->IsFull() && session.maySkip ? SMFIS_SKIP : SMFIS_CONTINUE;
  });
}

sfsistat OnEnd(SMFICTX* context) {
  ++theServer->finishing_;
  const sfsistat answer = Guarded(context, [&](Session& session) {
    const sfsistat given = theServer->Finish(context, session);
    theServer->End(session, false);
    return given;
  });
  --theServer->finishing_;
  return answer;
}

sfsistat OnAbort(SMFICTX* context) {
  return Guarded(context, [](Session& session) -> sfsistat {
    theServer->End(session, true);
    return SMFIS_CONTINUE;
  });
}

sfsistat OnClose(SMFICTX* context) {
  Session* const session = SessionOf(context);
  smfi_setpriv(context, nullptr);
  theServer->Close(session);
  return SMFIS_CONTINUE;
}

std::string ErrorText() { return std::strerror(errno); }

/// An open file that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int Get() const { return descriptor_; }

 private:
  int descriptor_;
};

/// Takes a dead server's socket away; refuses what is anything else. Held: the folder, against others who do the same.
void ClaimSocket(const std::string& path, int folder) {
  if (flock(folder, LOCK_EX) != 0) throw MilterError(Shown(path) + ": " + ErrorText());
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    throw MilterError(Shown(path) + ": " + ErrorText());
  }
  if (!S_ISSOCK(status.st_mode)) throw MilterError(Shown(path) + ": is there and no socket");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN) {
    throw MilterError(Shown(path) + ": another server listens there");
  }
  if (errno != ECONNREFUSED || unlink(path.c_str()) != 0) throw MilterError(Shown(path) + ": " + ErrorText());
}

/// What is behind the colon, if the text has this kind.
std::optional<std::string_view> After(std::string_view text, std::string_view kind) {
  if (!text.starts_with(kind)) return std::nullopt;
  return text.substr(kind.size());
}

void CheckInternet(const std::string& listen, std::string_view rest) {
  const std::size_t at = rest.find('@');
  unsigned port = 0;
  const std::string_view number = rest.substr(0, at);
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), port);
  if (at == std::string_view::npos || at + 1 == rest.size() || error != std::errc{} ||
      end != number.data() + number.size() || port == 0 || port > 65535) {
    throw MilterError("\"" + Shown(listen) + "\" is no inet:PORT@HOST");
  }
}

void Listen(const std::string& listen) {
  std::unique_ptr<Descriptor> folder;
  std::string address = listen;
  std::optional<std::string_view> path = After(listen, "unix:");
  if (!path) path = After(listen, "local:");
  if (path) {
    const std::string name(*path);
    if (!name.starts_with('/') || name.size() >= sizeof(sockaddr_un{}.sun_path) || name.find('\0') != std::string::npos) {
      throw MilterError("\"" + Shown(listen) + "\": a socket has a whole path of at most " +
                        std::to_string(sizeof(sockaddr_un{}.sun_path) - 1) + " bytes");
    }
    const std::string parent = std::filesystem::path(name).parent_path().string();
    folder = std::make_unique<Descriptor>(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder->Get() < 0) throw MilterError(Shown(parent) + ": " + ErrorText());
    ClaimSocket(name, folder->Get());
    address = "unix:" + name;
  } else if (const auto four = After(listen, "inet:")) {
    CheckInternet(listen, *four);
  } else if (const auto six = After(listen, "inet6:")) {
    CheckInternet(listen, *six);
  } else {
    throw MilterError("\"" + Shown(listen) + "\" is neither inet:PORT@HOST nor unix:PATH");
  }
  errno = 0;
  if (smfi_setconn(Mutable(address)) != MI_SUCCESS || smfi_opensocket(false) != MI_SUCCESS) {
    throw MilterError(Shown(listen) + ": can't be listened on" + (errno != 0 ? ": " + ErrorText() : ""));
  }
}

/// Tells who started the process, if that asked to be told.
void Notify(std::string_view state) {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  if (path == nullptr || (path[0] != '/' && path[0] != '@')) return;
  const std::string_view name(path);
  sockaddr_un address{};
  if (name.size() >= sizeof address.sun_path) return;
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path, name.size());
  if (path[0] == '@') address.sun_path[0] = '\0';
  const Descriptor notifier(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  [[maybe_unused]] const auto sent =
      sendto(notifier.Get(), state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), length);
}

/// Figures and metrics in their time, until it is told to end.
void KeepHouse(const std::atomic<bool>& ends) {
  sigset_t wanted;
  sigemptyset(&wanted);
  sigaddset(&wanted, SIGUSR1);
  auto figuresAt = Clock::now() + kFiguresEvery;
  auto metricsAt = Clock::now() + kMetricsEvery;
  std::string told;
  while (!ends) {
    constexpr timespec kTick{0, 200'000'000};
    if (sigtimedwait(&wanted, nullptr, &kTick) == SIGUSR1) {
      theServer->LogFigures();
      theServer->WriteMetrics();
    }
    if (stopAsked != 0) smfi_stop();
    const auto now = Clock::now();
    if (now >= metricsAt) {
      theServer->WriteMetrics();
      metricsAt = now + kMetricsEvery;
    }
    if (now >= figuresAt) {
      // A quiet hour fills no log.
      if (std::string line = theServer->FiguresLine(); line != told) {
        theServer->Log(line);
        told = std::move(line);
      }
      figuresAt = now + kFiguresEvery;
    }
  }
}

}  // namespace

void ServeMilter(const MilterOptions& options) {
  theServer = new Server(options);
  std::string name = "zeph";
  smfiDesc description{};
  description.xxfi_name = name.data();
  description.xxfi_version = SMFI_VERSION;
  description.xxfi_flags = SMFIF_ADDHDRS | SMFIF_CHGHDRS | (options.action == Action::kQuarantine ? SMFIF_QUARANTINE : 0UL);
  description.xxfi_negotiate = OnNegotiate;
  description.xxfi_envfrom = OnSender;
  description.xxfi_header = OnHeader;
  description.xxfi_eoh = OnHeadersEnd;
  description.xxfi_body = OnBody;
  description.xxfi_eom = OnEnd;
  description.xxfi_abort = OnAbort;
  description.xxfi_close = OnClose;
  if (smfi_register(description) != MI_SUCCESS) throw MilterError("the mail filter library can't be set up");

  // For threads that the library waits for signals on, and for those that began before: they leave a mark.
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1}) sigaddset(&blocked, signal);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  struct sigaction marking {};
  marking.sa_handler = [](int) { stopAsked = 1; };
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &marking, nullptr);

  Listen(options.listen);
  theServer->WriteMetrics();
  theServer->Log("listening on " + Shown(options.listen));
  Notify("READY=1");
  std::atomic<bool> ends{false};
  std::thread house([&ends] { KeepHouse(ends); });
  const int served = smfi_main();
  Notify("STOPPING=1");
  theServer->AwaitJudges();
  ends = true;
  house.join();
  theServer->LogFigures();
  theServer->WriteMetrics();
  if (served != MI_SUCCESS) throw MilterError("the mail filter library gave up");
}

}  // namespace zeph::milter
