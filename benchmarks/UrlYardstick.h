// SPDX-License-Identifier: Apache-2.0
// What the benchmarks of URLs share: the URLs, and the yardstick, which is the time that libcurl takes to parse the
// same.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <time.h>

#include "DetectionEngine/platform/CodePage.h"
#include "tests/url/RandomUrls.h"

namespace zeph {

/// What the process has used, in nanoseconds: other work on the machine doesn't count.
inline double UsedTime() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
}

/// What libcurl takes to parse the URLs, the list over and over.
class Yardstick {
 public:
  Yardstick(const std::vector<std::u16string>& urls, std::size_t repeats) : repeats_(repeats) {
    for (const std::u16string& url : urls) urls_.push_back(Narrow(url));
  }
  Yardstick(const Yardstick&) = delete;
  Yardstick& operator=(const Yardstick&) = delete;
  ~Yardstick() { curl_url_cleanup(handle_); }

  double Round() {
    const double begin = UsedTime();
    for (std::size_t i = 0; i < repeats_; ++i) {
      for (const std::string& url : urls_) {
        if (curl_url_set(handle_, CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) std::abort();
      }
    }
    return UsedTime() - begin;
  }

 private:
  CURLU* const handle_ = curl_url();
  std::vector<std::string> urls_;
  std::size_t repeats_;
};

/// A thousand URLs of all the usual shapes.
inline std::vector<std::u16string> VariedUrls() {
  RandomUrls random(1);
  std::vector<std::u16string> urls;
  while (urls.size() < 1000) urls.push_back(random.Usual());
  return urls;
}

/// Runs work(url) over all URLs in rounds, in turn with the yardstick; the time shown is that of a round. The other
/// figures are of the best rounds of both, since whatever else the machine does makes a round only slower.
template <class Work>
void Measure(benchmark::State& state, const std::vector<std::u16string>& urls, Work work) {
  constexpr std::size_t kEnough = 1000;  // for the clock not to show
  const std::size_t repeats = (kEnough + urls.size() - 1) / urls.size();
  Yardstick yardstick(urls, repeats);
  const auto count = static_cast<double>(urls.size() * repeats);
  double bestOfCurl = yardstick.Round();
  double best = std::numeric_limits<double>::infinity();
  for (auto _ : state) {
    bestOfCurl = std::min(bestOfCurl, yardstick.Round());
    const double begin = UsedTime();
    for (std::size_t i = 0; i < repeats; ++i) {
      for (const std::u16string& url : urls) work(url);
    }
    const double used = UsedTime() - begin;
    best = std::min(best, used);
    state.SetIterationTime(used * 1e-9);
  }
  double length = 0.0;
  for (const std::u16string& url : urls) length += static_cast<double>(url.size() * repeats);
  state.counters["length"] = length / count;
  state.counters["curl_ns"] = bestOfCurl / count;
  state.counters["ns"] = best / count;
  state.counters["ns_per_character"] = best / length;
  state.counters["ratio"] = best / bestOfCurl;
}

}  // namespace zeph
