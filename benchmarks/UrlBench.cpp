// SPDX-License-Identifier: Apache-2.0
// What a URL costs, against the time that libcurl takes to parse the same URL: every page load pays it, and every link
// of a page the parsing. All figures of a case are of one run.
#include <cstdlib>
#include <string>
#include <vector>

#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "benchmarks/UrlYardstick.h"

namespace zeph {
namespace {

/// A table of 5,000 tokens, which knows many of those of such URLs, and 200 words.
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
    table.reserve(6000);
    while (table.size() < 5000) {
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

void MeasureDecode(benchmark::State& state, const std::vector<std::u16string>& urls) {
  Measure(state, urls, [](const std::u16string& url) {
    UrlParser parser;
    benchmark::DoNotOptimize(parser.DecodeUrl(url));
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
  std::size_t at = 0;
  Measure(state, urls, [&](const std::u16string&) {
    UrlAnalyzer analyzer(known.table, known.words);
    benchmark::DoNotOptimize(analyzer.Classify(records[at]));
    if (++at == records.size()) at = 0;
  });
}

void BM_Decode(benchmark::State& state) { MeasureDecode(state, VariedUrls()); }
BENCHMARK(BM_Decode)->UseManualTime();

/// A configuration's worth of rules that don't match.
void BM_DecodeWithRedirectors(benchmark::State& state) {
  std::vector<Redirector> rules;
  for (int i = 0; i < 100; ++i) rules.push_back({u"http://www.r" + NumberText(i) + u".test/go?", u"url", false, false});
  Measure(state, VariedUrls(), [&](const std::u16string& url) {
    UrlParser parser;
    benchmark::DoNotOptimize(parser.DecodeWithRedirectors(url, rules));
  });
}
BENCHMARK(BM_DecodeWithRedirectors)->UseManualTime();

void BM_ScoreOfRecord(benchmark::State& state) { MeasureRecordScore(state, VariedUrls()); }
BENCHMARK(BM_ScoreOfRecord)->UseManualTime();

void BM_ScoreOfText(benchmark::State& state) {
  const Knowledge& known = Known();
  Measure(state, VariedUrls(), [&](const std::u16string& url) {
    UrlAnalyzer analyzer(known.table, known.words);
    benchmark::DoNotOptimize(analyzer.Classify(url));
  });
}
BENCHMARK(BM_ScoreOfText)->UseManualTime();

/// As a classification scores a URL that it never saw: a miss of the cache, and its oldest entry overwritten.
void BM_ScoreThroughCache(benchmark::State& state) {
  const Knowledge& known = Known();
  Measure(state, VariedUrls(),
          [&](const std::u16string& url) { benchmark::DoNotOptimize(ScoreUrl(url, known.table, known.words)); });
}
BENCHMARK(BM_ScoreThroughCache)->UseManualTime();

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
BENCHMARK(BM_DecodeByLength)->Apply(AllKindsAndLengths)->UseManualTime();

void BM_ScoreByLength(benchmark::State& state) {
  MeasureRecordScore(state, {UrlOfKind(static_cast<int>(state.range(0)), static_cast<std::size_t>(state.range(1)))});
}
BENCHMARK(BM_ScoreByLength)->Apply(AllKindsAndLengths)->UseManualTime();

/// The longest host that is converted.
void BM_DecodeInternationalisedHost(benchmark::State& state) {
  std::u16string url = u"http://";
  while (url.size() < 7 + static_cast<std::size_t>(state.range(0))) url += u"\u4F8B\u3048b.";
  MeasureDecode(state, {url + u"test/"});
}
BENCHMARK(BM_DecodeInternationalisedHost)->Arg(12)->Arg(200)->UseManualTime();

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
