// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/FormMeasures.h"

#include <string>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// A line of text is about so many words.
constexpr std::int64_t kWordsOfLine = 12;

/// Text and password fields.
std::int64_t TypedFields(const FormRecord& form) noexcept { return std::int64_t{form.textCount} + form.passwordCount; }

}  // namespace

std::int64_t BlockCount(const AllParser& all) noexcept {
  const std::int64_t blocks = std::int64_t{all.blockCountA} + all.blockCountB + all.blockCountC;
  return blocks == 0 ? 1 : blocks;
}

IndicatorResult LoginFieldsPresent(std::span<const FormRecord> forms, const AllParser& all) {
  IndicatorResult result;
  std::int64_t inForms = 0;
  for (const FormRecord& form : forms) {
    inForms += TypedFields(form);
    if (!form.multipleFields) continue;
    result.on = true;
    result.fieldText = NumberText(TypedFields(form));
    return result;
  }
  const std::int64_t onPage = std::int64_t{all.textInputCount} + all.passwordInputCount;
  if (onPage > inForms) {
    result.on = true;
    result.fieldText = NumberText(onPage);
  }
  return result;
}

IndicatorResult WordsPerField(const PageData& pageData, std::int32_t limit) {
  std::int64_t fields = 0;
  for (const FormRecord& form : pageData.forms.records) {
    fields += std::int64_t{form.selectCount} + form.textareaCount + TypedFields(form);
  }
  const std::int64_t ratio = pageData.body.wordCount / (fields == 0 ? 1 : fields);
  IndicatorResult result;
  result.fieldText = NumberText(ratio);
  if (ratio > limit) {
    result.on = true;
    result.matchText = NumberText(limit);
  }
  return result;
}

IndicatorResult FieldDensity(const PageData& pageData) {
  IndicatorResult result;
  if (pageData.forms.numVisibleForms == 0) return result;
  std::int64_t fields = 0;
  for (const FormRecord& form : pageData.forms.records) fields += form.textareaCount + TypedFields(form);
  auto size = static_cast<float>(pageData.body.wordCount / kWordsOfLine + BlockCount(pageData.all));
  const auto lines = static_cast<float>(pageData.body.lineBreakCount);
  if (lines > size) size = lines;
  const auto density =
      static_cast<float>(static_cast<double>(fields) / pageData.forms.numVisibleForms / static_cast<double>(size));
  result.fieldText = NumberText(static_cast<std::int64_t>(static_cast<double>(density) * 10000.0)) + u"/10000";
  if (static_cast<double>(density) > 0.0199) {
    result.on = true;
    result.matchText.Lend(u"0.0199");
  }
  return result;
}

IndicatorResult FormWithExtension(std::span<const FormRecord> forms) {
  constexpr std::uint32_t kExtension = 0x05;
  constexpr std::uint32_t kAbsolute = 0x06;
  constexpr std::uint32_t kAbsoluteToo = 0x07;
  IndicatorResult result;
  for (const FormRecord& form : forms) {
    if (!form.multipleFields || form.actionExtension != StringEntry(kExtension)) continue;
    if (StartsWith(form.action, StringEntry(kAbsolute)) || StartsWith(form.action, StringEntry(kAbsoluteToo))) continue;
    result.on = true;
    result.matchText.Lend(form.action);
    break;
  }
  return result;
}

IndicatorResult FormWithScheme(std::span<const FormRecord> forms) {
  constexpr std::uint32_t kScheme = 0x08;
  IndicatorResult result;
  for (const FormRecord& form : forms) {
    if (!form.multipleFields || form.actionScheme != StringEntry(kScheme)) continue;
    result.on = true;
    result.fieldText.Lend(form.action);
    break;
  }
  return result;
}

IndicatorResult OneField(std::span<const FormRecord> forms) {
  IndicatorResult result;
  std::int64_t fields = 0;
  bool wasOne = false;
  for (const FormRecord& form : forms) {
    if (form.multipleFields) return result;
    fields += TypedFields(form);
    wasOne = wasOne || fields == 1;
  }
  result.on = wasOne;
  return result;
}

IndicatorResult FormWithHiddenAddress(std::span<const FormRecord> forms) {
  IndicatorResult result;
  for (const FormRecord& form : forms) {
    if (!form.hasHiddenAddress || !form.hasUserFields) continue;
    result.on = true;
    result.matchText = std::u16string(form.action).append(u" | ").append(form.hiddenAddress);
    break;
  }
  return result;
}

}  // namespace zeph
