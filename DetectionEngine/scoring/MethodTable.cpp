// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "DetectionEngine/scoring/FormMeasures.h"
#include "DetectionEngine/scoring/ImageMatcher.h"
#include "DetectionEngine/scoring/ImageMeasures.h"
#include "DetectionEngine/scoring/Method.h"
#include "DetectionEngine/scoring/PageRecognition.h"
#include "DetectionEngine/scoring/ScriptMeasures.h"
#include "DetectionEngine/scoring/SiteMeasures.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/scoring/TextMeasures.h"
#include "DetectionEngine/scoring/UrlMethods.h"
#include "DetectionEngine/scoring/ValueMethods.h"

namespace zeph {
namespace {

/// A rule that asks after an earlier rule, by its number.
IndicatorResult EarlierRule(const MethodCall& call, bool fired) {
  const auto index = static_cast<std::size_t>(call.value.prepared.number);  // a negative one is beyond any list
  return AnswerOfFlag(IndicatorIsOn(call.indicators, call.results, index) == fired);
}

IndicatorResult SiteList(const MethodCall& call) {
  std::span<const std::u16string_view> texts;
  if (call.field.kind == FieldKind::kList) texts = call.field.list;
  if (call.field.kind == FieldKind::kText) texts = std::span(&call.field.text, 1);
  return SiteListMembership(texts, call.value, call.configuration, call.pageData.url);
}

/// What the rules up to now come to.
struct PresentScore {
  explicit PresentScore(const MethodCall& call)
      : classification(computeSpooficity(call.indicators, call.results, spooficity, isFinal)) {}
  [[nodiscard]] bool IsDecided() const noexcept { return isFinal || classification != kUnclassified; }

