// SPDX-License-Identifier: Apache-2.0
// Packages are replaced as fast as they load while pages and URLs are classified.
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/MemoryFileWriter.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class SwapTest : public FoldersTest {
 protected:
  /// A package whose one brand is found in each URL that holds "brand", and has this name and this weight.
  [[nodiscard]] std::string MakePackage(const std::string& file, const std::u16string& name, float weight) const {
    ConfigurationPair pair;
    TrustedDomainInfo& info = pair.configuration.TrustedDomainInfos[u"brand.example"];
    info.CN = name;
    info.UT = {u"brand"};
    Indicator indicator;
    indicator.OnWeight = weight;
    indicator.Rule.Category = 0;
    indicator.Rule.TDPriority = 1;
    indicator.Rule.Expressions.push_back({4, 3, {kValueNumber, u"8", {}, {}}});
    pair.indicators.Entries.assign(40, indicator);
    for (int i = 0; i < 2000; ++i) {
      NetLocation site;
      site.Name = name + Widen(std::to_string(i)) + u".example";
      pair.configuration.PopularSites.Entries.push_back(site);
    }
    const auto packed = SealMemoryFile(WriteMemoryFile(pair.configuration, pair.indicators));
    const std::string packedFile = Path("packed3.dat");
    Fill(packedFile, packed.value());
    const std::array<const char*, 1> files = {packedFile.c_str()};
    EXPECT_TRUE(MakeCabinet(files.data(), 1, file.c_str(), Path("").c_str()));
    return Path(file);
  }
};

TEST_F(SwapTest, EachClassificationIsOfOnePackage) {
  const std::array<std::u16string, 2> packages = {Widen(MakePackage("one.zip", u"One", 0.9F)),
                                                  Widen(MakePackage("two.zip", u"Two", 0.95F))};
  ConfigurationMgr& manager = Process().configurationMgr;
  ASSERT_TRUE(manager.LoadPackage(packages[0]));
  constexpr int kThreads = 8;
  constexpr int kLoads = 40;
  std::atomic<bool> stop{false};
  std::atomic<int> classified{0};
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        while (!stop) {
          std::int32_t classification = 0;
          std::array<char16_t, kZephNameRoom> name{};
          EXPECT_EQ(ClassifyURL(u"http://brand.evil.example/", &classification, name.data(), nullptr), 0);
          EXPECT_EQ(classification, kZephSpoofingConfirmed);
          const std::u16string_view brand(name.data());
          EXPECT_TRUE(brand == u"One" || brand == u"Two") << Narrow(brand);
          ++classified;
        }
      });
    }
    for (int load = 0; load < kLoads; ++load) EXPECT_TRUE(manager.LoadPackage(packages[load % 2 == 0 ? 1 : 0]));
    while (classified < kThreads) std::this_thread::yield();
    stop = true;
  }
}

}  // namespace
}  // namespace zeph
