// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/server/ServerRequests.h"

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/server/HttpUtilities.h"

namespace zeph {

namespace {

constexpr std::uint16_t kServerPort = 443;
constexpr std::int32_t kReportOfOtherPath = 4;  ///< reports of this code go to a path of their own
constexpr std::size_t kContextLimit = 255;

/// The beginning that both requests share.
std::string BodyOf(std::uint32_t commandEntry) { return "cmd=" + Narrow(StringEntry(commandEntry)) + "&ver=2.0"; }

}  // namespace

std::string SealUrl(std::u16string_view url) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string bytes = Narrow(url);
  EncryptData(bytes.data(), bytes.size());
  std::string sealed;
  sealed.reserve(bytes.size() * 3);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
    if (plain) {
      sealed += c;
    } else if (byte == ' ') {
      sealed += '+';
    } else {
      sealed += '%';
      sealed += kDigits[byte >> 4];
      sealed += kDigits[byte & 0xFU];
    }
  }
  return sealed;
}

std::int32_t CheckUrl(std::u16string_view url, std::u16string_view server, std::int32_t privacy, bool* sent) {
  const std::string body = BodyOf(0xBC) + "&PRIV=" + std::to_string(privacy) + "&el=" + SealUrl(url);
  return HttpCallServlet(server, kServerPort, Narrow(StringEntry(0xBA)), body, kReplyRead, sent);
}

std::int32_t ReportUrl(std::u16string_view url, std::u16string_view server, std::int32_t reportCode,
                       std::optional<std::u16string_view> context, bool* sent) {
  LogLine(
      "HTTPUtilities:: ReportURL", [&] { return Narrow(url); }, kLogDetail);
  std::string body = BodyOf(0xBD) + "&el=" + SealUrl(url) + "&er=" + std::to_string(reportCode);
  if (context) body += "&ctx=" + Narrow(*context).substr(0, kContextLimit);
  const std::uint32_t path = reportCode == kReportOfOtherPath ? 0xBB : 0xBA;
  return HttpCallServlet(server, kServerPort, Narrow(StringEntry(path)), body, kReplyIgnored, sent) == 1 ? 0 : 1;
}

}  // namespace zeph
