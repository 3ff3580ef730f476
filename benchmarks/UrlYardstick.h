// SPDX-License-Identifier: Apache-2.0
// What the benchmarks of URLs share: the URLs, and the yardstick, which is the time that libcurl takes to parse the same.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include "DetectionEngine/platform/CodePage.h"
#include "tests/url/RandomUrls.h"

namespace zeph {

/// What the process has used, in nanoseconds: other work on the machine doesn't count.
inline double UsedTime() { return static_cast<double>(std::clock()) * (1e9 / CLOCKS_PER_SEC); }

/// The mean time that curl_url_set takes.
inline double YardstickOf(const std::vector<std::u16string>& urls) {
  std::vector<std::string> narrow;
  for (const std::u16string& url : urls) narrow.push_back(Narrow(url));
  CURLU* const handle = curl_url();
  const std::size_t rounds = 1 + 50'000 / urls.size();
  const double begin = UsedTime();
  for (std::size_t round = 0; round < rounds; ++round) {
    for (const std::string& url : narrow) {
      if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) std::abort();
    }
  }
  const double mean = (UsedTime() - begin) / static_cast<double>(rounds * urls.size());
  curl_url_cleanup(handle);
  return mean;
}

/// A thousand URLs of all the usual shapes.
inline std::vector<std::u16string> VariedUrls() {
  RandomUrls random(1);
  std::vector<std::u16string> urls;
  while (urls.size() < 1000) urls.push_back(random.Usual());
  return urls;
}

/// Runs work(url) over the URLs, one an iteration; the counters give the mean length and the ratio to the yardstick.
template <class Work>
void Measure(benchmark::State& state, const std::vector<std::u16string>& urls, Work work) {
  const double yardstick = YardstickOf(urls);
  std::size_t at = 0;
  const double begin = UsedTime();
  for (auto _ : state) {
    work(urls[at]);
    if (++at == urls.size()) at = 0;
  }
  const double mean = (UsedTime() - begin) / static_cast<double>(state.iterations());
  double length = 0.0;
  for (const std::u16string& url : urls) length += static_cast<double>(url.size());
  state.counters["length"] = length / static_cast<double>(urls.size());
  state.counters["curl_ns"] = yardstick;
  state.counters["ratio"] = mean / yardstick;
}

}  // namespace zeph
