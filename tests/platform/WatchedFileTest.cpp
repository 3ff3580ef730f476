// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/WatchedFile.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

/// What may happen on the road to a file, each as a step that leaves whatever was there before or makes it.
struct Step {
  const char* name;
  std::function<void(const fs::path& base, std::int64_t time)> take;
};

void Put(const fs::path& file, std::int64_t time) {
  WriteWholeFile(file, "x");
  SetLastWriteTime(file, time);
}

const std::array<Step, 9> kSteps = {{
    {"nothing", [](const fs::path&, std::int64_t) {}},
    {"the file is there anew", [](const fs::path& base, std::int64_t time) { Put(base / "a/b/file", time); }},
    {"its time is set", [](const fs::path& base, std::int64_t time) { SetLastWriteTime(base / "a/b/file", time); }},
    {"it is written to", [](const fs::path& base, std::int64_t) { AppendToFile(base / "a/b/file", "more"); }},
    {"it is removed", [](const fs::path& base, std::int64_t) { RemoveFile(base / "a/b/file"); }},
    {"its folder is removed", [](const fs::path& base, std::int64_t) { fs::remove_all(base / "a/b"); }},
    {"all folders are removed", [](const fs::path& base, std::int64_t) { fs::remove_all(base / "a"); }},
    {"all folders are made", [](const fs::path& base, std::int64_t) { fs::create_directories(base / "a/b"); }},
    {"its folder gives way to another",
     [](const fs::path& base, std::int64_t time) {
       std::error_code ignored;
       fs::create_directories(base / "other");
       Put(base / "other/file", time);
       fs::rename(base / "a/b", base / "gone", ignored);
       fs::rename(base / "other", base / "a/b", ignored);
       fs::remove_all(base / "gone", ignored);
       fs::remove_all(base / "other", ignored);
     }},
}};

class WatchedFileTest : public FoldersTest {
 protected:
  const fs::path base_ = Path("machine");
};

// Thousands of steps, many between two ticks of the clock, so that a look at each tick wouldn't do.
TEST_F(WatchedFileTest, SeesEachChangeAtOnce) {
  WatchedFile file(base_ / "a/b/file");
  std::mt19937 random(1);
  std::string road;
  for (std::int64_t i = 1; i <= 5000; ++i) {
    const Step& step = kSteps[random() % kSteps.size()];
    step.take(base_, i * 1'000'000'000);
    road.append(step.name).append("\n");
    if (random() % 4 == 0) continue;  // several at once
    ASSERT_EQ(file.LastWriteTime(), LastWriteTime(base_ / "a/b/file"))
        << road.substr(road.size() > 300 ? road.size() - 300 : 0);
  }
}

TEST_F(WatchedFileTest, AnswersManyThreads) {
  WatchedFile file(base_ / "file");
  std::atomic<std::int64_t> written{0};
  std::atomic<bool> stop{false};
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        const std::int64_t before = written;
        EXPECT_GE(file.LastWriteTime(), before);
      }
    });
  }
  for (std::int64_t i = 1; i <= 2000; ++i) {
    // A sibling takes the file's place, so that there is no moment without one and none with another time.
    Put(base_ / "new", i * 1'000'000'000);
    ASSERT_TRUE(MoveFile(base_ / "new", base_ / "file"));
    written = i * 1'000'000'000;
  }
  stop = true;
}

TEST_F(WatchedFileTest, TakesAnyPath) {
  for (const std::string& path : {std::string(), std::string("/"), std::string("no-such-file"), std::string("a\0b", 3),
                                  "/" + std::string(5000, 'x') + "/file", (base_ / "missing/").string()}) {
    WatchedFile file(path);
    EXPECT_EQ(file.LastWriteTime(), LastWriteTime(path)) << path;
    EXPECT_EQ(file.LastWriteTime(), LastWriteTime(path)) << path;
  }
}

}  // namespace
}  // namespace zeph
