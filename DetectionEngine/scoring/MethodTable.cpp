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
#include "DetectionEngine/scoring/RowsByNumber.h"
#include "DetectionEngine/scoring/ScriptMeasures.h"
#include "DetectionEngine/scoring/SiteMeasures.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/scoring/TextMeasures.h"
#include "DetectionEngine/scoring/UrlMethods.h"
#include "DetectionEngine/scoring/ValueMethods.h"

namespace zeph {
namespace {

// What a method can ask of a call: one name for each thing, which the rows list in the order of the function's
// parameters.
const FieldValue& TheField(const MethodCall& call) { return call.field; }
std::span<const std::u16string_view> TheTexts(const MethodCall& call) {
  if (call.field.kind == FieldKind::kList) return call.field.list;
  if (call.field.kind == FieldKind::kText) return std::span(&call.field.text, 1);
  return {};
}
const ExpressionValue& TheValue(const MethodCall& call) { return call.value; }
std::int32_t TheNumber(const MethodCall& call) { return call.value.prepared.number; }
const Configuration& TheWorld(const MethodCall& call) { return call.configuration; }
const SafeList& TheSafeList(const MethodCall& call) { return call.configuration.SafeList; }
const NetLocationList& TrustedSites(const MethodCall& call) { return call.configuration.TrustedDomains; }
bool IsClient(const MethodCall& call) { return call.configuration.IsClient; }
PageData& ThePage(const MethodCall& call) { return call.pageData; }
const UrlRecord& TheUrl(const MethodCall& call) { return call.pageData.url; }
std::u16string_view SiteName(const MethodCall& call) { return call.pageData.url.MainDomain; }
std::u16string_view Referrer(const MethodCall& call) { return call.pageData.referrer; }
std::u16string_view Title(const MethodCall& call) { return call.pageData.body.title; }
std::u16string_view Structure(const MethodCall& call) { return call.pageData.structure; }
std::span<const std::u16string_view> MarkerPhrases(const MethodCall& call) { return call.pageData.body.markerPhrases; }
std::span<const FormRecord> Forms(const MethodCall& call) { return call.pageData.forms.records; }
const AllParser& Elements(const MethodCall& call) { return call.pageData.all; }
std::span<const std::u16string_view> Comments(const MethodCall& call) { return call.pageData.all.comments; }
const ImageData& Images(const MethodCall& call) { return call.pageData.images; }
std::span<const std::u16string_view> ImageSources(const MethodCall& call) { return call.pageData.images.sources; }
const LinkData& Links(const MethodCall& call) { return call.pageData.links; }
const ScriptData& Scripts(const MethodCall& call) { return call.pageData.scripts; }
std::span<const std::u16string_view> ScriptTexts(const MethodCall& call) { return call.pageData.scripts.texts; }
std::span<const std::u16string_view> ScriptSources(const MethodCall& call) { return call.pageData.scripts.sources; }
std::span<const IndicatorResult> Answers(const MethodCall& call) { return call.results; }

/// Whether the rule that Value names has fired.
bool EarlierRule(const MethodCall& call) {
  const auto index = static_cast<std::size_t>(call.value.prepared.number);  // a negative one is beyond any list
  return IndicatorIsOn(call.indicators, call.results, index);
}

/// What the rules up to now come to.
float PresentScore(const MethodCall& call) {
  float spooficity = 0.0F;
  bool isFinal = false;
  computeSpooficity(call.indicators, call.results, spooficity, isFinal);
  return spooficity;
}
bool IsDecided(const MethodCall& call) {
  constexpr std::int32_t kUnclassified = 3;
  float spooficity = 0.0F;
  bool isFinal = false;
  return computeSpooficity(call.indicators, call.results, spooficity, isFinal) != kUnclassified || isFinal;
}

/// Calls a method with what it asks for.
template <auto kMethod, auto... kAsked>
IndicatorResult Call(const MethodCall& call) {
  return kMethod(kAsked(call)...);
}

IndicatorResult HasFired(bool fired) { return AnswerOfFlag(fired); }
IndicatorResult HasNotFired(bool fired) { return AnswerOfFlag(!fired); }
IndicatorResult Never() { return {}; }
IndicatorResult MatchImages(const ExpressionValue& value, const ImageData& images, bool isClient) {
  return ProcessImageMatcher().Measure(value, images, isClient);
}

using enum ValueForm;

constexpr FieldKinds kOfNumber = Only(FieldKind::kNumber);
constexpr FieldKinds kOfNumbers = Only(FieldKind::kNumbers);
constexpr FieldKinds kOfNumberWithText = Only(FieldKind::kNumberWithText);
constexpr FieldKinds kOfFlag = Only(FieldKind::kFlag);
constexpr FieldKinds kOfText = Only(FieldKind::kText);
constexpr FieldKinds kOfList = Only(FieldKind::kList);
constexpr bool kTyped = true;  // the column "bindsType" of the readings that have it

constexpr std::array<Reading, 3> kReadsNothing = {{{kNoField, kNothing}}};
constexpr std::array<Reading, 3> kEquals = {{{kOfNumber, kNumber}, {kOfText | kOfList, kItems}}};
constexpr std::array<Reading, 3> kHolds = {{{kOfText, kItems, kTyped}, {kOfText, kText, kTyped}, {kOfList, kItems}}};

}  // namespace

// clang-format off
constexpr std::array<Method, 46> kMethods = {{
    {0, "NumberAbove", "the number is above Value",
     {{{kOfNumber | kOfNumberWithText, kNumber, kTyped}, {kOfNumbers, kNumber}}}, Call<NumberAbove, TheField, TheValue>},
    {1, "FlagIsSet", "the flag is set",
     {{{kOfFlag, kNothing}}}, Call<FlagIsSet, TheField>},
    {2, "EqualToValue", "the number equals Value, or a text equals an item",
     kEquals, Call<EqualToValue, TheField, TheValue>},
    {3, "BrandTagFound", "the text holds a tag of a brand, of the list that Value names",
     {{{kOfText | kOfList, kTagList}}}, Call<BrandTagFound, TheField, TheValue, TheWorld>},
    {4, "TextEndsWith", "the text ends with an item",
     {{{kOfText, kItems}}}, Call<TextEndsWith, TheField, TheValue>},
    {5, "EnoughItemsContained", "the text holds at least as many of the other items as the first item says",
     {{{kOfText | kOfList, kCountedItems}}}, Call<EnoughItemsContained, TheField, TheValue>},
    {6, "Contains", "the text holds an item, or Value",
     kHolds, Call<Contains, TheField, TheValue>},
    {8, "SiteListMembership", "a host or URL is in the list that Value names, or matches an item",
     {{{kOfText | kOfList, kSiteList, kTyped}, {kOfText | kOfList, kHosts, kTyped}}},
     Call<SiteListMembership, TheTexts, TheValue, TheWorld, TheUrl>},
    {9, "LoginFieldsPresent", "a form has several fields, or fields stand outside forms",
     kReadsNothing, Call<LoginFieldsPresent, Forms, Elements>},
    {10, "ContainsAsWord", "the text holds an item as a whole word, or Value",
     kHolds, Call<ContainsAsWord, TheField, TheValue>},
    {11, "SiteNameInPhrase", "a marker phrase spells the letters of the site's name",
     kReadsNothing, Call<SiteNameInPhrase, SiteName, MarkerPhrases>},
    {12, "WordsPerField", "words per form field exceed Value",
     {{{kNoField, kNumber}}}, Call<WordsPerField, ThePage, TheNumber>},
    {13, "FieldDensity", "form fields per page size exceed 0.0199",
     kReadsNothing, Call<FieldDensity, ThePage>},
    {14, "BrandImageShare", "the share of a brand's images exceeds Value",
     {{{kNoField, kReal}}}, Call<BrandImageShare, Images, TheValue>},
    {15, "RecognisedPage", "the page is one where users read mail, or its site was such a one",
     kReadsNothing, Call<RecognisedPage, ThePage, IsClient>},
    {16, "KnownStructure", "the page's structure is a listed one, or differs by less than the first item",
     {{{kNoField, kStructures}}}, Call<KnownStructure, Structure, TheValue>},
    {17, "HiddenScript", "a script is encoded or packed",
     kReadsNothing, Call<HiddenScript, Scripts, Comments>},
    {18, "SavedCopy", "the page is a copy saved to disk",
     kReadsNothing, Call<SavedCopy, Comments, ImageSources, ScriptSources>},
    {19, "EarlierRuleOff", "the rule of number Value did not fire",
     {{{kNoField, kRule}}}, Call<HasNotFired, EarlierRule>},
    {22, "TextStartsWith", "the text starts with Value",
     {{{kOfText, kText}}}, Call<TextStartsWith, TheField, TheValue>},
    {23, "ContainsCleaned", "the text holds a word, punctuation and doubled letters aside",
     {{{kOfText, kItems, kTyped}, {kOfText, kText, kTyped}}}, Call<ContainsCleaned, TheField, TheValue>},
    {24, "RedirectsToTrusted", "a hidden redirect field names a trusted host",
     kReadsNothing, Call<RedirectsToTrusted, Forms, TrustedSites>},
    {25, "NumberBelow", "the number is below Value",
     {{{kOfNumber, kNumber, kTyped}}}, Call<NumberBelow, TheField, TheValue>},
    {26, "EarlierRuleOn", "the rule of number Value fired",
     {{{kNoField, kRule}}}, Call<HasFired, EarlierRule>},
    {27, "ImageAreaAgainstText", "the images' area exceeds 0.4 of the text's",
     kReadsNothing, Call<ImageAreaAgainstText, ThePage>},
    {28, "OwnHostLinks", "the share of links to the own host exceeds Value",
     {{{kNoField, kReal}}}, Call<OwnHostLinks, Links, TheUrl, TheValue>},
    {43, "ImageGrid", "a grid of small images stands where text would",
     {{{kNoField, kRules}}}, Call<ImageGrid, ThePage, TheValue, Answers>},
    {44, "Never44", "never on",
     kReadsNothing, Call<Never>},
    {45, "FromRememberedSite", "the page was reached from a recognised site, or from nowhere",
     kReadsNothing, Call<FromRememberedSite, Referrer, IsClient>},
    {46, "HighUrlScore", "the URL's score is high",
     kReadsNothing, Call<HighUrlScore, TheUrl, TheWorld>},
    {47, "LowUrlScore", "the URL's score is low",
     kReadsNothing, Call<LowUrlScore, TheUrl, TheWorld>},
    {48, "ScoreInRange", "the spooficity so far lies from the first item to the second",
     {{{kNoField, kRange}}}, Call<ScoreInRange, PresentScore, TheValue>},
    {49, "ScriptInUrl", "the URL holds script, and its host ends with no item",
     {{{kNoField, kItems}}}, Call<ScriptInUrl, TheUrl, TheValue, IsClient>},
    {50, "ImageMatch", "an image matches a template",
     {{{kNoField, kImageSettings, kTyped}}}, Call<MatchImages, TheValue, Images, IsClient>},
    {51, "EqualAndNoted", "as EqualToValue, and the site is remembered as a recognised one",
     kEquals, Call<EqualAndNoted, TheField, TheValue>},
    {52, "LabelWords", "the fields' labels hold a word of the last group of items and none of the others",
     {{{kNoField, kWordGroups}}}, Call<LabelWords, ThePage, TheValue>},
    {54, "FormWithExtension", "a form of several fields goes to a relative address with a marked extension",
     kReadsNothing, Call<FormWithExtension, Forms>},
    {55, "Never55", "never on",
     kReadsNothing, Call<Never>},
    {57, "ImagesForText", "the page shows text as images",
     {{{kNoField, kRules}}}, Call<ImagesForText, ThePage, TheValue, Answers, IsClient, IsDecided>},
    {58, "FormWithScheme", "a form of several fields is sent by mail",
     kReadsNothing, Call<FormWithScheme, Forms>},
    {59, "ScriptWords", "a script holds a combination of words",
     kReadsNothing, Call<ScriptWords, ScriptTexts>},
    {60, "InSafeList", "the host is in the safe list",
     {{{kOfText, kSafeList, kTyped}}}, Call<InSafeList, TheField, TheValue, TheSafeList>},
    {61, "SiteNameInTitle", "the title holds the site's name",
     kReadsNothing, Call<SiteNameInTitle, SiteName, Title>},
    {63, "EmptyPageWithMarker", "the page is empty but for a script that writes it",
     kReadsNothing, Call<EmptyPageWithMarker, ThePage>},
    {64, "OneField", "the forms hold one field in all",
     kReadsNothing, Call<OneField, Forms>},
    {65, "FormWithHiddenAddress", "a form has a mail address in a hidden field",
     kReadsNothing, Call<FormWithHiddenAddress, Forms>},
}};
// clang-format on

namespace {

constexpr RowsByNumber<66> kByNumber(kMethods);

constexpr std::array<ValueFormRow, 17> kForms = {{
    {kNone, kValueText, ""},
    {kNothing, kValueNumber, "no value"},
    {kNumber, kValueNumber, "a whole number"},
    {kReal, kValueText, "a number"},
    {kText, kValueText, "a text"},
    {kItems, kValueList, "a list of texts"},
    {kCountedItems, kValueList, "a list: how many of the others, then the texts"},
    {kHosts, kValueText, "a list of hosts"},
    {kTagList, kValueText, "the name of a list of tags"},
    {kSiteList, kValueSiteList, "the name of a list of sites"},
    {kSafeList, kValueSiteList, "the name of the safe list"},
    {kRule, kValueNumber, "the name of an earlier rule"},
    {kRules, kValueList, "a list of earlier rules"},
    {kRange, kValueList, "a list of two numbers"},
    {kStructures, kValueList, "a list: a share, then structures, each with its label"},
    {kWordGroups, kValueList, "a list of three groups of texts with \"|\" between them"},
    {kImageSettings, kValueList, "a list of two whole numbers, a number and a flag"},
}};

constexpr bool EveryFormHasItsRow() {
  for (std::size_t row = 0; row < kForms.size(); ++row) {
    if (kForms[row].form != static_cast<ValueForm>(row)) return false;
  }
  return true;
}
static_assert(EveryFormHasItsRow());

}  // namespace

const Method* FindMethod(std::uint32_t number) noexcept { return kByNumber.Find(kMethods, number); }

const ValueFormRow& FormRow(ValueForm form) noexcept { return kForms[static_cast<std::size_t>(form)]; }

}  // namespace zeph
