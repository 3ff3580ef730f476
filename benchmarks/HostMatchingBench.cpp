// SPDX-License-Identifier: Apache-2.0
// Hosts in site lists, tags and tokens in URLs, words in page texts: what every classification does. The figures to
// hold are given with each case.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/text/Similarity.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

using Clock = std::chrono::steady_clock;

double Nanoseconds(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

std::u16string RandomWord(std::mt19937& random, std::size_t least, std::size_t most) {
  std::u16string word(least + random() % (most - least + 1), u' ');
  for (char16_t& c : word) c = u"etaoinshrdlucmfwypvbgkjqxz"[std::min(random() % 26, random() % 26)];
  return word;
}

NetLocationList DomainList(std::size_t count) {
  std::mt19937 random(1);
  NetLocationList list;
  for (std::size_t i = 0; i < count; ++i) {
    list.Entries.push_back({kDomain, RandomWord(random, 4, 14) + (i % 3 == 0 ? u".com" : u".example"), {}, 0, u""});
  }
  return list;
}

/// Half of the hosts lie below a domain of the list.
std::vector<std::u16string> Hosts(const NetLocationList& list) {
  std::mt19937 random(2);
  std::vector<std::u16string> hosts;
  for (int i = 0; i < 1024; ++i) {
    hosts.push_back(u"www." + (i % 2 == 0 ? list.Entries[random() % list.Entries.size()].Name
                                          : RandomWord(random, 4, 14) + u".test"));
  }
  return hosts;
}

/// Well below a microsecond in 100,000 domains, and at least 100 times faster than the walk that it stands for.
void BM_FindInDomains(benchmark::State& state) {
  NetLocationList list = DomainList(static_cast<std::size_t>(state.range(0)));
  const std::vector<std::u16string> hosts = Hosts(list);
  constexpr std::size_t kWalks = 64;
  std::vector<std::ptrdiff_t> walked;
  const Clock::time_point walkBegin = Clock::now();
  for (std::size_t i = 0; i < kWalks; ++i) walked.push_back(FindInNetLocations(hosts[i], list).index);
  const double walk = Nanoseconds(walkBegin) / kWalks;
  list.BuildIndex();
  for (std::size_t i = 0; i < kWalks; ++i) {
    if (FindInNetLocations(hosts[i], list).index != walked[i]) state.SkipWithError("index and walk differ");
  }
  std::size_t i = 0;
  const Clock::time_point begin = Clock::now();
  for (auto _ : state) benchmark::DoNotOptimize(FindInNetLocations(hosts[i++ % hosts.size()], list));
  const double indexed = Nanoseconds(begin) / static_cast<double>(state.iterations());
  state.counters["walk_ns"] = walk;
  state.counters["times_faster"] = walk / indexed;
}
BENCHMARK(BM_FindInDomains)->Arg(1000)->Arg(100'000);

/// About 10 ms for 100,000 domains.
void BM_BuildDomainIndex(benchmark::State& state) {
  NetLocationList list = DomainList(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) list.BuildIndex();
}
BENCHMARK(BM_BuildDomainIndex)->Arg(100'000)->Unit(benchmark::kMillisecond);

void BM_SafeListContains(benchmark::State& state) {
  NetLocationList list = DomainList(100'000);
  const std::vector<std::u16string> hosts = Hosts(list);
  SafeList safe;
  for (NetLocation& entry : list.Entries) safe.Add(std::move(entry));
  safe.Sort();
  safe.Others.BuildIndex();
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(safe.Contains(hosts[i++ % hosts.size()]));
}
BENCHMARK(BM_SafeListContains);

/// About a microsecond for a URL of 60 characters and 300 tags.
void BM_FindTagInUrl(benchmark::State& state) {
  std::mt19937 random(3);
  std::vector<TagIndexEntry> entries(static_cast<std::size_t>(state.range(0)));
  for (TagIndexEntry& entry : entries) entry = {RandomWord(random, 4, 10), u"brand.example"};
  if (state.range(1) != 0) entries.insert(entries.end(), {{u"hp", u"hp.example"}, {u"x", u"x.example"}});
  TagIndex index;
  index.Assign(std::move(entries));
  std::vector<std::u16string> urls;
  while (urls.size() < 256) {
    std::u16string url = u"http://www." + RandomWord(random, 12, 12) + u".test/" + RandomWord(random, 16, 16) + u"/" +
                         RandomWord(random, 7, 7) + u".html?id=7";
    if (!index.FindTag(url, TagForm::kUrl)) urls.push_back(url);  // a URL without a tag is walked to its end
  }
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(index.FindTag(urls[i++ % urls.size()], TagForm::kUrl));
  state.counters["length"] = static_cast<double>(urls[0].size());
}
BENCHMARK(BM_FindTagInUrl)->ArgNames({"tags", "short"})->Args({300, 0})->Args({300, 1})->Args({10'000, 0});

/// The 80 look-ups of one URL in 50,000 tokens: about 1.5 microseconds.
void BM_TokenLookups(benchmark::State& state) {
  std::mt19937 random(4);
  TokenTable table;
  std::vector<std::u16string> tokens;
  for (int i = 0; i < 50'000; ++i) {
    tokens.push_back(u"AB*" + RandomWord(random, 1, 12));
    table.insert_or_assign(tokens.back(), 0.5);
  }
  for (std::size_t i = 0; i < tokens.size(); i += 2) tokens[i] += u"-";  // half of the look-ups find nothing
  std::shuffle(tokens.begin(), tokens.end(), random);
  tokens.resize(80 * 100);
  std::u16string text;  // the tokens of a URL lie together, and have just been made
  for (const std::u16string& token : tokens) text += token;
  std::vector<std::u16string_view> views;
  for (std::size_t begin = 0; const std::u16string& token : tokens) {
    views.push_back(std::u16string_view(text).substr(begin, token.size()));
    begin += token.size();
  }
  std::size_t url = 0;
  for (auto _ : state) {
    double sum = 0.0;
    for (const std::u16string_view token : std::span(views).subspan(80 * (url++ % 100), 80)) {
      if (const double* const found = table.Find(token)) sum += *found;
    }
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(BM_TokenLookups);

void BM_FillTokens(benchmark::State& state) {
  std::mt19937 random(4);
  std::vector<std::u16string> tokens;
  for (int i = 0; i < 50'000; ++i) tokens.push_back(u"AB*" + RandomWord(random, 1, 12));
  for (auto _ : state) {
    TokenTable table;
    table.reserve(tokens.size());
    for (const std::u16string& token : tokens) table.insert_or_assign(token, 0.5);
    benchmark::DoNotOptimize(table);
  }
}
BENCHMARK(BM_FillTokens)->Unit(benchmark::kMillisecond);

/// Against a copy of the same text.
void BM_ContainsNoCase(benchmark::State& state) {
  std::mt19937 random(5);
  std::u16string text;
  while (text.size() < 500'000) text += RandomWord(random, 2, 9) + u' ';
  if (state.range(0) != 0) {
    for (char16_t& c : text) c = static_cast<char16_t>(c == u' ' ? c : c - u'a' + 0x0430);
  }
  const std::u16string needle = state.range(0) == 0 ? u"Estimate zq" : u"\u0421\u0442\u0438\u043c \u0437\u0449";
  std::u16string copy(text.size(), u' ');
  const Clock::time_point copyBegin = Clock::now();
  for (int i = 0; i < 100; ++i) {
    std::memcpy(copy.data(), text.data(), text.size() * sizeof(char16_t));
    benchmark::ClobberMemory();
  }
  const double copied = Nanoseconds(copyBegin) / 100;
  const Clock::time_point begin = Clock::now();
  for (auto _ : state) benchmark::DoNotOptimize(ContainsNoCase(needle, text));
  const double searched = Nanoseconds(begin) / static_cast<double>(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size() * sizeof(char16_t)));
  state.counters["copies"] = searched / copied;
}
BENCHMARK(BM_ContainsNoCase)->ArgName("cyrillic")->Arg(0)->Arg(1);

void BM_ToLower(benchmark::State& state) {
  const std::u16string text(500'000, u'A');
  for (auto _ : state) benchmark::DoNotOptimize(ToLower(text));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size() * sizeof(char16_t)));
}
BENCHMARK(BM_ToLower);

void BM_EditDistance(benchmark::State& state) {
  std::mt19937 random(6);
  const auto length = static_cast<std::size_t>(state.range(0));
  const std::u16string a = RandomWord(random, length, length);
  const std::u16string b = RandomWord(random, length, length);
  for (auto _ : state) benchmark::DoNotOptimize(EditDistance(a, b));
}
BENCHMARK(BM_EditDistance)->Arg(12)->Arg(300)->Arg(3000);

}  // namespace
}  // namespace zeph
