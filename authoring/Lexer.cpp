// SPDX-License-Identifier: Apache-2.0
#include "authoring/Lexer.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

constexpr std::size_t kWidth = 110;

bool IsDigit(char c) noexcept { return c >= '0' && c <= '9'; }
bool BeginsName(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool ContinuesName(char c) noexcept { return BeginsName(c) || IsDigit(c) || c == '-' || c == '.'; }
bool IsBlank(char c) noexcept { return c == ' ' || c == '\t' || c == '\r'; }

}  // namespace

bool IsName(std::string_view text) noexcept {
  return !text.empty() && BeginsName(text.front()) && std::ranges::all_of(text, ContinuesName);
}

bool IsNumber(std::string_view text) noexcept {
  if (text.starts_with('-')) text.remove_prefix(1);
  const std::size_t dot = text.find('.');
  const auto digits = [](std::string_view part) { return !part.empty() && std::ranges::all_of(part, IsDigit); };
  return digits(text.substr(0, dot)) && (dot == std::string_view::npos || digits(text.substr(dot + 1)));
}

Lexer::Lexer(const SourceFile& file, Diagnostics& found) : file_(file), text_(file.text), found_(found) { Advance(); }

Token Lexer::Take() {
  Token taken = std::move(next_);
  ReportAhead();
  Advance();
  return taken;
}

bool Lexer::TakeIf(std::string_view word) {
  if (!Is(word)) return false;
  ReportAhead();
  Advance();
  return true;
}

void Lexer::ReportAhead() {
  for (const Diagnostic& one : ahead_.All()) found_.Error(one.place, one.message, one.help);
}

void Lexer::SkipBlanks(bool lineEndsToo) {
  while (!AtEnd()) {
    if (text_[at_] == '#') {
      at_ = std::min(text_.find('\n', at_), text_.size());
    } else if (IsBlank(text_[at_]) || (lineEndsToo && text_[at_] == '\n')) {
      ++at_;
    } else {
      return;
    }
  }
}

void Lexer::Advance() {
  ahead_ = {};
  sink_ = &ahead_;
  SkipBlanks(true);
  next_ = {};
  next_.place = {&file_, at_, 0};
  if (AtEnd()) return;
  const std::size_t begin = at_;
  const char c = text_[at_];
  if (c == '"') {
    next_.kind = TokenKind::kText;
    next_.value = TakeQuoted();
  } else if (BeginsName(c)) {
    next_.kind = TokenKind::kName;
    while (!AtEnd() && ContinuesName(text_[at_])) ++at_;
  } else if (IsDigit(c) || c == '-') {
    next_.kind = TokenKind::kNumber;
    for (++at_; !AtEnd() && (ContinuesName(text_[at_])); ++at_) {
    }
    if (!IsNumber(text_.substr(begin, at_ - begin))) {
      sink_->Error(From(begin), "\"" + std::string(text_.substr(begin, at_ - begin)) + "\" is neither a number nor a name");
    }
  } else {
    next_.kind = TokenKind::kSign;
    for (++at_; !AtEnd() && (static_cast<unsigned char>(text_[at_]) & 0xC0U) == 0x80U; ++at_) {
    }
  }
  next_.text = text_.substr(begin, at_ - begin);
  next_.place = From(begin);
}

std::u16string Lexer::TakeQuoted() {
  const std::size_t begin = at_++;
  std::u16string value;
  std::string run;
  const auto endRun = [&] {
    value += Widen(run);
    run.clear();
  };
  while (!AtEnd() && text_[at_] != '"' && text_[at_] != '\n') {
    if (text_[at_] != '\\') {
      run += text_[at_++];
      continue;
    }
    const std::size_t escape = at_++;
    const char what = AtEnd() ? '\0' : text_[at_++];
    if (what == '"' || what == '\\') {
      run += what;
    } else if (what == 'n' || what == 't' || what == 'r') {
      run += what == 'n' ? '\n' : what == 't' ? '\t' : '\r';
    } else if (what == 'u' && !AtEnd() && text_[at_] == '{') {
      const std::size_t close = std::min(text_.find('}', at_), text_.size());
      const std::string_view digits = text_.substr(at_ + 1, close - at_ - 1);
      std::uint32_t unit = 0;
      const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
      if (close == text_.size() || error != std::errc() || end != digits.data() + digits.size() || unit > 0xFFFF) {
        sink_->Error(From(escape), "\\u{...} holds the hexadecimal number of a 16-bit character");
      } else {
        endRun();
        value += static_cast<char16_t>(unit);
        at_ = close + 1;
      }
    } else {
      sink_->Error(From(escape), "no such escape", "there are \\\" \\\\ \\n \\r \\t and \\u{...}");
    }
  }
  endRun();
  if (AtEnd() || text_[at_] != '"') {
    sink_->Error({&file_, begin, 1}, "the text has no end on its line", "put a \" behind it");
  } else {
    ++at_;
  }
  return value;
}

