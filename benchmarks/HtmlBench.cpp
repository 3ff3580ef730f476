// SPDX-License-Identifier: Apache-2.0
// What a page costs, from its bytes to a tree and to a verdict. The yardstick of the same run is gumbo's parse of the
// same page: the parser is to be at least 6 times as fast, everything included twice as fast. Hostile pages are to cost
// what others of their size do.
#include <cstdint>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <gumbo.h>

#include "DetectionEngine/DetectionEngine.h"
#include "benchmarks/PageMaker.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
#include "documents/html/TreeBuilder.h"
#include "tools/zeph/Common.h"

namespace zeph {
namespace {

std::string Page(const benchmark::State& state) { return PageMaker().Make(static_cast<std::size_t>(state.range(0))); }

void Count(benchmark::State& state, const std::string& page) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(page.size()));
}

void YardstickGumbo(benchmark::State& state) {
  const std::string page = Page(state);
  for (auto _ : state) {
    GumboOutput* const output = gumbo_parse_with_options(&kGumboDefaultOptions, page.data(), page.size());
    benchmark::DoNotOptimize(output);
    gumbo_destroy_output(&kGumboDefaultOptions, output);
  }
  Count(state, page);
}

void Parse(benchmark::State& state) {
  const std::string page = Page(state);
  for (auto _ : state) {
    html::Tree tree = html::ParseTree(html::DecodeMarkup(page).text);
    benchmark::DoNotOptimize(tree.nodes.data());
  }
  Count(state, page);
}

void MarkupAndText(benchmark::State& state) {
  const std::string page = Page(state);
  for (auto _ : state) {
    HtmlDocument document(page, {u"http://www.example.test/account/", {}, {}, nullptr});
    IHTMLElement* const body = document.get_body().value->QueryElement();
    benchmark::DoNotOptimize(body->get_innerHTML().value);
    benchmark::DoNotOptimize(body->get_innerText().value);
  }
  Count(state, page);
}

void BytesToVerdict(benchmark::State& state) {
  // Once for all runs: sources come on top of what is loaded.
  [[maybe_unused]] static const bool isLoaded = [] {
    ConfigurationChoice choice;
    choice.sources = ZEPH_SOURCE_DIR "/package";
    UseConfiguration(choice);
    return true;
  }();
  const std::string page = Page(state);
  std::int32_t classification = 0;
  for (auto _ : state) {
    HtmlDocument document(page, {u"http://www.unknown-shop.example/account/", {}, {}, nullptr});
    float spooficity = 0;
    if (ClassifySite(&document, &classification, nullptr, nullptr, nullptr, &spooficity) != 0) {
      state.SkipWithError("the page wasn't classified");
      break;
    }
  }
  state.SetLabel("classification " + std::to_string(classification));
  Count(state, page);
}

constexpr std::int64_t kKilo = 1000;
BENCHMARK(YardstickGumbo)->Arg(10 * kKilo)->Arg(100 * kKilo)->Arg(1000 * kKilo);
BENCHMARK(Parse)->Arg(10 * kKilo)->Arg(100 * kKilo)->Arg(1000 * kKilo)->Arg(10'000 * kKilo);
BENCHMARK(MarkupAndText)->Arg(10 * kKilo)->Arg(100 * kKilo)->Arg(1000 * kKilo)->Arg(10'000 * kKilo);
BENCHMARK(BytesToVerdict)->Arg(10 * kKilo)->Arg(100 * kKilo)->Arg(1000 * kKilo)->Arg(10'000 * kKilo);

/// 1 MB of one thing.
void Hostile(benchmark::State& state) {
  static constexpr std::string_view kPieces[] = {"<div>",         "<b>",         "<b><i></b>", "<table><a>",
                                                 "<p><b><i><u>x", "<!-- ",       "&amp;",      "<frameset>",
                                                 "<select>",      "<svg><math>", "</p>",       "<a><div></a>"};
  const std::string_view piece = kPieces[state.range(0)];
  std::string page;
  while (page.size() < 1'000'000) page += piece;
  for (auto _ : state) {
    HtmlDocument document(page, {u"http://www.example.test/account/", {}, {}, nullptr});
    IHTMLElementCollection* const all = document.get_all().value;
    benchmark::DoNotOptimize(all->item(0).value->QueryElement()->get_outerHTML().value);
    benchmark::DoNotOptimize(all->item(1).value->QueryElement()->get_innerText().value);
  }
  state.SetLabel(std::string(piece));
  Count(state, page);
}
BENCHMARK(Hostile)->DenseRange(0, 11);

}  // namespace
}  // namespace zeph
