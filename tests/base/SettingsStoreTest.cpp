// SPDX-License-Identifier: Apache-2.0
#include <chrono>

#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/base/TimeStamp.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class SettingsStoreTest : public FoldersTest {
 protected:
  SettingsStoreTest() { SetSettingsKeyPath("Vendor", "Module"); }

  [[nodiscard]] static std::string Key() { return Narrow(SettingsKeyPath()); }
  [[nodiscard]] static SettingsHive Hive() { return SettingsHive(HiveOwner::kUser); }
};

TEST_F(SettingsStoreTest, WriteFailsUntilATimeIsTaken) {
  SettingsStore store;
  EXPECT_EQ(store.Write(8, u"text"), 1);
  EXPECT_EQ(store.Age(8), -1);
  EXPECT_EQ(store.Delete(8), 1);
  EXPECT_FALSE(Hive().HasKey(Key()));
  const std::u16string now = store.Now();
  EXPECT_TRUE(Hive().HasKey(Key()));
  EXPECT_EQ(store.Write(10, now), 0);
  EXPECT_LE(store.Age(10), 60);
}

TEST_F(SettingsStoreTest, SlotsAreNamedByTheStringTable) {
  const std::pair<std::uint32_t, std::uint32_t> slots[] = {{0, 0xCC}, {4, 0xC8}, {8, 0xCD}, {9, 0xCE}, {10, 0xCF}};
  SettingsStore store;
  store.EnsureKey();
  for (const auto& [slot, entry] : slots) {
    const std::string text = "slot " + std::to_string(slot);
    EXPECT_EQ(store.Write(slot, Widen(text)), 0) << slot;
    EXPECT_EQ(Hive().Read(Key(), Narrow(StringEntry(entry))), SettingValue(text)) << slot;
  }
  std::u16string out;
  for (const auto& [slot, entry] : slots) {
    EXPECT_EQ(SettingsStore().Read(slot, out), 0) << slot;
    EXPECT_EQ(Narrow(out), "slot " + std::to_string(slot));
  }
  for (const std::uint32_t slot : {15U, 1U, 0xFFFFFFFFU}) {
    EXPECT_EQ(store.Write(slot, u"text"), 1) << slot;
    EXPECT_EQ(store.Read(slot, out), 1) << slot;
    EXPECT_EQ(out, u"") << slot;
    EXPECT_EQ(store.Delete(slot), 1) << slot;
  }
  EXPECT_EQ(store.Delete(4), 0);
  EXPECT_EQ(store.Read(4, out), 1);
}

TEST_F(SettingsStoreTest, SlotHoldsNarrowTextOf260Bytes) {
  SettingsStore store;
  store.EnsureKey();
  std::u16string out = u"before";
  const std::pair<std::u16string, std::int32_t> texts[] = {
      {u"", 0},
      {u"\u00FC\u65E5\xD83D\xDE00", 0},
      {std::u16string(260, u'x'), 0},
      {std::u16string(261, u'x'), 1},
      {std::u16string(131, u'\u00FC'), 1},
  };
  for (const auto& [text, status] : texts) {
    EXPECT_EQ(store.Write(4, text), status) << text.size();
    if (status == 0) {
      EXPECT_EQ(store.Read(4, out), 0);
      EXPECT_EQ(out, text);
    }
  }
  const std::string name = Narrow(StringEntry(0xC8));
  for (const SettingValue& value : {SettingValue(7U), SettingValue(std::string(261, 'x'))}) {
    ASSERT_TRUE(Hive().Write(Key(), name, value));
    EXPECT_EQ(store.Read(4, out), 1);
    EXPECT_EQ(out, u"");
    EXPECT_EQ(store.Age(4), -1);
  }
}

TEST_F(SettingsStoreTest, OutlivesTheProcess) {
  Child other([] {
    SettingsStore store;
    store.EnsureKey();
    return store.Write(4, u"from another process") == 0;
  });
  ASSERT_TRUE(other.Join());
  std::u16string out;
  EXPECT_EQ(SettingsStore().Read(4, out), 0);
  EXPECT_EQ(out, u"from another process");
  SetSettingsKeyPath("Vendor", "Other module");
  EXPECT_EQ(SettingsStore().Read(4, out), 1);
}