std::vector<Item> Lexer::TakeItems(bool mayHoldCommas) {
  const bool inBrackets = Is("[");
  const Place opened = next_.place;
  sink_ = &found_;
  // What was looked ahead at is read again, as items.
  at_ = inBrackets ? next_.place.offset + 1 : next_.place.offset;
  std::vector<Item> items;
  bool wantsItem = true;
  while (true) {
    SkipBlanks(inBrackets || (wantsItem && !items.empty()));
    if (AtEnd() || (!inBrackets && text_[at_] == '\n')) break;
    if (inBrackets && text_[at_] == ']') break;
    if (text_[at_] == ',') {
      if (wantsItem) found_.Error({&file_, at_, 1}, "nothing stands before this comma");
      wantsItem = true;
      ++at_;
      continue;
    }
    if (!wantsItem) found_.Error({&file_, at_, 1}, "a comma is missing before this item");
    const std::size_t begin = at_;
    Item item;
    if (text_[at_] == '"') {
      item.quoted = true;
      item.text = TakeQuoted();
    } else {
      while (!AtEnd() && text_[at_] != ',' && text_[at_] != '\n' && text_[at_] != '"' &&
             !(inBrackets && text_[at_] == ']') && !(text_[at_] == '#' && IsBlank(text_[at_ - 1]))) {
        ++at_;
      }
      std::size_t end = at_;
      while (end > begin && IsBlank(text_[end - 1])) --end;
      item.text = Widen(text_.substr(begin, end - begin));
    }
    item.place = From(begin);
    if (!mayHoldCommas && item.text.find(u',') != std::u16string::npos) {
      found_.Error(item.place, "an item can't hold a comma, which parts items");
    } else if (item.text.empty()) {
      found_.Error(item.place, "an empty item is passed over");
    } else {
      items.push_back(std::move(item));
    }
    wantsItem = false;
  }
  if (inBrackets && AtEnd()) {
    found_.Error(opened, "the list has no end", "put a ] behind it");
  } else if (inBrackets) {
    ++at_;
  }
  Advance();
  return items;
}

std::string Quote(std::u16string_view text) {
  std::string quoted = "\"";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    const bool isPair = unit >= 0xD800 && unit < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
    if (unit == u'"' || unit == u'\\') {
      quoted += '\\';
      quoted += static_cast<char>(unit);
    } else if (isPair) {
      quoted += Narrow(text.substr(i, 2));
      ++i;
    } else if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || (unit >= 0xD800 && unit < 0xE000)) {
      char escape[16];
      std::snprintf(escape, sizeof escape, "\\u{%X}", static_cast<unsigned>(unit));
      quoted += escape;
    } else {
      quoted += Narrow(text.substr(i, 1));
    }
  }
  return quoted + '"';
}

std::string ItemText(std::u16string_view item) {
  const bool isBare = !item.empty() && item.front() != u' ' && item.back() != u' ' && item.front() != u'[' &&
                      std::ranges::all_of(item, [](char16_t c) {
                        return c > 0x1F && c < 0x7F && c != u'"' && c != u']' && c != u'#' && c != u',';
                      });
  return isBare ? Narrow(item) : Quote(item);
}

std::string ItemsInBrackets(const std::vector<std::string>& items, std::string_view indent) {
  std::string text = "[";
  std::size_t column = indent.size() + 1;
  for (std::size_t i = 0; i < items.size(); ++i) {
    const bool last = i + 1 == items.size();
    if (column + items[i].size() > kWidth && i > 0) {
      text += "\n" + std::string(indent);
      column = indent.size();
    } else if (i > 0) {
      text += ' ';
      ++column;
    }
    text += items[i];
    if (!last) text += ',';
    column += items[i].size() + 1;
  }
  return text + "]";
}

}  // namespace zeph
