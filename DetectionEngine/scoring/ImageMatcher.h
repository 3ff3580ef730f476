// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "DetectionEngine/ImageMatching.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/platform/DynamicLibrary.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// The binding to an optional image matching library. Without the library every call gives -1. No lock is taken
/// around the library; its header says so to whoever makes one.
class ImageMatcher {
 public:
  /// Loads libImageMatching.so from a folder, and looks up its functions up to the first that is missing.
  explicit ImageMatcher(const std::string& folder);
  /// Tells the library that it ends, and lets go of it.
  ~ImageMatcher();
  ImageMatcher(const ImageMatcher&) = delete;
  ImageMatcher& operator=(const ImageMatcher&) = delete;

  /// True when the page's images match one of the library's templates; fieldText takes the library's description,
  /// matchText the name of what matched. Only where the engine doesn't run as a client, and for a value that is a list
  /// of two whole numbers, a real number and a flag; else off without a call.
  IndicatorResult Measure(const ExpressionValue& value, const ImageData& images, bool isClient);

 private:
  std::int32_t Match(const ImageData& images, IndicatorResult& result, bool& matched);
  bool LoadTemplates();

  DynamicLibrary library_;
  ZephShutdownGDIplus* shutdown_ = nullptr;
  ZephLoadSettings* loadSettings_ = nullptr;
  ZephLoadTemplateProperties* loadTemplates_ = nullptr;
  ZephIsImageMatch* isMatch_ = nullptr;
  std::atomic<bool> templatesLoaded_{false};
};

/// The process's matcher, with the library of the engine's own folder.
ImageMatcher& ProcessImageMatcher();

}  // namespace zeph
