// SPDX-License-Identifier: Apache-2.0
#include "documents/ScriptWrites.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "documents/DataUrl.h"
#include "documents/html/HtmlText.h"

namespace zeph {

namespace {

/// Texts in texts, brackets in brackets: no honest script goes deeper.
constexpr int kMostDepth = 24;
constexpr int kMostEval = 3;
constexpr std::size_t kRoomOfVariable = 64;
constexpr std::size_t kMostWrites = 256;  ///< of one script

enum class TokenKind : std::uint8_t { kEnd, kName, kText, kTemplate, kNumber, kSign, kPattern };

/// A slice of the script: of a text and a template, without its quotes.
struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::u16string_view text;
  [[nodiscard]] bool Is(char16_t sign) const noexcept {
    return kind == TokenKind::kSign && text.size() == 1 && text[0] == sign;
  }
  [[nodiscard]] bool IsName(std::u16string_view name) const noexcept { return kind == TokenKind::kName && text == name; }
};

constexpr bool IsDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }
constexpr bool IsNamePart(char16_t c) noexcept {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || IsDigit(c) || c == u'_' || c == u'$' || c >= 0x00AA;
}
constexpr bool IsSpace(char16_t c) noexcept { return c <= u' ' || c == 0x00A0 || c == 0xFEFF || c == 0x2028 || c == 0x2029; }
constexpr bool EndsLine(char16_t c) noexcept { return c == u'\n' || c == u'\r'; }

/// Script to tokens. A copy goes on from the same place.
class Lexer {
 public:
  /// patternSteps: shared by all copies, so that looking for the ends of patterns in vain costs no more than so much.
  Lexer(std::u16string_view script, std::size_t& patternSteps) noexcept
      : script_(script), patternSteps_(&patternSteps) {}

  Token Next() noexcept {
    SkipBlanks();
    if (at_ >= script_.size()) return last_ = {};
    const char16_t c = script_[at_];
    if (c == u'"' || c == u'\'') return last_ = Text(c);
    if (c == u'`') return last_ = Template();
    const std::size_t begin = at_;
    if (IsDigit(c)) {
      while (at_ < script_.size() && (IsNamePart(script_[at_]) || script_[at_] == u'.')) ++at_;
      return last_ = {TokenKind::kNumber, script_.substr(begin, at_ - begin)};
    }
    if (IsNamePart(c)) {
      while (at_ < script_.size() && IsNamePart(script_[at_])) ++at_;
      return last_ = {TokenKind::kName, script_.substr(begin, at_ - begin)};
    }
    if (c == u'/' && MayBeginPattern() && Pattern()) {
      return last_ = {TokenKind::kPattern, script_.substr(begin, at_ - begin)};
    }
    ++at_;
    // Signs that begin with "=" or end in it, and "++", are one.
    while (at_ < script_.size() && (script_[at_] == u'=' || (script_[at_] == u'>' && c == u'=') ||
                                    (script_[at_] == u'+' && c == u'+')) &&
           std::u16string_view(u"=!<>+-*/%&|^?").find(c) != std::u16string_view::npos && at_ - begin < 3) {
      ++at_;
    }
    return last_ = {TokenKind::kSign, script_.substr(begin, at_ - begin)};
  }

