// SPDX-License-Identifier: Apache-2.0
// What a URL costs, against the time that libcurl takes to parse the same URL: every page load pays it, and every link
// of a page the parsing. All figures of a case are of one run.
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "tests/url/RandomUrls.h"

namespace zeph {
namespace {

using Clock = std::chrono::steady_clock;

double Nanoseconds(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

/// The mean time that curl_url_set takes.
double YardstickOf(const std::vector<std::u16string>& urls) {
  std::vector<std::string> narrow;
  for (const std::u16string& url : urls) narrow.push_back(Narrow(url));
  CURLU* const handle = curl_url();
  const std::size_t rounds = 1 + 50'000 / urls.size();
  const Clock::time_point begin = Clock::now();
  for (std::size_t round = 0; round < rounds; ++round) {
    for (const std::string& url : narrow) {
      if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) std::abort();
    }
  }
  const double mean = Nanoseconds(begin) / static_cast<double>(rounds * urls.size());
  curl_url_cleanup(handle);
  return mean;
}

std::vector<std::u16string> VariedUrls() {
  RandomUrls random(1);
  std::vector<std::u16string> urls;
  while (urls.size() < 1000) urls.push_back(random.Usual());
  return urls;
}

/// A table that knows most tokens of such URLs among 50,000, and 200 words.
struct Knowledge {
  TokenTable table;
  WordSet words;