  static constexpr std::int32_t kUnclassified = 3;
  float spooficity = 0.0F;
  bool isFinal = false;
  std::int32_t classification;
};

constexpr bool kField = true;     // the method reads the expression's field
constexpr bool kNoField = false;  // it doesn't

}  // namespace

// clang-format off
constexpr std::array<Method, 66> kMethods = {{
    {0, "NumberAbove", "the number is above Value", kField,
     [](const MethodCall& call) { return NumberAbove(call.field, call.value); }},
    {1, "FlagIsSet", "the flag is set", kField,
     [](const MethodCall& call) { return FlagIsSet(call.field); }},
    {2, "EqualToValue", "the number equals Value, or a text equals an item", kField,
     [](const MethodCall& call) { return EqualToValue(call.field, call.value); }},
    {3, "BrandTagFound", "the text holds a tag of a brand: Value 8 tags of URLs, 9 of titles, 11 of content", kField,
     [](const MethodCall& call) { return BrandTagFound(call.field, call.value, call.configuration); }},
    {4, "TextEndsWith", "the text ends with an item", kField,
     [](const MethodCall& call) { return TextEndsWith(call.field, call.value); }},
    {5, "EnoughItemsContained", "the text holds at least as many of the other items as the first item says", kField,
     [](const MethodCall& call) { return EnoughItemsContained(call.field, call.value); }},
    {6, "Contains", "the text holds an item, or Value", kField,
     [](const MethodCall& call) { return Contains(call.field, call.value); }},
    {7, "Unused7", "", kNoField, nullptr},
    {8, "SiteListMembership", "a host or URL is in the list that Value names", kField,
     SiteList},
    {9, "LoginFieldsPresent", "a form has several fields, or fields stand outside forms", kNoField,
     [](const MethodCall& call) { return LoginFieldsPresent(call.pageData.forms.records, call.pageData.all); }},
    {10, "ContainsAsWord", "the text holds an item as a whole word", kField,
     [](const MethodCall& call) { return ContainsAsWord(call.field, call.value); }},
    {11, "SiteNameInPhrase", "a marker phrase spells the letters of the site's name", kNoField,
     [](const MethodCall& call) {
       return SiteNameInPhrase(call.pageData.url.MainDomain, call.pageData.body.markerPhrases);
     }},
    {12, "WordsPerField", "words per form field exceed Value", kNoField,
     [](const MethodCall& call) { return WordsPerField(call.pageData, call.value.prepared.number); }},
    {13, "FieldDensity", "form fields per page size exceed 0.0199", kNoField,
     [](const MethodCall& call) { return FieldDensity(call.pageData); }},
    {14, "BrandImageShare", "the share of a brand's images exceeds Value", kNoField,
     [](const MethodCall& call) { return BrandImageShare(call.pageData.images, call.value); }},
    {15, "RecognisedPage", "the page is one where users read mail, or its site was such a one", kNoField,
     [](const MethodCall& call) { return RecognisedPage(call.pageData, call.configuration.IsClient); }},
    {16, "KnownStructure", "the page's structure is a listed one, or differs by less than the first item", kNoField,
     [](const MethodCall& call) { return KnownStructure(call.pageData.structure, call.value); }},
    {17, "HiddenScript", "a script is encoded or packed", kNoField,
     [](const MethodCall& call) { return HiddenScript(call.pageData.scripts, call.pageData.all.comments); }},
    {18, "SavedCopy", "the page is a copy saved to disk", kNoField,
     [](const MethodCall& call) {
       return SavedCopy(call.pageData.all.comments, call.pageData.images.sources, call.pageData.scripts.sources);
     }},
    {19, "EarlierRuleOff", "the rule of number Value did not fire", kNoField,
     [](const MethodCall& call) { return EarlierRule(call, false); }},
    {20, "Unused20", "", kNoField, nullptr},
    {21, "Unused21", "", kNoField, nullptr},
    {22, "TextStartsWith", "the text starts with Value", kField,
     [](const MethodCall& call) { return TextStartsWith(call.field, call.value); }},
    {23, "ContainsCleaned", "the text holds a word, punctuation and doubled letters aside", kField,
     [](const MethodCall& call) { return ContainsCleaned(call.field, call.value); }},
    {24, "RedirectsToTrusted", "a hidden redirect field names a trusted host", kNoField,
     [](const MethodCall& call) {
       return RedirectsToTrusted(call.pageData.forms.records, call.configuration.TrustedDomains);
     }},
    {25, "NumberBelow", "the number is below Value", kField,
     [](const MethodCall& call) { return NumberBelow(call.field, call.value); }},
    {26, "EarlierRuleOn", "the rule of number Value fired", kNoField,
     [](const MethodCall& call) { return EarlierRule(call, true); }},
    {27, "ImageAreaAgainstText", "the images' area exceeds 0.4 of the text's", kNoField,
     [](const MethodCall& call) { return ImageAreaAgainstText(call.pageData); }},
    {28, "OwnHostLinks", "the share of links to the own host exceeds Value", kNoField,
     [](const MethodCall& call) { return OwnHostLinks(call.pageData.links, call.pageData.url, call.value); }},
    {29, "Unused29", "", kNoField, nullptr},
    {30, "Unused30", "", kNoField, nullptr},
    {31, "Unused31", "", kNoField, nullptr},
    {32, "Unused32", "", kNoField, nullptr},
    {33, "Unused33", "", kNoField, nullptr},
    {34, "Unused34", "", kNoField, nullptr},
    {35, "Unused35", "", kNoField, nullptr},
    {36, "Unused36", "", kNoField, nullptr},
    {37, "Unused37", "", kNoField, nullptr},
    {38, "Unused38", "", kNoField, nullptr},
    {39, "Unused39", "", kNoField, nullptr},
    {40, "Unused40", "", kNoField, nullptr},
    {41, "Unused41", "", kNoField, nullptr},
    {42, "Unused42", "", kNoField, nullptr},
    {43, "ImageGrid", "a grid of small images stands where text would", kNoField,
     [](const MethodCall& call) { return ImageGrid(call.pageData, call.value, call.results); }},
    {44, "Never44", "never on", kNoField,
     [](const MethodCall&) { return IndicatorResult(); }},
    {45, "FromRememberedSite", "the page was reached from a recognised site, or from nowhere", kNoField,
     [](const MethodCall& call) { return FromRememberedSite(call.pageData.referrer, call.configuration.IsClient); }},
    {46, "HighUrlScore", "the URL's score is high", kNoField,
     [](const MethodCall& call) { return HighUrlScore(call.pageData.url, call.configuration); }},
    {47, "LowUrlScore", "the URL's score is low", kNoField,
     [](const MethodCall& call) { return LowUrlScore(call.pageData.url, call.configuration); }},
    {48, "ScoreInRange", "the spooficity so far lies from the first item to the second", kNoField,
     [](const MethodCall& call) { return ScoreInRange(PresentScore(call).spooficity, call.value); }},
    {49, "ScriptInUrl", "the URL holds script, and its host ends with no item", kNoField,
     [](const MethodCall& call) { return ScriptInUrl(call.pageData.url, call.value, call.configuration.IsClient); }},
    {50, "ImageMatch", "an image matches a template", kNoField,
     [](const MethodCall& call) {
       return ProcessImageMatcher().Measure(call.value, call.pageData.images, call.configuration.IsClient);
     }},
    {51, "EqualAndNoted", "as EqualToValue, and the site is remembered as a recognised one", kField,
     [](const MethodCall& call) { return EqualAndNoted(call.field, call.value); }},
    {52, "LabelWords", "the fields' labels hold a word of the last group of items and none of the others", kNoField,
     [](const MethodCall& call) { return LabelWords(call.pageData, call.value); }},
    {53, "Unused53", "", kNoField, nullptr},
    {54, "FormWithExtension", "a form of several fields goes to a relative address with a marked extension", kNoField,
     [](const MethodCall& call) { return FormWithExtension(call.pageData.forms.records); }},
    {55, "Never55", "never on", kNoField,
     [](const MethodCall&) { return IndicatorResult(); }},
    {56, "Unused56", "", kNoField, nullptr},
    {57, "ImagesForText", "the page shows text as images", kNoField,
     [](const MethodCall& call) {
       return ImagesForText(call.pageData, call.value, call.results, call.configuration.IsClient,
                            PresentScore(call).IsDecided());
     }},
    {58, "FormWithScheme", "a form of several fields is sent by mail", kNoField,
     [](const MethodCall& call) { return FormWithScheme(call.pageData.forms.records); }},
    {59, "ScriptWords", "a script holds a combination of words", kNoField,
     [](const MethodCall& call) { return ScriptWords(call.pageData.scripts.texts); }},
    {60, "InSafeList", "the host is in the safe list; Value is 4, of type site list", kField,
     [](const MethodCall& call) { return InSafeList(call.field, call.value, call.configuration.SafeList); }},
    {61, "SiteNameInTitle", "the title holds the site's name", kNoField,
     [](const MethodCall& call) { return SiteNameInTitle(call.pageData.url.MainDomain, call.pageData.body.title); }},
    {62, "Unused62", "", kNoField, nullptr},
    {63, "EmptyPageWithMarker", "the page is empty but for a script that writes it", kNoField,
     [](const MethodCall& call) { return EmptyPageWithMarker(call.pageData); }},
    {64, "OneField", "the forms hold one field in all", kNoField,
     [](const MethodCall& call) { return OneField(call.pageData.forms.records); }},
    {65, "FormWithHiddenAddress", "a form has a mail address in a hidden field", kNoField,
     [](const MethodCall& call) { return FormWithHiddenAddress(call.pageData.forms.records); }},
}};
// clang-format on

namespace {

constexpr bool EveryRowHasItsNumber() {
  for (std::size_t row = 0; row < kMethods.size(); ++row) {
    if (kMethods[row].number != row) return false;
  }
  return true;
}
static_assert(EveryRowHasItsNumber());

}  // namespace

}  // namespace zeph
