// SPDX-License-Identifier: Apache-2.0
#include "authoring/RuleSource.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>

#include "DetectionEngine/platform/CodePage.h"
#include "authoring/Lexer.h"
#include "authoring/RuleCheck.h"
#include "authoring/RuleWords.h"

namespace zeph {

namespace {

constexpr std::array<std::string_view, 17> kKeywords = {"list", "rule",     "fact", "say",    "stage", "weight",
                                                        "else", "brand",    "when", "unless", "and",   "or",
                                                        "not",  "operator", "type", "raw",    "from"};
constexpr std::array<std::string_view, 9> kClauses = {"say",  "stage",  "weight", "else", "brand",
                                                      "when", "unless", "operator", "rule"};

bool IsKeyword(std::string_view word) { return std::ranges::find(kKeywords, word) != kKeywords.end(); }

const Field* FieldNamed(std::string_view name) {
  const auto at = std::ranges::find(kFields, name, &Field::name);
  return at == kFields.end() ? nullptr : &*at;
}
const Method* MethodNamed(std::string_view name) {
  const auto at = std::ranges::find(kMethods, name, &Method::name);
  return at == kMethods.end() ? nullptr : &*at;
}
const NamedList* ListNamed(std::string_view name) {
  const auto at = std::ranges::find(kNamedLists, name, &NamedList::name);
  return at == kNamedLists.end() ? nullptr : &*at;
}

struct WordList {
  Token name;
  std::vector<Item> items;
  bool used = false;
};

struct Expression {
  Place whole;
  std::optional<Token> negation;
  std::optional<Token> field;
  std::optional<Token> method;  ///< none: the name alone, of a rule
  Token name;                   ///< of a rule
  ValueShape shape = ValueShape::kNothing;
  Token value;  ///< of all shapes but items
  std::vector<Item> items;
  std::optional<std::uint32_t> type;
  Place typePlace;
  std::optional<IndicatorExpression> raw;
};

struct RuleText {
  Token name;
  bool isFact = false;
  std::u16string sentence;
  Indicator rule;
  RulePlaces places;
  std::vector<Expression> expressions;
};

class Compiler {
 public:
  Compiler(const SourceFile& file, std::span<const SourceFile* const> wordFiles, Diagnostics& found)
      : lexer_(file, found), wordFiles_(wordFiles), found_(found) {}

  NamedRules Run() {
    bool reported = false;
    while (lexer_.Next().kind != TokenKind::kEnd) {
      if (lexer_.TakeIf("list")) {
        TakeList();
      } else if (lexer_.Is("rule") || lexer_.Is("fact")) {
        TakeRule();
      } else {
        const Token wrong = lexer_.Take();
        if (!reported) {
          found_.Error(wrong.place, "a list, a rule or a fact begins here, and \"" + std::string(wrong.text) + "\" begins none",
                       DidYouMean(wrong.text, kClauses));
        }
        reported = true;
        continue;
      }
      reported = false;
    }
    return Resolve();
  }

 private:
  // ---- reading ----

  bool TakeName(Token& name, std::string_view of) {
    if (lexer_.Next().kind != TokenKind::kName || IsKeyword(lexer_.Next().text)) {
      found_.Error(lexer_.Next().place, "the name of " + std::string(of) + " is missing here",
                   IsKeyword(lexer_.Next().text) ? "\"" + std::string(lexer_.Next().text) + "\" is a word of the language" : "");
      return false;
    }
    name = lexer_.Take();
    if (FieldNamed(name.text) != nullptr || MethodNamed(name.text) != nullptr || ListNamed(name.text) != nullptr) {
      found_.Error(name.place, "\"" + std::string(name.text) + "\" is the name of a field, a method or a list of the engine");
    }
    return true;
  }

  void TakeList() {
    WordList list;
    if (!TakeName(list.name, "the list")) return;
    if (lexer_.TakeIf("from")) {
      TakeWordFile(list);
    } else if (lexer_.TakeIf("=")) {
      list.items = lexer_.TakeItems();
    } else {
      found_.Error(lexer_.Next().place, "a list wants \"=\" and its items here, or \"from\" and the name of a file");
      return;
    }
    if (list.items.empty()) found_.Error(list.name.place, "the list " + std::string(list.name.text) + " is empty");
    const auto twin = lists_.find(list.name.text);
    if (twin != lists_.end()) {
      found_.Error(list.name.place, "a list of this name stands in line " + std::to_string(LineOf(twin->second.name.place)));
      return;
    }
    lists_.emplace(list.name.text, std::move(list));
  }

