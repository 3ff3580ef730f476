// SPDX-License-Identifier: Apache-2.0
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

TEST(StringTable, GivesTextsByIdAndByEntry) {
  const StringTableGuard guard;
  for (std::uint32_t entry = 0; entry < kStringCount; ++entry) {
    ASSERT_NE(GetString(kStringIdBase + entry), nullptr) << entry;
    EXPECT_EQ(StringEntry(entry), GetString(kStringIdBase + entry)) << entry;
  }
  for (const std::uint32_t id : {0U, 0x11U, kStringCount, kStringIdBase + kStringCount, 0xFFFFFFFFU}) {
    EXPECT_EQ(GetString(id), nullptr) << id;
  }
  EXPECT_EQ(StringEntry(kStringCount), u"");
}

// What is searched in lower-case text would never be found otherwise.
TEST(StringTable, WordsOfPagesAreInLowerCase) {
  for (std::uint32_t entry = 0x0C; entry <= 0x7B; ++entry) {
    EXPECT_EQ(Narrow(StringEntry(entry)), Narrow(ToLower(StringEntry(entry)))) << entry;
    EXPECT_FALSE(StringEntry(entry).empty()) << entry;
  }
}

// Completing a target must leave one alone that is complete.
TEST(StringTable, NoCompleteAddressBeginsAsAnIncompleteOne) {
  EXPECT_FALSE(StringEntry(0xDA).empty());
  EXPECT_FALSE(StartsWith(StringEntry(0xDC), StringEntry(0xDA)));
  EXPECT_FALSE(StartsWith(StringEntry(0xDD), StringEntry(0xDA)));
}

// An empty signer would accept a certificate without a name; two slots of one name would share their text.
TEST(StringTable, SignersAreNamedAndSettingsApart) {
  for (std::uint32_t entry = 0xBF; entry <= 0xC1; ++entry) EXPECT_FALSE(StringEntry(entry).empty()) << entry;
  std::set<std::u16string_view> names;
  for (std::uint32_t entry = 0xC8; entry <= 0xD5; ++entry) {
    EXPECT_TRUE(names.insert(StringEntry(entry)).second) << entry;
  }
}

}  // namespace
}  // namespace zeph
