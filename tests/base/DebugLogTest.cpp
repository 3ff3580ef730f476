// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <cmath>
#include <map>
#include <regex>
#include <thread>
#include <vector>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/PerfTimer.h"
#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/platform/SettingsHive.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class DebugLogTest : public FoldersTest {
 protected:
  DebugLogTest() {
    SetVendorName("Corvanta");
    Reset({});
  }
  ~DebugLogTest() override { SetLogLevel(-1); }

  /// The settings become these alone, and the level is as in a new process.
  void Reset(const SettingValues& values) {
    hive_.DeleteKey(kLogSettingsKey);
    ASSERT_TRUE(hive_.CreateKey(kLogSettingsKey));
    for (const auto& [name, value] : values) ASSERT_TRUE(hive_.Write(kLogSettingsKey, name, value));
    SetLogLevel(-1);
  }
  static void Say(const char* text, int level = kLogError) { DebugLog("Label", text, "", 0, level); }

  [[nodiscard]] std::string LogPath(const std::string& name = "zeph0.log") const {
    return Path("machine/Corvanta/" + name);
  }
  [[nodiscard]] std::string Log() const { return Content(LogPath()); }

  SettingsHive hive_{HiveOwner::kMachine};
};

SettingValues Only(SettingValues values) {
  for (const char* name : {"AppendNewLine", "PrependDateTime", "PrependModuleName", "PrependType"}) {
    values.emplace(name, 0U);
  }
  values.emplace("OutputToFile", 1U);
  return values;
}

std::string Hexadecimal(std::uint32_t number) {
  std::ostringstream text;
  text << "0x" << std::hex << number;
  return text.str();
}

TEST_F(DebugLogTest, LineHasThePiecesThatTheSettingsAskForInOrder) {
  const std::string date = R"((0[1-9]|1[0-2])-[ 123]\d-\d{4} \d\d:\d\d:\d\d\.\d{1,3} : )";
  const std::string process = Hexadecimal(ProcessId()) + " : ";
  const std::string thread = Hexadecimal(ThreadId()) + " : ";
  const struct {
    SettingValues settings;
    int level;
    std::string line;
  } cases[] = {
      {{{"OutputToFile", 1U}}, 1, date + "Label : Error : text\n"},
      {{{"outputTOfile", 1U}, {"PrependProcessId", 1U}, {"PrependThreadId", 7U}},
       2,
       date + process + thread + "Label : Warning : text\n"},
      {Only({}), 1, "text"},
      {Only({{"AppendNewLine", 1U}}), 1, "text\n"},
      {Only({{"PrependDateTime", 1U}}), 1, date + "text"},
      {Only({{"PrependModuleName", 1U}}), 1, "Label : text"},
      {Only({{"PrependThreadId", 1U}}), 1, thread + "text"},
      {Only({{"PrependType", 1U}}), 3, "Information : text"},
      {Only({{"PrependType", 1U}}), 4, "Information : text"},
      {Only({{"PrependType", 1U}}), 0, " : text"},
      {Only({{"PrependType", 1U}, {"DebugType", 1U}}), 6, "Information : text"},
      {Only({{"PrependProcessId", "a text is no number"}}), 1, "text"},
  };
  for (const auto& [settings, level, line] : cases) {
    Reset(settings);
    RemoveFile(LogPath());
    Say("text", level);
    EXPECT_TRUE(std::regex_match(Log(), std::regex(line))) << "expected " << line << ", got " << Log();
  }
}

TEST_F(DebugLogTest, TimePadsTheDayWithABlankAndTheMillisecondsWithNothing) {
  EXPECT_EQ(FormatLogTime({2007, 11, 5, 9, 4, 3, 7}), "11- 5-2007 09:04:03.7");
  EXPECT_EQ(FormatLogTime({2026, 1, 31, 23, 59, 59, 999}), "01-31-2026 23:59:59.999");
}

