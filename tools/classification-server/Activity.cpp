// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Activity.h"

#include <array>
#include <cstdio>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "tools/classification-server/ReportStore.h"

namespace zeph::server {

namespace {

constexpr std::size_t kReportsShown = 50;
constexpr std::size_t kUrlShown = 300;

std::string TimeText(const CalendarTime& time) {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text.data();
}

/// Text for HTML: anything that strangers sent is shown, and does nothing.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : Narrow(Widen(text)).substr(0, kUrlShown)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
  }
  return escaped;
}

std::string Row(std::initializer_list<std::string> cells) {
  std::string row = "<tr>";
  for (const std::string& cell : cells) row += "<td>" + Escaped(cell) + "</td>";
  return row + "</tr>\n";
}

}  // namespace

void Activity::NoteCheck(const std::string& url, std::int32_t answer) {
  ++checks_;
  Check check{UtcTime(), url, answer};
  const std::lock_guard lock(mutex_);
  latest_.push_front(std::move(check));
  if (latest_.size() > kKept) latest_.pop_back();
}

std::vector<Activity::Check> Activity::LatestChecks() const {
  const std::lock_guard lock(mutex_);
  return {latest_.begin(), latest_.end()};
}

std::string StatusPage(const Activity& activity, const ReportStore& reports) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Classification server</title><style>"
      "body{font:15px system-ui,sans-serif;margin:2em;max-width:75em}table{border-collapse:collapse;width:100%}"
      "td,th{text-align:left;padding:.25em .6em;border-bottom:1px solid #ddd;overflow-wrap:anywhere}"
      "</style></head><body>\n<h1>Classification server</h1>\n";
  page += "<p>Since the start: " + std::to_string(activity.Checks()) + " checks, " +
          std::to_string(activity.Reports()) + " reports, " + std::to_string(activity.Refusals()) +
          " refused requests. Reports kept in all: " + std::to_string(reports.Total()) + ".</p>\n";
  page += "<h2>Latest checks</h2>\n<table><tr><th>Time (UTC)</th><th>URL</th><th>Answer</th></tr>\n";
  for (const Activity::Check& check : activity.LatestChecks()) {
    page += Row({TimeText(check.time), check.url, std::to_string(check.answer)});
  }
  page +=
      "</table>\n<h2>Latest reports</h2>\n<table><tr><th>Time (UTC)</th><th>URL</th><th>Code</th><th>Context</th>"
      "<th>Count</th></tr>\n";
  for (const ReportSummary& report : reports.Latest(kReportsShown)) {
    page += Row({report.time, report.url, std::to_string(report.code), report.context, std::to_string(report.count)});
  }
  return page + "</table>\n</body></html>\n";
}

}  // namespace zeph::server
