// SPDX-License-Identifier: Apache-2.0
// What an exchange asks of the classification server beyond what it asks of every one. Nothing at first: any status and
// any body answer, and each call asks anew. The program asks for more (SetEngineOption), and so may the machine's
// administrator, by the values under kServerSettingsKey in the machine's hive; neither can take back what the other
// asks for.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

/// Where the settings of the exchange stand in the machine's hive: "StrictServer" and "ServerRest" (numbers),
/// "ServerKey" (a text).
inline constexpr std::string_view kServerSettingsKey = "Software\\Corvanta\\Shared Agent\\Server";

struct ExchangeRules {
  bool strict = false;           ///< only status 200 is an answer; to a check, only with a body of exactly four bytes
  std::chrono::seconds rest{0};  ///< a server that ran into the time limit isn't asked again for so long
  std::string key;               ///< the server's public key, as HttpPost::Pin takes it; empty: any
};

/// What the program asks for from now on. Any thread.
void SetStrictServer(bool strict) noexcept;
void SetServerRest(std::chrono::seconds rest) noexcept;

/// What the program and the machine's settings ask for at present. Reads the hive (some 100 microseconds).
[[nodiscard]] ExchangeRules CurrentExchangeRules();

/// Remembers that a server didn't answer in time.
void NoteHungServer(std::string_view host);
/// It didn't within the time that has gone by. Of several servers the one that hung last is remembered.
[[nodiscard]] bool HungWithin(std::string_view host, std::chrono::seconds time);

}  // namespace zeph
