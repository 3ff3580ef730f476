// SPDX-License-Identifier: Apache-2.0
// What a load costs, against the yardstick of uncompress on the same data in the same run: a large configuration of
// 100,000 sites (one list holds at most 65,535, so two), 50,000 tokens, 2,000 brands and 500 rules. And what a
// classification pays at the door.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/configuration/MemoryFile.h"
#include "DetectionEngine/configuration/MemoryFileWriter.h"
#include "DetectionEngine/configuration/Pack.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

constexpr int kSites = 100000;
constexpr int kSitesOfOneList = 65535;
constexpr int kTokens = 50000;
constexpr int kBrands = 2000;
constexpr int kRules = 500;

class Names {
 public:
  std::u16string Word() {
    std::u16string word;
    for (auto length = 4 + random_() % 9; length > 0; --length) word += static_cast<char16_t>(u'a' + random_() % 26);
    return word;
  }
  std::u16string Domain() {
    constexpr const char16_t* kEndings[] = {u".com", u".org", u".net", u".de", u".co.uk"};
    return Word() + kEndings[random_() % std::size(kEndings)];
  }
  double Share() { return static_cast<double>(random_() % 100000) / 100000; }

 private:
  std::mt19937 random_{1};
};

ConfigurationPair LargePair() {
  Names names;
  ConfigurationPair pair;
  Configuration& c = pair.configuration;
  for (int i = 0; i < kSites; ++i) {
    NetLocation site{kDomain, names.Domain(), {}, 0, {}};
    if (i < kSitesOfOneList) {
      c.PopularSites.Entries.push_back(std::move(site));
    } else {
      c.SafeList.Add(std::move(site));
    }
  }
  c.SafeList.Sort();
  while (c.UrlAnalysisTable.size() < kTokens) c.UrlAnalysisTable.insert_or_assign(names.Word(), names.Share());
  while (c.TrustedDomainInfos.size() < kBrands) {
    const std::u16string domain = names.Domain();
    const std::u16string brand = names.Word();
    c.TrustedDomainInfos[domain] = {true, brand, {brand}, {brand}, {domain, names.Domain()}, {brand, names.Word()}, {}};
    c.TrustedDomains.Entries.push_back({kDomain, domain, {}, 0, {}});
  }
  for (int i = 0; i < kRules; ++i) {
    Indicator& rule = pair.indicators.Entries.emplace_back();
    rule.Rule = {0, {{1, 2, {kValueList, names.Word() + u',' + names.Word(), {}, {}}}}, 0, 0};
  }
  return pair;
}

/// The large configuration as a packed file and as a package, in a folder that goes at the end.
class Files {
 public:
  Files() {
    std::string pattern = (fs::temp_directory_path() / "zeph-bench-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    setenv("ZEPH_MACHINE_DIR", folder_.c_str(), 1);
    ConfigurationPair pair = LargePair();
    pair.configuration.NewConfigFile = Widen(PackagePath());
    content = WriteMemoryFile(pair.configuration, pair.indicators).value();
    sealed = SealMemoryFile(content).value();
    std::ofstream(PackedFilePath(), std::ios::binary) << sealed;
    const std::string path = PackedFilePath();
    const char* files[] = {path.c_str()};
    if (!MakeCabinet(files, 1, "engine.zip", folder_.c_str())) std::abort();
  }
  ~Files() { fs::remove_all(folder_); }
  [[nodiscard]] std::string PackedFilePath() const { return folder_ + "/packed3.dat"; }
  [[nodiscard]] std::string PackagePath() const { return folder_ + "/engine.zip"; }
  [[nodiscard]] std::u16string Folder() const { return Widen(folder_); }

  std::string content;
  std::string sealed;

 private:
  std::string folder_;
};

const Files& LargeFiles() {
  static const Files files;
  return files;
}

/// Seconds that uncompress takes, the least of a few runs.
double UncompressSeconds() {
  static const double seconds = [] {
    const Files& files = LargeFiles();
    std::string stored = files.sealed;
    DecryptData(stored.data(), stored.size());
    std::string room(files.content.size(), '\0');
    double least = 1e9;
    for (int i = 0; i < 20; ++i) {
      const auto begin = std::chrono::steady_clock::now();
      uLongf length = room.size();
      if (uncompress(reinterpret_cast<Bytef*>(room.data()), &length, reinterpret_cast<const Bytef*>(stored.data()),
                     stored.size()) != Z_OK) {
        std::abort();
      }
      least = std::min(least, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    if (room != files.content) std::abort();
    return least;
  }();
  return seconds;
}

/// Adds how many times as long as uncompress one iteration takes.
void CompareWithUncompress(benchmark::State& state) {
  state.counters["uncompress_ms"] = 1000 * UncompressSeconds();
  state.counters["times_uncompress"] = benchmark::Counter(static_cast<double>(state.iterations()) * UncompressSeconds(),
                                                          benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(LargeFiles().content.size()));
}

void BM_LoadMemoryFile(benchmark::State& state) {
  UncompressSeconds();
  for (auto _ : state) {
    ConfigurationPair pair;
    MemoryFile file(MemoryFile::Packed{LargeFiles().sealed});
    file.Read(pair.configuration);
    file.Read(pair.indicators);
    pair.configuration.BuildIndexes();
    pair.indicators.Prepare();
    benchmark::DoNotOptimize(pair);
  }
  CompareWithUncompress(state);
}
BENCHMARK(BM_LoadMemoryFile)->Unit(benchmark::kMillisecond);

/// From the cabinet to the swap.
void BM_LoadPackage(benchmark::State& state) {
  ConfigurationMgr manager(ModuleTexts{{}, LargeFiles().Folder(), u"engine"});
  const std::u16string path = Widen(LargeFiles().PackagePath());
  for (auto _ : state) {
    if (!manager.LoadPackage(path)) std::abort();
  }
  CompareWithUncompress(state);
}
BENCHMARK(BM_LoadPackage)->Unit(benchmark::kMillisecond);

/// What each classification does first, when nothing is newer; from as many threads as given.
void BM_RunAndTakeActive(benchmark::State& state) {
  static ConfigurationMgr manager(ModuleTexts{{}, LargeFiles().Folder(), u"engine"});
  static const bool loaded = manager.Run();
  if (!loaded) std::abort();
  for (auto _ : state) {
    manager.Run();
    benchmark::DoNotOptimize(manager.Active());
  }
}
BENCHMARK(BM_RunAndTakeActive)->Threads(1)->Threads(2)->Threads(8);

}  // namespace
}  // namespace zeph