  /// A word a line; blank lines and those that begin with "#" say nothing.
  void TakeWordFile(WordList& list) {
    const Token name = lexer_.Take();
    const auto base = [](const SourceFile* file) {
      return std::string_view(file->name).substr(file->name.find_last_of('/') + 1);
    };
    const auto at = std::ranges::find(wordFiles_, Narrow(name.value), base);
    if (name.kind != TokenKind::kText || at == wordFiles_.end()) {
      std::vector<std::string_view> names;
      for (const SourceFile* const one : wordFiles_) names.push_back(base(one));
      found_.Error(name.place, "no file of words has this name beside the rules", DidYouMean(Narrow(name.value), names));
      return;
    }
    const SourceFile* const file = *at;
    std::string_view rest = file->text;
    while (!rest.empty()) {
      std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(rest.size(), line.size() + 1));
      if (line.ends_with('\r')) line.remove_suffix(1);
      const Place place{file, static_cast<std::size_t>(line.data() - file->text.data()), line.size()};
      if (line.find_first_not_of(" \t") == std::string_view::npos || line.starts_with('#')) continue;
      if (line.find(',') != std::string_view::npos) {
        found_.Error(place, "an item can't hold a comma, which parts items", "one word a line");
      } else {
        list.items.push_back({Widen(line), true, place});
      }
    }
  }

  void TakeRule() {
    RuleText rule;
    const Token head = lexer_.Take();
    rule.isFact = head.text == "fact";
    if (!TakeName(rule.name, rule.isFact ? "the fact" : "the rule")) return;
    rule.places.name = std::string(rule.name.text);
    rule.places.whole = rule.places.onWeight = rule.places.offWeight = rule.places.priority = rule.places.stage =
        rule.places.combination = rule.name.place;
    std::optional<std::uint32_t> combination;  // by its number, which says more than "and" and "or"
    std::set<std::string_view> seen;
    const auto once = [&](const Token& clause) {
      if (!seen.insert(clause.text).second) {
        found_.Error(clause.place, "\"" + std::string(clause.text) + "\" stands in this rule before");
      }
    };
    while (lexer_.Next().kind != TokenKind::kEnd && !lexer_.Is("rule") && !lexer_.Is("fact") && !lexer_.Is("list")) {
      const Token clause = lexer_.Take();
      if (clause.text == "say") {
        once(clause);
        TakeSentence(rule);
      } else if (clause.text == "stage") {
        once(clause);
        TakeStage(rule);
      } else if (clause.text == "weight" || clause.text == "else") {
        once(clause);
        TakeWeight(rule, clause);
      } else if (clause.text == "brand" || clause.text == "operator") {
        once(clause);
        rule.places.priority = clause.text == "brand" ? lexer_.Next().place : rule.places.priority;
        rule.places.combination = clause.text == "operator" ? lexer_.Next().place : rule.places.combination;
        (clause.text == "brand" ? rule.rule.Rule.TDPriority : combination.emplace()) = TakeNumber(clause.text);
      } else if (clause.text == "when" || clause.text == "unless") {
        if (!rule.expressions.empty()) found_.Error(clause.place, "a rule has one condition", "join them with \"and\" or \"or\"");
        TakeCondition(rule, clause);
      } else {
        found_.Error(clause.place, "\"" + std::string(clause.text) + "\" begins no clause of a rule",
                     DidYouMean(clause.text, kClauses));
        SkipToClause();
      }
    }
    if (combination) rule.rule.Rule.OperatorID = *combination;
    const bool hasWeight = rule.rule.OnWeight != kNoWeight || rule.rule.OffWeight != kNoWeight;
    if (rule.isFact && hasWeight) {
      found_.Error(rule.places.onWeight, "a fact has no weight", "call it a rule");
    } else if (!rule.isFact && !hasWeight) {
      found_.Warning(rule.name.place, "the rule has no weight", "call it a fact, or give it a weight");
    }
    rules_.push_back(std::move(rule));
  }

  void SkipToClause() {
    while (lexer_.Next().kind != TokenKind::kEnd && !lexer_.Is("fact") && !lexer_.Is("list") &&
           !std::ranges::any_of(kClauses, [&](std::string_view clause) { return lexer_.Is(clause); })) {
      lexer_.Take();
    }
  }

