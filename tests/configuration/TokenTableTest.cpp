// SPDX-License-Identifier: Apache-2.0
#include <map>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/TokenTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

TEST(TokenTable, HoldsWhatAMapHolds) {
  std::mt19937 random(7);
  for (int round = 0; round < 60; ++round) {
    std::map<std::u16string, double, std::less<>> expected;
    TokenTable table;
    if (round % 2 == 0) table.reserve(random() % 500);
    // Lengths around those at which the hash changes its step; zeros and lone surrogates are units like others.
    const auto draw = [&] {
      std::u16string key(random() % 20, u' ');
      for (char16_t& c : key) c = u"\0a\xd800z"[random() % (round % 3 == 0 ? 2 : 4)];
      return key;
    };
    for (int i = 0; i < 1000; ++i) {
      const std::u16string key = draw();
      const double probability = static_cast<double>(random() % 1000) / 1000;
      expected[key] = probability;
      table.insert_or_assign(key, probability);
    }
    ASSERT_EQ(table.size(), expected.size());
    for (int i = 0; i < 1000; ++i) {
      const std::u16string key = draw();
      const auto at = expected.find(key);
      const double* const found = table.Find(key);
      ASSERT_EQ(found != nullptr, at != expected.end()) << Narrow(key);
      if (found != nullptr) {
        ASSERT_EQ(*found, at->second) << Narrow(key);
      }
    }
    const auto sorted = table.Sorted();
    ASSERT_TRUE(std::equal(sorted.begin(), sorted.end(), expected.begin(), expected.end(),
                           [](const auto& a, const auto& b) { return a.first == b.first && a.second == b.second; }));
  }
}

TEST(TokenTable, KeepsApartKeysOfOneHash) {
  TokenTable table;
  constexpr int kKeys = 200'000;  // so many that some share the 32 bits of hash that a slot keeps
  for (int i = 0; i < kKeys; ++i) table.insert_or_assign(NumberText(i), i);
  EXPECT_EQ(table.size(), std::size_t{kKeys});
  for (int i = 0; i < kKeys; ++i) {
    const double* const found = table.Find(NumberText(i));
    ASSERT_TRUE(found != nullptr && *found == i) << i;
  }
}

TEST(TokenTable, IsEmptyAgainAfterClearAndEqualByContent) {
  TokenTable table;
  EXPECT_EQ(table.Find(u"a"), nullptr);
  table.insert_or_assign(u"a", 1.0);
  table.insert_or_assign(u"b", 2.0);
  TokenTable other;
  other.insert_or_assign(u"b", 2.0);
  EXPECT_FALSE(table == other);
  other.insert_or_assign(u"a", 1.0);
  EXPECT_TRUE(table == other);
  table.clear();
  EXPECT_EQ(table.Find(u"a"), nullptr);
  table.insert_or_assign(u"c", 3.0);
  EXPECT_EQ(table.size(), 1U);
  EXPECT_NE(table.Find(u"c"), nullptr);
}

}  // namespace
}  // namespace zeph
