// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/AccessLog.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "judging/Json.h"

namespace zeph::http_door {

namespace {

constexpr std::size_t kPathShown = 200;

std::string TimeText() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(now.tv_nsec / 1'000'000));
  return text.data();
}

std::string Reason() { return std::error_code(errno, std::generic_category()).message(); }

}  // namespace

AccessLog::AccessLog(std::string path) : path_(std::move(path)) {
  if (path_.empty()) return;
  file_ = Open();
  if (file_ < 0) throw std::runtime_error(path_ + ": " + Reason());
}

AccessLog::~AccessLog() {
  if (file_ >= 0) close(file_);
}

int AccessLog::Open() const {
  if (path_ == "-") return fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  return open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0640);
}

std::string AccessLog::Reopen() {
  if (path_.empty()) return {};
  int fresh = Open();
  if (fresh < 0) return path_ + ": " + Reason();
  {
    const std::lock_guard lock(mutex_);
    std::swap(file_, fresh);
  }
  close(fresh);
  return {};
}

void AccessLog::Write(const AccessLine& line) {
  if (path_.empty()) return;
  JsonWriter json;
  json.BeginObject();
  WriteMember(json, "time", TimeText());
  WriteMember(json, "client", line.client);
  WriteMember(json, "method", line.method);
  WriteMember(json, "path", line.path.substr(0, kPathShown));
  WriteMember(json, "status", line.status);
  WriteMember(json, "received", line.received);
  WriteMember(json, "sent", line.sent);
  WriteMember(json, "ms", static_cast<double>(line.took.count() / 1000) / 1000.0);
  WriteMember(json, "judged", line.judged);
  WriteMember(json, "held", line.held);
  if (!line.host.empty()) WriteMember(json, "host", line.host);
  if (!line.verdict.empty()) WriteMember(json, "verdict", line.verdict);
  json.EndObject();
  const std::string text = json.Take() + "\n";
  const std::lock_guard lock(mutex_);
  // One write a line, so that those of several processes don't mix.
  if (write(file_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) ++lost_;
}

}  // namespace zeph::http_door