 private:
  void SkipLine() noexcept {
    while (at_ < script_.size() && !EndsLine(script_[at_])) ++at_;
  }
  void SkipBlanks() noexcept {
    while (at_ < script_.size()) {
      const std::u16string_view rest = script_.substr(at_, 4);
      if (IsSpace(rest[0])) {
        ++at_;
      } else if (rest.starts_with(u"//") || rest == u"<!--") {
        SkipLine();
      } else if (rest.starts_with(u"/*")) {
        const std::size_t end = script_.find(u"*/", at_ + 2);
        at_ = end == std::u16string_view::npos ? script_.size() : end + 2;
      } else {
        return;
      }
    }
  }
  Token Text(char16_t quote) noexcept {
    const std::size_t begin = ++at_;
    while (at_ < script_.size() && script_[at_] != quote) {
      // One that isn't ended on its line is no text; the next line is read afresh.
      if (EndsLine(script_[at_])) return {TokenKind::kText, script_.substr(begin, at_ - begin)};
      at_ += script_[at_] == u'\\' ? 2U : 1U;
    }
    at_ = std::min(at_, script_.size());
    const Token text{TokenKind::kText, script_.substr(begin, at_ - begin)};
    if (at_ < script_.size()) ++at_;
    return text;
  }
  Token Template() noexcept {
    const std::size_t begin = ++at_;
    while (at_ < script_.size() && script_[at_] != u'`') at_ += script_[at_] == u'\\' ? 2U : 1U;
    at_ = std::min(at_, script_.size());
    const Token text{TokenKind::kTemplate, script_.substr(begin, at_ - begin)};
    if (at_ < script_.size()) ++at_;
    return text;
  }
  /// "/" divides behind a value, and begins a pattern elsewhere.
  [[nodiscard]] bool MayBeginPattern() const noexcept {
    switch (last_.kind) {
      case TokenKind::kName:
        return last_.text == u"return" || last_.text == u"typeof" || last_.text == u"case" || last_.text == u"in";
      case TokenKind::kText:
      case TokenKind::kTemplate:
      case TokenKind::kNumber:
      case TokenKind::kPattern:
        return false;
      case TokenKind::kSign:
        return !last_.Is(u')') && !last_.Is(u']') && !last_.Is(u'}');
      case TokenKind::kEnd:
        return true;
    }
    return true;
  }
  /// False, and nothing is passed, when no pattern ends on this line.
  bool Pattern() noexcept {
    bool inClass = false;
    for (std::size_t i = at_ + 1; i < script_.size() && !EndsLine(script_[i]) && *patternSteps_ > 0; ++i) {
      --*patternSteps_;
      const char16_t c = script_[i];
      if (c == u'\\') {
        ++i;
      } else if (c == u'[') {
        inClass = true;
      } else if (c == u']') {
        inClass = false;
      } else if (c == u'/' && !inClass) {
        at_ = i + 1;
        while (at_ < script_.size() && IsNamePart(script_[at_])) ++at_;
        return true;
      }
    }
    return false;
  }

  std::u16string_view script_;
  std::size_t* patternSteps_;
  std::size_t at_ = 0;
  Token last_;
};

void AppendPoint(std::u16string& text, char32_t point) {
  if (point > 0x10FFFF) point = 0xFFFD;
  if (point < 0x10000) {
    text += static_cast<char16_t>(point);
  } else {
    text += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
    text += static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF));
  }
}

/// So many hexadecimal digits at a place; nothing when they aren't there.
std::optional<char32_t> HexAt(std::u16string_view text, std::size_t at, std::size_t digits) noexcept {
  if (at + digits > text.size()) return std::nullopt;
  char32_t value = 0;
  for (std::size_t i = at; i < at + digits; ++i) {
    const int digit = HexDigit(text[i]);
    if (digit < 0) return std::nullopt;
    value = value * 16 + static_cast<char32_t>(digit);
  }
  return value;
}

/// Undoes the escapes of a text; of a template it leaves out what is to be put in.
std::u16string Unquoted(std::u16string_view raw, bool isTemplate) {
  std::u16string text;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (isTemplate && raw[i] == u'$' && i + 1 < raw.size() && raw[i + 1] == u'{') {
      int open = 0;
      for (++i; i < raw.size(); ++i) {
        if (raw[i] == u'{') ++open;
        if (raw[i] == u'}' && --open == 0) break;
      }
      continue;
    }
    if (raw[i] != u'\\' || i + 1 == raw.size()) {
      text += raw[i];
      continue;
    }
    const char16_t c = raw[++i];
    switch (c) {
      case u'n':
        text += u'\n';
        break;
      case u't':
        text += u'\t';
        break;
      case u'r':
        text += u'\r';
        break;
      case u'b':
      case u'f':
      case u'v':
        text += u' ';
        break;
      case u'\n':
        break;
      case u'x':
        if (const auto point = HexAt(raw, i + 1, 2)) {
          text += static_cast<char16_t>(*point);
          i += 2;
        }
        break;
      case u'u':
        if (const auto point = HexAt(raw, i + 1, 4)) {
          text += static_cast<char16_t>(*point);
          i += 4;
        } else if (i + 1 < raw.size() && raw[i + 1] == u'{') {
          char32_t value = 0;
          for (i += 2; i < raw.size() && HexDigit(raw[i]) >= 0; ++i) {
            value = std::min<char32_t>(value * 16 + static_cast<char32_t>(HexDigit(raw[i])), 0x110000);
          }
          AppendPoint(text, value);
          if (i == raw.size() || raw[i] != u'}') --i;
        }
        break;
      default:
        if (c >= u'0' && c <= u'7') {
          unsigned value = 0;
          std::size_t digits = 0;
          for (; digits < 3 && i + digits < raw.size() && raw[i + digits] >= u'0' && raw[i + digits] <= u'7' &&
                 value * 8 + (raw[i + digits] - u'0') < 256;
               ++digits) {
            value = value * 8 + (raw[i + digits] - u'0');
          }
          i += digits - 1;
          text += static_cast<char16_t>(value);
        } else {
          text += c;
        }
    }
  }
  return text;
}

