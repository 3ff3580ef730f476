// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/ServerCalls.h"

#include <optional>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/server/ServerRequests.h"

namespace zeph {

namespace {

constexpr std::int32_t kReportScriptAttack = 6;

std::int32_t LogReportResult(std::int32_t result) {
  LogLine(
      "ReportURL", [&] { return "ReportURL return code=" + std::to_string(result); }, kLogDetail);
  return result;
}

}  // namespace

std::int32_t AskServer(const std::u16string& url, bool& sent) {
  const std::u16string server = Process().configurationMgr.Active()->configuration.Resources.Server;
  LogLine(
      "CheckURL Start", [&] { return Narrow(url); }, kLogDetail);
  LogLine(
      "CheckURL - Server Name", [&] { return Narrow(server); }, kLogDetail);
  std::int32_t answer = 0;
  if (const ZephCheckCallback callback = Process().checkUrlCallback.load()) {
    sent = true;
    answer = callback(url.c_str(), server.c_str());
  } else {
    answer = CheckUrl(url, server, Process().privacyLevel.load(), &sent);
  }
  LogLine(
      "CheckURL End", [&] { return "Returning classification=" + std::to_string(answer); }, kLogDetail);
  return answer;
}

std::int32_t TellServer(const char16_t* url, std::int32_t reportCode, const char16_t* context, bool& sent) {
  sent = false;
  if (url == nullptr) return LogReportResult(1);
  const auto pair = Process().configurationMgr.Active();
  UrlParser parser;
  if (parser.DecodeWithRedirectors(url, pair->configuration.Redirectors) != 0) {
    // A line of its own, in the place of the result's.
    LogLine("ReportURL", "parsing URL resulted in error", kLogError);
    return 1;
  }
  const std::u16string& rawUrl = parser.Record().RawUrl;
  const std::u16string& server = pair->configuration.Resources.Server;
  LogLine(
      "ReportURL - URL", [&] { return Narrow(rawUrl); }, kLogInformation);
  LogLine(
      "ReportURL - Server Name", [&] { return Narrow(server); }, kLogInformation);
  if (const ZephReportCallback callback = Process().reportUrlCallback.load()) {
    LogLine("ReportURL", "Doing callback", kLogError);
    sent = true;
    callback(rawUrl.c_str(), server.c_str());
    return LogReportResult(0);
  }
  const auto told = context != nullptr ? std::optional<std::u16string_view>(context) : std::nullopt;
  return LogReportResult(ReportUrl(rawUrl, server, reportCode, told, &sent));
}

std::optional<bool> ReportScriptAttack(const UrlRecord& url, std::vector<ServerCall>* calls) {
  const std::int32_t privacy = Process().privacyLevel.load(std::memory_order_relaxed);
  const std::u16string& told = privacy == kPartialUrl ? url.NormalizedUrl : url.RawUrl;
  bool sent = false;
  std::optional<bool> reported;
  if (privacy == kFullUrl || privacy == kPartialUrl) {
    reported = TellServer(told.c_str(), kReportScriptAttack, nullptr, sent) == 0;
  }
  if (calls != nullptr) calls->push_back({ServerCall::Kind::kReport, told, sent});
  return reported;
}

}  // namespace zeph
