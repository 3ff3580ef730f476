// SPDX-License-Identifier: Apache-2.0
#include "authoring/RuleCheck.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <optional>
#include <sstream>

#include "DetectionEngine/configuration/NamedLists.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Method.h"

namespace zeph {

namespace {

constexpr std::uint32_t kAnd = 0;
constexpr std::uint32_t kNot = 2;
constexpr std::uint32_t kEarlierRuleOff = 19;
constexpr std::uint32_t kEarlierRuleOn = 26;

bool IsMark(float weight) noexcept { return weight == 0.0F || weight == 1.0F || weight == -1.0F || weight == 1.2F; }

std::string Quoted(std::u16string_view text) { return "\"" + Narrow(text) + "\""; }

/// "a, b or c"
std::string Joined(const std::vector<std::string>& words) {
  std::string joined;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) joined += i + 1 == words.size() ? " or " : ", ";
    joined += words[i];
  }
  return joined;
}

std::string KindsInWords(FieldKinds kinds) {
  std::vector<std::string> words;
  for (const FieldKind kind : kFieldKinds) {
    if ((kinds & Only(kind)) != 0) words.emplace_back(KindName(kind));
  }
  return Joined(words);
}

/// The numbers of a table's rows, runs drawn together: "0 to 25, 27 to 33".
template <class Rows>
std::string NumbersOf(const Rows& rows) {
  std::string words;
  for (std::size_t i = 0; i < rows.size();) {
    std::size_t end = i + 1;
    while (end < rows.size() && rows[end].number == rows[end - 1].number + 1) ++end;
    words += (words.empty() ? "" : ", ") + std::to_string(rows[i].number);
    if (end - i > 1) words += " to " + std::to_string(rows[end - 1].number);
    i = end;
  }
  return words;
}

/// When a rule runs, by stage and then by place in the list.
std::optional<std::size_t> RankOfStage(std::uint32_t category) {
  const auto stages = Stages();
  const auto at = std::ranges::find(stages, category, &StageRow::number);
  if (at == stages.end()) return std::nullopt;
  return static_cast<std::size_t>(at - stages.begin());
}

class Check {
 public:
  Check(const Indicators& rules, const std::vector<RulePlaces>& places, Diagnostics& found)
      : rules_(rules.Entries), places_(places), found_(found), neverOn_(rules_.size()), named_(rules_.size()) {}

  void Run() {
    FindWhatNeverFires();
    for (at_ = 0; at_ < rules_.size(); ++at_) CheckRule();
    for (at_ = 0; at_ < rules_.size(); ++at_) CheckUse();
    CheckTwins();
  }

 private:
  [[nodiscard]] const Indicator& Rule() const { return rules_[at_]; }
  [[nodiscard]] const RulePlaces& Places() const { return places_[at_]; }

  void FindWhatNeverFires() {
    for (std::size_t i = 0; i < rules_.size(); ++i) neverOn_[i] = !RankOfStage(rules_[i].Rule.Category);
    // What waits for a rule that never fires, never fires; a chain of those is found step by step.
    for (bool more = true; more;) {
      more = false;
      for (std::size_t i = 0; i < rules_.size(); ++i) {
        if (neverOn_[i] || rules_[i].Rule.OperatorID != kAnd) continue;
        if (!std::ranges::any_of(rules_[i].Rule.Expressions, [&](const auto& e) { return WaitsForNothing(e, i); })) continue;
        neverOn_[i] = more = true;
      }
    }
  }
  [[nodiscard]] bool WaitsForNothing(const IndicatorExpression& expression, std::size_t self) const {
    if (expression.MethodID != kEarlierRuleOn) return false;
    const std::int32_t other = expression.ExpressionValue.prepared.number;
    if (other < 0 || static_cast<std::size_t>(other) >= rules_.size()) return true;
    return neverOn_[static_cast<std::size_t>(other)] || !HasRunBefore(static_cast<std::size_t>(other), self);
  }
  /// Whether the one has an answer when the other runs.
  [[nodiscard]] bool HasRunBefore(std::size_t one, std::size_t other) const {
    const auto stageOfOne = RankOfStage(rules_[one].Rule.Category);
    const auto stageOfOther = RankOfStage(rules_[other].Rule.Category);
    if (!stageOfOne || !stageOfOther) return false;
    return *stageOfOne != *stageOfOther ? *stageOfOne < *stageOfOther : one < other;
  }

