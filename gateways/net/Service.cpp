// SPDX-License-Identifier: Apache-2.0
#include "gateways/net/Service.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <boost/asio/signal_set.hpp>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zeph::net {

namespace {

constexpr std::chrono::milliseconds kStopLook{10};  ///< how often to see whether all is answered

/// Each connection takes a descriptor, and the usual limit is below what a server may need.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// Lets what is under way be answered, but not for ever; kept connections that are idle don't count.
void StopWhenDone(Loop& control, Timer& timer, const std::vector<std::shared_ptr<Door>>& doors,
                  Clock::time_point deadline) {
  const bool done = std::ranges::all_of(doors, [](const auto& door) { return door->IsDone(); });
  if (done || Clock::now() >= deadline) return control.io.stop();
  timer.expires_after(kStopLook);
  timer.async_wait([&control, &timer, &doors, deadline](Error) { StopWhenDone(control, timer, doors, deadline); });
}

std::string ReloadingState() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return "RELOADING=1\nMONOTONIC_USEC=" + std::to_string(now.tv_sec * 1'000'000 + now.tv_nsec / 1000);
}

}  // namespace

void NotifyManager(std::string_view state) {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t length = path == nullptr ? 0 : std::strlen(path);
  if (length < 2 || length >= sizeof address.sun_path || (*path != '/' && *path != '@')) return;
  std::memcpy(address.sun_path, path, length);
  if (*path == '@') address.sun_path[0] = '\0';  // a name that is no file
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return;
  sendto(socket, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
  close(socket);
}

void RunService(const std::vector<std::shared_ptr<Door>>& doors, const ServiceOptions& options,
                const std::function<void()>& ready) {
  RaiseDescriptorLimit();
  std::signal(SIGPIPE, SIG_IGN);
  // Accepts, and ends it all; the workers answer.
  Loop control;
  control.WatchDeadlines();
  Workers workers(control, std::max(1U, options.threads));
  // While the loops still exist, since doors and what they have begun stand on them.
  struct Finishing {
    const std::vector<std::shared_ptr<Door>>& doors;
    Workers& workers;
    ~Finishing() {
      workers.Stop();
      for (const auto& door : doors) door->Finish();
    }
  } finishing{doors, workers};

  for (const auto& door : doors) door->Open(control, workers);

  Timer stopTimer(control.io);
  asio::basic_signal_set<Executor> ends(control.io, SIGTERM, SIGINT);
  ends.async_wait([&](Error error, int) {
    if (error) return;
    NotifyManager("STOPPING=1");
    for (const auto& door : doors) door->Close();
    StopWhenDone(control, stopTimer, doors, Clock::now() + options.drain);
  });
  asio::basic_signal_set<Executor> hangUps(control.io, SIGHUP);
  std::function<void()> awaitHangUp = [&] {
    hangUps.async_wait([&](Error error, int) {
      if (error) return;
      NotifyManager(ReloadingState());
      for (const auto& door : doors) door->Reload();
      NotifyManager("READY=1");
      awaitHangUp();
    });
  };
  awaitHangUp();

  ready();
  NotifyManager("READY=1");
  control.io.run();
}

}  // namespace zeph::net
