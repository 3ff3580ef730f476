// SPDX-License-Identifier: Apache-2.0
// libDetectionEngine.so as others meet it.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "DetectionEngine/DetectionEngine.h"
#include "TestPaths.h"

extern "C" int CheckCApi(void);
extern "C" int CheckDocumentsApi(void);

namespace {

std::string ReadText(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

struct CloseLibrary {
  void operator()(void* handle) const { dlclose(handle); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

Library Open() { return Library(dlopen(ZEPH_LIBRARY, RTLD_NOW | RTLD_LOCAL)); }

template <class Function>
Function* Find(const Library& library, const char* name) {
  return reinterpret_cast<Function*>(dlsym(library.get(), name));
}

TEST(SharedLibrary, IsUsableFromC) { EXPECT_EQ(CheckCApi(), 0); }

TEST(DocumentsLibrary, IsUsableFromC) { EXPECT_EQ(CheckDocumentsApi(), 0); }

/// A library's exports against the names in its map.
void CheckExports(const std::string& mapFile, const std::string& library) {
  std::set<std::string> promised;
  const std::string map = ReadText(mapFile);
  const std::regex name(R"((\w+);)");
  for (std::sregex_iterator it(map.begin(), map.end(), name), end; it != end; ++it) promised.insert((*it)[1]);

  std::set<std::string> exported;
  const std::unique_ptr<FILE, int (*)(FILE*)> nm(popen(("nm -D --defined-only " + library).c_str(), "r"), pclose);
  ASSERT_NE(nm, nullptr);
  std::array<char, 4096> line{};
  while (std::fgets(line.data(), line.size(), nm.get()) != nullptr) {
    const std::string text(line.data());
    exported.insert(text.substr(text.rfind(' ') + 1, text.find('\n') - text.rfind(' ') - 1));
  }
  EXPECT_EQ(exported, promised) << library;
}

TEST(SharedLibrary, ExportsItsFunctionsAndNothingElse) {
  CheckExports(ZEPH_SOURCE_DIR "/DetectionEngine/exports.map", ZEPH_LIBRARY);
  CheckExports(ZEPH_SOURCE_DIR "/documents/exports.map", ZEPH_DOCUMENTS_LIBRARY);
}

TEST(SharedLibrary, GivesTheFunctionOfAnOrdinal) {
  const Library library = Open();
  ASSERT_NE(library, nullptr) << dlerror();
  auto* const ordinal = Find<ZephFunction(std::uint32_t)>(library, "DetectionEngineOrdinal");
  ASSERT_NE(ordinal, nullptr);
  const std::array<const char*, 22> names = {nullptr,
                                             "CheckURL",
                                             "GetEngineVersion",
                                             nullptr,
                                             "ReportURL",
                                             nullptr,
                                             nullptr,
                                             "SetServerCallbacks",
                                             "GetServerName",
                                             "ClassifyDocument",
                                             "ClassifyURL",
                                             "EngineReserved",
                                             "SetPreferences",
                                             "ReleaseEngineResults",
                                             "ClassifySite",
                                             "IsTRLMBrandID",
                                             "BuildCabinet",
                                             "PackFiles",
                                             "SetConfigFileBaseName",
                                             "SetPrivacy",
                                             "GetPrivacy",
                                             nullptr};
  for (std::uint32_t number = 0; number < names.size(); ++number) {
    void* const expected = names[number] != nullptr ? dlsym(library.get(), names[number]) : nullptr;
    EXPECT_EQ(reinterpret_cast<void*>(ordinal(number)), expected) << number;
  }
  EXPECT_EQ(ordinal(0xFFFFFFFFU), nullptr);
}

TEST(SharedLibrary, KnowsItsVersion) {
  std::array<std::int32_t, 5> version{};
  ASSERT_EQ(GetEngineVersion(version.data()), 0);
  EXPECT_EQ(std::to_string(version[1]) + "." + std::to_string(version[2]) + "." + std::to_string(version[3]),
            ZEPH_VERSION);
  EXPECT_EQ(version[0], 0);
  EXPECT_EQ(version[4], 2);
  EXPECT_EQ(GetEngineVersion(nullptr), 1);
}

// Not linked against here: a second copy of the library, so that it really goes when it is closed.
TEST(SharedLibrary, CanBeLoadedAndUnloadedManyTimes) {
  const std::filesystem::path copy = std::filesystem::path(testing::TempDir()) / "libEngineCopy.so";
  std::filesystem::copy_file(ZEPH_LIBRARY, copy, std::filesystem::copy_options::overwrite_existing);
  for (int round = 0; round < 100; ++round) {
    const Library library(dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL));
    ASSERT_NE(library, nullptr) << dlerror();
    std::int32_t classification = 0;
    Find<decltype(SetConfigFileBaseName)>(library, "SetConfigFileBaseName")("no-such-package");
    EXPECT_EQ(
        Find<decltype(ClassifyURL)>(library, "ClassifyURL")(u"http://example.org/", &classification, nullptr, nullptr),
        1);
    EXPECT_EQ(classification, kZephUnclassified);
  }
  EXPECT_EQ(ReadText("/proc/self/maps").find("libEngineCopy"), std::string::npos) << "still mapped";
  const auto threads = std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  EXPECT_LE(threads, 2) << "the load thread outlived the library";  // a sanitizer may keep one of its own
  std::filesystem::remove(copy);
}

/// True when a process that does this ends by itself, with the status 0.
template <class Work>
bool EndsWell(Work work) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    work();
    std::exit(0);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void Classify() {
  std::int32_t classification = 0;
  if (ClassifyURL(u"http://paypal.evil.example/login", &classification, nullptr, nullptr) != 0) _exit(1);
}

TEST(SharedLibrary, ProgramMayEndWhileItsThreadsClassify) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a child of a program with threads can't tell its leaks from theirs";
#endif
  for (int round = 0; round < 12; ++round) {
    EXPECT_TRUE(EndsWell([round] {
      Classify();
      for (int i = 0; i < 8; ++i) {
        std::thread([] {
          for (;;) Classify();
        }).detach();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(round));
    }));
  }
}

TEST(SharedLibrary, ChildOfAProgramThatLoadsIsFreeOfTheLoad) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a child of a program with threads can't tell its leaks from theirs";
#endif
  for (int round = 0; round < 12; ++round) {
    EXPECT_TRUE(EndsWell([round] {
      SetConfigFileBaseName("libDetectionEngine");
      std::this_thread::sleep_for(std::chrono::milliseconds(round));
      if (!EndsWell(Classify)) _exit(1);
      Classify();
    }));
  }
}

TEST(SharedLibrary, TellsWhyThereIsNoConfiguration) {
  EXPECT_TRUE(EndsWell([] {
    std::int32_t classification = 0;
    SetConfigFileBaseName("no-such-package");
    if (ClassifyURL(u"http://example.org/", &classification, nullptr, nullptr) != 1) _exit(2);
    std::array<char, 4096> text{};
    const std::size_t length = GetLoadFailure(text.data(), text.size());
    const std::string failure(text.data());
    if (failure.size() != length || !failure.ends_with("/no-such-package.zip: CAB file not found")) _exit(3);
    if (GetLoadFailure(text.data(), 4) != length || std::string(text.data()) != failure.substr(0, 3)) _exit(4);
    if (GetLoadFailure(nullptr, 0) != length) _exit(5);
  }));
}

}  // namespace
