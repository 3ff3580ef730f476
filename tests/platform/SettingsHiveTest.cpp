// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include <sqlite3.h>

#include "DetectionEngine/platform/SettingsHive.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class SettingsHiveTest : public FoldersTest {
 protected:
  static constexpr std::string_view kKey = "Software\\Vendor\\Product";

  /// Runs statements on a hive's file as somebody else might.
  static void Meddle(const SettingsHive& hive, const std::string& statements) {
    sqlite3* file = nullptr;
    ASSERT_EQ(sqlite3_open(hive.Path().c_str(), &file), SQLITE_OK);
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(file, statements.c_str(), nullptr, nullptr, &error), SQLITE_OK) << error;
    sqlite3_close(file);
  }

  SettingsHive hive_{HiveOwner::kUser};
};

TEST_F(SettingsHiveTest, ValuesNeedAKeyAndKeepTheirType) {
  EXPECT_FALSE(hive_.Write(kKey, "a", SettingValue(1U)));
  EXPECT_FALSE(hive_.HasKey(kKey));
  EXPECT_FALSE(std::filesystem::exists(hive_.Path())) << "nothing but a key makes the file";

  ASSERT_TRUE(hive_.CreateKey(kKey));
  EXPECT_TRUE(hive_.CreateKey(kKey)) << "exists already";
  EXPECT_TRUE(hive_.HasKey(kKey));
  EXPECT_FALSE(hive_.HasKey("Software\\Vendor")) << "a key is one name, not a path of keys";
  EXPECT_EQ(hive_.ReadKey(kKey), SettingValues());

  const SettingValue values[] = {0U, 4294967295U, "", "1", std::string("a\0\xFF", 3), std::string(4096, 'x')};
  for (const auto& value : values) {
    EXPECT_TRUE(hive_.Write(kKey, "a", value));
    EXPECT_EQ(hive_.Read(kKey, "a"), value);
  }
  EXPECT_FALSE(hive_.Write(kKey, "a", SettingValue(std::string(4097, 'x'))));
  EXPECT_FALSE(hive_.Write(kKey, std::string(4097, 'x'), SettingValue(1U)));
  EXPECT_FALSE(hive_.CreateKey(std::string(4097, 'x')));
  EXPECT_EQ(hive_.Read(kKey, "a"), values[5]);
}

TEST_F(SettingsHiveTest, NamesAreComparedWithoutCase) {
  ASSERT_TRUE(hive_.CreateKey(kKey));
  ASSERT_TRUE(hive_.Write("SOFTWARE\\vendor\\PRODUCT", "Name", SettingValue(1U)));
  ASSERT_TRUE(hive_.Write(kKey, "nAME", SettingValue("b")));
  EXPECT_EQ(hive_.Read(kKey, "NAME"), SettingValue("b"));
  const auto values = hive_.ReadKey(kKey);
  ASSERT_TRUE(values);
  EXPECT_EQ(values->size(), 1U);
  EXPECT_TRUE(values->contains("name"));
}

TEST_F(SettingsHiveTest, WhatIsDeletedIsGone) {
  ASSERT_TRUE(hive_.CreateKey("b"));
  ASSERT_TRUE(hive_.CreateKey("A"));
  ASSERT_TRUE(hive_.Write("A", "x", SettingValue(1U)));
  ASSERT_TRUE(hive_.Write("A", "y", SettingValue(2U)));
  EXPECT_EQ(hive_.Keys(), (std::vector<std::string>{"A", "b"}));
  EXPECT_TRUE(hive_.Delete("a", "X"));
  EXPECT_FALSE(hive_.Delete("a", "x"));
  EXPECT_EQ(hive_.ReadKey("A"), (SettingValues{{"y", SettingValue(2U)}}));
  EXPECT_TRUE(hive_.DeleteKey("A"));
  EXPECT_FALSE(hive_.DeleteKey("A"));
  ASSERT_TRUE(hive_.CreateKey("A"));
  EXPECT_EQ(hive_.ReadKey("A"), SettingValues()) << "its values went with it";
}

TEST_F(SettingsHiveTest, MachineAndUserAreApartAndFollowTheEnvironment) {
  SettingsHive machine(HiveOwner::kMachine);
  EXPECT_EQ(machine.Path(), Path("machine/settings.sqlite"));
  ASSERT_TRUE(hive_.CreateKey(kKey));
  EXPECT_FALSE(machine.HasKey(kKey));
  EXPECT_EQ(std::filesystem::status(hive_.Path()).permissions(), std::filesystem::perms(0600));
  EXPECT_EQ(std::filesystem::status(Path("user")).permissions(), std::filesystem::perms(0700));
  setenv("ZEPH_USER_DIR", Path("elsewhere/user/").c_str(), 1);
  SettingsHive elsewhere(HiveOwner::kUser);
  EXPECT_FALSE(elsewhere.HasKey(kKey));
  EXPECT_TRUE(elsewhere.CreateKey(kKey));
  EXPECT_EQ(elsewhere.Path(), Path("elsewhere/user/settings.sqlite"));
}

