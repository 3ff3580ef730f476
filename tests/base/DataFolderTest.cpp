// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

class DataFolderTest : public FoldersTest {
 protected:
  ~DataFolderTest() override { SetVendorName("Corvanta"); }
};

TEST_F(DataFolderTest, LiesInTheMachinesFolderUnderTheVendorsName) {
  EXPECT_EQ(VendorName(), "Corvanta");
  EXPECT_EQ(GetDataFolder(), Path("machine/Corvanta"));
  EXPECT_FALSE(FileExists(GetDataFolder()));

  setenv("ZEPH_MACHINE_DIR", Path("not/yet/there/").c_str(), 1);
  EXPECT_TRUE(SetVendorName("Another vendor"));
  EXPECT_EQ(GetDataFolder(), Path("not/yet/there/Another vendor"));
  EXPECT_TRUE(std::filesystem::is_directory(GetDataFolder()));

  setenv("ZEPH_MACHINE_DIR", ("/" + std::string(5000, 'x')).c_str(), 1);
  EXPECT_EQ(GetDataFolder(), "");
  EXPECT_TRUE(SetVendorName("No folder to make"));
  setenv("ZEPH_MACHINE_DIR", "", 1);
  EXPECT_EQ(GetDataFolder(), "/var/lib/zeph/No folder to make");
}

TEST_F(DataFolderTest, VendorsNameIsOneComponentOfAPath) {
  const std::string refused[] = {
      "", ".", "..", "a/b", "/", "../../etc", std::string("a\0b", 3), std::string(260, 'v'), std::string(100000, 'v'),
  };
  for (const auto& name : refused) {
    EXPECT_FALSE(SetVendorName(name)) << name.substr(0, 40);
    EXPECT_EQ(VendorName(), "Corvanta") << name.substr(0, 40);
  }
  EXPECT_FALSE(FileExists(GetDataFolder()));
  for (const auto& name : {std::string("..."), std::string("a..b"), std::string(255, 'v'), std::string(259, 'v')}) {
    EXPECT_TRUE(SetVendorName(name));
    EXPECT_EQ(VendorName(), name);
  }
}

TEST_F(DataFolderTest, EnsureFolderMakesWhatIsMissing) {
  Fill(Path("file"), "");
  const std::pair<std::string, std::int32_t> cases[] = {
      {Path("a/b/c"), 0},
      {Path("a/b/c"), 0},
      {Path("a/b/d/"), 0},
      {Path("a//e"), 0},
      {"", 0},
      {"x", 0},
      {"/", 0},
      {Path("file"), 0},
      {Path("file/a"), 1},
      {"/proc/none/a", 1},
      {Path(std::string(256, 'n')), 1},
  };
  for (const auto& [path, status] : cases) EXPECT_EQ(EnsureFolder(Widen(path)), status) << path;
  for (const char* made : {"a/b/c", "a/b/d", "a/e"}) EXPECT_TRUE(std::filesystem::is_directory(Path(made))) << made;
  EXPECT_FALSE(FileExists("x")) << "too short to be one";
  EXPECT_EQ(EnsureFolder(Widen(Path("a")) + std::u16string(u"\0/b", 3)), 1);
  EXPECT_EQ(EnsureFolder(std::u16string(100'000'000, u'/')), 1);
  EXPECT_EQ(EnsureFolder(u"./" + std::u16string(5000, u'.')), 1);
}

TEST_F(DataFolderTest, EnsureFolderTakesRelativePaths) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(Path(""));
  EXPECT_EQ(EnsureFolder(u"rel/\u00FC"), 0);
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::is_directory(Path("rel/\xC3\xBC")));
}

TEST(ModuleTexts, SplitThePathOfTheModulesFile) {
  const ModuleTexts texts = FillModuleTexts();
  const auto self = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(Narrow(texts.ModulePath), self.string());
  EXPECT_EQ(Narrow(texts.ModuleFolder), self.parent_path().string());
  EXPECT_EQ(Narrow(texts.BaseName), "base_tests");
}

TEST(ModuleTexts, ExtensionOfASharedLibraryMayHaveAVersion) {
  const std::pair<const char*, const char*> cases[] = {
      {"libZeph.so", "libZeph"},        {"libZeph.so.0", "libZeph"},
      {"libZeph.so.0.1.0", "libZeph"},  {"lib.source.so.1", "lib.source"},
      {"lib.sorted.bin", "lib.sorted"}, {"program", "program"},
      {"program.exe", "program"},       {"", ""},
  };
  for (const auto& [file, base] : cases) EXPECT_EQ(BaseNameOf(file), base) << file;
}

TEST(ModuleTexts, SettingsKeyPathIsMadeOfVendorAndModule) {
  SetSettingsKeyPath("Vend\xC3\xB6r", "Mod\xFF");
  EXPECT_EQ(SettingsKeyPath(),
            std::u16string(StringEntry(0xC4)) + u"Vend\u00F6r" + std::u16string(StringEntry(0xC5)) + u"Mod\uFFFD");
}

}  // namespace
}  // namespace zeph