std::u16string Atob(std::u16string_view text) {
  std::u16string out;
  for (const char c : DecodeBase64(text, text.size())) out += static_cast<char16_t>(static_cast<unsigned char>(c));
  return out;
}

/// %XX and %uXXXX, each a character.
std::u16string Unescaped(std::u16string_view text) {
  std::u16string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool wide = text[i] == u'%' && i + 1 < text.size() && text[i + 1] == u'u';
    const auto point = text[i] != u'%' ? std::nullopt : wide ? HexAt(text, i + 2, 4) : HexAt(text, i + 1, 2);
    out += point ? static_cast<char16_t>(*point) : text[i];
    if (point) i += wide ? 5 : 2;
  }
  return out;
}

/// %XX, which are bytes of UTF-8.
std::u16string UriDecoded(std::u16string_view text) {
  std::u16string out;
  for (std::size_t i = 0; i < text.size();) {
    std::string bytes;
    for (; i < text.size() && text[i] == u'%'; i += 3) {
      const auto byte = HexAt(text, i + 1, 2);
      if (!byte) break;
      bytes += static_cast<char>(*byte);
    }
    out += Widen(bytes);
    if (i < text.size()) out += text[i++];
  }
  return out;
}

std::u16string Escaped(std::u16string_view text) {
  constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
  std::u16string out;
  for (const char16_t c : text) {
    if (c < 0x80 && IsNamePart(c) && c != u'$') {
      out += c;
      continue;
    }
    out += c < 0x100 ? u"%" : u"%u";
    for (int shift = c < 0x100 ? 4 : 12; shift >= 0; shift -= 4) out += kDigits[c >> shift & 15];
  }
  return out;
}

using Decode = std::u16string (*)(std::u16string_view);
struct Decoder {
  std::u16string_view name;
  Decode decode;
};
constexpr std::array kDecoders = {
    Decoder{u"atob", Atob},           Decoder{u"unescape", Unescaped}, Decoder{u"decodeURIComponent", UriDecoded},
    Decoder{u"decodeURI", UriDecoded}, Decoder{u"escape", Escaped},
};

std::optional<char32_t> NumberOf(std::u16string_view text) noexcept {
  char32_t value = 0;
  const bool isHex = text.size() > 2 && text[0] == u'0' && (text[1] | 32) == u'x';
  for (std::size_t i = isHex ? 2 : 0; i < text.size(); ++i) {
    const int digit = isHex || IsDigit(text[i]) ? HexDigit(text[i]) : -1;
    if (digit < 0) return std::nullopt;
    value = std::min<char32_t>(value * (isHex ? 16U : 10U) + static_cast<char32_t>(digit), 0x110000);
  }
  return value;
}

/// What is known of an expression's value.
struct Value {
  bool isKnown = false;              ///< some of its text is
  std::u16string text;
  std::vector<std::u16string> items;  ///< of a list
  [[nodiscard]] std::u16string Whole(std::u16string_view between = {}) const {
    std::u16string whole = text;
    for (std::size_t i = 0; i < items.size(); ++i) whole.append(i == 0 ? u"" : between).append(items[i]);
    return whole;
  }
};

