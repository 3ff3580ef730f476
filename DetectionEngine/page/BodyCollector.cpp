// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/BodyCollector.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <limits>
#include <optional>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/text/AsciiBlock.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// What stands before a site's own name, by entry of the string table; the last is also looked for at the page's end.
constexpr std::array<std::uint32_t, 5> kMarkers = {0x0C, 0x0D, 0x0E, 0x0F, 0x10};

constexpr std::size_t kWordsOfPhrase = 7;
constexpr std::size_t kBytesOfPhrase = 32;  ///< beside its text

/// Words end at the white space behind them, or with the text.
void CountText(std::u16string_view text, BodyData& data) {
  std::size_t words = 0;
  std::size_t breaks = 0;
  std::uint32_t inWord = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (text.size() - at >= AsciiBlock::kUnits) {
      const AsciiBlock block(&text[at]);
      std::uint32_t spaces = block.Spaces();
      for (std::uint32_t others = block.Others(); others != 0; others &= others - 1) {
        const int other = std::countr_zero(others);
        spaces |= std::uint32_t{IsSpace(text[at + static_cast<std::size_t>(other)])} << other;
      }
      words += static_cast<std::size_t>(std::popcount(spaces & (~spaces << 1 | inWord) & 0xFFFF));
      breaks += static_cast<std::size_t>(std::popcount(block.Equal('\r') | block.Equal('\n')));
      inWord = ~spaces >> (AsciiBlock::kUnits - 1) & 1;
      at += AsciiBlock::kUnits;
      continue;
    }
    const std::uint32_t isSpace = IsSpace(text[at]) ? 1 : 0;
    words += inWord & isSpace;
    breaks += text[at] == u'\r' || text[at] == u'\n' ? 1 : 0;
    inWord = isSpace ^ 1;
    ++at;
  }
  words += inWord;
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  data.wordCount = static_cast<std::int32_t>(std::min(words, kMost));
  data.lineBreakCount = static_cast<std::int32_t>(std::min(breaks, kMost));
}

/// The last two lines of the text up to its last letter, each with the line feed in front; empty when there is none.
std::u16string_view LastLines(std::u16string_view text) {
  std::size_t end = text.size();
  while (end > 0 && !IsAlpha(LowerOf(text[end - 1]))) --end;
  text = text.substr(0, end);
  std::size_t begin = text.rfind(u'\n');
  if (begin == std::u16string_view::npos) return {};
  const std::size_t before = begin == 0 ? std::u16string_view::npos : text.rfind(u'\n', begin - 1);
  if (before != std::u16string_view::npos) begin = before;
  return text.substr(begin);
}

/// Length of the phrase at the text's start.
std::size_t PhraseLength(std::u16string_view text) {
  std::size_t words = 0;
  bool inWord = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isSpace = IsSpace(text[i]);
    if (isSpace && inWord && ++words == kWordsOfPhrase) return i + 1;
    inWord = !isSpace;
  }
  return text.size();
}

void ExtractAll(std::u16string_view visibleText, KeptTexts& kept, BodyData& data) {
  for (const std::uint32_t marker : kMarkers) ExtractPhrases(visibleText, StringEntry(marker), kept, data);
  ExtractPhrases(LastLines(visibleText), StringEntry(kMarkers.back()), kept, data);
}

}  // namespace

Status CollectBodyData(IHTMLDocument2* document, BodyData& data) {
  if (document == nullptr) return kStatusFail;
  DocumentReader reader;
  DocumentObject* const object = reader.Take(document->get_body());
  if (IHTMLElement* const body = object == nullptr ? nullptr : object->QueryElement()) {
    const std::optional<std::u16string_view> text = reader.Take(body->get_innerText());
    if (reader.Failed()) return reader.LastStatus();
    if (text) {
      data.visibleText = *text;
      CountText(*text, data);
    }
    const std::optional<std::u16string_view> html = reader.Take(body->get_innerHTML());
    if (reader.Failed()) return reader.LastStatus();
    if (html) data.html = *html;
  }
  const std::optional<std::u16string_view> title = reader.Take(document->get_title());
  if (title) data.title = *title;
  KeptTexts kept(*document);
  if (!reader.Failed()) ExtractAll(data.visibleText, kept, data);
  return reader.LastStatus();
}

void ExtractPhrases(std::u16string_view text, std::u16string_view marker, KeptTexts& kept, BodyData& data) {
  if (marker.empty()) return;
  while (const std::optional<std::size_t> at = FindNoCase(text, marker)) {
    text.remove_prefix(*at);
    std::u16string phrase(text.substr(0, PhraseLength(text)));
    kept.Take(kBytesOfPhrase + 2 * phrase.size());
    phrase.push_back(u' ');
    MakeLower(phrase);
    data.markerPhrases.push_back(data.kept.Keep(phrase));
    text.remove_prefix(marker.size());
  }
}

}  // namespace zeph