  void CheckRule() {
    CheckWeight(Rule().OnWeight, Places().onWeight);
    CheckWeight(Rule().OffWeight, Places().offWeight);
    const IndicatorRule& rule = Rule().Rule;
    if (!RankOfStage(rule.Category)) {
      std::string stages;
      for (const StageRow& stage : Stages()) {
        stages += (stages.empty() ? "" : ", ") + std::string(stage.name) + " (" + std::to_string(stage.number) + ")";
      }
      found_.Error(Places().stage,
                   Places().name + (rule.Category == kCategoryNever ? " names no stage, so it never runs"
                                                                    : " never runs: no stage has number " +
                                                                          std::to_string(rule.Category)),
                   "stages are " + stages);
    }
    if (rule.OperatorID >= Operators().size()) {
      found_.Error(Places().combination, "no operator has number " + std::to_string(rule.OperatorID),
                   "operators are 0 (and), 1 (or), 2 (not)");
    }
    if (rule.OperatorID == kNot && rule.Expressions.size() > 1) {
      found_.Warning(Places().expressions[1].whole, "under \"not\" the first expression alone counts");
    }
    if (rule.Expressions.empty()) {
      found_.Warning(Places().whole, Places().name + " has no expressions: it always fires, or never");
    }
    for (std::size_t i = 0; i < rule.Expressions.size(); ++i) CheckExpression(rule.Expressions[i], Places().expressions[i]);
    for (std::size_t i = 1; i < rule.Expressions.size(); ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        if (rule.Expressions[i] == rule.Expressions[j]) {
          found_.Warning(Places().expressions[i].whole, "the same expression stands in this rule before");
        }
      }
    }
    if (rule.TDPriority > 0 && !rule.Expressions.empty() && !YieldsBrand(rule.Expressions.front())) {
      found_.Error(Places().expressions.front().whole,
                   "a rule with a brand priority names the brand that its first expression finds, and this one finds none",
                   "put first what finds a brand: BrandTagFound, SiteListMembership, RedirectsToTrusted, or the number "
                   "of BrandImages or BrandLinks");
    }
  }

  void CheckWeight(float weight, const Place& place) {
    if (weight == kNoWeight || IsMark(weight) || (weight > 0.0F && weight < 1.0F)) return;
    std::ostringstream text;
    text << "weight " << weight << " is no probability";
    found_.Error(place, text.str(),
                 "weights lie between 0 and 1; 0, 1, -1 and 1.2 are final: trustworthy, spoofing, unclassified, script "
                 "attack; 2 says nothing");
  }

  static bool YieldsBrand(const IndicatorExpression& expression) {
    constexpr std::uint32_t kRedirectsToTrusted = 24;
    const Method* const method = FindMethod(expression.MethodID);
    const Field* const field = FindField(expression.FieldID);
    if (method == nullptr || method->number == kRedirectsToTrusted) return true;
    if (!method->ReadsField() || field == nullptr) return false;
    const ValueForm form = method->readings.front().value;
    return form == ValueForm::kTagList || form == ValueForm::kSiteList || field->kind == FieldKind::kNumberWithText;
  }

  void CheckExpression(const IndicatorExpression& expression, const ExpressionPlaces& places) {
    const Method* const method = FindMethod(expression.MethodID);
    if (method == nullptr) {
      found_.Error(places.method, "no method has number " + std::to_string(expression.MethodID),
                   "methods are " + NumbersOf(kMethods) + "; zeph rules tells what they do");
      return;
    }
    const Field* const field = FindField(expression.FieldID);
    if (field == nullptr && (method->ReadsField() || expression.FieldID != 0)) {
      found_.Error(places.field, "no field has number " + std::to_string(expression.FieldID),
                   "fields are " + NumbersOf(kFields) + "; zeph rules tells what they show");
      return;
    }
    const Reading* const reading = ReadingFor(*method, field, expression.ExpressionValue.ValueType, places);
    if (reading != nullptr) CheckValue(expression, *method, reading->value, places);
  }

  /// How the method reads the value beside this field; null, and said why, when it can't.
  const Reading* ReadingFor(const Method& method, const Field* field, std::uint32_t type, const ExpressionPlaces& places) {
    if (!method.ReadsField()) return &method.readings.front();
    FieldKinds kinds = 0;
    const Reading* fits = nullptr;
    std::vector<std::string> types;
    for (const Reading& reading : method.readings) {
      if (reading.value == ValueForm::kNone) continue;
      kinds |= reading.fields;
      if ((reading.fields & Only(field->kind)) == 0) continue;
      const std::uint32_t wanted = FormRow(reading.value).type;
      types.push_back(std::to_string(wanted) + " (" + std::string(FormRow(reading.value).summary) + ")");
      if (fits == nullptr && (!reading.bindsType || wanted == type)) fits = &reading;
    }
    if ((kinds & Only(field->kind)) == 0) {
      std::vector<std::string> fitting;
      for (const Method& other : kMethods) {
        if (std::ranges::any_of(other.readings, [&](const Reading& r) { return (r.fields & Only(field->kind)) != 0; })) {
          fitting.emplace_back(other.name);
        }
      }
      found_.Error(places.field, std::string(method.name) + " tests a " + KindsInWords(kinds) + ", and " +
                                     std::string(field->name) + " is a " + std::string(KindName(field->kind)),
                   fitting.empty() ? "" : "a " + std::string(KindName(field->kind)) + " is tested by " + Joined(fitting));
      return nullptr;
    }
    if (fits == nullptr) {
      found_.Error(places.type, std::string(method.name) + " is never on with a value of type " + std::to_string(type),
                   "its types beside this field: " + Joined(types));
    }
    return fits;
  }

  void CheckValue(const IndicatorExpression& expression, const Method& method, ValueForm form,
                  const ExpressionPlaces& places) {
    const ExpressionValue& value = expression.ExpressionValue;
    const std::vector<std::u16string>& items = value.GetItems();
    const auto wrong = [&](std::string what, std::string help = {}) {
      found_.Error(places.value, std::move(what), std::move(help));
    };
    const auto item = [&](std::size_t i) { return i < places.items.size() ? places.items[i] : places.value; };
    const std::string wants = std::string(method.name) + " wants " + std::string(FormRow(form).summary);
    switch (form) {
      case ValueForm::kNone:
        break;
      case ValueForm::kNothing:
        if (!value.Value.empty() && !(method.ReadsField() && IsWholeNumber(value.Value))) {
          found_.Warning(places.value, std::string(method.name) + " reads no value");
        }
        break;
      case ValueForm::kNumber:
        if (!IsWholeNumber(value.Value)) wrong(wants + ", and " + Quoted(value.Value) + " is none");
        break;
      case ValueForm::kReal:
        if (!IsReal(value.Value)) wrong(wants + ", and " + Quoted(value.Value) + " is none");
        break;
      case ValueForm::kText:
        if (value.Value.empty()) wrong(wants + ": any text holds an empty one");
        break;
      case ValueForm::kItems:
        if (method.ReadsField() && items.empty()) wrong(wants + ", and there is none");
        CheckItems(items, item);
        break;
      case ValueForm::kHosts:
        if (items.empty()) wrong(wants + ", and there is none");
        CheckItems(items, item);
        break;
      case ValueForm::kCountedItems:
        if (items.empty() || !IsWholeNumber(items.front())) {
          wrong(wants);
        } else if (value.prepared.itemNumbers.front() < 1) {
          found_.Error(item(0), "with a count below 1 it is always on");
        } else if (static_cast<std::size_t>(value.prepared.itemNumbers.front()) > items.size() - 1) {
          found_.Error(item(0), "it can't hold " + Narrow(items.front()) + " of " + std::to_string(items.size() - 1));
        }
        break;
      case ValueForm::kTagList:
      case ValueForm::kSiteList:
      case ValueForm::kSafeList:
        CheckList(value, form, wants, places);
        break;
      case ValueForm::kRule:
        if (!IsWholeNumber(value.Value)) {
          wrong(wants + ", and " + Quoted(value.Value) + " is no number of one");
        } else {
          CheckReference(value.prepared.number, expression.MethodID, places.value);
        }
        break;
      case ValueForm::kRules:
        for (std::size_t i = 0; i < items.size(); ++i) {
          const bool isMarked = items[i].starts_with(u'=');
          const std::u16string_view digits = std::u16string_view(items[i]).substr(isMarked ? 1 : 0);
          if (!IsWholeNumber(digits)) {
            found_.Error(item(i), wants + ", and " + Quoted(items[i]) + " is no number of one");
            continue;
          }
          const std::int64_t number = std::stoll(Narrow(digits));
          CheckReference(isMarked ? number : std::abs(number), number > 0 ? kEarlierRuleOn : kEarlierRuleOff, item(i));
        }
        break;
      case ValueForm::kRange:
        if (items.size() != 2 || !IsReal(items[0]) || !IsReal(items[1])) {
          wrong(wants);
        } else if (value.prepared.itemReals[0] > value.prepared.itemReals[1] || value.prepared.itemReals[0] > 1.0 ||
                   value.prepared.itemReals[1] < 0.0) {
          wrong("no score lies in this range", "the lower bound stands first; scores lie between 0 and 1");
        }
        break;
      case ValueForm::kStructures:
        if (items.size() < 2 || !IsReal(items[0]) || value.prepared.itemReals[0] == 0.0) {
          wrong(wants);
        } else if (items.size() % 2 == 0) {
          found_.Warning(item(items.size() - 1), "the last structure has no label behind it");
        }
        break;
      case ValueForm::kWordGroups:
        if (std::ranges::count(items, u"|") != 2 || items.back() == u"|") wrong(wants);
        break;
      case ValueForm::kImageSettings:
        if (items.size() != 4 || !IsWholeNumber(items[0]) || !IsWholeNumber(items[1]) || !IsReal(items[2])) wrong(wants);
        break;
    }
  }

  template <class ItemPlace>
  void CheckItems(const std::vector<std::u16string>& items, const ItemPlace& place) {
    std::map<std::u16string_view, std::size_t> seen;
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (!seen.emplace(items[i], i).second) found_.Warning(place(i), Quoted(items[i]) + " stands in this list before");
    }
  }

  void CheckList(const ExpressionValue& value, ValueForm form, const std::string& wants, const ExpressionPlaces& places) {
    const NamedList* const list = IsWholeNumber(value.Value) ? FindNamedList(value.prepared.number) : nullptr;
    const auto isOfForm = [&](const NamedList& one) {
      if (form == ValueForm::kSafeList) return one.number == kSafeListNumber;
      return form == ValueForm::kTagList ? one.tags != nullptr : one.sites != nullptr;
    };
    if (list != nullptr && isOfForm(*list)) return;
    std::vector<std::string> names;
    for (const NamedList& one : kNamedLists) {
      if (isOfForm(one)) names.push_back(std::to_string(one.number) + " (" + std::string(one.name) + ")");
    }
    found_.Error(places.value, wants + ", and " + (list != nullptr ? std::string(list->name) : Quoted(value.Value)) + " is none",
                 Joined(names));
  }

  void CheckReference(std::int64_t number, std::uint32_t method, const Place& place) {
    if (number < 0 || static_cast<std::size_t>(number) >= rules_.size()) {
      found_.Error(place, "there is no rule " + std::to_string(number),
                   "rules are counted from 0; the last is " + std::to_string(rules_.size() - 1));
      return;
    }
    const auto other = static_cast<std::size_t>(number);
    named_[other] = true;
    if (other == at_) {
      found_.Error(place, "a rule can't ask after itself: it has no answer yet");
    } else if (neverOn_[other] && method == kEarlierRuleOn) {
      found_.Error(place, places_[other].name + " never fires");
    } else if (RankOfStage(rules_[other].Rule.Category) && RankOfStage(Rule().Rule.Category) && !HasRunBefore(other, at_)) {
      found_.Error(place, places_[other].name + " runs after this rule, and so never has fired yet",
                   "rules see those of earlier stages, and of their own stage those that stand before them");
    }
  }

  void CheckUse() {
    const Indicator& rule = Rule();
    const bool says = rule.OnWeight != kNoWeight || rule.OffWeight != kNoWeight || rule.Rule.TDPriority > 0;
    if (!says && !named_[at_]) {
      found_.Warning(Places().whole, Places().name + " has no weight and names no brand, and no rule asks after it");
    }
    if (rule.Rule.OperatorID != kAnd) return;
    for (std::size_t i = 0; i < rule.Rule.Expressions.size(); ++i) {
      const IndicatorExpression& expression = rule.Rule.Expressions[i];
      const std::int32_t number = expression.ExpressionValue.prepared.number;
      if (expression.MethodID != kEarlierRuleOn || number < 0 || static_cast<std::size_t>(number) >= at_) continue;
      const Indicator& before = rules_[static_cast<std::size_t>(number)];
      if (!IsMark(before.OnWeight)) continue;
      const std::string& name = places_[static_cast<std::size_t>(number)].name;
      if (before.Rule.Category != rule.Rule.Category && before.OnWeight != 1.0F) {
        found_.Error(Places().expressions[i].value, "the rule never runs: " + name + " is final and ends the work first");
      } else if (rule.OnWeight != kNoWeight) {
        found_.Warning(Places().expressions[i].value, "the weight never counts: " + name + " is final and stands before it");
      }
    }
    for (const IndicatorExpression& expression : rule.Rule.Expressions) {
      if (expression.MethodID != kEarlierRuleOff) continue;
      for (const IndicatorExpression& other : rule.Rule.Expressions) {
        if (other.MethodID == kEarlierRuleOn &&
            other.ExpressionValue.prepared.number == expression.ExpressionValue.prepared.number) {
          found_.Error(Places().whole, Places().name + " asks that a rule have fired and not fired");
        }
      }
    }
  }

  void CheckTwins() {
    std::map<std::string, std::size_t> seen;
    for (at_ = 0; at_ < rules_.size(); ++at_) {
      const IndicatorRule& rule = Rule().Rule;
      std::string key = std::to_string(rule.Category) + ' ' + std::to_string(rule.OperatorID);
      for (const IndicatorExpression& expression : rule.Expressions) {
        key += '\n' + std::to_string(expression.FieldID) + ' ' + std::to_string(expression.MethodID) + ' ' +
               std::to_string(expression.ExpressionValue.ValueType) + ' ' + Narrow(expression.ExpressionValue.Value);
      }
      const auto [first, isNew] = seen.emplace(key, at_);
      if (!isNew) found_.Warning(Places().whole, Places().name + " asks the same as " + places_[first->second].name);
    }
  }

  const std::vector<Indicator>& rules_;
  const std::vector<RulePlaces>& places_;
  Diagnostics& found_;
  std::vector<bool> neverOn_;
  std::vector<bool> named_;  ///< a rule asks after it
  std::size_t at_ = 0;
};

}  // namespace

bool IsWholeNumber(std::u16string_view text) {
  const std::string narrow = Narrow(text);
  std::int32_t number = 0;
  const char* const end = narrow.data() + narrow.size();
  const auto [at, error] = std::from_chars(narrow.data(), end, number);
  return error == std::errc() && at == end;
}

bool IsReal(std::u16string_view text) {
  const std::string narrow = Narrow(text);
  double number = 0;
  const char* const end = narrow.data() + narrow.size();
  const auto [at, error] = std::from_chars(narrow.data(), end, number);
  return error == std::errc() && at == end && std::isfinite(number);
}

void CheckRules(const Indicators& rules, const std::vector<RulePlaces>& places, Diagnostics& found) {
  Check(rules, places, found).Run();
}

}  // namespace zeph