  void TakeSentence(RuleText& rule) {
    if (lexer_.Next().kind != TokenKind::kText) {
      found_.Error(lexer_.Next().place, "a sentence in quotation marks is missing here");
      return;
    }
    const Token sentence = lexer_.Take();
    rule.sentence = sentence.value;
    constexpr std::array<std::string_view, 3> kPlaces = {"brand", "match", "seen"};
    const std::string text = Narrow(sentence.value);
    for (std::size_t open = text.find('{'); open != std::string::npos; open = text.find('{', open + 1)) {
      const std::string_view rest = std::string_view(text).substr(open + 1);
      const std::string_view place = rest.substr(0, rest.find('}'));
      if (place.size() == rest.size() || std::ranges::find(kPlaces, place) == kPlaces.end()) {
        found_.Error(sentence.place, "there is no evidence \"{" + std::string(place.substr(0, 20)) + "}\"",
                     "places for evidence are {brand}, {match} and {seen}");
      }
    }
  }

  void TakeStage(RuleText& rule) {
    const Token stage = lexer_.Take();
    rule.places.stage = stage.place;
    std::vector<std::string_view> names;
    for (const StageRow& row : Stages()) {
      names.push_back(row.name);
      if (row.name == stage.text) {
        rule.rule.Rule.Category = row.number;
        return;
      }
    }
    std::uint32_t number = 0;
    if (stage.kind == TokenKind::kNumber && ReadWhole(stage.text, number)) {
      rule.rule.Rule.Category = number;
      return;
    }
    std::string help = DidYouMean(stage.text, names);
    if (help.empty()) {
      for (const std::string_view name : names) help += (help.empty() ? "stages are " : ", ") + std::string(name);
    }
    found_.Error(stage.place, "no stage is named \"" + std::string(stage.text) + "\"", help);
    rule.rule.Rule.Category = Stages().front().number;  // so that nothing more is said of it
  }

  void TakeWeight(RuleText& rule, const Token& clause) {
    const bool isOn = clause.text == "weight";
    float& weight = isOn ? rule.rule.OnWeight : rule.rule.OffWeight;
    (isOn ? rule.places.onWeight : rule.places.offWeight) = lexer_.Next().place;
    const Token token = lexer_.Take();
    std::vector<std::string_view> names;
    for (const WeightMark& mark : kWeightMarks) {
      names.push_back(mark.name);
      if (mark.name == token.text) {
        weight = mark.weight;
        return;
      }
    }
    if (token.kind == TokenKind::kNumber) {
      double number = 0;
      std::from_chars(token.text.data(), token.text.data() + token.text.size(), number);
      weight = static_cast<float>(number);
      return;
    }
    std::string help = DidYouMean(token.text, names);
    if (help.empty()) help = "a number between 0 and 1, or trustworthy, spoofing, unclassified, script-attack or none";
    found_.Error(token.place, "\"" + std::string(token.text) + "\" is no weight", help);
    weight = 0.5F;  // so that nothing more is said of it
  }

  static bool ReadWhole(std::string_view text, std::uint32_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
  }

  std::uint32_t TakeNumber(std::string_view of) {
    std::uint32_t number = 0;
    if (lexer_.Next().kind != TokenKind::kNumber || !ReadWhole(lexer_.Next().text, number)) {
      found_.Error(lexer_.Next().place, "a whole number is missing behind \"" + std::string(of) + "\"");
      if (lexer_.Next().kind != TokenKind::kNumber) return 0;
    }
    lexer_.Take();
    return number;
  }

  void TakeCondition(RuleText& rule, const Token& clause) {
    std::string_view joint;
    if (clause.text == "unless") rule.rule.Rule.OperatorID = kOperatorNot;
    while (true) {
      std::optional<Expression> expression = TakeExpression(rule);
      if (!expression) return SkipToClause();
      rule.expressions.push_back(*std::move(expression));
      if (!lexer_.Is("and") && !lexer_.Is("or")) break;
      const Token next = lexer_.Take();
      if (!joint.empty() && next.text != joint) {
        found_.Error(next.place, "\"and\" and \"or\" don't stand in one condition", "make a fact of one part, and ask after it by name");
      }
      joint = next.text;
      if (clause.text == "when") rule.rule.Rule.OperatorID = joint == "or" ? kOperatorOr : kOperatorAnd;
    }
  }

