// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/PageRecognition.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "DetectionEngine/base/Md5Hex.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/Lasting.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/JoinedTexts.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/text/WordFinder.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// So many words of a list on buttons and links make a mail page.
constexpr std::size_t kCaptionsNeeded = 4;

// Lists of words by their entries in the string table.
using Entries = std::span<const std::uint8_t>;

constexpr std::uint8_t kCommonCaptions[] = {0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B,
                                            0x1C, 0x1D, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x2A, 0x2B, 0x2C};
constexpr std::uint8_t kCommonHeads[] = {0x24, 0x25, 0x26, 0x27, 0x28, 0x29};
constexpr std::uint8_t kGermanCaptions[] = {0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38,
                                            0x39, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x3F, 0x22};
constexpr std::uint8_t kGermanHeads[] = {0x2D, 0x2E, 0x2F, 0x27, 0x28, 0x30};
constexpr std::uint8_t kItalianCaptions[] = {0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B,
                                             0x4C, 0x4D, 0x4E, 0x4F, 0x50, 0x51, 0x52};
constexpr std::uint8_t kItalianHeads[] = {0x40, 0x41, 0x42, 0x27, 0x28, 0x43};
constexpr std::uint8_t kFrenchCaptions[] = {0x57, 0x58, 0x59, 0x5A, 0x5B, 0x5C, 0x5D, 0x5E, 0x5F,
                                            0x60, 0x61, 0x62, 0x63, 0x64, 0x20, 0x65, 0x22};
constexpr std::uint8_t kFrenchHeads[] = {0x24, 0x53, 0x54, 0x27, 0x55, 0x56};
constexpr std::uint8_t kSpanishCaptions[] = {0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x70, 0x71, 0x72, 0x73,
                                             0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x7B};
constexpr std::uint8_t kSpanishHeads[] = {0x66, 0x67, 0x68, 0x27, 0x69, 0x6A};

constexpr std::u16string_view kGermanLabels[] = {u"de"};
constexpr std::u16string_view kItalianLabels[] = {u"it"};
constexpr std::u16string_view kFrenchLabels[] = {u"fr"};
constexpr std::u16string_view kSpanishLabels[] = {u"ar", u"bo", u"cl", u"co", u"cr", u"cu", u"do", u"ec", u"sv", u"gt",
                                                  u"hn", u"mx", u"ni", u"pa", u"py", u"pe", u"pr", u"es", u"uy", u"ve"};

struct Language {
  std::span<const std::u16string_view> labels;  ///< top-level labels where it is spoken
  Entries captions;
  Entries heads;
};
constexpr std::array<Language, 4> kLanguages = {{{kGermanLabels, kGermanCaptions, kGermanHeads},
                                                 {kItalianLabels, kItalianCaptions, kItalianHeads},
                                                 {kFrenchLabels, kFrenchCaptions, kFrenchHeads},
                                                 {kSpanishLabels, kSpanishCaptions, kSpanishHeads}}};

/// The captions of all languages, made ready to be found.
struct CaptionFinders {
  CaptionFinders() : common(MakeFinder(kCommonCaptions)) {
    for (std::size_t i = 0; i < kLanguages.size(); ++i) languages[i] = MakeFinder(kLanguages[i].captions);
  }
  static WordFinder MakeFinder(Entries entries) {
    std::vector<std::u16string> words;
    for (const std::uint8_t entry : entries) words.emplace_back(StringEntry(entry));
    WordFinder finder;
    finder.Assign(words);
    return finder;
  }
  static const CaptionFinders& Get() {
    static const CaptionFinders& finders = Lasting(std::make_unique<const CaptionFinders>());
    return finders;
  }

  WordFinder common;
  std::array<WordFinder, kLanguages.size()> languages;
};

bool HasCaptions(std::u16string_view text, const WordFinder& captions) {
  return captions.CountContained(text, 0, kCaptionsNeeded) == kCaptionsNeeded;
}

/// No letter stands between the line's start and the word, and none right behind it.
bool StandsAtLineStart(std::u16string_view text, std::size_t at, std::size_t length) {
  const auto isLetter = [&](std::size_t place) { return IsAlpha(LowerOf(text[place])); };
  if (at + length < text.size() && isLetter(at + length)) return false;
  while (at > 0) {
    --at;
    if (text[at] == u'\r') return true;
    if (isLetter(at)) return false;
  }
  return true;
}

/// The lines that the text, which begins and ends within lines, has a part of. Whole lines that are blank don't count.
std::size_t CountLines(std::u16string_view text) {
  std::size_t count = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = FindAnyOf<u'\r'>(text, begin);
    if (end == text.size() || !IsBlank(text.substr(begin, end - begin))) ++count;
    begin = end + 1;
  }
  return count;
}

