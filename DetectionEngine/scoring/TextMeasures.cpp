// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/TextMeasures.h"

#include <cstddef>
#include <cstdint>

#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

bool HoldsInOrder(std::u16string_view text, std::u16string_view letters) noexcept {
  std::size_t found = 0;
  for (std::size_t i = 0; i < text.size() && found < letters.size(); ++i) {
    if (text[i] == letters[found]) ++found;
  }
  return found == letters.size();
}

}  // namespace

IndicatorResult SiteNameInPhrase(std::u16string_view mainDomain, std::span<const std::u16string_view> phrases) {
  IndicatorResult result;
  if (mainDomain.empty()) return result;
  std::u16string name(mainDomain);
  RemovePunctuation(name);
  for (const std::u16string_view phrase : phrases) {
    if (!HoldsInOrder(phrase, name)) continue;
    result.on = true;
    result.matchText.Lend(phrase);
    break;
  }
  return result;
}

IndicatorResult LabelWords(const PageData& pageData, const ExpressionValue& value) {
  IndicatorResult result;
  if (pageData.all.passwordInputCount > 0 || pageData.body.labelText.empty()) return result;
  std::u16string text = ToLower(pageData.body.labelText);
  KeepAlnum(text);
  constexpr int kLastGroup = 2;
  int group = 0;
  for (const std::u16string& item : value.prepared.lowerItems) {
    if (item == u"|" && group < kLastGroup) {
      ++group;
    } else if (ContainsExact(item, text)) {
      result.on = group == kLastGroup;
      return result;
    }
  }
  return result;
}

IndicatorResult EmptyPageWithMarker(const PageData& pageData) {
  constexpr std::int32_t kMostElements = 100;
  IndicatorResult result;
  result.on = pageData.all.hasMarkerText && pageData.forms.numForms == 0 &&
              pageData.all.elementCount <= kMostElements && pageData.body.visibleText.empty();
  return result;
}

}  // namespace zeph
