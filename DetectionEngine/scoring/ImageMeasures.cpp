// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/ImageMeasures.h"

#include <algorithm>
#include <string>
#include <vector>

#include "DetectionEngine/scoring/FormMeasures.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// How many images have a size that passes the test.
template <class Test>
std::size_t CountImages(const ImageData& images, Test&& passes) {
  const std::size_t count = std::min(images.widths.size(), images.heights.size());
  std::size_t passing = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (passes(images.widths[i], images.heights[i])) ++passing;
  }
  return passing;
}

/// The height is at most this share of the width.
bool IsFlat(std::int32_t width, std::int32_t height, double limit) noexcept {
  return static_cast<double>(static_cast<float>(height) / static_cast<float>(width)) <= limit;
}

/// A rule that was named by its number has fired; false for a number that no rule has.
bool HasFired(std::int64_t rule, std::span<const IndicatorResult> results) noexcept {
  return rule >= 0 && rule < std::ssize(results) && results[static_cast<std::size_t>(rule)].on;
}

/// Of the rules that the items name, at least one that is wanted has fired and none that isn't.
class RuleNumbers {
 public:
  void Add(std::int32_t number, std::span<const IndicatorResult> results) noexcept {
    if (number > 0) {
      anyWanted_ = anyWanted_ || HasFired(number, results);
    } else {
      anyUnwanted_ = anyUnwanted_ || HasFired(-std::int64_t{number}, results);
    }
  }
  [[nodiscard]] bool Hold() const noexcept { return anyWanted_ && !anyUnwanted_; }

 private:
  bool anyWanted_ = false;
  bool anyUnwanted_ = false;
};

bool HasImagesForWords(const PageData& pageData) {
  const std::size_t small = CountImages(pageData.images, [](std::int32_t width, std::int32_t height) {
    return width >= 20 && height >= 10 && height <= 20 && IsFlat(width, height, 0.5);
  });
  if (small == 0) return false;
  const std::size_t gaps = CountTextGaps(pageData.body.visibleText);
  return gaps >= 1 && gaps <= small;
}

bool HasImagesForSentences(const PageData& pageData) {
  return CountImages(pageData.images, [](std::int32_t width, std::int32_t height) {
           return width > 0 && height >= 10 && height <= 50 && IsFlat(width, height, 0.23);
         }) > 1;
}

bool HasOneBigImage(const PageData& pageData) {
  return !pageData.all.backgrounds.empty() && pageData.body.wordCount < 1;
}

/// Counts the gaps of one text, sentence by sentence.
class GapCounter {
 public:
  void CountLine(std::u16string_view line) {
    lowerStart_ = false;
    for (std::size_t begin = 0; begin < line.size();) {
      const std::size_t end = FindAnyOf<u'.', u'?', u'!'>(line, begin);
      if (end == line.size()) return;
      CountSentence(line.substr(begin, end + 1 - begin));
      begin = end + 1;
    }
  }

  [[nodiscard]] std::size_t Gaps() const noexcept { return gaps_; }

 private:
  void CountSentence(std::u16string_view sentence) {
    bool sawBlank = false;
    bool beginsAtOnce = false;
    for (std::size_t i = 0; i < sentence.size(); ++i) {
      if (IsSpace(sentence[i])) {
        sawBlank = true;
      } else if (IsAlpha(sentence[i])) {
        letterAt_ = i;
        beginsAtOnce = !sawBlank;
        if (sawBlank && !IsUpper(sentence[i])) lowerStart_ = true;
        break;
      }
    }
    if (!beginsAtOnce && sawBlank && lowerStart_) ++gaps_;
    for (std::size_t i = letterAt_; i + 1 < sentence.size(); ++i) {
      if (!IsSpace(sentence[i]) || !IsSpace(sentence[i + 1])) continue;
      ++gaps_;
      break;
    }
    if (sentence.size() >= 2 && IsSpace(sentence[sentence.size() - 2])) ++gaps_;
  }

