// SPDX-License-Identifier: Apache-2.0
// What pages cost at the most.
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "TestPaths.h"
#include "benchmarks/PageMaker.h"
#include "tests/costs/HeapMeter.h"
#include "tests/costs/JudgePage.h"
#include "tools/zeph/Common.h"

namespace zeph {
namespace {

const ConfigurationPair& DefaultPackage() {
  static const std::unique_ptr<const ConfigurationPair> package = [] {
    auto pair = std::make_unique<ConfigurationPair>();
    LoadTextSources(ZEPH_SOURCE_DIR "/package", *pair);
    return pair;
  }();
  return *package;
}

TEST(PageCost, IsBoundedWhateverThePageIs) {
  const ConfigurationPair& package = DefaultPackage();
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr bool kIsInstrumented = true;  // allocates otherwise, and slowly: here it looks for faults alone
#else
  constexpr bool kIsInstrumented = false;
#endif
  for (const std::size_t size : {100'000U, 1'000'000U}) {
    if (kIsInstrumented && size > 100'000U) break;
    for (const HostilePage& page : HostilePages()) {
      const std::string bytes = page.Make(size);
      const HeapMeter meter;
      const Status status = JudgePage(bytes, page.form, package);
      const std::size_t allowed = kIsInstrumented ? meter.Peak() : MayTake(bytes.size());
      EXPECT_LE(meter.Peak(), allowed) << page.name << " of " << size << " bytes";
      EXPECT_TRUE(status == 0 || status == 1 || status == kStatusTooCostly) << page.name << ' ' << status;
    }
  }
}

TEST(PageCost, KeepsNoPageOfTheUsualKindFromBeingJudged) {
  const std::string bytes = PageMaker().Make(1'000'000);
  EXPECT_EQ(JudgePage(bytes, PageForm::kHtml, DefaultPackage()), 0);
}

}  // namespace
}  // namespace zeph
