// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Resolver.h"

#include <array>
#include <memory>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

namespace zeph {

std::optional<std::string> ResolveHost(const std::string& host) {
  // No name system takes longer ones, and a zero byte would ask for another host than the one meant.
  constexpr std::size_t kLongestHost = 253;
  if (host.empty() || host.size() > kLongestHost || host.find('\0') != std::string::npos) return {};

  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* answer = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &wanted, &answer) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(answer, freeaddrinfo);
  for (const addrinfo* entry = answer; entry != nullptr; entry = entry->ai_next) {
    std::array<char, INET_ADDRSTRLEN> text;
    const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
    if (inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size()) != nullptr) return text.data();
  }
  return {};
}

}  // namespace zeph
