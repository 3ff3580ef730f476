// SPDX-License-Identifier: Apache-2.0
#include <thread>

#include <sys/stat.h>

#include "DetectionEngine/platform/Files.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class FilesTest : public FoldersTest {};

TEST_F(FilesTest, ReadsRegularFilesUpToALimit) {
  Fill(Path("file"), std::string("a\0b", 3));
  std::filesystem::create_directory(Path("folder"));
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink(Path("file"), Path("link"));
  std::error_code error;
  EXPECT_EQ(ReadWholeFile(Path("file"), 3), std::string("a\0b", 3));
  EXPECT_EQ(ReadWholeFile(Path("link"), 1000), std::string("a\0b", 3));
  EXPECT_GT(ReadWholeFile("/proc/self/maps", 1 << 20).value_or("").size(), 0U) << "says that it is empty";

  const std::pair<std::string, std::errc> refused[] = {
      {Path("missing"), std::errc::no_such_file_or_directory},
      {Path("folder"), std::errc::is_a_directory},
      {Path("pipe"), std::errc::invalid_argument},
      {"/dev/zero", std::errc::invalid_argument},
      {Path("file/x"), std::errc::not_a_directory},
      {Path("file") + std::string("\0x", 2), std::errc::no_such_file_or_directory},
      {"", std::errc::no_such_file_or_directory},
      {"/" + std::string(100000, 'x'), std::errc::filename_too_long},
  };
  for (const auto& [path, reason] : refused) {
    EXPECT_EQ(ReadWholeFile(path, 1000, &error), std::nullopt) << path.substr(0, 100);
    EXPECT_EQ(error, reason) << path.substr(0, 100) << ": " << error.message();
  }
  EXPECT_EQ(ReadWholeFile(Path("file"), 2, &error), std::nullopt);
  EXPECT_EQ(error, std::errc::file_too_large);
  EXPECT_EQ(ReadWholeFile("/proc/self/maps", 10, &error), std::nullopt);
  EXPECT_EQ(error, std::errc::file_too_large);
}

TEST_F(FilesTest, WritesWholeFilesOrNothing) {
  std::error_code error;
  EXPECT_TRUE(WriteWholeFile(Path("machine/file"), std::string("new\0", 4)));
  EXPECT_TRUE(WriteWholeFile(Path("machine/file"), "newer"));
  EXPECT_EQ(Content(Path("machine/file")), "newer");
  std::filesystem::create_directory(Path("machine/folder"));
  EXPECT_FALSE(WriteWholeFile(Path("machine/folder"), "text", &error));
  EXPECT_EQ(error, std::errc::is_a_directory);
  EXPECT_FALSE(WriteWholeFile(Path("missing/file"), "text", &error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  int entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(Path("machine"))) entries += entry.exists() ? 1 : 0;
  EXPECT_EQ(entries, 2) << "no sibling is left behind";
}

TEST_F(FilesTest, ReaderSeesTheOldContentOrTheNewOne) {
  const std::string contents[] = {std::string(100000, 'a'), std::string(200000, 'b')};
  ASSERT_TRUE(WriteWholeFile(Path("file"), contents[0]));
  std::jthread writer([&] {
    for (int i = 1; i <= 20; ++i) WriteWholeFile(Path("file"), contents[i % 2]);
  });
  for (int i = 0; i < 100; ++i) {
    const auto seen = ReadWholeFile(Path("file"), 1 << 20);
    ASSERT_TRUE(seen == contents[0] || seen == contents[1]);
  }
}

TEST_F(FilesTest, StampsTellTheWritesOfAFileApart) {
  EXPECT_FALSE(StampOf(Path("file")).Exists());
  EXPECT_EQ(LastWriteTime(Path("file")), 0);
  Fill(Path("file"), "a");
  for (const std::int64_t time : {std::int64_t{1'700'000'000'123'456'789}, std::int64_t{0}, std::int64_t{-1}}) {
    ASSERT_TRUE(SetLastWriteTime(Path("file"), time));
    EXPECT_EQ(LastWriteTime(Path("file")), time);
  }
  const FileStamp before = StampOf(Path("file"));
  EXPECT_EQ(before, StampOf(Path("file")));
  WriteWholeFile(Path("file"), "b");
  ASSERT_TRUE(SetLastWriteTime(Path("file"), -1));
  EXPECT_NE(before, StampOf(Path("file"))) << "another file of the same size and time";
  EXPECT_FALSE(SetLastWriteTime(Path("missing"), 0));
}

TEST_F(FilesTest, MovesAndRemoves) {
  Fill(Path("a"), "a");
  Fill(Path("b"), "b");
  EXPECT_TRUE(MoveFile(Path("a"), Path("b")));
  EXPECT_EQ(Content(Path("b")), "a");
  EXPECT_FALSE(MoveFile(Path("a"), Path("b")));
  EXPECT_TRUE(SetFileMode(Path("b"), 0444));
  EXPECT_EQ(std::filesystem::status(Path("b")).permissions(), std::filesystem::perms(0444));
  EXPECT_TRUE(RemoveFile(Path("b")));
  EXPECT_FALSE(RemoveFile(Path("b")));
  EXPECT_FALSE(RemoveFile(Path("machine") + std::string("\0x", 2)));
  EXPECT_TRUE(FileExists(Path("machine")));
}

TEST_F(FilesTest, NothingIsMadeForOthersToWriteWhateverTheMask) {
  const mode_t before = umask(0);
  EXPECT_TRUE(MakeFolders(Path("a/b")));
  EXPECT_TRUE(MakePrivateFolder(Path("c/d")));
  EXPECT_TRUE(WriteWholeFile(Path("whole"), "x"));
  EXPECT_TRUE(AppendToFile(Path("log"), "x"));
  umask(before);
  for (const auto& [name, mode] : {std::pair("a", 0755), std::pair("a/b", 0755), std::pair("c", 0700),
                                   std::pair("c/d", 0700), std::pair("whole", 0644), std::pair("log", 0600)}) {
    EXPECT_EQ(std::filesystem::status(Path(name)).permissions(), std::filesystem::perms(mode)) << name;
  }
  std::filesystem::create_directory_symlink(Path("a"), Path("link"));
  EXPECT_FALSE(MakePrivateFolder(Path("link"))) << "it may lead into somebody else's";
}

TEST_F(FilesTest, UsersFolderFollowsTheEnvironment) {
  const struct {
    const char* zeph;
    const char* state;
    const char* home;
    const char* expected;
  } cases[] = {
      {"/u/", "/s", "/h", "/u"},
      {"", "/s/", "/h", "/s/zeph"},
      {"", "relative", "/h", "/h/.local/state/zeph"},
      {"", "", "/h/", "/h/.local/state/zeph"},
      {"", "", "relative", ""},
  };
  const std::string home = getenv("HOME") == nullptr ? "" : getenv("HOME");
  for (const auto& row : cases) {
    setenv("ZEPH_USER_DIR", row.zeph, 1);
    setenv("XDG_STATE_HOME", row.state, 1);
    setenv("HOME", row.home, 1);
    EXPECT_EQ(UserFolder(), row.expected) << row.zeph << " " << row.state << " " << row.home;
  }
  unsetenv("XDG_STATE_HOME");
  setenv("HOME", home.c_str(), 1);
}

}  // namespace
}  // namespace zeph
