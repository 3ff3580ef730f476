// SPDX-License-Identifier: Apache-2.0
// The binding to an image matching library, with the library of the documentation.
#include <filesystem>

#include <gtest/gtest.h>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/SettingsHive.h"
#include "DetectionEngine/scoring/ImageMatcher.h"
#include "TestPaths.h"
#include "tests/platform/TestFolders.h"

namespace zeph {
namespace {

constexpr const char* kLibrary = ZEPH_IMAGE_LIBRARIES "/example";

ExpressionValue Settings(std::u16string text, std::uint32_t type = kValueList) {
  ExpressionValue value;
  value.ValueType = type;
  value.Value = std::move(text);
  value.Prepare();
  return value;
}

ImageData Images(std::initializer_list<const char16_t*> urls) {
  ImageData images;
  for (const char16_t* url : urls) images.urlTally[url] = 1;
  return images;
}

/// A working folder of the test's own, with a template list where libraries look for it.
class ImageMatcherTest : public FoldersTest {
 protected:
  ImageMatcherTest() {
    std::filesystem::create_directories(Path("bin"));
    std::filesystem::create_directories(Path("DB/templates"));
    std::filesystem::current_path(Path("bin"));
    Fill(TemplateList(), "/corvus-bank/logo corvus.example\n/quelle/ quelle.example\n");
  }
  ~ImageMatcherTest() override { std::filesystem::current_path("/"); }

  [[nodiscard]] std::string TemplateList() const { return Path("DB/templates/templates.xml"); }
};

TEST_F(ImageMatcherTest, AsksTheLibraryWithTheSettingsOfTheRule) {
  const ImageData images = Images(
      {u"", u"http://a.example/CORVUS-BANK/logo.png", u"http://a.example/other.png", u"http://a.example/quelle/1.gif"});
  const ImageData none;
  struct Row {
    const char* what;
    ExpressionValue value;
    const ImageData& images;
    bool isClient;
    bool on;
    const char* fieldText;
    const char* matchText;
  };
  const Row rows[] = {
      {"a match", Settings(u"1,9,0.1,0"), images, false, true, "1 of 3 images match", "quelle.example"},
      {"any case", Settings(u"2,9,0.1,1"), images, false, true, "2 of 3 images match", "corvus.example"},
      {"a flag below 0 is off", Settings(u"2,9,0.1,-1"), images, false, false, "1 of 3 images match", ""},
      {"too few", Settings(u"3,9,0.1,1"), images, false, false, "2 of 3 images match", ""},
      {"too small a share", Settings(u"1,9,0.5,0"), images, false, false, "1 of 3 images match", ""},
      {"the first ones in order", Settings(u"1,1,0.0,1"), images, false, true, "1 of 1 images match", "corvus.example"},
      {"no images", Settings(u"1,9,0.1,0"), none, false, false, "0 of 0 images match", ""},
      {"settings that the library refuses", Settings(u"0,9,0.1,0"), images, false, false, "", ""},
      {"three items", Settings(u"1,9,0.1"), images, false, false, "", ""},
      {"five items", Settings(u"1,9,0.1,0,0"), images, false, false, "", ""},
      {"no list", Settings(u"1,9,0.1,0", kValueText), images, false, false, "", ""},
      {"a client", Settings(u"1,9,0.1,0"), images, true, false, "", ""},
  };
  ImageMatcher matcher(kLibrary);
  for (const Row& row : rows) {
    const IndicatorResult result = matcher.Measure(row.value, row.images, row.isClient);
    EXPECT_EQ(result.on, row.on) << row.what;
    EXPECT_EQ(Narrow(result.fieldText), row.fieldText) << row.what;
    EXPECT_EQ(Narrow(result.matchText), row.matchText) << row.what;
  }
}

TEST_F(ImageMatcherTest, TriesTheTemplatesAgainUntilTheyLoad) {
  SettingsHive machine(HiveOwner::kMachine);
  const std::string key(kLogSettingsKey);
  ASSERT_TRUE(machine.CreateKey(key));
  machine.Write(key, "OutputToFile", std::uint32_t{1});
  machine.Write(key, "Directory", Path("machine"));
  machine.Write(key, "DebugType", std::uint32_t{1});
  const auto log = [&] {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(Path("machine"))) {
      if (entry.path().extension() == ".log") all += Content(entry.path());
    }
    return all;
  };

  const ImageData images = Images({u"http://a.example/quelle/1.gif"});
  const ExpressionValue value = Settings(u"1,9,0.1,0");
  std::filesystem::remove(TemplateList());
  ImageMatcher matcher(kLibrary);
  const IndicatorResult failed = matcher.Measure(value, images, false);
  EXPECT_FALSE(failed.on);
  EXPECT_EQ(failed.fieldText, u"");
  EXPECT_NE(log().find("ImageMatching : Error : template properties failed to load"), std::string::npos) << log();

  Fill(TemplateList(), "/quelle/ quelle.example\n");
  EXPECT_TRUE(matcher.Measure(value, images, false).on);
  std::filesystem::remove(TemplateList());
  EXPECT_TRUE(matcher.Measure(value, images, false).on) << "templates that are loaded stay so";
}

TEST_F(ImageMatcherTest, IsOffWithoutAWholeLibrary) {
  const ImageData images = Images({u"http://a.example/quelle/1.gif"});
  for (const char* folder : {ZEPH_IMAGE_LIBRARIES "/incomplete", ZEPH_IMAGE_LIBRARIES "/none"}) {
    ImageMatcher matcher(folder);
    const IndicatorResult result = matcher.Measure(Settings(u"1,9,0.1,0"), images, false);
    EXPECT_FALSE(result.on) << folder;
    EXPECT_EQ(result.fieldText, u"") << folder;
  }
}

}  // namespace
}  // namespace zeph
