// SPDX-License-Identifier: Apache-2.0
// What it costs to read a page that stands and to judge it: all collectors, scanners and stages with the default
// package's rules, on recordings. The yardstick of the same run is gumbo's parse of the page's HTML: reading and
// judging are to cost at most a quarter of it, and at 10 MB at most 1.5 times as much a byte as at 100 KB.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <gumbo.h>

#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/url/UrlParser.h"
#include "benchmarks/PageMaker.h"
#include "documents/DocumentRecorder.h"
#include "documents/Recording.h"
#include "documents/RecordingWriter.h"
#include "documents/html/HtmlDocument.h"
#include "tools/zeph/Common.h"

namespace zeph {
namespace {

constexpr char16_t kUrl[] = u"http://www.unknown-shop.example/account/";

const ConfigurationPair& DefaultPackage() {
  static const std::unique_ptr<const ConfigurationPair> package = [] {
    auto pair = std::make_unique<ConfigurationPair>();
    LoadTextSources(ZEPH_SOURCE_DIR "/package", *pair);
    return pair;
  }();
  return *package;
}

/// A page that is read again and again.
struct Page {
  explicit Page(std::size_t length) : Page(PageMaker().Make(length)) {}
  explicit Page(std::string markup) : html(std::move(markup)) {
    HtmlDocument source(html, {kUrl, {}, {}, nullptr});
    DocumentRecorder recorder(source);
    PageData unused = Begin();
    PageReading reading{&recorder, unused, {}};
    for (const PageStep& step : PageSteps()) step.Run(reading);
    // The texts of a recording lie with its document, which goes: this one's own are read back.
    std::string json;
    std::string error;
    if (!WriteRecording(recorder.TakeRecording(), json)) std::abort();
    document = RecordedDocument::Parse(json, error);
    if (document == nullptr) std::abort();
  }

  static PageData Begin() {
    PageData data;
    UrlParser parser;
    parser.DecodeUrl(kUrl);
    data.url = parser.TakeRecord();
    data.configuration = &DefaultPackage().configuration;
    return data;
  }

  std::string html;
  std::unique_ptr<RecordedDocument> document;
};

void Count(benchmark::State& state, const std::string& html) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(html.size()));
}

/// Of the processor, on the average, as the benchmarks count.
double SecondsOfGumbo(const std::string& html) {
  std::clock_t spent = 0;
  int runs = 0;
  for (; spent < CLOCKS_PER_SEC / 2; ++runs) {
    const std::clock_t start = std::clock();
    GumboOutput* const output = gumbo_parse_with_options(&kGumboDefaultOptions, html.data(), html.size());
    spent += std::clock() - start;
    gumbo_destroy_output(&kGumboDefaultOptions, output);
  }
  return static_cast<double>(spent) / CLOCKS_PER_SEC / runs;
}

/// One line of output: the time, and how much of gumbo's it is.
template <class Work>
void Measure(benchmark::State& state, const Page& page, Work&& work) {
  const double gumbo = SecondsOfGumbo(page.html);
  for (auto _ : state) work();
  Count(state, page.html);
  state.counters["of_gumbo"] = benchmark::Counter(gumbo * static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void ReadAndJudge(IHTMLDocument2& document) {
  PageData data = Page::Begin();
  const ConfigurationPair& package = DefaultPackage();
  std::vector<IndicatorResult> results(package.indicators.Entries.size());
  const auto runStage = [&](std::uint32_t stage) {
    RunStage(package.indicators, package.configuration, data, stage, results);
  };
  PageReading reading{&document, data, {}};
  const auto read = [&](std::size_t from, std::size_t to) {
    for (std::size_t step = from; step < to; ++step) {
      if (step != kStepPageDump) PageSteps()[step].Run(reading);
    }
  };
  runStage(0);
  runStage(7);
  read(kStepForms, kStepAllSecondPass);
  runStage(1);
  runStage(2);
  read(kStepAllSecondPass, PageSteps().size());
  runStage(3);
  float spooficity = 0.0F;
  bool isFinal = false;
  benchmark::DoNotOptimize(computeSpooficity(package.indicators, results, spooficity, isFinal));
}

void ReadAndJudge(benchmark::State& state) {
  const Page page(static_cast<std::size_t>(state.range(0)));
  Measure(state, page, [&] { ReadAndJudge(*page.document); });
}

/// One collector or scanner, on what those before it left.
void Step(benchmark::State& state) {
  const Page page(static_cast<std::size_t>(state.range(1)));
  const PageStep& step = PageSteps()[static_cast<std::size_t>(state.range(0))];
  PageData data = Page::Begin();
  PageReading reading{page.document.get(), data, {}};
  for (std::size_t before = 0; &PageSteps()[before] != &step; ++before) PageSteps()[before].Run(reading);
  state.SetLabel(std::string(step.name));
  Measure(state, page, [&] {
    reading.allParser = {};
    step.Run(reading);
  });
}

constexpr std::int64_t kKilo = 1000;
BENCHMARK(ReadAndJudge)->Arg(10 * kKilo)->Arg(100 * kKilo)->Arg(1000 * kKilo)->Arg(10'000 * kKilo);
BENCHMARK(Step)->ArgsProduct({benchmark::CreateDenseRange(0, kStepStructure, 1), {100 * kKilo}});

}  // namespace
}  // namespace zeph