TEST_F(DebugLogTest, LevelsAreWrittenUpToTheLevelInForce) {
  constexpr int kUnset = -1;
  constexpr std::uint32_t kNoType = 99;
  const struct {
    std::uint32_t debugType;
    int levelSet;
    int highestWritten;
  } cases[] = {
      {kNoType, kUnset, 4}, {kNoType, 2, 2}, {kNoType, 9, 9}, {kNoType, -2, -2}, {0, kUnset, 0},
      {1, kUnset, 6},       {2, kUnset, 2},  {3, kUnset, 1},  {0, 4, 0},         {1, 2, 6},
  };
  for (const auto& [debugType, levelSet, highestWritten] : cases) {
    Reset(Only({{"DebugType", debugType}}));
    SetLogLevel(levelSet);
    for (int level = -3; level <= 10; ++level) {
      RemoveFile(LogPath());
      EXPECT_EQ(LogIsWanted(level), level <= highestWritten) << debugType << " " << levelSet << " " << level;
      Say("text", level);
      EXPECT_EQ(FileExists(LogPath()), level <= highestWritten) << debugType << " " << levelSet << " " << level;
    }
    EXPECT_EQ(GetLogLevel(), highestWritten) << debugType << " " << levelSet;
  }
}

TEST_F(DebugLogTest, WritesNowhereUntilTheSettingsSaySo) {
  testing::internal::CaptureStderr();
  Say("off");
  EXPECT_FALSE(LogIsWanted(1));
  EXPECT_EQ(GetLogLevel(), 4) << "the first line settles the level";
  hive_.DeleteKey(kLogSettingsKey);
  Say("no key");
  Fill(hive_.Path(), "this is no hive");
  hive_.CreateKey("fails, and makes nobody think that the hive has changed");
  SetLogLevel(-1);
  Say("no hive");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(FileExists(LogPath()));
}

TEST_F(DebugLogTest, NullLabelOrTextDoesNothing) {
  Reset(Only({}));
  DebugLog(nullptr, "text", "", 0, 1);
  DebugLog("Label", nullptr, "", 0, 1);
  EXPECT_EQ(GetLogLevel(), -1);
  EXPECT_FALSE(FileExists(LogPath()));
}

TEST_F(DebugLogTest, DebuggerOutputGoesToStandardError) {
  Reset(Only({{"OutputToDebugger", 1U}, {"OutputToFile", 0U}}));
  testing::internal::CaptureStderr();
  Say("seen");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "seen");
  EXPECT_FALSE(FileExists(LogPath()));
}

TEST_F(DebugLogTest, ModuleNumberNamesTheFile) {
  const std::pair<int, const char*> cases[] = {
      {1, "zephServerEngine0.log"},
      {2, "zephServerWatchdog0.log"},
      {3, "zephSpoofMonitor0.log"},
      {4, "zephPackageMgr0.log"},
      {5, "zeph0.log"},
      {6, "zephRuleWizardDll0.log"},
      {7, "zephAbnormalPage0.log"},
      {8, "zephClearCache0.log"},
      {9, "zephImageMatching0.log"},
      {10, "zephUnknownComponent0.log"},
      {0, "zephUnknownComponent0.log"},
      {-1, "zephUnknownComponent0.log"},
  };
  Reset(Only({}));
  for (const auto& [module, name] : cases) {
    RemoveFile(LogPath(name));
    DebugLog("Label", "text", "", 0, 1, module);
    EXPECT_EQ(Content(LogPath(name)), "text") << module;
  }
}

TEST_F(DebugLogTest, DirectorySettingTakesThePlaceOfTheDataFolder) {
  std::filesystem::create_directory(Path("logs"));
  std::filesystem::create_directory(Path("other"));
  const std::pair<std::string, std::string> cases[] = {
      {Path("logs"), Path("logs/zeph0.log")},
      {Path("other/"), Path("other/zeph0.log")},
      {"", LogPath()},
      {Path("logs") + std::string(261, '/'), LogPath()},
  };
  for (const auto& [directory, expected] : cases) {
    Reset(Only({{"Directory", directory}}));
    RemoveFile(expected);
    Say("text");
    EXPECT_EQ(Content(expected), "text") << directory;
  }
  Reset(Only({{"Directory", Path("missing")}}));
  Say("a folder that doesn't exist costs the line and no more");
  EXPECT_FALSE(FileExists(Path("missing")));
}

TEST_F(DebugLogTest, LinkInPlaceOfTheFileIsRefused) {
  Fill(Path("victim"), "precious");
  std::filesystem::create_symlink(Path("victim"), LogPath());
  Reset(Only({}));
  Say("text");
  EXPECT_EQ(Content(Path("victim")), "precious");
}

