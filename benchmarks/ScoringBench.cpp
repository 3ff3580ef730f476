// SPDX-License-Identifier: Apache-2.0
// What the rules cost. The rules of the URL stages must cost little beside the parsing of the URL, since every page
// load runs them; a long list of words must cost about one pass over the text. Yardsticks of the same run: the clock
// readings that the timing of rules can't do without, and a copy of the text.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/scoring/ValueMethods.h"

namespace zeph {
namespace {

std::vector<std::u16string> RandomWords(std::mt19937& random, std::size_t count) {
  constexpr std::u16string_view kLetters = u"etaoinshrdlcumwfgypbvk";
  std::vector<std::u16string> words(count);
  for (std::u16string& word : words) {
    word.resize(3 + random() % 8);
    for (char16_t& c : word) c = kLetters[std::min(random() % kLetters.size(), random() % kLetters.size())];
  }
  return words;
}

std::u16string Joined(const std::vector<std::u16string>& words, char16_t separator) {
  std::u16string text;
  for (const std::u16string& word : words) (text += word) += separator;
  return text;
}

ExpressionValue Prepared(std::uint32_t valueType, std::u16string value) {
  ExpressionValue prepared;
  prepared.ValueType = valueType;
  prepared.Value = std::move(value);
  prepared.Prepare();
  return prepared;
}

/// A package of usual size: 35 rules about the URL among 250.
struct Package {
  Configuration configuration;
  Indicators indicators;
  PageData page;

  Package() {
    std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same package each time
    for (const std::u16string& word : RandomWords(random, 2'000)) {
      configuration.TrustedDomainInfos[word + u".test"].UT = {word + u"brand"};
      configuration.TrustedDomains.Entries.push_back({kDomain, word + u".test", {}, 0, u""});
      configuration.PopularSites.Entries.push_back({kDomain, word + u".example", {}, 0, u""});
      configuration.SafeList.Add({kDomain, word + u".safe", {}, 0, u""});
    }
    configuration.SafeList.Sort();
    configuration.BuildIndexes();
    page.configuration = &configuration;
    page.url.RawUrl = u"https://secure-login.accounts.somewhere.invalid/customers/verify/index.php?session=4711&step=2";
    page.url.Scheme = u"https";
    page.url.HostName = u"secure-login.accounts.somewhere.invalid";
    page.url.UrlPath = u"/customers/verify/index.php";
    page.url.FileExtension = u"php";

    const std::u16string words = Joined(RandomWords(random, 20), u',');
    const std::u16string endings = u".zip,.mov,.top,.xyz,.icu,.click,.link,.work,.cam,.rest";
    using Expressions =
        std::vector<std::pair<std::pair<std::uint32_t, std::uint32_t>, std::pair<std::uint32_t, std::u16string>>>;
    const std::vector<Expressions> kinds = {
        {{{15, 1}, {kValueText, u""}}},                                          // the host is an address
        {{{14, 1}, {kValueText, u""}}},                                          // ... or a single label
        {{{3, 60}, {kValueSiteList, u"4"}}},                                     // safe list
        {{{3, 8}, {kValueSiteList, u"0"}}},                                      // trusted domain
        {{{3, 8}, {kValueSiteList, u"2"}}},                                      // popular site
        {{{4, 3}, {kValueText, u"8"}}},                                          // brand tag in the URL
        {{{3, 4}, {kValueList, endings}}},                                       // ending of the host
        {{{27, 2}, {kValueList, u"exe,scr,php,asp"}}},                           // extension
        {{{4, 6}, {kValueList, words}}},                                         // words in the URL
        {{{20, 6}, {kValueList, words}}, {{27, 2}, {kValueText, u"php"}}},       // words in the path of a script
        {{{4, 49}, {kValueList, u"exempt.test"}}},                               // script in the URL
        {{{2, 6}, {kValueText, u"www"}}},                                        // user name that looks like a host
        {{{0, 26}, {kValueNumber, u"3"}}, {{0, 19}, {kValueNumber, u"4"}}},      // earlier rules
        {{{3, 6}, {kValueText, u"login"}}, {{20, 6}, {kValueText, u"verify"}}},  // two words
    };
    for (std::size_t i = 0; i < 250; ++i) {
      Indicator& indicator = indicators.Entries.emplace_back();
      indicator.OnWeight = 0.6F;
      indicator.Rule.Category = i % 7 == 0 && i / 7 < 35 ? (i < 200 ? 0 : 7) : 3;
      for (const auto& [what, value] : kinds[i / 7 % kinds.size()]) {
        indicator.Rule.Expressions.push_back({what.first, what.second, Prepared(value.first, value.second)});
      }
    }
    indicators.Prepare();
  }
};

void BM_UrlStages(benchmark::State& state) {
  Package package;
  for (auto _ : state) {
    std::vector<IndicatorResult> results(package.indicators.Entries.size());
    RunStage(package.indicators, package.configuration, package.page, 0, results);
    RunStage(package.indicators, package.configuration, package.page, 7, results);
    float spooficity = 0.0F;
    bool isFinal = false;
    benchmark::DoNotOptimize(computeSpooficity(package.indicators, results, spooficity, isFinal));
  }
}
BENCHMARK(BM_UrlStages);

/// The rules of one kind alone: the argument is the kind's number in Package.
void BM_UrlRule(benchmark::State& state) {
  Package package;
  Indicators one;
  one.Entries = {package.indicators.Entries[static_cast<std::size_t>(7 * state.range(0))]};
  one.Entries[0].Rule.Category = 0;
  one.Prepare();
  std::vector<IndicatorResult> results(1);
  for (auto _ : state) RunStage(one, package.configuration, package.page, 0, results);
}
BENCHMARK(BM_UrlRule)->DenseRange(0, 13);

void BM_ClockReadings(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < 37; ++i) benchmark::DoNotOptimize(PerformanceCounter());
  }
}
BENCHMARK(BM_ClockReadings);

/// Words that don't occur, in a text of the second argument's length.
void BM_ContainsWords(benchmark::State& state) {
  std::mt19937 random(2);  // NOLINT(cert-msc51-cpp): the same text each time
  std::vector<std::u16string> words = RandomWords(random, static_cast<std::size_t>(state.range(0)));
  for (std::u16string& word : words) word += u'q';
  const ExpressionValue value = Prepared(kValueList, Joined(words, u','));
  std::u16string text;
  while (text.size() < static_cast<std::size_t>(state.range(1))) text += Joined(RandomWords(random, 10), u' ');
  FieldValue field;
  field.kind = FieldKind::kText;
  field.text = text;
  for (auto _ : state) benchmark::DoNotOptimize(Contains(field, value));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size() * sizeof(char16_t)));
}
BENCHMARK(BM_ContainsWords)->ArgsProduct({{1, 3, 4, 20, 200, 2'000}, {100, 10'000}});

void BM_CopyText(benchmark::State& state) {
  const std::u16string text(static_cast<std::size_t>(state.range(0)), u'x');
  for (auto _ : state) benchmark::DoNotOptimize(std::u16string(text));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size() * sizeof(char16_t)));
}
BENCHMARK(BM_CopyText)->Arg(10'000);

}  // namespace
}  // namespace zeph
