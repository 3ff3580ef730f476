// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "judging/PageList.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

class PageList : public testing::Test {
 protected:
  void SetUp() override { fs::create_directories(root_); }
  void TearDown() override { fs::remove_all(root_); }

  void Write(const std::string& name, const std::string& text = "<p>") const {
    fs::create_directories((root_ / name).parent_path());
    std::ofstream(root_ / name, std::ios::binary) << text;
  }
  /// "name=address" or "name!" of each input of the folder.
  [[nodiscard]] std::vector<std::string> Found(const PageMap& map = {}) const {
    std::vector<std::string> found;
    for (const Input& input : InputsOf(root_.string(), map)) {
      found.push_back(fs::path(input.text).lexically_relative(root_).string() +
                      (input.refusal.empty() ? "=" + input.pageUrl : "!"));
    }
    return found;
  }

  fs::path root_ = fs::temp_directory_path() / ("zeph-pages-" + std::to_string(::getpid()));
};

using Strings = std::vector<std::string>;

TEST_F(PageList, GivesEachPageItsAddress) {
  Write("a/index.html");
  Write("a/url.txt", "\xEF\xBB\xBFhttp://a.test/\r\n");
  Write("b/index.html");
  Write("b/frame.html");
  Write("b/url.txt", "# seen today\nhttp://b.test/\nframe.html\thttp://b.test/frame\n");
  Write("c/x.html");
  Write("c/y.htm");
  Write("c/url.txt", "http://whose.test/\n");
  Write("d/saved.html");
  Write("d/saved_files/frame.html");
  Write("d/other_files/page.html");
  Write("d/notes.txt");
  Write("map", "d/saved.html\thttp://d.test/\n\n# more\n" + (root_ / "c/x.html").string() + "\thttp://c.test/x\n");
  std::string error;
  const auto map = PageMap::Read((root_ / "map").string(), error);
  ASSERT_TRUE(map) << error;
  EXPECT_EQ(Found(*map), (Strings{"a/index.html=http://a.test/", "b/frame.html=http://b.test/frame",
                                  "b/index.html=http://b.test/", "c/x.html=http://c.test/x", "c/y.htm=",
                                  "d/other_files/page.html=", "d/saved.html=http://d.test/"}));
  // Named alone, a page has the same address.
  EXPECT_EQ(InputsOf((root_ / "a/index.html").string(), {}).front().pageUrl, "http://a.test/");
  EXPECT_EQ(InputsOf((root_ / "c/x.html").string(), {}).front().pageUrl, "");
  const std::string line = (root_ / "c/x.html").string() + "\thttp://line.test/";
  EXPECT_EQ(InputOfLine(line, *map).pageUrl, "http://line.test/");
  EXPECT_EQ(InputOfLine("http://ev\til.test/", *map).text, "http://ev\til.test/");

  Write("bad", "d/saved.html http://d.test/\n");
  EXPECT_FALSE(PageMap::Read((root_ / "bad").string(), error));
  EXPECT_NE(error.find("bad, line 1: "), std::string::npos) << error;
  EXPECT_FALSE(PageMap::Read((root_ / "none").string(), error));
}

TEST_F(PageList, OneFolderHarmsNoOther) {
  Write("a.html");
  Write("z/b.html");
  fs::create_symlink("loop.html", root_ / "loop.html");
  fs::create_directory_symlink(root_, root_ / "z" / "up");
  fs::create_symlink("nowhere.html", root_ / "gone.html");
  Write("\xFF\xFE.html");
  // Deeper than a path may be: made step by step, read as far as it goes.
  const fs::path before = fs::current_path();
  fs::current_path(root_);
  for (int i = 0; i < 20; ++i) {
    const std::string name(250, 'd');
    fs::create_directory(name);
    fs::current_path(name);
  }
  fs::current_path(before);
  const Strings found = Found();
  const auto holds = [&](const std::string& name) { return std::ranges::find(found, name) != found.end(); };
  EXPECT_TRUE(holds("a.html=") && holds("z/b.html=") && holds("loop.html=") && holds("gone.html=") &&
              holds("\xFF\xFE.html="));
  EXPECT_EQ(std::ranges::count_if(found, [](const std::string& name) { return name.ends_with("!"); }), 1);
  EXPECT_EQ(found.size(), 6U);
  std::system(("rm -rf '" + root_.string() + "'").c_str());

  EXPECT_FALSE(InputsOf(testing::TempDir() + "/no-such-folder-here", {}).empty());
  fs::create_directories(root_ / "empty");
  EXPECT_EQ(InputsOf((root_ / "empty").string(), {}).front().refusal, "holds no pages");
  for (const std::size_t size : {256U, 5000U, 100'000U}) {
    EXPECT_EQ(InputsOf(std::string(size, 'x'), {}).size(), 1U);
    EXPECT_EQ(InputOfLine(std::string(size, 'x'), {}).text.size(), size);
  }
}

}  // namespace
}  // namespace zeph
