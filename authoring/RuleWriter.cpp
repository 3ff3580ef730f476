// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <set>

#include "DetectionEngine/platform/CodePage.h"
#include "authoring/Lexer.h"
#include "authoring/RuleCheck.h"
#include "authoring/RuleSource.h"
#include "authoring/RuleWords.h"

namespace zeph {

namespace {

/// A text of names alone is a number's; this one gives the number back as it was written.
std::u16string Canonical(std::int64_t number) { return Widen(std::to_string(number)); }

std::string WeightText(float weight) {
  for (const WeightMark& mark : kWeightMarks) {
    if (mark.weight == weight && !(weight == 0.0F && std::signbit(weight))) return std::string(mark.name);
  }
  // The shortest digits that come back through a number of twice the width.
  char text[64];
  for (int digits = 6; digits <= 17; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, static_cast<double>(weight));
    double back = 0;
    std::sscanf(text, "%lf", &back);
    if (static_cast<float>(back) != weight || std::string_view(text).find('e') != std::string_view::npos) continue;
    return text;
  }
  std::snprintf(text, sizeof text, "%.*f", 50, static_cast<double>(weight));
  return text;
}

class Writer {
 public:
  explicit Writer(const NamedRules& rules) : rules_(rules) {
    std::set<std::string> taken;
    for (std::size_t i = 0; i < rules.rules.Entries.size(); ++i) {
      std::string name = i < rules.names.size() ? rules.names[i] : std::string();
      if (!IsRuleName(name) || !taken.insert(name).second) name = (IsFact(i) ? "fact-" : "rule-") + std::to_string(i);
      taken.insert(name);
      names_.push_back(std::move(name));
    }
  }

  std::string Run() {
    for (at_ = 0; at_ < names_.size(); ++at_) WriteRule();
    return std::move(out_);
  }

 private:
  [[nodiscard]] bool IsFact(std::size_t i) const {
    const Indicator& rule = rules_.rules.Entries[i];
    return rule.OnWeight == kNoWeight && rule.OffWeight == kNoWeight;
  }

  void Line(std::string_view clause, std::string_view rest) {
    out_ += "  " + std::string(clause) + std::string(clause.size() < 6 ? 6 - clause.size() : 0, ' ') + ' ' +
            std::string(rest) + '\n';
  }

  void WriteRule() {
    const Indicator& rule = rules_.rules.Entries[at_];
    if (at_ > 0) out_ += '\n';
    out_ += (IsFact(at_) ? "fact " : "rule ") + names_[at_] + '\n';
    if (at_ < rules_.sentences.size() && !rules_.sentences[at_].empty()) Line("say", Quote(Widen(rules_.sentences[at_])));
    if (rule.Rule.Category != kCategoryNever) {
      std::string stage = std::to_string(rule.Rule.Category);
      for (const StageRow& row : Stages()) {
        if (row.number == rule.Rule.Category) stage = row.name;
      }
      Line("stage", stage);
    }
    if (rule.OnWeight != kNoWeight) Line("weight", WeightText(rule.OnWeight));
    if (rule.OffWeight != kNoWeight) Line("else", WeightText(rule.OffWeight));
    if (rule.Rule.TDPriority != 0) Line("brand", std::to_string(rule.Rule.TDPriority));
    const auto& expressions = rule.Rule.Expressions;
    const bool isUnless = rule.Rule.OperatorID == kOperatorNot && !expressions.empty();
    const bool isOr = rule.Rule.OperatorID == kOperatorOr && expressions.size() > 1;
    if (rule.Rule.OperatorID != kOperatorAnd && !isUnless && !isOr) {
      Line("operator", std::to_string(rule.Rule.OperatorID));
    }
    for (std::size_t i = 0; i < expressions.size(); ++i) {
      Line(i == 0 ? (isUnless ? "unless" : "when") : isOr ? "or" : "and", ExpressionText(expressions[i]));
    }
  }

  [[nodiscard]] std::string RuleName(std::u16string_view number) const {
    if (!IsWholeNumber(number)) return {};
    const std::int64_t index = std::stoll(Narrow(number));
    if (index < 0 || static_cast<std::size_t>(index) >= names_.size() || Canonical(index) != number) return {};
    return names_[static_cast<std::size_t>(index)];
  }