  Knowledge() {
    RandomUrls random(2);
    std::vector<std::u16string> list = {u"login", u"secure", u"account", u"update", u"bank", u"shop", u"mail", u"user"};
    while (list.size() < 200) {
      std::u16string word(3 + random.Below(7), u' ');
      for (char16_t& c : word) c = u"etaoinshrdlucmfwypvbgkjqxz"[random.Below(26)];
      list.push_back(word);
    }
    words.Assign(list);
    table.reserve(60'000);
    while (table.size() < 50'000) {
      const auto tokens = TokensOf(random.Usual(), words);
      for (const std::u16string& token : *tokens) {
        if (random.Below(3) != 0) table.insert_or_assign(token, static_cast<double>(1 + random.Below(999)) / 1000);
      }
    }
  }
};

const Knowledge& Known() {
  static const Knowledge knowledge;
  return knowledge;
}

/// Runs work(url) over the URLs, one an iteration; the counters give the mean length and the ratio to the yardstick.
template <class Work>
void Measure(benchmark::State& state, const std::vector<std::u16string>& urls, Work work) {
  const double yardstick = YardstickOf(urls);
  std::size_t at = 0;
  const Clock::time_point begin = Clock::now();
  for (auto _ : state) work(at++ % urls.size());
  const double mean = Nanoseconds(begin) / static_cast<double>(state.iterations());
  std::size_t length = 0;
  for (const std::u16string& url : urls) length += url.size();
  state.counters["length"] = static_cast<double>(length) / static_cast<double>(urls.size());
  state.counters["curl_ns"] = yardstick;
  state.counters["curls"] = mean / yardstick;
}

void MeasureDecode(benchmark::State& state, const std::vector<std::u16string>& urls) {
  Measure(state, urls, [&](std::size_t i) {
    UrlParser parser;
    benchmark::DoNotOptimize(parser.DecodeUrl(urls[i]));
    benchmark::DoNotOptimize(parser.Record());
  });
}

void MeasureRecordScore(benchmark::State& state, const std::vector<std::u16string>& urls) {
  const Knowledge& known = Known();
  std::vector<UrlRecord> records;
  for (const std::u16string& url : urls) {
    UrlParser parser;
    if (parser.DecodeUrl(url) != 0) std::abort();
    records.push_back(parser.TakeRecord());
  }
  Measure(state, urls, [&](std::size_t i) {
    UrlAnalyzer analyzer(known.table, known.words);
    benchmark::DoNotOptimize(analyzer.Classify(records[i]));
  });
}

void BM_Decode(benchmark::State& state) { MeasureDecode(state, VariedUrls()); }
BENCHMARK(BM_Decode);

/// A configuration's worth of rules that don't match.
void BM_DecodeWithRedirectors(benchmark::State& state) {
  const std::vector<std::u16string> urls = VariedUrls();
  std::vector<Redirector> rules;
  for (int i = 0; i < 100; ++i) rules.push_back({u"http://www.r" + NumberText(i) + u".test/go?", u"url", false, false});
  Measure(state, urls, [&](std::size_t i) {
    UrlParser parser;
    benchmark::DoNotOptimize(parser.DecodeWithRedirectors(urls[i], rules));
  });
}
BENCHMARK(BM_DecodeWithRedirectors);

void BM_ScoreOfRecord(benchmark::State& state) { MeasureRecordScore(state, VariedUrls()); }
BENCHMARK(BM_ScoreOfRecord);

void BM_ScoreOfText(benchmark::State& state) {
  const std::vector<std::u16string> urls = VariedUrls();
  const Knowledge& known = Known();
  Measure(state, urls, [&](std::size_t i) {
    UrlAnalyzer analyzer(known.table, known.words);
    benchmark::DoNotOptimize(analyzer.Classify(urls[i]));
  });
}
BENCHMARK(BM_ScoreOfText);

/// As a classification scores a URL that it never saw: a miss of the cache, and its oldest entry overwritten.
void BM_ScoreThroughCache(benchmark::State& state) {
  const std::vector<std::u16string> urls = VariedUrls();
  const Knowledge& known = Known();
  Measure(state, urls, [&](std::size_t i) { benchmark::DoNotOptimize(ScoreUrl(urls[i], known.table, known.words)); });
}
BENCHMARK(BM_ScoreThroughCache);

/// URLs of one length and one kind: cost must grow with the length and no faster.
enum Kind {
  kOrdinary,
  kDots,
  kPercents,
  kEscapes,
  kAmpersands,
  kEquals,
  kHyphens,
  kSlashes,
  kHostDots,
  kWords,
  kBeyondAscii
};

std::u16string UrlOfKind(int kind, std::size_t length) {
  constexpr std::u16string_view kUnits[] = {u"a/login-bank/b.php?x=y&",
                                            u".",
                                            u"%",
                                            u"%41",
                                            u"&",
                                            u"=",
                                            u"-",
                                            u"/",
                                            u"a.",
                                            u"loginsecureaccountupdatebankshopmailuser",
                                            u"\u4F8B"};
  const bool inHost = kind == kHostDots || kind == kHyphens;
  const bool inQuery = kind == kAmpersands || kind == kEquals;
  std::u16string url = inHost ? u"http://h" : inQuery ? u"http://h.test/?" : u"http://h.test/";
  while (url.size() < length) url += kUnits[kind];
  url.resize(length);
  return url;
}

void AllKindsAndLengths(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"kind", "length"});
  for (int kind = kOrdinary; kind <= kBeyondAscii; ++kind) {
    for (const int length : {64, 256, 1024, 2083}) benchmark->Args({kind, length});
  }
}

void BM_DecodeByLength(benchmark::State& state) {
  MeasureDecode(state, {UrlOfKind(static_cast<int>(state.range(0)), static_cast<std::size_t>(state.range(1)))});
}
BENCHMARK(BM_DecodeByLength)->Apply(AllKindsAndLengths);

void BM_ScoreByLength(benchmark::State& state) {
  MeasureRecordScore(state, {UrlOfKind(static_cast<int>(state.range(0)), static_cast<std::size_t>(state.range(1)))});
}
BENCHMARK(BM_ScoreByLength)->Apply(AllKindsAndLengths);

/// The longest host that is converted.
void BM_DecodeInternationalisedHost(benchmark::State& state) {
  std::u16string url = u"http://";
  while (url.size() < 7 + static_cast<std::size_t>(state.range(0))) url += u"\u4F8B\u3048b.";
  MeasureDecode(state, {url + u"test/"});
}
BENCHMARK(BM_DecodeInternationalisedHost)->Arg(12)->Arg(250);

/// Once for each relative image or script of a page.
void BM_Combine(benchmark::State& state) {
  RandomUrls random(5);
  const std::u16string base = u"http://www.example.test/news/2024/index.php?id=7";
  std::vector<std::u16string> sources;
  for (int i = 0; i < 100; ++i) {
    const std::u16string url = random.Usual();
    sources.push_back((i % 3 == 0 ? u"../" : i % 3 == 1 ? u"/" : u"") + url.substr(url.find(u'/', 8) + 1));
  }
  std::size_t at = 0;
  std::u16string out;
  for (auto _ : state) benchmark::DoNotOptimize(CombineUrl(base, sources[at++ % sources.size()], out));
}
BENCHMARK(BM_Combine);

}  // namespace
}  // namespace zeph
