// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/server/HttpUtilities.h"

#include <array>
#include <chrono>
#include <future>
#include <thread>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/HttpPost.h"
#include "DetectionEngine/server/ExchangeRules.h"

namespace zeph {

namespace {

constexpr std::string_view kUserAgent = "InetURL/1.0";
constexpr const char* kStepLabel = "HTTPUtilities::HttpCallServlet";
constexpr const char* kErrorLabel = "HTTPUtilities :: HttpCallServlet";
constexpr long kStatusOk = 200;
constexpr std::string_view kContentType = "Content-Type: application/x-www-form-urlencoded";

/// The worker's part: sends, and logs what became of it. True when a response came.
bool WorkerHttpSendRequest(HttpPost& post, const std::string& postData) {
  int errorCode = 0;
  switch (post.Send(kContentType, postData, errorCode)) {
    case HttpPost::SendResult::kResponse:
      LogLine("WorkerHttpSendRequest", "Success from HttpSendRequestA call", kLogDetail);
      return true;
    case HttpPost::SendResult::kUntrustedAuthority:
      LogLine("WorkerHttpSendRequest", "Invalid Certificate error contacting server", kLogError);
      return false;
    case HttpPost::SendResult::kFailed:
      break;
  }
  LogLine(
      "WorkerHttpSendRequest", [&] { return "HttpSendRequestA set error code " + std::to_string(errorCode); },
      kLogError);
  return false;
}

/// Sends on a worker, so that a server that doesn't answer can't hold the caller for longer than the time-out. Never
/// leaves before the worker has ended: it reads what belongs to the caller.
bool HttpSendRequestWithTimeout(HttpPost& post, const std::string& postData, std::chrono::milliseconds timeout,
                                bool& timedOut) {
  constexpr const char* kLabel = "HttpSendRequestWithTimeout";
  std::promise<bool> promise;
  std::future<bool> sent = promise.get_future();
  std::jthread worker([&] {
    try {
      promise.set_value(WorkerHttpSendRequest(post, postData));
    } catch (...) {
      promise.set_exception(std::current_exception());
    }
  });
  if (sent.wait_for(timeout) == std::future_status::timeout) {
    timedOut = true;
    LogLine(kLabel, "Timeout", kLogError);
    post.Abort();
    return false;
  }
  LogLine(kLabel, "No Timeout", kLogDetail);
  bool responded = false;
  try {
    responded = sent.get();
  } catch (...) {  // the worker couldn't even say how it went
    LogLine(kLabel, "Error from GetExitCodeThread", kLogError);
    return false;
  }
  LogLine(kLabel, "Success from GetExitCodeThread", kLogDetail);
  LogLine(kLabel, responded ? "GetExitCodeThread is zero - success" : "GetExitCodeThread is non-zero", kLogError);
  return responded;
}

constexpr std::size_t kAnswerSize = 4;

std::int32_t ReadNumberFromServer(HttpPost& post, std::string_view host, const ExchangeRules& rules) {
  // A strict reader looks for one byte more, to see that there is none.
  std::array<char, kAnswerSize + 1> bytes{};
  const std::size_t count = post.Read(bytes.data(), rules.strict ? bytes.size() : kAnswerSize, kReadTimeoutMs);
  if (count < kAnswerSize && !post.HasEnded()) NoteHungServer(host);
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < kAnswerSize; ++i) {
    number |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
  }
  const auto answer = static_cast<std::int32_t>(number);
  LogLine(
      kStepLabel, [&] { return "Read the following from server: " + std::to_string(answer); }, kLogInformation);
  if (rules.strict && (count != kAnswerSize || !post.IsWhole())) {
    LogLine(kErrorLabel, "The answer isn't four bytes", kLogError);
    return 0;
  }
  return answer;
}

}  // namespace

std::int32_t HttpCallServlet(std::u16string_view server, std::uint16_t port, std::string_view object,
                             const std::string& postData, int expectReply, bool* sent) {
  if (sent != nullptr) *sent = false;
  const std::string host = Narrow(server);
  LogLine(
      kStepLabel, [&] { return "Server=" + host; }, kLogDetail);
  LogLine(
      kStepLabel, [&] { return "Port=" + std::to_string(port); }, kLogDetail);
  LogLine(
      kStepLabel, [&] { return "Object=" + std::string(object); }, kLogDetail);
  LogLine(
      kStepLabel, [&] { return "PostData=" + postData; }, kLogDetail);

  HttpPost post;
  if (!post.Open(kUserAgent)) return 0;
  if (!post.Connect(host, port)) {
    LogLine(kErrorLabel, "InternetConnect failed", kLogError);
    return 0;
  }
  if (!post.OpenRequest(object)) {
    LogLine(kErrorLabel, "HttpOpenRequest failed", kLogError);
    return 0;
  }
  const ExchangeRules rules = CurrentExchangeRules();
  if (HungWithin(host, rules.rest)) {
    LogLine(kErrorLabel, "The server didn't answer lately and isn't asked", kLogError);
    return 0;
  }
  if (!rules.key.empty() && !post.Pin(rules.key)) {
    LogLine(kErrorLabel, "The server's public key can't be asked for", kLogError);
    return 0;
  }
  if (sent != nullptr) *sent = true;
  bool responded = false;
  bool timedOut = false;
  try {
    responded = HttpSendRequestWithTimeout(post, postData, std::chrono::milliseconds(kSendTimeoutMs), timedOut);
  } catch (...) {  // no thread to be had
    responded = false;
  }
  if (timedOut) NoteHungServer(host);
  if (!responded) {
    LogLine(kErrorLabel, "HttpSendRequestWithTimeout failed", kLogError);
    return 0;
  }
  if (rules.strict && post.Status() != kStatusOk) {
    LogLine(
        kErrorLabel, [&] { return "The server answered with status " + std::to_string(post.Status()); }, kLogError);
    return 0;
  }
  return expectReply == kReplyRead ? ReadNumberFromServer(post, host, rules) : 1;
}

}  // namespace zeph
