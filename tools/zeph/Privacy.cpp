// SPDX-License-Identifier: Apache-2.0
#include "tools/zeph/Privacy.h"

#include <utility>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

thread_local std::vector<std::string> unsent;

void Note(const char* what, const char16_t* url, const char16_t* server) {
  const std::string host = Narrow(server);
  unsent.push_back(std::string(what) + " of " + Narrow(url) + " to " + (host.empty() ? "no server" : host));
}

/// Leaves the engine's own verdict as it is, as a server that knows nothing new would.
std::int32_t KeepCheck(const char16_t* url, const char16_t* server) {
  Note("check", url, server);
  return kZephSpoofing;
}

std::int32_t KeepReport(const char16_t* url, const char16_t* server) {
  Note("report", url, server);
  return 0;
}

}  // namespace

void AddPrivacyOptions(CLI::App& command, PrivacyChoice& choice, ConfigurationChoice& configuration) {
  command
      .add_option("--privacy", choice.level,
                  "What the classification server may be told of a page that is held for spoofing: its full URL, the "
                  "URL without query (partial), or nothing (none)")
      ->check(CLI::IsMember({"full", "partial", "none"}))
      ->capture_default_str();
  command.add_option("--server", configuration.server, "Host to ask instead of the configuration's server");
}

PrivacyGuard::PrivacyGuard(const PrivacyChoice& choice) {
  SetPrivacy(choice.level == "partial" ? 1 : 0);
  if (choice.level == "none") SetServerCallbacks(KeepCheck, KeepReport);
}

PrivacyGuard::~PrivacyGuard() { SetServerCallbacks(nullptr, nullptr); }

std::vector<std::string> TakeUnsent() { return std::exchange(unsent, {}); }

}  // namespace zeph