  [[nodiscard]] std::string ExpressionText(const IndicatorExpression& expression) const {
    const Method* const method = FindMethod(expression.MethodID);
    const Field* const field = FindField(expression.FieldID);
    const ExpressionValue& value = expression.ExpressionValue;
    const bool fits = method != nullptr && (field != nullptr || expression.FieldID == 0);
    const FieldKind kind = fits && method->ReadsField() ? field->kind : FieldKind::kNone;
    if (fits && expression.FieldID == 0 && method->readings.front().value == ValueForm::kRule && value.ValueType == FormRow(ValueForm::kRule).type) {
      const std::string name = RuleName(value.Value);
      if (!name.empty()) return (method->number == kEarlierRuleOff ? "not " : "") + name;
    }
    std::string text;
    const Reading* const reading = fits ? WriteValue(*method, kind, value, text) : nullptr;
    if (reading == nullptr) {
      return "raw " + std::to_string(expression.FieldID) + ' ' + std::to_string(expression.MethodID) + ' ' +
             std::to_string(value.ValueType) + ' ' + Quote(value.Value);
    }
    std::string words = method->ReadsField() || expression.FieldID != 0 ? std::string(field->name) + ' ' : "";
    words += method->name;
    if (!text.empty()) words += ' ' + text;
    if (FormRow(reading->value).type != value.ValueType) words += " type " + std::to_string(value.ValueType);
    return words;
  }

  /// The value in the shape that says most and comes back as it is; null when it comes back in none.
  const Reading* WriteValue(const Method& method, FieldKind kind, const ExpressionValue& value, std::string& text) const {
    if (value.Value.empty()) {
      if (const Reading* const reading = FindReading(method, kind, ValueShape::kNothing)) return reading;
    }
    const auto wants = [&](const Reading* reading) {
      return reading != nullptr && (!reading->bindsType || FormRow(reading->value).type == value.ValueType);
    };
    if (const Reading* const reading = FindReading(method, kind, ValueShape::kList); wants(reading)) {
      for (const NamedList& list : kNamedLists) {
        if (IsOfForm(list, reading->value) && Canonical(list.number) == value.Value) {
          text = list.name;
          return reading;
        }
      }
    }
    if (const Reading* const reading = FindReading(method, kind, ValueShape::kItems); wants(reading)) {
      if (WriteItems(value, *reading, text)) return reading;
    }
    const std::string narrow = Narrow(value.Value);
    if (IsNumber(narrow)) {
      text = narrow;
      return FindReading(method, kind, ValueShape::kNumber);
    }
    text = Quote(value.Value);
    return FindReading(method, kind, ValueShape::kText);
  }

  bool WriteItems(const ExpressionValue& value, const Reading& reading, std::string& text) const {
    std::vector<std::string> items;
    std::u16string joined;
    for (std::size_t begin = 0; begin <= value.Value.size();) {
      const std::size_t end = std::min(value.Value.find(u',', begin), value.Value.size());
      const std::u16string item = value.Value.substr(begin, end - begin);
      if (item.empty() && !value.Value.empty()) return false;
      if (!item.empty()) items.push_back(reading.value == ValueForm::kRules ? RuleItem(item) : ItemText(item));
      begin = end + 1;
    }
    text = ItemsInBrackets(items, "           ");
    return true;
  }

  [[nodiscard]] std::string RuleItem(const std::u16string& item) const {
    const std::u16string_view view = item;
    if (view.starts_with(u'=') && !RuleName(view.substr(1)).empty()) return "=" + RuleName(view.substr(1));
    if (item == u"0") return "not " + RuleName(item);
    if (view.starts_with(u'-') && item != u"-0" && !RuleName(view.substr(1)).empty()) return "not " + RuleName(view.substr(1));
    return RuleName(item).empty() ? Quote(item) : RuleName(item);
  }

  const NamedRules& rules_;
  std::vector<std::string> names_;
  std::size_t at_ = 0;
  std::string out_;
};

}  // namespace

std::string DecompileRules(const NamedRules& rules) { return Writer(rules).Run(); }

}  // namespace zeph
