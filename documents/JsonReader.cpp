// SPDX-License-Identifier: Apache-2.0
#include "documents/JsonReader.h"

#include <algorithm>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

constexpr std::size_t kLongestShownName = 60;

bool IsDecimal(char c) noexcept { return c >= '0' && c <= '9'; }

/// A member's name as part of a JSON pointer that stays on one line.
std::string PointerPart(std::u16string_view name) {
  std::string part;
  for (const char16_t c : name.substr(0, kLongestShownName)) {
    if (c == u'~') {
      part += "~0";
    } else if (c == u'/') {
      part += "~1";
    } else if (c < 0x20 || c == 0x7F || c > 0x7F) {
      part += '?';
    } else {
      part += static_cast<char>(c);
    }
  }
  return part;
}

}  // namespace

char JsonReader::Peek() noexcept {
  while (at_ < json_.size() && (json_[at_] == ' ' || json_[at_] == '\n' || json_[at_] == '\r' || json_[at_] == '\t')) {
    ++at_;
  }
  return at_ < json_.size() ? json_[at_] : '\0';
}

JsonReader::Kind JsonReader::Next() noexcept {
  switch (const char c = Peek()) {
    case '{':
      return Kind::kObject;
    case '[':
      return Kind::kArray;
    case '"':
      return Kind::kText;
    case 't':
    case 'f':
      return Kind::kFlag;
    case 'n':
      return Kind::kNull;
    default:
      return c == '-' || IsDecimal(c) ? Kind::kNumber : Kind::kNothing;
  }
}

bool JsonReader::BeginObject() { return Open('{', true); }
bool JsonReader::BeginArray() { return Open('[', false); }

bool JsonReader::Open(char bracket, bool isObject) {
  if (Failed()) return false;
  if (Peek() != bracket) {
    Fail(isObject ? "an object is expected" : "a list is expected");
    return false;
  }
  if (levels_.size() == kDepthLimit) {
    Fail("nested too deeply");
    return false;
  }
  ++at_;
  levels_.push_back({{}, -1, isObject});
  return true;
}

bool JsonReader::Advance(char close) {
  if (Failed()) return false;
  const char c = Peek();
  if (c == close) {
    ++at_;
    levels_.pop_back();
    return false;
  }
  Level& level = levels_.back();
  if (level.isFirst) {
    level.isFirst = false;
    return true;
  }
  if (c != ',') {
    Fail(at_ == json_.size() ? "the text ends early" : "a comma or the end is expected");
    return false;
  }
  ++at_;
  return true;
}

bool JsonReader::NextMember(std::u16string& name) {
  if (!Advance('}')) return false;
  if (Peek() != '"') {
    Fail(at_ == json_.size() ? "the text ends early" : "the name of a member is expected");
    return false;
  }
  name.clear();
  if (!ReadString(name)) return false;
  levels_.back().name = name;
  levels_.back().isNamed = true;
  if (Peek() != ':') {
    Fail("a colon is expected");
    return false;
  }
  ++at_;
  return true;
}

bool JsonReader::NextItem() {
  if (!Advance(']')) return false;
  ++levels_.back().item;
  levels_.back().isNamed = true;
  return true;
}

bool JsonReader::ReadText(std::u16string& text) {
  if (Failed()) return false;
  text.clear();
  if (Peek() != '"') {
    Fail("a text is expected");
    return false;
  }
  return ReadString(text);
}

bool JsonReader::ReadString(std::u16string& text) {
  for (++at_; at_ < json_.size();) {
    const char c = json_[at_];
    if (c == '"') {
      ++at_;
      return true;
    }
    if (!(c == '\\' ? ReadEscape(text) : ReadRun(text))) return false;
  }
  Fail("a text doesn't end");
  return false;
}

/// A run without escapes.
bool JsonReader::ReadRun(std::u16string& text) {
  const std::size_t begin = at_;
  bool isAscii = true;
  for (; at_ < json_.size() && json_[at_] != '"' && json_[at_] != '\\'; ++at_) {
    const auto byte = static_cast<unsigned char>(json_[at_]);
    if (byte < 0x20) {
      Fail("a control character stands in a text");
      return false;
    }
    isAscii = isAscii && byte < 0x80;
  }
  const std::string_view run = json_.substr(begin, at_ - begin);
  if (isAscii) {
    text.append(run.begin(), run.end());
    return true;
  }
  const std::u16string wide = Widen(run);
  if (Narrow(wide) != run) {
    Fail("a text isn't UTF-8");
    return false;
  }
  text += wide;
  return true;
}