/// What is done with an argument of a call.
enum class Use : std::uint8_t { kMarkup, kAddress, kScript };
struct Call {
  std::u16string_view name;
  std::string_view by;
  std::size_t argument;
  Use use;
  bool isMethod;  ///< stands behind a "."
};
constexpr std::size_t kLast = 9;
constexpr std::array kCalls = {
    Call{u"insertAdjacentHTML", "insertAdjacentHTML", 1, Use::kMarkup, true},
    Call{u"html", "html()", 0, Use::kMarkup, true},
    Call{u"createContextualFragment", "createContextualFragment", 0, Use::kMarkup, true},
    Call{u"replace", "location.replace", 0, Use::kAddress, true},
    Call{u"assign", "location.assign", 0, Use::kAddress, true},
    Call{u"open", "open", 0, Use::kAddress, false},
    Call{u"eval", "eval", 0, Use::kScript, false},
    Call{u"Function", "Function", kLast, Use::kScript, false},
    Call{u"setTimeout", "setTimeout", 0, Use::kScript, false},
};
struct Property {
  std::u16string_view name;
  std::string_view by;
  Use use;
};
constexpr std::array kProperties = {
    Property{u"innerHTML", "innerHTML", Use::kMarkup}, Property{u"outerHTML", "outerHTML", Use::kMarkup},
    Property{u"srcdoc", "srcdoc", Use::kMarkup},       Property{u"src", "src", Use::kAddress},
    Property{u"data", "data", Use::kAddress},          Property{u"href", "href", Use::kAddress},
    Property{u"location", "location", Use::kAddress},
};

}  // namespace

bool ScriptReader::MayWrite(std::u16string_view script) noexcept {
  constexpr std::array<std::u16string_view, 12> kWords = {u"write", u"HTML", u"srcdoc", u"Blob",     u"eval", u"data:",
                                                          u"atob",  u"escape", u".html", u"Fragment", u"Function", u"decodeURI"};
  return std::ranges::any_of(
      kWords, [&](std::u16string_view word) { return script.find(word) != std::u16string_view::npos; });
}

/// One reading of one script.
class ScriptReader::Pass {
 public:
  Pass(ScriptReader& reader, std::u16string_view script, int evals)
      : reader_(reader),
        patternSteps_(8 * script.size()),
        lexer_(script, patternSteps_),
        left_(4 * script.size() + 4096),
        evals_(evals) {}

  void Run() {
    Token before;       // the token in front of name
    Token name;         // the last token
    Token receiver;     // in front of "." and name
    for (;;) {
      const Token token = lexer_.Next();
      if (token.kind == TokenKind::kEnd) return;
      if (token.Is(u'(') && name.kind == TokenKind::kName) {
        OnCall(name.text, before.Is(u'.'));
      } else if (token.Is(u'[')) {
        // x["innerHTML"] is x.innerHTML.
        Lexer ahead = lexer_;
        const Token inside = ahead.Next();
        if (inside.kind == TokenKind::kText && ahead.Next().Is(u']')) {
          lexer_ = ahead;
          if (name.kind == TokenKind::kName) receiver = name;
          before = {TokenKind::kSign, u"."};
          name = {TokenKind::kName, inside.text};
          continue;
        }
      } else if (token.kind == TokenKind::kSign && (token.text == u"=" || token.text == u"+=") &&
                 name.kind == TokenKind::kName) {
        OnAssignment(name.text, before.Is(u'.'), receiver.text, token.text.size() == 2);
      }
      if (token.Is(u'.') && name.kind == TokenKind::kName) receiver = name;
      before = name;
      name = token;
    }
  }

  Value Expression() { return Sum(0); }
  [[nodiscard]] bool AtEnd() {
    Lexer ahead = lexer_;
    const Token token = ahead.Next();
    return token.kind == TokenKind::kEnd || token.Is(u';');
  }

  std::vector<ScriptWrite> TakeWrites() {
    if (!stream_.empty()) Add(ScriptWrite::Kind::kMarkup, "document.write", std::exchange(stream_, {}));
    return std::move(writes_);
  }
  /// A write asked for a variable that had no text yet, and has one now.
  [[nodiscard]] bool CameTooEarly() const {
    return std::ranges::any_of(missed_, [this](std::u16string_view name) { return reader_.variables_.contains(name); });
  }