/// Two of the words, which are in lower case, open lines of the text, and the lines lie close together: the shape of a
/// message's head. Only the first place of each word counts. Case is ignored.
bool HoldsMessageHead(std::u16string_view text, Entries words) {
  std::vector<std::size_t> places;
  for (const std::uint8_t entry : words) {
    const std::u16string_view word = StringEntry(entry);
    const std::optional<std::size_t> at = FindNoCase(text, word);
    if (at && StandsAtLineStart(text, *at, word.size())) places.push_back(*at);
  }
  if (places.size() < 2) return false;
  std::ranges::sort(places);
  return CountLines(text.substr(places[0], places[1] - places[0])) <= words.size();
}

}  // namespace

IndicatorResult RecognisedPage(const PageData& pageData, bool isClient) {
  IndicatorResult result;
  if (!isClient) return result;
  if (IsRememberedSite(pageData.url.RawUrl)) {
    result.on = true;
    return result;
  }
  std::size_t length = 0;
  for (const Texts* list : {&pageData.all.captions, &pageData.all.textsOfTagF}) {
    for (const std::u16string_view text : *list) length += text.size() + 1;
  }
  std::u16string captions;  // of texts in one another it can be long
  captions.reserve(length);
  for (const Texts* list : {&pageData.all.captions, &pageData.all.textsOfTagF}) {
    for (const std::u16string_view text : *list) captions.append(1, u' ').append(text);
  }
  if (ShowsMail(pageData.body.visibleText, captions, pageData.url.RawUrl)) {
    RememberSite(pageData.url.RawUrl);
    result.on = true;
  }
  return result;
}

bool ShowsMail(std::u16string_view text, std::u16string_view captions, std::u16string_view url) {
  const CaptionFinders& finders = CaptionFinders::Get();
  if (HasCaptions(captions, finders.common)) return true;
  if (HoldsMessageHead(text, kCommonHeads)) return true;
  const std::u16string label = TopLevelLabel(url);
  for (std::size_t i = 0; i < kLanguages.size(); ++i) {
    const Language& language = kLanguages[i];
    if (std::ranges::find(language.labels, label) == language.labels.end()) continue;
    return HasCaptions(captions, finders.languages[i]) || HoldsMessageHead(text, language.heads);
  }
  return false;
}

IndicatorResult FromRememberedSite(std::u16string_view referrer, bool isClient) {
  IndicatorResult result;
  result.on = isClient && (referrer.empty() || IsRememberedSite(referrer));
  return result;
}

IndicatorResult SavedCopy(std::span<const std::u16string_view> comments,
                          std::span<const std::u16string_view> imageSources,
                          std::span<const std::u16string_view> scriptSources) {
  IndicatorResult result;
  const auto hit = [&](std::u16string_view matchText) {
    result.on = true;
    result.matchText.Lend(matchText);
  };
  const auto liesInSavedFolder = [](std::u16string_view source) {
    return ContainsNoCase(StringEntry(0x8A), source) || ContainsNoCase(StringEntry(0x8B), source);
  };
  if (std::ranges::any_of(imageSources, liesInSavedFolder) || std::ranges::any_of(scriptSources, liesInSavedFolder)) {
    hit(u"[name]_files/ folder");
    return result;
  }
  const JoinedTexts notes(comments);
  const auto noted = [&](std::uint32_t entry) { return ContainsExact(StringEntry(entry), notes.Text()); };
  if (noted(0x86)) hit(StringEntry(0x85));
  if (noted(0x87)) hit(StringEntry(0x84));
  if (noted(0x88) && noted(0x89)) hit(StringEntry(0x83));
  return result;
}

void RememberSite(std::u16string_view url) {
  UrlParser parser;
  parser.DecodeUrl(url);
  const UrlRecord& record = parser.Record();
  SettingsStore().Write(kRememberedSiteSlot, Md5Hex(record.HostIsIp ? record.HostName : record.DomainTail));
}

bool IsRememberedSite(std::u16string_view url) {
  std::u16string remembered;
  if (SettingsStore().Read(kRememberedSiteSlot, remembered) != 0 || remembered.empty()) return false;
  UrlParser parser;
  parser.DecodeUrl(url);
  const UrlRecord& record = parser.Record();
  return Md5Hex(record.HostName) == remembered || (!record.HostIsIp && Md5Hex(record.DomainTail) == remembered);
}

}  // namespace zeph