bool JsonReader::ReadEscape(std::u16string& text) {
  constexpr std::string_view kEscapes = "\"\\/bfnrt";
  constexpr std::u16string_view kMeanings = u"\"\\/\b\f\n\r\t";
  const char c = at_ + 1 < json_.size() ? json_[at_ + 1] : '\0';
  if (const std::size_t plain = kEscapes.find(c); plain != std::string_view::npos) {
    text.push_back(kMeanings[plain]);
    at_ += 2;
    return true;
  }
  const std::string_view digits = json_.substr(std::min(at_ + 2, json_.size()), 4);
  bool valid = c == 'u' && digits.size() == 4;
  unsigned unit = 0;
  for (const char digit : digits) {
    const bool isLetter = (digit >= 'a' && digit <= 'f') || (digit >= 'A' && digit <= 'F');
    valid = valid && (isLetter || IsDecimal(digit));
    unit = unit * 16 + static_cast<unsigned>(isLetter ? (digit & 0xF) + 9 : digit & 0xF);
  }
  if (!valid) {
    Fail("an escape isn't known");
    return false;
  }
  text.push_back(static_cast<char16_t>(unit));
  at_ += 6;
  return true;
}

bool JsonReader::ReadNumber(Number& number) {
  if (Failed()) return false;
  if (Next() != Kind::kNumber) {
    Fail("a number is expected");
    return false;
  }
  constexpr std::int64_t kBeyond = std::int64_t{1} << 58;
  const auto skipDigits = [&] {
    const std::size_t begin = at_;
    while (at_ < json_.size() && IsDecimal(json_[at_])) ++at_;
    return at_ > begin;
  };
  const auto skipOneOf = [&](std::string_view set) {
    const bool found = at_ < json_.size() && set.find(json_[at_]) != std::string_view::npos;
    if (found) ++at_;
    return found;
  };
  const bool negative = skipOneOf("-");
  number = {true, 0};
  const std::size_t begin = at_;
  bool valid = skipDigits();
  const std::string_view digits = json_.substr(begin, at_ - begin);
  valid = valid && (digits.size() == 1 || digits.front() != '0');
  for (const char digit : digits) number.value = std::min(number.value * 10 + (digit - '0'), kBeyond);
  if (negative) number.value = -number.value;
  if (skipOneOf(".")) {
    number.isWhole = false;
    valid = skipDigits() && valid;
  }
  if (skipOneOf("eE")) {
    number.isWhole = false;
    skipOneOf("+-");
    valid = skipDigits() && valid;
  }
  if (!valid) Fail("a number is written wrongly");
  return valid;
}

bool JsonReader::ReadWord(std::string_view word) {
  if (json_.substr(at_, word.size()) != word) {
    Fail("a value is expected");
    return false;
  }
  at_ += word.size();
  return true;
}

bool JsonReader::ReadNull() {
  if (Failed()) return false;
  Peek();
  return ReadWord("null");
}

bool JsonReader::Skip() {
  const std::size_t depth = levels_.size();
  std::u16string text;
  Number number;
  do {
    // Behind a value, its level goes on; each level that ends is a value itself.
    if (levels_.size() > depth && !(levels_.back().isObject ? NextMember(text) : NextItem())) continue;
    switch (Next()) {
      case Kind::kObject:
        BeginObject();
        break;
      case Kind::kArray:
        BeginArray();
        break;
      case Kind::kText:
        ReadText(text);
        break;
      case Kind::kNumber:
        ReadNumber(number);
        break;
      case Kind::kFlag:
        ReadWord(Peek() == 't' ? "true" : "false");
        break;
      case Kind::kNull:
        ReadNull();
        break;
      case Kind::kNothing:
        Fail(at_ == json_.size() ? "the text ends early" : "a value is expected");
        break;
    }
  } while (levels_.size() > depth && !Failed());
  return !Failed();
}

bool JsonReader::ReadEnd() {
  if (Failed()) return false;
  Peek();
  if (at_ == json_.size()) return true;
  Fail("more text stands behind the end");
  return false;
}

void JsonReader::Fail(std::string_view what) {
  if (Failed()) return;
  const std::string_view before = json_.substr(0, at_);
  const std::size_t lineBegin = before.rfind('\n') + 1;  // 0 on the first line
  FailAt(Path(), std::string(what) + " (line " + std::to_string(std::ranges::count(before, '\n') + 1) + ", column " +
                     std::to_string(at_ - lineBegin + 1) + ")");
}

void JsonReader::FailAt(std::string_view path, std::string_view what) {
  if (!Failed()) error_ = std::string(path.empty() ? "the recording" : path) + ": " + std::string(what);
}

std::size_t JsonReader::ItemsAhead() const noexcept {
  const std::string_view ahead = json_.substr(at_, json_.find(']', at_) - at_);
  return 1 + static_cast<std::size_t>(std::ranges::count(ahead, ','));
}

std::string JsonReader::Path() const {
  std::string path;
  for (const Level& level : levels_) {
    if (!level.isNamed) continue;
    path += "/" + (level.isObject ? PointerPart(level.name) : std::to_string(level.item));
  }
  return path;
}

}  // namespace zeph