  std::optional<Expression> TakeExpression(const RuleText& rule) {
    Expression expression;
    const std::size_t begin = lexer_.Next().place.offset;
    Place last = lexer_.Next().place;
    const auto take = [&] {
      last = lexer_.Next().place;
      return lexer_.Take();
    };
    if (lexer_.Is("raw")) {
      take();
      IndicatorExpression raw;
      raw.FieldID = TakeNumber("raw");
      raw.MethodID = TakeNumber("raw");
      raw.ExpressionValue.ValueType = TakeNumber("raw");
      if (lexer_.Next().kind == TokenKind::kText) raw.ExpressionValue.Value = take().value;
      expression.raw = std::move(raw);
    } else {
      if (lexer_.Is("not")) expression.negation = take();
      if (lexer_.Next().kind != TokenKind::kName || IsKeyword(lexer_.Next().text)) {
        found_.Error(lexer_.Next().place, "a condition is missing here: a rule's name, or a field, a method and a value");
        return std::nullopt;
      }
      expression.name = take();
      if (FieldNamed(expression.name.text) != nullptr) {
        expression.field = expression.name;
      } else if (MethodNamed(expression.name.text) != nullptr) {
        expression.method = expression.name;
      } else if (lexer_.Next().kind == TokenKind::kName && MethodNamed(lexer_.Next().text) != nullptr) {
        std::vector<std::string_view> fields;
        for (const Field& field : kFields) fields.push_back(field.name);
        found_.Error(expression.name.place, "no field is named \"" + std::string(expression.name.text) + "\"",
                     DidYouMean(expression.name.text, fields));
        return std::nullopt;
      }
      if (expression.field) {
        const Token& next = lexer_.Next();
        if (next.kind != TokenKind::kName || MethodNamed(next.text) == nullptr) {
          std::vector<std::string_view> methods;
          for (const Method& method : kMethods) methods.push_back(method.name);
          const bool isNamed = next.kind == TokenKind::kName && !IsKeyword(next.text);
          found_.Error(next.place,
                       isNamed ? "no method is named \"" + std::string(next.text) + "\""
                               : "the method that tests " + std::string(expression.field->text) + " is missing here",
                       isNamed ? DidYouMean(next.text, methods) : "");
          return std::nullopt;
        }
        expression.method = take();
      }
      if (expression.method) TakeValue(expression, last);
      if (expression.negation && expression.method) {
        found_.Error(expression.negation->place, "\"not\" stands before the name of a rule only",
                     "write \"unless\" for \"when\", or make a fact of it and ask after that");
      }
    }
    if (lexer_.Is("type")) {
      take();
      expression.typePlace = lexer_.Next().place;
      last = lexer_.Next().place;
      expression.type = TakeNumber("type");
    }
    expression.whole = rule.name.place;
    expression.whole.offset = begin;
    expression.whole.length = last.offset + last.length - begin;
    return expression;
  }

  void TakeValue(Expression& expression, Place& last) {
    const Token& next = lexer_.Next();
    expression.value.place = expression.method->place;
    if (next.kind == TokenKind::kText || next.kind == TokenKind::kNumber) {
      last = next.place;
      expression.shape = next.kind == TokenKind::kText ? ValueShape::kText : ValueShape::kNumber;
      expression.value = lexer_.Take();
      if (expression.shape == ValueShape::kNumber) expression.value.value = Widen(expression.value.text);
    } else if (lexer_.Is("[")) {
      expression.value.place = next.place;
      expression.shape = ValueShape::kItems;
      expression.items = lexer_.TakeItems();
      if (!expression.items.empty()) last = expression.items.back().place;
    } else if (next.kind == TokenKind::kName && !IsKeyword(next.text)) {
      last = next.place;
      expression.value = lexer_.Take();
      // A list of the source or of the engine, or a rule; it is known which when all has been read.
      expression.shape = ListNamed(expression.value.text) != nullptr ? ValueShape::kList : ValueShape::kRule;
    }
  }

  // ---- resolving ----

