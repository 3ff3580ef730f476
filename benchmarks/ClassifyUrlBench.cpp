// SPDX-License-Identifier: Apache-2.0
// The whole of ClassifyURL with the default package, log off, the score cache missed, against libcurl's parse of the
// same URL in the same run.
#include <filesystem>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "benchmarks/UrlYardstick.h"

namespace zeph {
namespace {

/// The default package, from its sources beside this program's.
void LoadDefaultPackage() {
  static const bool loaded = Process().configurationMgr.LoadPackage(Widen(ZEPH_DEFAULT_PACKAGE));
  if (!loaded) std::abort();
}

void Classify(const std::u16string& url) {
  std::int32_t classification = 0;
  float spooficity = 0.0F;
  char16_t siteName[kZephNameRoom];
  benchmark::DoNotOptimize(ClassifyURL(url.c_str(), &classification, siteName, &spooficity));
}

void VariedUrlsOneByOne(benchmark::State& state) {
  LoadDefaultPackage();
  Measure(state, VariedUrls(), Classify);
}
BENCHMARK(VariedUrlsOneByOne)->UseManualTime();

void ByLength(benchmark::State& state) {
  LoadDefaultPackage();
  RandomUrls random(3);
  std::vector<std::u16string> urls;
  while (urls.size() < 200) {
    std::u16string url = random.Usual();
    while (url.size() < static_cast<std::size_t>(state.range(0))) {
      url += (url.find(u'?') == std::u16string::npos ? u"?" : u"&") + std::u16string(u"key") +
             static_cast<char16_t>(u'a' + url.size() % 26) + u"=value-" + static_cast<char16_t>(u'a' + url.size() % 23);
    }
    url.resize(static_cast<std::size_t>(state.range(0)), u'x');
    urls.push_back(url);
  }
  Measure(state, urls, Classify);
}
BENCHMARK(ByLength)->Arg(64)->Arg(256)->Arg(1024)->Arg(2083)->UseManualTime();

/// The same URLs while the site lists grow: the cost should stay.
void BySiteListSize(benchmark::State& state) {
  LoadDefaultPackage();
  static const auto base = Process().configurationMgr.Active();
  auto pair = std::make_shared<ConfigurationPair>(*base);
  for (NetLocationList* list : {&pair->configuration.PopularSites, &pair->configuration.WebHostingSites}) {
    for (std::int64_t i = 0; i < state.range(0); ++i) {
      NetLocation site;
      site.Name = u"site" + Widen(std::to_string(i)) + u".example";
      list->Entries.push_back(site);
    }
  }
  pair->configuration.BuildIndexes();
  Process().configurationMgr.Publish(pair);
  Measure(state, VariedUrls(), Classify);
  Process().configurationMgr.Publish(base);
}
BENCHMARK(BySiteListSize)->Arg(0)->Arg(1000)->Arg(100'000)->UseManualTime();

}  // namespace
}  // namespace zeph
