// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/Metrics.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "DetectionEngine/DetectionEngine.h"

namespace zeph::http_door {

namespace {

/// Upper bounds of the latency's buckets, in microseconds, with their text in seconds.
struct Bucket {
  std::int64_t microseconds;
  std::string_view seconds;
};
constexpr std::array<Bucket, 12> kBounds = {{{100, "0.0001"},
                                             {250, "0.00025"},
                                             {500, "0.0005"},
                                             {1000, "0.001"},
                                             {2500, "0.0025"},
                                             {5000, "0.005"},
                                             {10000, "0.01"},
                                             {25000, "0.025"},
                                             {100000, "0.1"},
                                             {500000, "0.5"},
                                             {1000000, "1"},
                                             {5000000, "5"}}};

std::string Seconds(std::int64_t nanoseconds) {
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), static_cast<double>(nanoseconds) / 1e9,
                                 std::chars_format::fixed);
  return {text.data(), end.ptr};
}

/// Lines of one metric.
class Family {
 public:
  Family(std::string& text, std::string_view name, std::string_view type, std::string_view help)
      : text_(text), name_(name) {
    text_.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ").append(name).append(" ");
    text_.append(type).append("\n");
  }
  void Add(std::string_view suffix, std::string_view labels, const std::string& value) {
    text_.append(name_).append(suffix);
    if (!labels.empty()) text_.append("{").append(labels).append("}");
    text_.append(" ").append(value).append("\n");
  }

 private:
  std::string& text_;
  std::string_view name_;
};

std::string Label(std::string_view name, std::string_view value) {
  return std::string(name).append("=\"").append(value).append("\"");
}

}  // namespace

void Metrics::NoteRequest(unsigned status, std::chrono::nanoseconds took) {
  static_assert(kBounds.size() == kBuckets);
  const auto found = std::ranges::find(kStatuses, status);
  if (found != kStatuses.end()) ++requests_[static_cast<std::size_t>(found - kStatuses.begin())];
  const auto bucket = std::ranges::find_if(
      kBounds, [&](const Bucket& bound) { return took <= std::chrono::microseconds(bound.microseconds); });
  ++times_[static_cast<std::size_t>(bucket - kBounds.begin())];
  nanoseconds_ += static_cast<std::uint64_t>(took.count());
}

void Metrics::NoteJudgement(const Judgement& judgement) {
  static_assert(static_cast<std::size_t>(Verdict::kNotJudged) + 1 == kVerdicts);
  ++verdicts_[static_cast<std::size_t>(judgement.verdict)];
  if (judgement.result == kZephTooCostly || judgement.result == kZephOutOfMemory) ++tooCostly_;
}

std::string Metrics::Text(const Gauges& gauges) const {
  std::string text;
  const auto single = [&](std::string_view name, std::string_view type, std::string_view help, std::uint64_t value) {
    Family(text, name, type, help).Add("", "", std::to_string(value));
  };
  Family(text, "zeph_build_info", "gauge", "Version of the program.").Add("", Label("version", gauges.version), "1");
  single("zeph_ready", "gauge", "Whether there is a package to judge by, and the door isn't closing.", gauges.isReady ? 1 : 0);
  Family(text, "zeph_package_info", "gauge", "The package in force; its version changes with its bytes.")
      .Add("", Label("version", gauges.packageVersion), "1");
  if (gauges.packageWritten != 0) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t age =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() - gauges.packageWritten;
    Family(text, "zeph_package_age_seconds", "gauge", "Time since the package in force was written.")
        .Add("", "", Seconds(std::max<std::int64_t>(0, age)));
  }
  single("zeph_package_load_failures_total", "counter", "Packages that were found and couldn't be loaded.", gauges.loadFailures);
  {
    Family family(text, "zeph_http_requests_total", "counter", "Requests by the status of their answer.");
    for (std::size_t i = 0; i < kStatuses.size(); ++i) {
      family.Add("", Label("status", std::to_string(kStatuses[i])), std::to_string(requests_[i]));
    }
  }
  {
    Family family(text, "zeph_http_request_duration_seconds", "histogram", "From a request's last byte to its answer's last byte.");
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < kBounds.size(); ++i) {
      family.Add("_bucket", Label("le", kBounds[i].seconds), std::to_string(sum += times_[i]));
    }
    sum += times_[kBuckets];
    family.Add("_bucket", Label("le", "+Inf"), std::to_string(sum));
    family.Add("_sum", "", Seconds(static_cast<std::int64_t>(nanoseconds_.load())));
    family.Add("_count", "", std::to_string(sum));
  }
  {
    Family family(text, "zeph_verdicts_total", "counter", "Things judged, by verdict.");
    for (std::size_t i = 0; i < kVerdicts; ++i) {
      family.Add("", Label("verdict", NameOf(static_cast<Verdict>(i))), std::to_string(verdicts_[i]));
    }
  }
  single("zeph_too_costly_total", "counter", "Things not judged because they cost too much.", tooCostly_);
  single("zeph_bad_questions_total", "counter", "Lines of batches that couldn't be read.", badQuestions_);
  single("zeph_http_connections", "gauge", "Open connections.", gauges.connections);
  single("zeph_http_connections_total", "counter", "Connections taken.", connectionsTaken_);
  single("zeph_http_connections_refused_total", "counter", "Connections closed for want of a seat.", connectionsRefused_);
  single("zeph_requests_in_judgement", "gauge", "Requests that wait for a verdict or get one.", gauges.requests);
  single("zeph_judging_queue_length", "gauge", "Pieces of work that no thread has begun.", gauges.waiting);
  single("zeph_http_body_bytes", "gauge", "Bytes of bodies that are held.", gauges.bodyBytes);
  single("zeph_access_log_lines_lost_total", "counter", "Lines that the access log couldn't take.", gauges.logLinesLost);
  return text;
}

}  // namespace zeph::http_door