  std::size_t gaps_ = 0;
  std::size_t letterAt_ = 0;  ///< of the last sentence that had a letter
  bool lowerStart_ = false;   ///< stays set for the rest of a line
};

}  // namespace

IndicatorResult BrandImageShare(const ImageData& images, const ExpressionValue& value) {
  IndicatorResult result;
  const auto threshold = static_cast<float>(value.prepared.real);
  if (images.sources.empty() || images.brandImageCount < 1) return result;
  const auto share =
      static_cast<float>(static_cast<double>(images.brandImageCount) / static_cast<double>(images.sources.size()));
  if (share > threshold) {
    result.on = true;
    result.fieldText = RealText(static_cast<double>(share));
    result.matchText = RealText(static_cast<double>(threshold));
  }
  return result;
}

IndicatorResult ImageAreaAgainstText(const PageData& pageData) {
  IndicatorResult result;
  if (pageData.images.totalArea <= 0) return result;
  const float textArea = static_cast<float>(BlockCount(pageData.all)) * 30.0F * 800.0F;
  const float ratio = static_cast<float>(pageData.images.totalArea) / textArea;
  result.fieldText = NumberText(static_cast<std::int64_t>(static_cast<double>(ratio) * 10000.0)) + u"/10000";
  if (static_cast<double>(ratio) > 0.4) {
    result.on = true;
    result.matchText.Lend(u"0.40");
  }
  return result;
}

IndicatorResult ImageGrid(const PageData& pageData, const ExpressionValue& value,
                          std::span<const IndicatorResult> results) {
  IndicatorResult result;
  const std::size_t count = pageData.images.paths.size();
  const std::size_t labelLength = pageData.body.labelText.size();
  if (count > 5 && !pageData.body.fieldWithoutLabel && labelLength < 8) {
    result.on = true;
    result.matchText.Lend(u"0");
    return result;
  }
  RuleNumbers rules;
  for (const std::int32_t number : value.prepared.itemNumbers) rules.Add(number, results);
  const std::size_t tiles = CountImages(pageData.images, [](std::int32_t width, std::int32_t height) {
    return width >= 24 && width <= 250 && height >= 12 && height <= 36;
  });
  if (count >= 12 && rules.Hold() && labelLength < 101) {
    result.on = static_cast<double>(static_cast<float>(tiles) / static_cast<float>(count)) > 0.5;
  }
  result.matchText = NumberText(static_cast<std::int64_t>(tiles));
  return result;
}

IndicatorResult ImagesForText(PageData& pageData, const ExpressionValue& value,
                              std::span<const IndicatorResult> results, bool isClient, bool decided) {
  struct Test {
    bool (*passes)(const PageData&);
    std::u16string_view name;
  };
  static constexpr Test kTests[] = {{HasImagesForWords, u"images for words"},
                                    {HasImagesForSentences, u"images for sentence/paragraph"},
                                    {HasOneBigImage, u"one big image"}};
  IndicatorResult result;
  if (isClient) return result;
  RuleNumbers rules;
  bool allRequired = true;
  for (const std::u16string_view item : value.GetItems()) {
    if (StartsWith(item, u"=")) {
      allRequired = allRequired && HasFired(ReadNumber(item.substr(1)), results);
    } else {
      rules.Add(ReadNumber(item), results);
    }
  }
  if ((decided && !allRequired) || !rules.Hold()) return result;
  for (const Test& test : kTests) {
    if (!test.passes(pageData)) continue;
    result.on = true;
    result.matchText.Lend(test.name);
    pageData.imageTextFound = true;
    break;
  }
  return result;
}

std::size_t CountTextGaps(std::u16string_view text) {
  GapCounter counter;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = FindAnyOf<u'\r', u'\n'>(text, begin);
    counter.CountLine(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return counter.Gaps();
}

}  // namespace zeph
