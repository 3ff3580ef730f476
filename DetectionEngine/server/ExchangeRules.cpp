// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/server/ExchangeRules.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>

#include "DetectionEngine/platform/SettingsHive.h"

namespace zeph {

namespace {

constinit std::atomic<bool> strictServer{false};
constinit std::atomic<std::chrono::seconds::rep> serverRest{0};

/// Longest host name that there can be.
constexpr std::size_t kHostLimit = 255;

/// The server that hung last. Trivially destroyed, since a call may outlast the statics of a program that ends.
struct Hung {
  std::mutex guard;
  std::array<char, kHostLimit> host{};
  std::size_t length = 0;
  std::chrono::steady_clock::time_point at;
};
constinit Hung hung;

}  // namespace

void SetStrictServer(bool strict) noexcept { strictServer = strict; }
void SetServerRest(std::chrono::seconds rest) noexcept { serverRest = rest.count(); }

ExchangeRules CurrentExchangeRules() {
  ExchangeRules rules{strictServer, std::chrono::seconds(serverRest), {}};
  const SettingsHive machine(HiveOwner::kMachine);
  if (!machine.Stamp().Exists()) return rules;
  const SettingValues values = machine.ReadKey(kServerSettingsKey).value_or(SettingValues());
  const auto find = [&values]<class Value>(const char* name, const Value& absent) {
    const auto found = values.find(name);
    const auto* value = found == values.end() ? nullptr : std::get_if<Value>(&found->second);
    return value == nullptr ? absent : *value;
  };
  rules.strict |= find("StrictServer", std::uint32_t{0}) != 0;
  rules.rest = std::max(rules.rest, std::chrono::seconds(find("ServerRest", std::uint32_t{0})));
  rules.key = find("ServerKey", std::string());
  return rules;
}

void NoteHungServer(std::string_view host) {
  const std::lock_guard guard(hung.guard);
  hung.length = host.copy(hung.host.data(), hung.host.size());
  hung.at = std::chrono::steady_clock::now();
}

bool HungWithin(std::string_view host, std::chrono::seconds time) {
  const std::lock_guard guard(hung.guard);
  return time.count() > 0 && hung.length != 0 && host == std::string_view(hung.host.data(), hung.length) &&
         std::chrono::steady_clock::now() - hung.at < time;
}

}  // namespace zeph
