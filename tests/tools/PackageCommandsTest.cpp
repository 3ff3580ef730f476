// SPDX-License-Identifier: Apache-2.0
// The commands below zeph package, by the examples of the guide to rules.
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "TestPaths.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

struct Outcome {
  int status = -1;
  std::string out;  ///< standard error too
};

Outcome Zeph(const std::string& arguments) {
  FILE* const pipe = popen((std::string(ZEPH_PROGRAM) + " " + arguments + " 2>&1").c_str(), "r");
  Outcome outcome;
  std::array<char, 4096> buffer{};
  for (std::size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) outcome.out.append(buffer.data(), count);
  outcome.status = pclose(pipe) >> 8;
  return outcome;
}

class PackageCommands : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(folder_);
    fs::create_directories(folder_);
    std::ifstream in(ZEPH_SOURCE_DIR "/docs/rules.md");
    std::stringstream text;
    text << in.rdbuf();
    guide_ = text.str();
  }
  void TearDown() override { fs::remove_all(folder_); }

  /// The example of the guide that begins with this line.
  std::string Example(const std::string& fence) const {
    const std::size_t begin = guide_.find("```" + fence + "\n");
    if (begin == std::string::npos) return {};
    const std::size_t from = begin + fence.size() + 4;
    return guide_.substr(from, guide_.find("```", from) - from);
  }
  void Put(const std::string& name, const std::string& text) { std::ofstream(folder_ / name, std::ios::binary) << text; }
  [[nodiscard]] std::string At(const std::string& name) const { return (folder_ / name).string(); }

  /// A test's own: others run at the same time.
  fs::path folder_ = fs::path(testing::TempDir()) /
                     ("package-commands-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
  std::string guide_;
};

TEST_F(PackageCommands, TheGuidesExamplesAreWholeAndPassTheirCases) {
  fs::create_directories(folder_ / "s");
  Put("s/rules.zeph", Example("zeph"));
  Put("s/brands.zeph", Example("zeph-brands"));
  Put("s/cases.test", Example("zeph-cases"));
  const Outcome lint = Zeph("package lint --strict " + At("s"));
  EXPECT_EQ(lint.status, 0) << lint.out;
  const Outcome test = Zeph("package test " + At("s"));
  EXPECT_EQ(test.status, 0) << test.out;
  EXPECT_NE(test.out.find("2 cases, 0 failed"), std::string::npos) << test.out;
  // In either form, and back.
  for (const char* const format : {"memory", "pack"}) {
    const Outcome build = Zeph("package build --sources " + At("s") + " --output " + At("p.zip") + " --format " + format);
    EXPECT_EQ(build.status, 0) << build.out;
    const Outcome decompile = Zeph("package decompile " + At("p.zip") + " --output " + At("d"));
    EXPECT_EQ(decompile.status, 0) << decompile.out;
    const Outcome diff = Zeph("package diff " + At("p.zip") + " " + At("d"));
    EXPECT_EQ(diff.out, "they say the same\n");
  }

  Put("s/cases.test", Example("zeph-cases") + "\ncase \"http://other.example/\"\n  verdict spoofing\n  fires call-to-act\n");
  const Outcome failed = Zeph("package test " + At("s"));
  EXPECT_EQ(failed.status, 1);
  for (const char* const part : {"cases.test:10: http://other.example/", "- verdict spoofing", "+ verdict unclassified", "- fires call-to-act",
                                 "3 cases, 1 failed"}) {
    EXPECT_NE(failed.out.find(part), std::string::npos) << part << "\n" << failed.out;
  }
}

TEST_F(PackageCommands, BuildRefusesWhatIsBrokenUnlessToldNotToLook) {
  fs::create_directories(folder_ / "s");
  Put("s/PopularSites.xml", "<Domain>a.test</Domain>\n<Domian>b.test</Domian>\n\n<Domain>c.test</Domain>\n");
  const std::string build = "package build --sources " + At("s") + " --output " + At("p.zip");
  const Outcome refused = Zeph(build);
  EXPECT_EQ(refused.status, 2);
  EXPECT_FALSE(fs::exists(At("p.zip")));
  for (const char* const part : {"PopularSites.xml:2:1: error: ", "did you mean <Domain>?", "PopularSites.xml:3:1: error: an empty line", "2 errors"}) {
    EXPECT_NE(refused.out.find(part), std::string::npos) << part << "\n" << refused.out;
  }
  EXPECT_EQ(Zeph(build + " --unchecked").status, 0);
  EXPECT_TRUE(fs::exists(At("p.zip")));
}

}  // namespace
}  // namespace zeph