TEST_F(SettingsStoreTest, AgeCountsEitherWayUpToAWeek) {
  SettingsStore store;
  store.EnsureKey();
  const struct {
    int seconds;
    std::int64_t least;
    std::int64_t most;
  } cases[] = {
      {0, 0, 60},
      {-100, 100, 160},
      {100, 40, 100},
      {-604800, 604800, 604800},
      {-700000, 604800, 604800},
      {700000, 604800, 604800},
  };
  for (const auto& [seconds, least, most] : cases) {
    const auto then = std::chrono::system_clock::now() + std::chrono::seconds(seconds);
    const std::time_t time = std::chrono::system_clock::to_time_t(then);
    std::tm parts{};
    gmtime_r(&time, &parts);
    ASSERT_EQ(store.Write(0, EncodeTimeStamp(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                                             parts.tm_min, parts.tm_sec)),
              0);
    EXPECT_GE(store.Age(0), least) << seconds;
    EXPECT_LE(store.Age(0), most) << seconds;
  }
  for (const std::u16string_view text : {u"", u"garbage", u"00000000-FFFF-FFFF-FFFF-000000000000"}) {
    ASSERT_EQ(store.Write(0, text), 0);
    EXPECT_EQ(store.Age(0), 0) << Narrow(text);
  }
}

TEST(SecondsBetween, ComparesValidTimesAndCutsPartsOfASecond) {
  const CalendarTime time{2024, 2, 29, 12, 0, 0, 0};
  const struct {
    CalendarTime a;
    CalendarTime b;
    std::int64_t seconds;
  } cases[] = {
      {time, time, 0},
      {time, {2024, 3, 1, 12, 0, 0, 0}, 86400},
      {{2024, 3, 1, 12, 0, 0, 0}, time, 86400},
      {time, {2024, 2, 29, 12, 0, 1, 999}, 1},
      {{2024, 2, 29, 12, 0, 1, 1}, {2024, 2, 29, 12, 0, 3, 0}, 1},
      {time, {2024, 3, 7, 11, 59, 59, 999}, 604799},
      {time, {2024, 3, 7, 12, 0, 0, 0}, 604800},
      {time, {2024, 3, 7, 12, 0, 1, 0}, 604800},
      {{1601, 1, 1, 0, 0, 0, 0}, {30827, 12, 31, 23, 59, 59, 999}, 604800},
      {time, {2024, 2, 30, 12, 0, 0, 0}, 0},
      {{2023, 2, 29, 0, 0, 0, 0}, time, 0},
      {time, {1600, 1, 1, 0, 0, 0, 0}, 0},
      {time, {30828, 1, 1, 0, 0, 0, 0}, 0},
      {time, {2024, 13, 1, 0, 0, 0, 0}, 0},
      {time, {2024, 0, 1, 0, 0, 0, 0}, 0},
      {time, {2024, 1, 0, 0, 0, 0, 0}, 0},
      {time, {2024, 1, 1, 24, 0, 0, 0}, 0},
      {time, {2024, 1, 1, 0, 60, 0, 0}, 0},
      {time, {2024, 1, 1, 0, 0, 60, 0}, 0},
      {time, {2024, 1, 1, -1, 0, 0, 0}, 0},
      {{}, {}, 0},
  };
  int row = 0;
  for (const auto& [a, b, seconds] : cases) EXPECT_EQ(SecondsBetween(a, b), seconds) << "row " << row++;
}

TEST(TimeStamp, HasTheShapeOfAGuidWhoseLastGroupIsRandom) {
  // 20071105 is 0x13242C1.
  const std::u16string stamp = EncodeTimeStamp(2007, 11, 5, 23, 1, 59);
  EXPECT_EQ(stamp.substr(0, 24), u"013242C1-FFE8-FFFE-FFC4-");
  EXPECT_EQ(stamp.size(), 36U);
  EXPECT_EQ(stamp.find_first_not_of(u"0123456789ABCDEF", 24), std::u16string::npos);
  EXPECT_NE(stamp, EncodeTimeStamp(2007, 11, 5, 23, 1, 59));
}

TEST(TimeStamp, AnyTextDecodes) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {EncodeTimeStamp(2007, 11, 5, 23, 1, 59), u"2007-11-05 23:01:59"},
      {EncodeTimeStamp(1, 1, 1, 0, 0, 0), u"0001-01-01 00:00:00"},
      {EncodeTimeStamp(9999, 12, 31, 23, 59, 59), u"9999-12-31 23:59:59"},
      {u"013242c1-ffe8-fffe-ffc4-not looked at", u"2007-11-05 23:01:59"},
      {u"ZZZZZZZZ-FFE8-FFFE-FFC4-000000000000", u"0000-00-00 23:01:59"},
      {u"", u"0000-00-00 65535:65535:65535"},
      {u"FFFFFFFF-0000-FFFF-FFFF-", u"4294-96-72 65535:00:00"},
      {u"0X1324391-FE8-FFFE-FFC4-", u"0125-44-57 65535:01:59"},
      {u"0x1324G9", u"0000-49-00 65535:65535:65535"},
      {std::u16string(100000, u'F'), u"4294-96-72 00:00:00"},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Narrow(DecodeTimeStamp(text)), Narrow(expected)) << Narrow(text.substr(0, 40));
  }
}

}  // namespace
}  // namespace zeph