  NamedRules Resolve() {
    for (std::size_t i = 0; i < rules_.size(); ++i) {
      const auto [twin, isNew] = numbers_.emplace(rules_[i].name.text, i);
      if (!isNew) {
        found_.Error(rules_[i].name.place, "a rule of this name stands in line " +
                                               std::to_string(LineOf(rules_[twin->second].name.place)));
      } else if (lists_.contains(rules_[i].name.text)) {
        found_.Error(rules_[i].name.place, "a list has this name too");
      }
      ruleNames_.push_back(rules_[i].name.text);
    }
    NamedRules named;
    std::vector<RulePlaces> places;
    bool whole = found_.Errors() == 0;
    for (RuleText& rule : rules_) {
      if (rule.expressions.empty() && rule.rule.Rule.OperatorID != kOperatorNot) {
        found_.Warning(rule.name.place, "the rule has no condition");
      }
      for (const Expression& expression : rule.expressions) {
        ExpressionPlaces at;
        rule.rule.Rule.Expressions.push_back(ResolveExpression(expression, at));
        rule.places.expressions.push_back(std::move(at));
      }
      named.names.emplace_back(rule.name.text);
      named.sentences.push_back(Narrow(rule.sentence));
      named.rules.Entries.push_back(std::move(rule.rule));
      places.push_back(std::move(rule.places));
    }
    for (const auto& [name, list] : lists_) {
      if (!list.used) found_.Warning(list.name.place, "no rule uses the list " + std::string(name));
    }
    named.rules.Prepare();
    whole = whole && found_.Errors() == 0;
    if (whole) CheckRules(named.rules, places, found_);  // else it would report what comes of the errors
    return named;
  }

  /// What is known of a rule that a name stands for: its number, or why there is none.
  std::optional<std::size_t> NumberOf(std::string_view name, const Place& place) {
    const auto at = numbers_.find(name);
    if (at != numbers_.end()) return at->second;
    found_.Error(place, "no rule is named \"" + std::string(name) + "\"", DidYouMean(name, AllNames()));
    return std::nullopt;
  }

  std::vector<std::string_view> AllNames() const {
    std::vector<std::string_view> names = ruleNames_;
    for (const auto& [name, list] : lists_) names.push_back(name);
    for (const Field& field : kFields) names.push_back(field.name);
    for (const Method& method : kMethods) names.push_back(method.name);
    for (const NamedList& list : kNamedLists) names.push_back(list.name);
    return names;
  }

  IndicatorExpression ResolveExpression(const Expression& expression, ExpressionPlaces& at) {
    at.whole = at.field = at.method = at.type = at.value = expression.whole;
    if (expression.raw) return *expression.raw;
    IndicatorExpression record;
    ExpressionValue& value = record.ExpressionValue;
    if (!expression.method) {
      at.value = expression.name.place;
      record.MethodID = expression.negation ? kEarlierRuleOff : kEarlierRuleOn;
      value.ValueType = expression.type.value_or(FormRow(ValueForm::kRule).type);
      if (lists_.contains(expression.name.text)) {
        found_.Error(expression.name.place, "a list is no condition", "put a field and a method before it");
      } else if (const auto number = NumberOf(expression.name.text, expression.name.place)) {
        value.Value = Widen(std::to_string(*number));
      }
      return record;
    }
    const Method& method = *MethodNamed(expression.method->text);
    record.MethodID = method.number;
    at.method = expression.method->place;
    at.value = expression.value.place;
    FieldKind kind = FieldKind::kNone;
    if (expression.field) {
      const Field& field = *FieldNamed(expression.field->text);
      record.FieldID = field.number;
      at.field = expression.field->place;
      if (method.ReadsField()) {
        kind = field.kind;
      } else {
        found_.Warning(expression.field->place, std::string(method.name) + " looks at no field", "leave the field out");
      }
    } else if (method.ReadsField()) {
      found_.Error(expression.method->place, std::string(method.name) + " tests a field, which is missing before it");
      return record;
    }
    ValueShape shape = expression.shape;
    const std::vector<Item>* items = &expression.items;
    if (shape == ValueShape::kRule) {
      const auto list = lists_.find(expression.value.text);
      if (list != lists_.end()) {
        list->second.used = true;
        items = &list->second.items;
        shape = ValueShape::kItems;
      }
    }
    const Reading* const reading = FindReading(method, kind, shape);
    if (reading == nullptr) {
      NoReading(expression, method, kind);
      return record;
    }
    value.ValueType = expression.type.value_or(FormRow(reading->value).type);
    if (expression.type) at.type = expression.typePlace;
    Fill(value, expression, shape, *items, *reading, at);
    return record;
  }