TEST_F(DebugLogTest, FileIsRotatedOnceItIsLongerThanTheLimit) {
  Reset(Only({}));
  Fill(LogPath(), std::string(3000000, 'a'));
  Say("b");
  EXPECT_FALSE(FileExists(LogPath("zeph1.log")));
  EXPECT_EQ(StampOf(LogPath()).size, 3000001U);

  Say("c");
  EXPECT_EQ(Log(), "c");
  EXPECT_EQ(StampOf(LogPath("zeph1.log")).size, 3000001U);
  EXPECT_FALSE(FileExists(LogPath("zeph2.log")));

  Fill(LogPath("zeph1.log"), "older");
  Fill(LogPath("zeph2.log"), "oldest");
  std::filesystem::resize_file(LogPath(), 4000000);
  Say("d");
  EXPECT_EQ(Log(), "d");
  EXPECT_EQ(StampOf(LogPath("zeph1.log")).size, 4000000U);
  EXPECT_EQ(Content(LogPath("zeph2.log")), "older");
  EXPECT_FALSE(FileExists(LogPath("zeph3.log")));
}

TEST_F(DebugLogTest, LinesOfABatchWaitForItsEndAndKeepTheirOrder) {
  Reset(Only({}));
  {
    const LogBatch outer;
    Say("1");
    {
      const LogBatch inner;
      Say("2");
    }
    EXPECT_EQ(Log(), "");
    std::jthread([] { Say("3"); }).join();
    EXPECT_EQ(Log(), "123") << "another thread doesn't wait";
    Say("4");
    Child child([&] {
      Say("5");
      return Log() == "1234";
    });
    EXPECT_TRUE(child.Join());
    EXPECT_EQ(Log(), "1234") << "what waits is the parent's, and the child ended within the batch";
    Say("6");
    DebugLog("Label", "7", "", 0, 1, 4);
    EXPECT_EQ(Log(), "12346") << "a line of another file sends it on its way";
  }
  EXPECT_EQ(Content(LogPath("zephPackageMgr0.log")), "7");
#if defined(__SANITIZE_THREAD__)
  Say("8");  // the thread sanitizer's own exit handlers fault in a child of a program with threads
#else
  EXPECT_EXIT(
      {
        static const LogBatch* const open = new LogBatch;
        EXPECT_NE(open, nullptr);
        Say("8");
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
#endif
  EXPECT_EQ(Log(), "123468");
  const std::string longLine(100'000, 'x');
  {
    const LogBatch batch;
    for (int i = 0; i < 1000; ++i) Say("yy");
    Say(longLine.c_str());
    Say("z");
  }
  EXPECT_EQ(Log().size(), 6 + 2000 + longLine.size() + 1);
  EXPECT_TRUE(Log().ends_with("yyx" + longLine.substr(1) + "z"));

  // The file is rotated before the line that finds it too long, wherever in a batch that is.
  RemoveFile(LogPath("zeph1.log"));
  Fill(LogPath(), std::string(kLogFileLimit - 1, 'a'));
  {
    const LogBatch batch;
    for (const char* line : {"b", "c", "d", "e"}) Say(line);
  }
  EXPECT_TRUE(Content(LogPath("zeph1.log")).ends_with("abc"));
  EXPECT_EQ(Log(), "de");
}

TEST_F(DebugLogTest, ControlCharactersAreMadeVisible) {
  const std::pair<std::string, std::string> cases[] = {
      {"http://a/\r\n11-24-2026 : forged", R"(http://a/\x0D\x0A11-24-2026 : forged)"},
      {"\x1B[2J\x7F\t", R"(\x1B[2J\x7F\x09)"},
      {"\xC2\x9B[2J", R"(\x9B[2J)"},
      {"\xC2\xA0 \xC3\x9B \xC2!\xC2", "\xC2\xA0 \xC3\x9B \xC2!\xC2"},
  };
  Reset(Only({}));
  for (const auto& [text, expected] : cases) {
    RemoveFile(LogPath());
    Say(text.c_str());
    EXPECT_EQ(Log(), expected);
  }
}

/// Waits until the log is, or is no longer, wanted; gives up after some seconds.
bool ComesToBeWanted(bool wanted) {
  for (int tries = 0; tries < 5000 && LogIsWanted(1) != wanted; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return LogIsWanted(1) == wanted;
}

TEST_F(DebugLogTest, ChangeByAnotherProcessTakesEffect) {
  ASSERT_FALSE(LogIsWanted(1));
  for (const bool on : {true, false, true}) {
    Child other([&] { return hive_.Write(kLogSettingsKey, "OutputToFile", SettingValue(on ? 1U : 0U)); });
    ASSERT_TRUE(other.Join());
    EXPECT_TRUE(ComesToBeWanted(on)) << on;
  }
  std::filesystem::remove(hive_.Path());
  EXPECT_TRUE(ComesToBeWanted(false)) << "the hive is gone";
}

TEST_F(DebugLogTest, LinesOfThreadsAndProcessesStayWhole) {
  constexpr int kLines = 100;
  const std::string writers = "abcde";
  const auto work = [&](char who) {
    for (int i = 0; i < kLines; ++i) {
      if (who == 'a' && i % 20 == 0) hive_.Write(kLogSettingsKey, "Unrelated", SettingValue(std::uint32_t(i)));
      LogLine(
          "Label", [&] { return std::string(300, who); }, kLogError);
    }
    return true;
  };
  Reset(Only({{"AppendNewLine", 1U}}));
  Child other([&] { return work(writers[4]); });
  {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < 4; ++i) threads.emplace_back(work, writers[i]);
  }
  ASSERT_TRUE(other.Join());
  // A line may be lost on a machine too busy to give a writer its turn within a second, but not all of a writer's.
  std::map<char, int> counts;
  std::istringstream log(Log());
  for (std::string line; std::getline(log, line);) {
    ASSERT_FALSE(line.empty());
    ASSERT_EQ(line, std::string(300, line[0]));
    ++counts[line[0]];
  }
  for (const char who : writers) EXPECT_TRUE(counts[who] > 0 && counts[who] <= kLines) << who << counts[who];
}

class PerfTimerTest : public DebugLogTest {
 protected:
  /// Lets some time pass, as any clock sees it.
  static void Pass() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }
};

TEST_F(PerfTimerTest, KeepsItsTimeWhenStoppedTwiceAndGoesOnWhenStartedAgain) {
  PerfTimer timer(true);
  Pass();
  EXPECT_GE(timer.Milliseconds(), 1.0) << "runs on";
  timer.Stop();
  const double first = timer.Milliseconds();
  EXPECT_GE(first, 1.0);
  Pass();
  timer.Stop();
  EXPECT_EQ(timer.Milliseconds(), first);
  timer.Start();
  Pass();
  timer.Stop();
  EXPECT_GE(timer.Milliseconds(), first + 1.0);
}

TEST_F(PerfTimerTest, NeverMeasuresLessThanNothing) {
  EXPECT_FALSE(std::signbit(PerfTimer().Milliseconds())) << "is written with no sign";
  for (int i = 0; i < 10000; ++i) {
    PerfTimer timer(true);
    timer.Stop();
    ASSERT_GE(timer.Milliseconds(), 0.0);
  }
}

TEST_F(PerfTimerTest, HooksStandAroundEachChange) {
  struct Watched : PerfTimer {
    void Lock() override { calls += 'L'; }
    void Unlock() override { calls += 'U'; }
    std::string calls;
  } timer;
  timer.Start();
  timer.Stop();
  timer.Stop();
  EXPECT_EQ(timer.calls, "LULULU");
}

TEST_F(PerfTimerTest, ScopeIsLoggedAtItsEndOnEveryPath) {
  Reset(Only({{"PrependModuleName", 1U}, {"PrependType", 1U}, {"AppendNewLine", 1U}}));
  const auto leave = [](int way) {
    const ScopedPerfTimer named("name");
    if (way == 0) return;
    const ScopedPerfTimer made([way] { return "made " + std::to_string(way); });
    const ScopedPerfTimer nameless(nullptr);
    if (way == 1) throw way;
  };
  leave(0);
  EXPECT_THROW(leave(1), int);
  const std::string start = "Timer Check : Warning : Time to execute ";
  const std::string number = R"([0-9.e-]+ms\n)";
  const std::regex expected(start + "name " + number + start + number + start + "made 1 " + number + start + "name " +
                            number);
  EXPECT_TRUE(std::regex_match(Log(), expected)) << Log();
}

TEST_F(PerfTimerTest, NameIsNotMadeWhileNobodyWantsIt) {
  bool made = false;
  {
    const ScopedPerfTimer timer([&made] {
      made = true;
      return std::string();
    });
  }
  EXPECT_FALSE(made);
}

}  // namespace
}  // namespace zeph