 private:
  Token Take() {
    if (IsSpent()) return {};
    const Token token = lexer_.Next();
    left_ -= std::min(left_, token.text.size() + 1);
    if (IsSpent()) reader_.wasCut_ = true;
    return token;
  }
  [[nodiscard]] bool IsSpent() const noexcept { return left_ == 0; }
  [[nodiscard]] Token Peek() const noexcept {
    Lexer ahead = lexer_;
    return ahead.Next();
  }
  /// Accounts for a text that was made.
  bool Afford(std::size_t length) noexcept {
    if (length <= reader_.left_) {
      reader_.left_ -= length;
      return true;
    }
    reader_.wasCut_ = true;
    return false;
  }
  void Keep(std::u16string& text) {
    if (!Afford(text.size())) text.clear();
  }

  /// Behind an opening bracket: passes all up to its end.
  void SkipBracket() {
    int open = 1;
    while (open > 0) {
      const Token token = Take();
      if (token.kind == TokenKind::kEnd) return;
      if (token.Is(u'(') || token.Is(u'[') || token.Is(u'{')) ++open;
      if (token.Is(u')') || token.Is(u']') || token.Is(u'}')) --open;
    }
  }

  /// Behind "(" or "[": the values up to the end.
  std::vector<Value> Arguments(int depth) {
    std::vector<Value> values;
    for (;;) {
      const Token next = Peek();
      if (next.kind == TokenKind::kEnd || IsSpent()) return values;
      if (next.Is(u')') || next.Is(u']') || next.Is(u'}')) {
        Take();
        return values;
      }
      values.push_back(Sum(depth + 1));
      SkipToComma();
    }
  }
  /// Passes what Sum left of an argument, and the comma behind it.
  void SkipToComma() {
    for (;;) {
      const Token next = Peek();
      if (next.kind == TokenKind::kEnd || next.Is(u')') || next.Is(u']') || next.Is(u'}')) return;
      if (Take().kind == TokenKind::kEnd) return;
      if (next.Is(u',')) return;
      if (next.Is(u'(') || next.Is(u'[') || next.Is(u'{')) SkipBracket();
    }
  }

  Value Sum(int depth) {
    Value sum;
    if (depth > kMostDepth) {
      reader_.wasCut_ = true;
      return sum;
    }
    for (bool first = true;; first = false) {
      Value item = Operand(depth);
      if (first && !Peek().Is(u'+')) return item;
      if (item.isKnown) {
        sum.isKnown = true;
        std::u16string text = item.Whole(u",");
        Keep(text);
        sum.text += text;
      }
      if (IsSpent() || !Peek().Is(u'+')) return sum;
      Take();
    }
  }

  Value Operand(int depth) {
    Value value;
    Token token = Peek();
    while (token.IsName(u"new") || token.Is(u'!') || token.Is(u'+') || token.Is(u'-')) {
      if (Take().kind == TokenKind::kEnd) return value;
      token = Peek();
    }
    if (token.kind == TokenKind::kText || token.kind == TokenKind::kTemplate) {
      Take();
      value.isKnown = true;
      value.text = Unquoted(token.text, token.kind == TokenKind::kTemplate);
      Keep(value.text);
    } else if (token.kind == TokenKind::kNumber) {
      Take();
      value.isKnown = true;
      value.text = token.text;
    } else if (token.kind == TokenKind::kPattern) {
      Take();
    } else if (token.Is(u'(')) {
      Take();
      std::vector<Value> values = Arguments(depth);
      if (!values.empty()) value = std::move(values.back());
    } else if (token.Is(u'[')) {
      Take();
      for (Value& item : Arguments(depth)) {
        value.isKnown = value.isKnown || item.isKnown;
        value.items.push_back(item.Whole(u","));
      }
    } else if (token.Is(u'{')) {
      Take();
      SkipBracket();
    } else if (token.kind == TokenKind::kName && token.text != u"function") {
      Take();
      return Named(token.text, depth);
    } else {
      return value;
    }
    Methods(value, depth);
    return value;
  }

