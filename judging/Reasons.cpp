// SPDX-License-Identifier: Apache-2.0
#include "judging/Reasons.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Method.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "judging/ShownText.h"

namespace zeph {

namespace {

/// The methods that ask after another rule.
constexpr std::uint32_t kEarlierRuleOff = 19;
constexpr std::uint32_t kEarlierRuleOn = 26;
constexpr std::uint32_t kNot = 2;  ///< the operator
constexpr std::size_t kShownText = 90;

bool AsksAfterRule(const IndicatorExpression& expression) noexcept {
  return expression.MethodID == kEarlierRuleOff || expression.MethodID == kEarlierRuleOn;
}

/// What the rules found, looked up through those that ask after others.
class Evidence {
 public:
  Evidence(const ConfigurationPair& pair, std::span<const IndicatorResult> results) : pair_(pair), results_(results) {}

  /// The rule whose texts tell what this one is about: itself, or the first before it that it asks for and that shows
  /// more than that it fired. Rules ask after earlier ones only, so this ends.
  [[nodiscard]] std::size_t Source(std::size_t rule) const {
    const auto& expressions = pair_.indicators.Entries[rule].Rule.Expressions;
    if (expressions.empty() || !AsksAfterRule(expressions.front())) return rule;
    for (const std::size_t asked : Asked(rule)) {
      if (const std::size_t source = Source(asked); !results_[source].matchText.empty()) return source;
    }
    return rule;
  }

  /// The company that the rule names, or one that it asks for does; else the one that the whole verdict names.
  [[nodiscard]] std::u16string Brand(std::size_t rule) const {
    std::u16string name = NamedBy(rule);
    return name.empty() ? CompanyName(TopBrand(pair_.indicators, results_)) : name;
  }

  /// Whether its own texts say more than that another rule fired.
  [[nodiscard]] bool Shows(std::size_t rule) const {
    const auto& expressions = pair_.indicators.Entries[rule].Rule.Expressions;
    return !expressions.empty() && !AsksAfterRule(expressions.front());
  }

 private:
  [[nodiscard]] std::vector<std::size_t> Asked(std::size_t rule) const {
    std::vector<std::size_t> asked;
    for (const IndicatorExpression& expression : pair_.indicators.Entries[rule].Rule.Expressions) {
      const std::int32_t number = expression.ExpressionValue.prepared.number;
      if (expression.MethodID == kEarlierRuleOn && number >= 0 && static_cast<std::size_t>(number) < rule) {
        asked.push_back(static_cast<std::size_t>(number));
      }
    }
    return asked;
  }

  [[nodiscard]] std::u16string NamedBy(std::size_t rule) const {
    if (pair_.indicators.Entries[rule].Rule.TDPriority > 0 && results_[rule].on) {
      std::u16string name = CompanyName(std::u16string(std::u16string_view(results_[rule].matchText)));
      if (!name.empty()) return name;
    }
    for (const std::size_t asked : Asked(rule)) {
      if (std::u16string name = NamedBy(asked); !name.empty()) return name;
    }
    return {};
  }

  [[nodiscard]] std::u16string CompanyName(const std::u16string& key) const {
    const auto found = pair_.configuration.TrustedDomainInfos.find(key);
    return found == pair_.configuration.TrustedDomainInfos.end() ? std::u16string() : found->second.CN;
  }

