// SPDX-License-Identifier: Apache-2.0
// A word to the service manager that started this process, if one did.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace zeph {

/// Sends "READY=1", "STOPPING=1" and the like where NOTIFY_SOCKET says. Nothing where it isn't set; never fails, since
/// a service does its work without.
inline void NotifyManager(std::string_view state) {
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

}  // namespace zeph
