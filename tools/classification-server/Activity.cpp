// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Activity.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
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

std::string Row(std::initializer_list<std::string> cells, std::string_view kind = "") {
  std::string row = kind.empty() ? "<tr>" : "<tr class=\"" + std::string(kind) + "\">";
  for (const std::string& cell : cells) row += "<td>" + Escaped(cell) + "</td>";
  return row + "</tr>\n";
}

/// A row whose cells know the names of their columns.
std::string ListRow(std::initializer_list<std::pair<std::string_view, std::string>> cells) {
  std::string row = "<tr>";
  for (const auto& [column, cell] : cells) {
    row.append("<td title=\"").append(column).append("\">").append(Escaped(cell)).append("</td>");
  }
  return row + "</tr>\n";
}

std::string Counted(std::uint64_t count, std::string_view what) {
  return std::to_string(count) + " " + std::string(what) + (count == 1 ? "" : "s");
}

/// The two largest units of a span.
std::string InWords(std::chrono::seconds span) {
  const std::int64_t seconds = std::max<std::int64_t>(0, span.count());
  const auto two = [](std::int64_t first, const char* name, std::int64_t second, const char* next) {
    return Counted(static_cast<std::uint64_t>(first), name) + " " + Counted(static_cast<std::uint64_t>(second), next);
  };
  if (seconds >= 86400) return two(seconds / 86400, "day", seconds % 86400 / 3600, "hour");
  if (seconds >= 3600) return two(seconds / 3600, "hour", seconds % 3600 / 60, "minute");
  if (seconds >= 60) return two(seconds / 60, "minute", seconds % 60, "second");
  return Counted(static_cast<std::uint64_t>(seconds), "second");
}

std::string AgeInWords(std::int64_t lastWrite) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return InWords(std::chrono::duration_cast<std::chrono::seconds>(now - std::chrono::nanoseconds(lastWrite))) + " ago";
}

std::string AnswerInWords(std::int32_t answer) {
  constexpr std::array<std::string_view, 6> kWords = {"", "trustworthy", "spoofing or unknown", "unclassified",
                                                      "report it", "confirmed spoofing"};
  return answer > 0 && answer < static_cast<std::int32_t>(kWords.size())
             ? std::string(kWords[static_cast<std::size_t>(answer)])
             : std::to_string(answer);
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

std::string StatusPage(const StatusFacts& facts) {
  const Activity& activity = facts.activity;
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
      "<meta http-equiv=\"refresh\" content=\"10\"><title>Classification server</title><style>"
      "body{font:16px/1.4 system-ui,sans-serif;margin:1em auto;padding:0 .8em;max-width:75em}"
      "table{border-collapse:collapse;width:100%}td,th{text-align:left;vertical-align:top;padding:.3em .6em .3em 0;"
      "border-bottom:1px solid #8884;overflow-wrap:anywhere}td:first-child{overflow-wrap:normal}.bad{font-weight:bold}"
      ":root{color-scheme:light dark}"
      // On a narrow screen each cell takes a line, with the name of its column in front.
      "@media(max-width:40em){.list th{display:none}.list td{display:block;border:0;padding:.1em 0}"
      ".list td:last-child{border-bottom:1px solid #8884;padding-bottom:.5em}"
      ".list td[title]::before{content:attr(title) \": \";opacity:.7}}"
      "</style></head><body>\n<h1>Classification server</h1>\n";
  page += "<table>" + Row({"Version", facts.version}) + Row({"Up for", InWords(activity.Uptime())});
  if (!facts.package.empty()) page += Row({"Package", facts.package});
  const VerdictFile::ListState& list = facts.list;
  page += Row({"List", list.path + ": " + Counted(list.verdicts, "verdict") + ", changed " + AgeInWords(list.lastWrite)});
  if (list.faultyLines != 0) page += Row({"Bad lines", Counted(list.faultyLines, "line") + " left out; the log names them"}, "bad");
  if (!list.trouble.empty()) page += Row({"List not renewed", list.trouble}, "bad");
  page += "</table>\n<p>Since the start: " + Counted(activity.Checks(), "check") + ", " +
          Counted(activity.Reports(), "report") + ", " + Counted(activity.Refusals(), "refused request") +
          ". Reports kept in all: " + std::to_string(facts.reports.Total()) + ".</p>\n";
  page += "<h2>Latest checks</h2>\n<table class=\"list\"><tr><th>Time (UTC)</th><th>URL</th><th>Answer</th></tr>\n";
  for (const Activity::Check& check : activity.LatestChecks()) {
    page += ListRow({{"Time", TimeText(check.time)}, {"URL", check.url}, {"Answer", AnswerInWords(check.answer)}});
  }
  page +=
      "</table>\n<h2>Latest reports</h2>\n<table class=\"list\"><tr><th>Time (UTC)</th><th>URL</th><th>Reporter's code</th>"
      "<th>Context</th><th>Count</th></tr>\n";
  for (const ReportSummary& report : facts.reports.Latest(kReportsShown)) {
    page += ListRow({{"Time", report.time},
                     {"URL", report.url},
                     {"Reporter's code", std::to_string(report.code)},
                     {"Context", report.context},
                     {"Count", std::to_string(report.count)}});
  }
  return page + "</table>\n</body></html>\n";
}

}  // namespace zeph::server
