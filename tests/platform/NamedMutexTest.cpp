// SPDX-License-Identifier: Apache-2.0
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/NamedMutex.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

using std::chrono_literals::operator""ms;

class NamedMutexTest : public FoldersTest {};

TEST_F(NamedMutexTest, NameIsRaisedByOneUnit) {
  EXPECT_EQ(NamedMutexName(u"ZEPH", u"LOG"), u"Global\\[FQI.MPH");
  EXPECT_EQ(NamedMutexName(u"\xFFFF.", u"File"), std::u16string(u"Global\\\0/.Gjmf", 14));
}

TEST_F(NamedMutexTest, ExcludesWhoeverHasTheSameName) {
  NamedMutex first(u"Global\\a"), second(u"Global\\a"), other(u"Global\\b");
  ASSERT_TRUE(first.TryLockFor(0ms));
  EXPECT_FALSE(first.TryLockFor(0ms)) << "isn't recursive";
  EXPECT_FALSE(second.TryLockFor(5ms));
  second.Unlock();
  EXPECT_TRUE(other.TryLockFor(0ms));
  EXPECT_TRUE(Child([] { return !NamedMutex(u"Global\\a").TryLockFor(5ms); }).Join());
  first.Unlock();
  EXPECT_TRUE(Child([] { return NamedMutex(u"Global\\a").TryLockFor(0ms); }).Join());
  EXPECT_TRUE(second.TryLockFor(0ms));
}

TEST_F(NamedMutexTest, AnyTextIsAName) {
  const std::u16string names[] = {
      u"", u"Global\\../../../etc/passwd", u"a/b", std::u16string(u"a\0b", 3), u"\xD800", std::u16string(5000, u'/'),
  };
  for (const auto& name : names) {
    NamedMutex mutex(name), again(name);
    EXPECT_TRUE(mutex.TryLockFor(0ms)) << name.size();
    EXPECT_FALSE(again.TryLockFor(0ms)) << name.size();
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(Path(""))) {
    EXPECT_TRUE(entry.is_directory() || entry.path().parent_path() == Path("machine/locks")) << entry.path();
  }
}

TEST_F(NamedMutexTest, WaitsForItsTurn) {
  // A file that each holder reads and writes back, in steps that another could come between.
  Fill(Path("count"), "0");
  const auto work = [this] {
    for (int i = 0; i < 25; ++i) {
      NamedMutex mutex(u"count");
      if (!mutex.TryLockFor(60000ms)) return false;
      const int count = std::stoi(Content(Path("count")));
      std::this_thread::yield();
      Fill(Path("count"), std::to_string(count + 1));
    }
    return true;
  };
  Child one(work), two(work);
  { const std::jthread thread(work), another(work); }
  EXPECT_TRUE(one.Join());
  EXPECT_TRUE(two.Join());
  EXPECT_EQ(Content(Path("count")), "100");
}

TEST_F(NamedMutexTest, DeathOfTheHolderFreesIt) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  Child holder([&ready] {
    NamedMutex mutex(u"a");
    if (!mutex.TryLockFor(0ms) || write(ready[1], "!", 1) != 1) return false;
    pause();
    return true;
  });
  char signal = 0;
  ASSERT_EQ(read(ready[0], &signal, 1), 1);
  NamedMutex mutex(u"a");
  EXPECT_FALSE(mutex.TryLockFor(0ms));
  holder.Kill();
  EXPECT_FALSE(holder.Join());
  EXPECT_TRUE(mutex.TryLockFor(0ms));
  close(ready[0]);
  close(ready[1]);
}

// Who can open a lock's file can hold it for ever.
TEST_F(NamedMutexTest, NobodyElseCanHoldIt) {
  const mode_t before = umask(0);
  std::filesystem::create_directory(Path("machine/locks"));
  std::filesystem::permissions(Path("machine/locks"), std::filesystem::perms(0777));
  { NamedMutex made(u"a"); }
  umask(before);
  EXPECT_EQ(std::filesystem::status(Path("machine/locks")).permissions(), std::filesystem::perms(0700));
  EXPECT_EQ(std::filesystem::status(Path("machine/locks/a")).permissions(), std::filesystem::perms(0600));
  if (geteuid() != 0) return;
  for (const char* planted : {"machine/locks/a", "machine/locks"}) {  // what another user made beforehand isn't used
    ASSERT_EQ(chown(Path(planted).c_str(), 65534, 65534), 0);
    NamedMutex first(u"a"), second(u"a");
    EXPECT_TRUE(first.TryLockFor(0ms)) << planted;
    EXPECT_FALSE(second.TryLockFor(0ms)) << planted;
    EXPECT_TRUE(FileExists(Path("user/locks/a"))) << planted;
  }
}

TEST_F(NamedMutexTest, ThreadsMeetThoughThereIsNoFolderForLocks) {
  setenv("ZEPH_MACHINE_DIR", Path("missing").c_str(), 1);
  setenv("ZEPH_USER_DIR", "/proc/none", 1);
  NamedMutex first(u"a"), second(u"a");
  EXPECT_TRUE(first.TryLockFor(0ms));
  std::jthread([&] { EXPECT_FALSE(second.TryLockFor(1ms)); }).join();
  first.Unlock();
  std::jthread([&] { EXPECT_TRUE(second.TryLockFor(0ms)); second.Unlock(); }).join();
  EXPECT_FALSE(FileExists(Path("missing")));
}

}  // namespace
}  // namespace zeph
