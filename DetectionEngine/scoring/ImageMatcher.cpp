// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/ImageMatcher.h"

#include <array>
#include <memory>
#include <vector>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Lasting.h"

namespace zeph {

namespace {

constexpr const char* kLibraryName = "libImageMatching.so";
constexpr const char16_t* kTemplateList = u"../DB/templates/templates.xml";
constexpr std::int32_t kNoLibrary = -1;
constexpr int kServerEngineModule = 1;  ///< log file of the one line that isn't the engine's own
constexpr std::size_t kSettingCount = 4;

}  // namespace

ImageMatcher::ImageMatcher(const std::string& folder) : library_(folder + "/" + kLibraryName) {
  const auto find = [this](auto*& function, const char* name) {
    function = library_.Find<std::remove_reference_t<decltype(*function)>>(name);
    return function != nullptr;
  };
  if (library_.IsLoaded()) {
    static_cast<void>(find(shutdown_, "ShutdownGDIplus") && find(loadSettings_, "LoadSettings") &&
                      find(loadTemplates_, "LoadTemplateProperties") && find(isMatch_, "IsImageMatch"));
  }
}

ImageMatcher::~ImageMatcher() {
  if (shutdown_ != nullptr) shutdown_();
}

IndicatorResult ImageMatcher::Measure(const ExpressionValue& value, const ImageData& images, bool isClient) {
  IndicatorResult result;
  const auto& numbers = value.prepared.itemNumbers;
  if (isClient || value.ValueType != kValueList || numbers.size() != kSettingCount) return result;
  if (loadSettings_ == nullptr ||
      loadSettings_(numbers[0], numbers[1], value.prepared.itemReals[2], numbers[3] > 0) != 0) {
    return result;
  }
  bool matched = false;
  const std::int32_t outcome = LoadTemplates() ? Match(images, result, matched) : kNoLibrary;
  result.on = outcome == 0 && matched;
  if (!result.on) result.matchText = {};
  return result;
}

bool ImageMatcher::LoadTemplates() {
  if (templatesLoaded_) return true;
  if (loadTemplates_ != nullptr && loadTemplates_(kTemplateList) == 0) {
    templatesLoaded_ = true;
    return true;
  }
  DebugLog("ImageMatching", "template properties failed to load", "", 0, kLogError, kServerEngineModule);
  return false;
}

std::int32_t ImageMatcher::Match(const ImageData& images, IndicatorResult& result, bool& matched) {
  if (isMatch_ == nullptr) return kNoLibrary;
  std::vector<std::u16string> texts;  // with an end each, as the library takes them
  for (const auto& [url, count] : images.urlTally) {
    if (!url.empty()) texts.emplace_back(url);
  }
  std::vector<const char16_t*> urls;
  for (const std::u16string& url : texts) urls.push_back(url.c_str());
  const ZephImageList list = {urls.data(), urls.size()};
  // One character more than the library may write, so that a text always ends.
  std::u16string description(kImageDescriptionRoom + 1, u'\0');
  std::u16string name(kImageNameRoom + 1, u'\0');
  std::vector<std::uint8_t> reservedBytes(kImageReservedRoom);
  std::uint32_t match = 0;
  std::int32_t reserved = 0;
  const std::int32_t outcome =
      isMatch_(&list, description.data(), u"", &match, &reserved, name.data(), reservedBytes.data());
  result.fieldText = std::u16string(description.c_str());
  result.matchText = std::u16string(name.c_str());
  matched = match != 0;
  return outcome;
}

ImageMatcher& ProcessImageMatcher() {
  static ImageMatcher& matcher = Lasting(std::make_unique<ImageMatcher>(Narrow(FillModuleTexts().ModuleFolder)));
  return matcher;
}

}  // namespace zeph