  const ConfigurationPair& pair_;
  std::span<const IndicatorResult> results_;
};

/// "UrlHost BrandTagFound and not rule 4": what a rule without a sentence asks.
std::string InShort(const IndicatorRule& rule) {
  std::string words;
  for (const IndicatorExpression& expression : rule.Expressions) {
    if (!words.empty()) words += rule.OperatorID == 1 ? " or " : " and ";
    if (AsksAfterRule(expression)) {
      words += (expression.MethodID == kEarlierRuleOff ? "not rule " : "rule ") +
               std::to_string(expression.ExpressionValue.prepared.number);
    } else if (const Method* const method = FindMethod(expression.MethodID); method == nullptr) {
      words += "unknown method";
    } else {
      const Field* const field = method->ReadsField() ? FindField(expression.FieldID) : nullptr;
      words += (field != nullptr ? std::string(field->name) + " " : "") + std::string(method->name);
    }
    if (rule.OperatorID == kNot) return "not " + words;
  }
  return words.empty() ? "always" : words;
}

std::string Filled(std::string sentence, std::string_view place, const std::string& text) {
  for (std::size_t at = 0; (at = sentence.find(place, at)) != std::string::npos; at += text.size()) {
    sentence.replace(at, place.size(), text);
  }
  return sentence;
}

bool IsNumber(std::string_view text) noexcept {
  return !text.empty() && text.find_first_not_of("0123456789./") == std::string_view::npos;
}

bool IsMark(float weight) noexcept {
  return weight == kWeightScriptAttack || weight == kWeightSpoofing || weight == kWeightUnclassified ||
         weight == kWeightTrustworthy;
}

/// How far a weight lies from saying nothing; marks lie furthest.
float Strength(float weight) noexcept {
  if (IsMark(weight) || weight <= 0.0F || weight >= 1.0F) return std::numeric_limits<float>::infinity();
  return std::fabs(std::log(weight / (1.0F - weight)));
}

}  // namespace

std::vector<Reason> ReasonsFor(const ConfigurationPair& pair, std::span<const IndicatorResult> results,
                               const std::vector<RuleText>& texts) {
  const auto& indicators = pair.indicators.Entries;
  if (results.size() != indicators.size()) return {};
  const Evidence evidence(pair, results);
  std::vector<IndicatorResult> others(results.begin(), results.end());
  std::vector<Reason> reasons;
  for (std::size_t i = 0; i < results.size(); ++i) {
    const float weight = results[i].on ? indicators[i].OnWeight : indicators[i].OffWeight;
    if (!results[i].evaluated || weight == kNoWeight) continue;
    const RuleText text = texts.size() == indicators.size() ? texts[i] : RuleText();
    Reason reason;
    reason.rule = text.name.empty() ? "rule " + std::to_string(i) : text.name;
    reason.weight = weight;
    const std::size_t source = evidence.Source(i);
    const std::string match = ShownInShort(results[source].matchText, kShownText);
    const std::string seen = ShownInShort(results[source].fieldText, kShownText);
    if (evidence.Shows(source)) {
      const bool isLimit = IsNumber(match) && IsNumber(seen);
      reason.evidence = isLimit ? seen + ", with a limit of " + match : match;
      if (!seen.empty() && !isLimit) reason.evidence += (match.empty() ? "" : " in ") + seen;
    }
    if (text.sentence.empty()) {
      reason.sentence = (results[i].on ? "" : "doesn't hold: ") + InShort(indicators[i].Rule);
    } else {
      const std::string brand = Shown(evidence.Brand(i));
      reason.sentence = Filled(text.sentence, "{brand}", brand.empty() ? "a brand" : brand);
      reason.sentence = Filled(std::move(reason.sentence), "{match}", match);
      reason.sentence = Filled(std::move(reason.sentence), "{seen}", seen);
      if (!results[i].on) reason.sentence = "doesn't hold: " + reason.sentence;
    }
    others[i].evaluated = false;
    bool isFinal = false;
    computeSpooficity(pair.indicators, others, reason.without, isFinal);
    others[i].evaluated = true;
    reasons.push_back(std::move(reason));
    if (IsMark(weight)) break;  // what stands behind it isn't looked at
  }
  std::ranges::stable_sort(reasons, std::greater(), [](const Reason& reason) { return Strength(reason.weight); });
  return reasons;
}

void Write(JsonWriter& json, const Reason& reason) {
  WriteObject(json, "rule", reason.rule, "sentence", reason.sentence, "evidence", reason.evidence, "weight",
              reason.weight, "without", reason.without);
}

}  // namespace zeph
