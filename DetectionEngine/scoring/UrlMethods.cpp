// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/UrlMethods.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/configuration/NamedLists.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/FindAnyOf.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {
namespace {

/// Off, and the URL looked at; then whether there is a table to score it by.
bool BeginScore(const UrlRecord& url, const Configuration& configuration, IndicatorResult& result) {
  result.fieldText.Lend(url.RawUrl);
  return !configuration.UrlAnalysisTable.empty() && !configuration.UrlAnalysisWords.empty();
}

int HexDigit(char16_t c) noexcept {
  if (IsDigit(c)) return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

/// Finds a word in characters that come one by one. The word's first character stands nowhere else in it, so that a
/// mismatch can only begin anew.
class Watch {
 public:
  constexpr explicit Watch(std::u16string_view word) noexcept : word_(word) {}
  /// True at the character that completes the word.
  bool Sees(char16_t c) noexcept {
    if (c == word_[matched_]) {
      ++matched_;
    } else {
      matched_ = c == word_.front() ? 1 : 0;
    }
    return matched_ == word_.size();
  }

 private:
  std::u16string_view word_;
  std::size_t matched_ = 0;
};

bool HoldsScript(std::u16string_view url) noexcept {
  Watch scheme(u"javascript:");
  Watch tag(u"<script");
  // What stands before the first unit that can begin a word, or an escape of one, says nothing.
  for (std::size_t i = FindAnyOf<u'j', u'J', u'<', u'%'>(url, 0); i < url.size(); ++i) {
    char16_t c = url[i];
    if (c == u'%') {
      const int high = i + 1 < url.size() ? HexDigit(url[i + 1]) : -1;
      const int low = i + 2 < url.size() ? HexDigit(url[i + 2]) : -1;
      i += 2;
      if (high < 0 || low < 0) continue;  // no escape, and gone with what it took along
      c = static_cast<char16_t>(static_cast<signed char>(high * 16 + low));  // a byte above 0x7F has its sign
    }
    c = LowerOf(c);
    if (c == u'\t') continue;  // browsers pass over it inside a word
    if (scheme.Sees(c) || tag.Sees(c)) return true;
  }
  return false;
}

}  // namespace

IndicatorResult BrandTagFound(const FieldValue& field, const ExpressionValue& value,
                              const Configuration& configuration) {
  const std::int32_t number = value.prepared.number;
  const NamedList* list = FindNamedList(number);
  if (list == nullptr || list->tags == nullptr) {
    LogLine(
        "*** PLEASE NOTE: HasTrustedBrandTag::RunFastTagSearch",
        [&] { return "default case: PARAMETERID(" + std::to_string(number) + ")"; }, kLogError);
    list = FindNamedList(kTitleTagsNumber);
  }
  const TagIndex& index = configuration.*list->tags;
  const TagForm form = list->tags == &Configuration::UrlTagIndex ? TagForm::kUrl : TagForm::kWord;
  IndicatorResult result;
  const auto look = [&](std::u16string_view text) {
    const std::optional<std::u16string_view> domain = index.FindTag(text, form);
    result.on = domain.has_value();
    if (result.on) result.matchText.Lend(*domain);
    return result.on;
  };
  if (field.kind != FieldKind::kList) {
    result.fieldText.Lend(field.text);
    look(field.text);
  } else if (!field.list.empty()) {
    result.fieldText.Lend(field.list.front());
    std::ranges::find_if(field.list, look);
  }
  return result;
}

IndicatorResult RedirectsToTrusted(std::span<const FormRecord> forms, const NetLocationList& trustedDomains) {
  IndicatorResult result;
  for (const FormRecord& form : forms) {
    for (std::size_t i = 0; i < form.hiddenNames.size(); ++i) {
      if (!ContainsNoCase(u"redirect", form.hiddenNames[i]) || !IsHttpUrl(form.hiddenValues[i])) continue;
      UrlParser parser;
      parser.DecodeUrl(form.hiddenValues[i]);  // on failure the host is empty
      if (const NetLocationMatch match = FindInNetLocations(parser.Record().HostName, trustedDomains)) {
        result.on = true;
        result.matchText.Lend(match.name);
      }
    }
  }
  return result;
}

IndicatorResult HighUrlScore(const UrlRecord& url, const Configuration& configuration) {
  IndicatorResult result;
  if (BeginScore(url, configuration, result)) {
    const UrlScore score = ScoreRecord(url, configuration.UrlAnalysisTable, configuration.UrlWordSet);
    result.on = score.scoreClass == kUrlScoreHigh;
  }
  return result;
}

IndicatorResult LowUrlScore(const UrlRecord& url, const Configuration& configuration) {
  IndicatorResult result;
  if (BeginScore(url, configuration, result)) {
    const UrlScore score = ScoreUrl(url.RawUrl, configuration.UrlAnalysisTable, configuration.UrlWordSet);
    result.on = score.scoreClass == kUrlScoreLow;
  }
  return result;
}

IndicatorResult ScriptInUrl(const UrlRecord& url, const ExpressionValue& value, bool isClient) {
  IndicatorResult result;
  if (!isClient) return result;
  const bool exempt =
      std::ranges::any_of(value.GetItems(), [&](const std::u16string& item) { return EndsWith(url.HostName, item); });
  result.on = !exempt && HoldsScript(url.RawUrl);
  return result;
}

IndicatorResult InSafeList(const FieldValue& field, const ExpressionValue& value, const SafeList& safeList) {
  IndicatorResult result;
  if (value.ValueType != kValueSiteList || value.prepared.number != kSafeListNumber) return result;
  if (field.kind == FieldKind::kText && safeList.Contains(field.text)) {
    result.on = true;
    result.fieldText.Lend(field.text);
  }
  return result;
}

IndicatorResult SiteNameInTitle(std::u16string_view mainDomain, std::u16string_view title) {
  IndicatorResult result;
  result.matchText.Lend(mainDomain);
  if (mainDomain.empty() || title.empty()) return result;
  std::u16string name(mainDomain);
  RemovePunctuation(name);
  std::u16string text = ToLower(title);
  KeepAlnum(text);
  result.on = ContainsExact(name, text);
  return result;
}

}  // namespace zeph