  /// A variable, or a call that decodes.
  Value Named(std::u16string_view name, int depth) {
    Value value;
    bool isOwn = true;  // no member of another thing
    while (!IsSpent()) {
      const Token next = Peek();
      if (next.Is(u'.')) {
        Take();
        const Token member = Peek();
        if (member.kind != TokenKind::kName) return value;
        if (isOwn && IsText(name, value)) {
          CallOn(value, member.text, depth);
          Methods(value, depth);
          return value;
        }
        isOwn = name == u"window" || name == u"self" || name == u"this" || name == u"globalThis";
        Take();
        name = member.text;
        continue;
      }
      if (next.Is(u'(')) {
        Take();
        const std::vector<Value> values = Arguments(depth);
        if (name == u"fromCharCode" || name == u"fromCodePoint") {
          for (const Value& item : values) {
            const std::u16string whole = item.Whole(u",");
            if (const auto number = NumberOf(whole); number && !whole.empty()) {
              AppendPoint(value.text, *number);
              value.isKnown = true;
            }
          }
          Keep(value.text);
        } else if (const auto* decoder = std::ranges::find(kDecoders, name, &Decoder::name);
                   decoder != kDecoders.end() && !values.empty() && values[0].isKnown) {
          value.isKnown = true;
          value.text = decoder->decode(values[0].Whole(u","));
          Keep(value.text);
        } else if (name == u"String" && !values.empty()) {
          value = values[0];
        }
        Methods(value, depth);
        return value;
      }
      if (next.Is(u'[')) {
        Take();
        SkipBracket();
        isOwn = false;
        continue;
      }
      if (isOwn) IsText(name, value);
      return value;
    }
    return value;
  }

  /// Gives a variable's text.
  bool IsText(std::u16string_view name, Value& value) {
    const auto found = reader_.variables_.find(name);
    if (found == reader_.variables_.end()) {
      if (inWrite_ && missed_.size() < kMostWrites) missed_.push_back(name);
      return false;
    }
    // Asked for before it is copied: a long text may be named any number of times.
    value.isKnown = Afford(found->second.size());
    if (value.isKnown) value.text = found->second;
    return true;
  }

  /// At the name of a method that is called on a value, which stays what it was for most.
  void CallOn(Value& value, std::u16string_view method, int depth) {
    Take();
    if (!Peek().Is(u'(')) return;
    Take();
    const std::vector<Value> values = Arguments(depth);
    if (!value.isKnown) return;
    if (method == u"join") {
      value.text = value.Whole(values.empty() ? u"," : std::u16string_view(values[0].text));
      value.items.clear();
      Keep(value.text);
    } else if (method == u"concat") {
      for (const Value& item : values) {
        std::u16string text = item.Whole(u",");
        Keep(text);
        if (value.items.empty()) {
          value.text += text;
        } else {
          value.items.push_back(std::move(text));
        }
      }
    }
  }
  void Methods(Value& value, int depth) {
    for (;;) {
      const Token next = Peek();
      if (next.Is(u'.')) {
        Take();
        const Token member = Peek();
        if (member.kind != TokenKind::kName) return;
        CallOn(value, member.text, depth);
      } else if (next.Is(u'[') || next.Is(u'(')) {
        Take();
        SkipBracket();
      } else {
        return;
      }
      if (IsSpent()) return;
    }
  }

  void OnCall(std::u16string_view name, bool isMethod) {
    const bool writes = isMethod && (name == u"write" || name == u"writeln");
    const bool isBlob = name == u"Blob" || name == u"File";
    const bool sets = isMethod && name == u"setAttribute";
    const auto* const call =
        std::ranges::find_if(kCalls, [&](const auto& item) { return item.name == name && (isMethod || !item.isMethod); });
    if (!writes && !isBlob && !sets && call == kCalls.end()) return;
    const Lexer before = lexer_;
    inWrite_ = true;
    const std::vector<Value> values = Arguments(0);
    inWrite_ = false;
    bool isKnown = false;
    if (writes) {
      for (const Value& value : values) {
        isKnown = isKnown || value.isKnown;
        std::u16string text = value.Whole(u",");
        stream_ += text;
      }
      if (name == u"writeln" && isKnown) stream_ += u'\n';
    } else if (isBlob) {
      if (!values.empty() && values[0].isKnown) {
        isKnown = true;
        std::u16string text = values[0].Whole();
        // Blobs hold scripts and data too.
        if (text.find(u'<') != std::u16string::npos) Add(ScriptWrite::Kind::kMarkup, "Blob", std::move(text));
      }
    } else if (sets) {
      if (values.size() >= 2 && values[1].isKnown) {
        isKnown = true;
        Found(values[0].text == u"srcdoc" ? Use::kMarkup : Use::kAddress, "setAttribute", values[1].Whole(u","));
      }
    } else if (!values.empty()) {
      const Value& value = values[call->argument == kLast ? values.size() - 1 : std::min(call->argument, values.size() - 1)];
      isKnown = value.isKnown && (call->argument == kLast || call->argument < values.size());
      if (isKnown) Found(call->use, call->by, value.Whole(u","));
    }
    // What holds no text may hold a function that writes.
    if (!isKnown) lexer_ = before;
  }

