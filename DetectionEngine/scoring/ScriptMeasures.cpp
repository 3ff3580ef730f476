// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/ScriptMeasures.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/JoinedTexts.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// Lines up to this length aren't looked at.
constexpr std::size_t kShortLine = 150;

/// So many escapes in a line, or commas in a list, are what people write themselves.
constexpr int kOrdinaryCount = 20;

constexpr std::u16string_view kArray = u"array";

/// A line of escapes that stand close together; the first may come late.
bool IsEscaped(std::u16string_view line) noexcept {
  constexpr int kLongestStart = 100;
  constexpr int kLongestGap = 10;
  int count = 0;
  int run = 0;
  for (const char16_t c : line) {
    if (c == u'%') {
      ++count;
      run = 0;
    } else {
      ++run;
    }
    if (count > kOrdinaryCount) return true;
    if (run > (count == 0 ? kLongestStart : kLongestGap)) return false;
  }
  return false;
}

/// The first bracket behind an "array" opens a list of numbers that is longer than people write. What stands before the
/// bracket decides nothing, so each bracket is looked at once, however often "array" stands in front of it.
bool HoldsNumberArray(std::u16string_view line, std::size_t firstArray) noexcept {
  for (std::size_t at = firstArray; at != std::u16string_view::npos; at = FindExact(line, kArray, at)) {
    at = FindAnyOf<u'(', u')'>(line, at);
    if (at == line.size()) return false;
    if (line[at] == u')') continue;
    int commas = 0;
    for (; at < line.size(); ++at) {
      if (line[at] == u',') {
        if (++commas > kOrdinaryCount) return true;
      } else if (!IsDigit(line[at]) && line[at] != u'(') {
        break;
      }
    }
  }
  return false;
}

}  // namespace

IndicatorResult HiddenScript(const ScriptData& scripts, std::span<const std::u16string_view> comments) {
  IndicatorResult result;
  const auto hit = [&](std::u16string_view matchText) {
    result.on = true;
    result.matchText.Lend(matchText);
  };
  const JoinedTexts code(scripts.texts);
  const JoinedTexts notes(comments);
  if (ContainsExact(StringEntry(0x7E), notes.Text()) || ContainsExact(StringEntry(0x7F), code.Text())) {
    hit(StringEntry(0x80));
  }
  if (ContainsExact(StringEntry(0x81), code.Text())) hit(StringEntry(0x82));

  for (std::size_t begin = 0; begin < code.Text().size();) {
    const std::size_t end = FindAnyOf<u'\n'>(code.Text(), begin);
    const std::u16string_view line = code.Text().substr(begin, end - begin);
    begin = end + 1;
    if (line.size() <= kShortLine) continue;
    const std::size_t array = FindExact(line, kArray);
    if (array == std::u16string_view::npos) {
      if (!IsEscaped(line)) continue;
      hit(StringEntry(0x7D));
    } else {
      if (!HoldsNumberArray(line, array)) continue;
      result.on = true;
      result.matchText = std::u16string(line);
    }
    return result;
  }

  const bool encoded = std::ranges::any_of(scripts.languages, [](std::u16string_view language) {
    return language == u"jscript.encode" || language == u"vbscript.encode";
  });
  if (encoded) hit(StringEntry(0x7C));
  return result;
}

IndicatorResult ScriptWords(std::span<const std::u16string_view> texts) {
  IndicatorResult result;
  for (const std::u16string_view text : texts) {
    const auto holds = [&](std::uint32_t entry) { return ContainsNoCase(StringEntry(entry), text); };
    if (!holds(0x00) || (!holds(0x01) && !holds(0x02))) continue;
    if ((!holds(0x03) || !holds(0x06)) && !holds(0x04)) continue;
    result.on = true;
    result.fieldText.Lend(text);
    break;
  }
  return result;
}

}  // namespace zeph
