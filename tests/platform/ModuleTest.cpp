// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <thread>
#include <vector>

#include <elf.h>
#include <link.h>

#include "DetectionEngine/platform/DynamicLibrary.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/platform/Resolver.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class ModuleTest : public FoldersTest {};

/// The smallest module that carries a version: file header, segments, and notes of which the second is ours.
std::string SmallModule(const char* name = "Zeph", std::uint32_t type = 1, std::uint32_t size = 8) {
  struct Note {
    ElfW(Nhdr) header;
    char name[8];
    std::uint16_t content[4];
  };
  const Note notes[] = {{{4, 3, 1}, "GNU\0abc", {}}, {{5, size, type}, "", {1, 2, 3, 65535}}};
  std::string bytes(sizeof(ElfW(Ehdr)) + 2 * sizeof(ElfW(Phdr)), '\0');
  ElfW(Ehdr) header{};
  std::memcpy(header.e_ident,
              "\x7F"
              "ELF\2\1\1",
              7);
  header.e_phoff = sizeof(header);
  header.e_phentsize = sizeof(ElfW(Phdr));
  header.e_phnum = 2;
  ElfW(Phdr) segments[2] = {};
  segments[0].p_type = PT_LOAD;
  segments[1].p_type = PT_NOTE;
  segments[1].p_offset = bytes.size();
  segments[1].p_filesz = 20 + sizeof(Note);
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + sizeof(header), segments, sizeof(segments));
  bytes.append(reinterpret_cast<const char*>(&notes[0]), 20);
  Note own = notes[1];
  std::memcpy(own.name, name, std::strlen(name));
  return bytes.append(reinterpret_cast<const char*>(&own), sizeof(own));
}

TEST_F(ModuleTest, OwnFileCarriesTheVersionOfTheBuild) {
  EXPECT_EQ(ModulePath(), std::filesystem::read_symlink("/proc/self/exe"));
  const auto version = ReadVersionResource(ModulePath());
  ASSERT_TRUE(version);
  EXPECT_EQ(std::to_string((*version)[0]) + "." + std::to_string((*version)[1]) + "." + std::to_string((*version)[2]),
            ZEPH_VERSION);
  EXPECT_EQ((*version)[3], 0);
}

TEST_F(ModuleTest, VersionIsTakenFromTheRightNoteAlone) {
  const std::pair<std::string, std::optional<FileVersion>> cases[] = {
      {SmallModule(), FileVersion{1, 2, 3, 65535}},
      {SmallModule("zeph"), std::nullopt},
      {SmallModule("Zeph", 2), std::nullopt},
      {SmallModule("Zeph", 1, 4), std::nullopt},
      {SmallModule("Zeph", 1, 0xFFFFFFFF), std::nullopt},
      {"", std::nullopt},
      {"MZ\x90", std::nullopt},
  };
  int row = 0;
  for (const auto& [content, version] : cases) {
    Fill(Path("module"), content);
    EXPECT_EQ(ReadVersionResource(Path("module")), version) << "row " << row++;
  }
  for (const std::string& path : {Path("missing"), Path("machine"), std::string("/dev/zero"),
                                  std::string("/etc/passwd"), Path("module") + std::string("\0x", 2), std::string()}) {
    EXPECT_EQ(ReadVersionResource(path), std::nullopt) << path;
  }
}

TEST_F(ModuleTest, DamagedFilesAreRefusedOrReadInBounds) {
  const std::string good = SmallModule();
  for (std::size_t i = 0; i < good.size(); ++i) {
    Fill(Path("module"), good.substr(0, i));
    EXPECT_EQ(ReadVersionResource(Path("module")), std::nullopt) << i;
    for (const char flip : {'\xFF', '\x80', '\x01'}) {
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ flip);
      Fill(Path("module"), bad);
      const auto version = ReadVersionResource(Path("module"));
      EXPECT_TRUE(!version || i >= good.size() - 8 || version == FileVersion({1, 2, 3, 65535})) << i;
    }
  }
}

TEST_F(ModuleTest, ThreadsOfOneProcessHaveNumbersOfTheirOwn) {
  EXPECT_EQ(ProcessId(), static_cast<std::uint32_t>(getpid()));
  EXPECT_EQ(ThreadId(), ProcessId()) << "the first thread";
  std::jthread([] { EXPECT_NE(ThreadId(), ProcessId()); }).join();
}

TEST(DynamicLibrary, FindsFunctionsOfTheLibraryThatItLoaded) {
  const DynamicLibrary zlib("libz.so.1");
  ASSERT_TRUE(zlib.IsLoaded());
  auto* const version = zlib.Find<const char*()>("zlibVersion");
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(std::string(version()).substr(0, 2), "1.");
  EXPECT_EQ(zlib.Find<void()>("no such function"), nullptr);
  for (const char* name : {"", "/missing/library.so", "/etc/passwd"}) {
    const DynamicLibrary missing(name);
    EXPECT_FALSE(missing.IsLoaded()) << name;
    EXPECT_EQ(missing.Find<void()>("zlibVersion"), nullptr) << name;
  }
}

TEST(ResolveHost, GivesTheFirstAddressOfVersion4) {
  EXPECT_EQ(ResolveHost("localhost"), "127.0.0.1");
  EXPECT_EQ(ResolveHost("192.0.2.1"), "192.0.2.1");
  for (const std::string& host : {std::string(), std::string("localhost\0.example", 18), std::string("::1"),
                                  std::string(254, 'a'), std::string(1'000'000, 'a'), std::string("a b")}) {
    EXPECT_EQ(ResolveHost(host), std::nullopt) << host.substr(0, 40);
  }
}

}  // namespace
}  // namespace zeph