  void Fill(ExpressionValue& value, const Expression& expression, ValueShape shape, const std::vector<Item>& items,
            const Reading& reading, ExpressionPlaces& at) {
    switch (shape) {
      case ValueShape::kNothing:
        return;
      case ValueShape::kNumber:
      case ValueShape::kText:
        value.Value = expression.value.value;
        return;
      case ValueShape::kList: {
        const NamedList& list = *ListNamed(expression.value.text);
        value.Value = Widen(std::to_string(list.number));
        return;
      }
      case ValueShape::kRule:
        if (const auto number = NumberOf(expression.value.text, expression.value.place)) {
          value.Value = Widen(std::to_string(*number));
        }
        return;
      case ValueShape::kItems:
        for (const Item& item : items) {
          if (!value.Value.empty()) value.Value += u',';
          value.Value += reading.value == ValueForm::kRules && !item.quoted ? RuleItem(item) : item.text;
          at.items.push_back(item.place);
        }
        return;
    }
  }

  /// "name", "not name" and "=name" as the methods read them.
  std::u16string RuleItem(const Item& item) {
    std::string text = Narrow(item.text);
    if (IsNumber(text)) return item.text;
    const bool isMarked = text.starts_with('=');
    const bool isNot = text.starts_with("not ");
    std::string_view name = std::string_view(text).substr(isMarked ? 1 : isNot ? 4 : 0);
    while (name.starts_with(' ')) name.remove_prefix(1);
    const auto number = NumberOf(name, item.place);
    if (!number) return {};
    if (isMarked) return u"=" + Widen(std::to_string(*number));
    if (!isNot && *number == 0) {
      found_.Error(item.place, "the first rule of all can't be asked for here", "move another before it");
    }
    return Widen((isNot && *number != 0 ? "-" : "") + std::to_string(*number));
  }

  void NoReading(const Expression& expression, const Method& method, FieldKind kind) {
    std::string kinds;
    std::string values;
    bool takesKind = kind == FieldKind::kNone;
    for (const Reading& reading : method.readings) {
      if (reading.value == ValueForm::kNone) continue;
      for (const FieldKind one : kFieldKinds) {
        if ((reading.fields & Only(one)) != 0 && kinds.find(KindName(one)) == std::string::npos) {
          kinds += (kinds.empty() ? "a " : " or a ") + std::string(KindName(one));
        }
      }
      const bool takes = kind == FieldKind::kNone || (reading.fields & Only(kind)) != 0;
      takesKind = takesKind || takes;
      if (takes) values += (values.empty() ? "" : " or ") + std::string(FormRow(reading.value).summary);
    }
    if (!takesKind) {
      std::string others;
      for (const Method& other : kMethods) {
        if (std::ranges::any_of(other.readings, [&](const Reading& r) { return (r.fields & Only(kind)) != 0; })) {
          others += (others.empty() ? "" : ", ") + std::string(other.name);
        }
      }
      found_.Error(expression.field->place,
                   std::string(method.name) + " tests " + kinds + ", and " + std::string(expression.field->text) + " is a " +
                       std::string(KindName(kind)),
                   others.empty() ? "" : "a " + std::string(KindName(kind)) + " is tested by " + others);
      return;
    }
    if (expression.shape == ValueShape::kRule && !numbers_.contains(expression.value.text)) {
      found_.Error(expression.value.place, "no list is named \"" + std::string(expression.value.text) + "\"",
                   DidYouMean(expression.value.text, AllNames()));
      return;
    }
    found_.Error(expression.shape == ValueShape::kNothing ? expression.method->place : expression.value.place,
                 std::string(method.name) + " wants " + values + (expression.shape == ValueShape::kNothing ? " behind it" : ""));
  }

  Lexer lexer_;
  std::span<const SourceFile* const> wordFiles_;
  Diagnostics& found_;
  std::map<std::string_view, WordList> lists_;
  std::vector<RuleText> rules_;
  std::map<std::string_view, std::size_t> numbers_;
  std::vector<std::string_view> ruleNames_;
};

}  // namespace

bool IsRuleName(std::string_view name) {
  return IsName(name) && !IsKeyword(name) && FieldNamed(name) == nullptr && MethodNamed(name) == nullptr &&
         ListNamed(name) == nullptr;
}

NamedRules CompileRules(const SourceFile& file, std::span<const SourceFile* const> wordFiles, Diagnostics& found) {
  return Compiler(file, wordFiles, found).Run();
}

}  // namespace zeph
