// SPDX-License-Identifier: Apache-2.0
#include "judging/Privacy.h"

#include <utility>

#include "DetectionEngine/DetectionEngine.h"

namespace zeph {

namespace {

thread_local std::vector<SentCall> unsent;

/// Leaves the engine's own verdict as it is, as a server that knows nothing new would.
std::int32_t KeepCheck(const char16_t* url, const char16_t*) {
  unsent.push_back({"check", url, false});
  return kZephSpoofing;
}

std::int32_t KeepReport(const char16_t* url, const char16_t*) {
  unsent.push_back({"report", url, false});
  return 0;
}

}  // namespace

PrivacyGuard::PrivacyGuard(Privacy privacy) {
  SetPrivacy(privacy == Privacy::kPartial ? 1 : 0);
  if (privacy == Privacy::kNone) SetServerCallbacks(KeepCheck, KeepReport);
}

PrivacyGuard::~PrivacyGuard() { SetServerCallbacks(nullptr, nullptr); }

std::vector<SentCall> TakeCalls(const Settlement& settlement, const std::u16string& url) {
  std::vector<SentCall> calls = std::exchange(unsent, {});
  if (!calls.empty()) return calls;
  if (settlement.serverAnswer) calls.push_back({"check", url, *settlement.serverAnswer != 0});
  if (settlement.reported) calls.push_back({"report", url, *settlement.reported});
  return calls;
}

}  // namespace zeph