  void OnAssignment(std::u16string_view name, bool isMember, std::u16string_view receiver, bool appends) {
    const Lexer before = lexer_;
    const auto* const property = std::ranges::find(kProperties, name, &Property::name);
    const bool leads = property != kProperties.end() && (isMember || name == u"location");
    inWrite_ = leads;
    Value value = Sum(0);
    inWrite_ = false;
    if (!value.isKnown) {
      lexer_ = before;
      return;
    }
    std::u16string text = value.Whole(u",");
    if (leads) {
      if (appends && property->use == Use::kMarkup && !writes_.empty() && lastReceiver_ == receiver &&
          writes_.back().by == property->by) {
        writes_.back().text += text;
        return;
      }
      Found(property->use, property->by, std::move(text));
      lastReceiver_ = receiver;
      return;
    }
    if (isMember) return;
    const auto known = reader_.variables_.find(name);
    if (known != reader_.variables_.end()) {
      if (appends) {
        known->second += text;
      } else {
        known->second = std::move(text);
      }
    } else if (Afford(text.size() + kRoomOfVariable)) {
      reader_.variables_.emplace(std::u16string(name), std::move(text));
    }
  }

  void Found(Use use, std::string_view by, std::u16string text) {
    if (use == Use::kAddress) {
      std::u16string_view address = text;
      while (!address.empty() && IsSpace(address.front())) address.remove_prefix(1);
      if (html::BeginsNoCase(address, u"data:")) Add(ScriptWrite::Kind::kAddress, by, std::move(text));
    } else if (use == Use::kMarkup) {
      Add(ScriptWrite::Kind::kMarkup, by, std::move(text));
    } else if (!MayWrite(text)) {
      return;
    } else if (evals_ >= kMostEval) {
      reader_.wasCut_ = true;
    } else {
      Pass inner(reader_, text, evals_ + 1);
      inner.Run();
      for (ScriptWrite& write : inner.TakeWrites()) Add(write.kind, write.by, std::move(write.text));
    }
  }

  void Add(ScriptWrite::Kind kind, std::string_view by, std::u16string text) {
    if (kind == ScriptWrite::Kind::kMarkup && text.find(u'<') == std::u16string::npos) return;
    if (writes_.size() == kMostWrites) {
      reader_.wasCut_ = true;
      return;
    }
    writes_.push_back({kind, by, std::move(text)});
    lastReceiver_ = {};
  }

  ScriptReader& reader_;
  std::size_t patternSteps_;
  Lexer lexer_;
  std::size_t left_;  ///< of the script, as often as expressions may still read it
  int evals_;
  std::vector<ScriptWrite> writes_;
  std::u16string stream_;  ///< of document.write
  std::u16string_view lastReceiver_;
  bool inWrite_ = false;
  std::vector<std::u16string_view> missed_;
};

std::vector<ScriptWrite> ScriptReader::Read(std::u16string_view script) {
  Pass pass(*this, script, 0);
  pass.Run();
  std::vector<ScriptWrite> writes = pass.TakeWrites();
  if (!pass.CameTooEarly()) return writes;
  // A function may write what is assigned behind it.
  Pass again(*this, script, 0);
  again.Run();
  return again.TakeWrites();
}

std::u16string ScriptReader::ValueOf(std::u16string_view script) {
  Pass pass(*this, script, 0);
  const Value value = pass.Expression();
  return value.isKnown && pass.AtEnd() ? value.Whole(u",") : std::u16string();
}

}  // namespace zeph