TEST_F(SettingsHiveTest, BadFileIsAHiveWithoutKeys) {
  ASSERT_TRUE(hive_.CreateKey(kKey));
  ASSERT_TRUE(hive_.Write(kKey, "a", SettingValue(1U)));
  const std::string good = Content(hive_.Path());
  std::string scrambled = good;
  for (std::size_t i = 100; i < scrambled.size(); i += 7) scrambled[i] = static_cast<char>(scrambled[i] ^ 0x5A);
  const std::pair<const char*, std::string> cases[] = {
      {"empty", ""},
      {"text", "not a hive at all, but longer than a header of a hundred bytes would be, so that it is looked into"},
      {"cut", good.substr(0, good.size() / 2)},
      {"scrambled", scrambled},
  };
  for (const auto& [name, content] : cases) {
    Fill(hive_.Path(), content);
    EXPECT_FALSE(hive_.HasKey(kKey)) << name;
    EXPECT_EQ(hive_.Read(kKey, "a"), std::nullopt) << name;
    EXPECT_EQ(hive_.ReadKey(kKey), std::nullopt) << name;
    EXPECT_EQ(hive_.Keys(), std::vector<std::string>()) << name;
    EXPECT_FALSE(hive_.Write(kKey, "a", SettingValue(2U))) << name;
    EXPECT_FALSE(hive_.Delete(kKey, "a")) << name;
  }
  Fill(hive_.Path(), "");
  EXPECT_TRUE(hive_.CreateKey(kKey)) << "an empty file is as good as none";
  std::filesystem::remove(hive_.Path());
  std::filesystem::create_directory(hive_.Path());
  EXPECT_FALSE(hive_.CreateKey(kKey));
}

TEST_F(SettingsHiveTest, FlippedBytesNeverCrashIt) {
  ASSERT_TRUE(hive_.CreateKey(kKey));
  ASSERT_TRUE(hive_.Write(kKey, "a", SettingValue("text")));
  const std::string good = Content(hive_.Path());
  for (std::size_t i = 0; i < good.size(); i = i < 1024 ? i + 1 : i + 61) {
    std::string bad = good;
    bad[i] = static_cast<char>(~bad[i]);
    Fill(hive_.Path(), bad);
    (void)hive_.Read(kKey, "a");
    (void)hive_.ReadKey(kKey);
    hive_.Write(kKey, "a", SettingValue(1U));
  }
}

TEST_F(SettingsHiveTest, DoctoredFileIsReadForItsTablesAlone) {
  ASSERT_TRUE(hive_.CreateKey(kKey));
  Meddle(hive_,
         "INSERT INTO setting_value VALUES(1, 'big', 4294967296), (1, 'negative', -1), "
         "(1, 'long', printf('%5000s', 'x')), (1, 'good', 7)");
  EXPECT_EQ(hive_.ReadKey(kKey), (SettingValues{{"good", SettingValue(7U)}}));
  EXPECT_EQ(hive_.Read(kKey, "big"), std::nullopt);

  Meddle(hive_, "CREATE TRIGGER t AFTER UPDATE ON setting_value BEGIN DELETE FROM setting_value; END");
  EXPECT_TRUE(hive_.Write(kKey, "good", SettingValue(8U)));
  EXPECT_EQ(hive_.Read(kKey, "good"), SettingValue(8U));

  Meddle(hive_,
         "DROP TABLE setting_value; CREATE VIEW setting_value AS WITH RECURSIVE c(x) AS "
         "(SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT 1 AS key_id, 'good' AS name, x AS value FROM c");
  EXPECT_EQ(hive_.ReadKey(kKey), std::nullopt);
}

TEST_F(SettingsHiveTest, LockedHiveIsGivenUpNotWaitedForForever) {
  ASSERT_TRUE(hive_.CreateKey(kKey));
  sqlite3* file = nullptr;
  ASSERT_EQ(sqlite3_open(hive_.Path().c_str(), &file), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(file, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_FALSE(hive_.Write(kKey, "a", SettingValue(1U)));
  EXPECT_FALSE(hive_.HasKey(kKey));
  sqlite3_close(file);
  EXPECT_TRUE(hive_.HasKey(kKey));
}

TEST_F(SettingsHiveTest, ProcessesAndThreadsWriteSideBySide) {
  const auto work = [this](char who) {
    for (int i = 0; i < 20; ++i) {
      const std::string name = who + std::to_string(i);
      // A write that finds the hive busy for long may fail, and then is repeated by whoever cares.
      while (!hive_.CreateKey(name)) continue;
      while (!hive_.Write(name, name, SettingValue(name))) continue;
    }
    return true;
  };
  const std::uint64_t before = SettingsHive::Generation(HiveOwner::kUser);
  Child one([&] { return work('a'); }), two([&] { return work('b'); });
  { const std::jthread thread(work, 'c'), another(work, 'd'); }
  EXPECT_TRUE(one.Join());
  EXPECT_TRUE(two.Join());
  EXPECT_EQ(hive_.Keys().size(), 80U);
  for (const std::string& key : hive_.Keys()) EXPECT_EQ(hive_.Read(key, key), SettingValue(key));
  EXPECT_EQ(SettingsHive::Generation(HiveOwner::kUser) - before, 80U) << "what this process has changed itself";
}

}  // namespace
}  // namespace zeph
