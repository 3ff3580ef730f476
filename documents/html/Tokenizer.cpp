// SPDX-License-Identifier: Apache-2.0
#include "documents/html/Tokenizer.h"

#include <array>

#include "documents/html/EntityTable.h"
#include "documents/html/Scan.h"

namespace zeph::html {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

constexpr bool IsBlank(char16_t c) noexcept { return c == u' ' || c == u'\n' || c == u'\t' || c == u'\f'; }
constexpr bool IsLetter(char16_t c) noexcept { return (c | 32) >= u'a' && (c | 32) <= u'z'; }
constexpr bool IsDecimal(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }
constexpr bool IsLetterOrDigit(char16_t c) noexcept { return IsLetter(c) || IsDecimal(c); }
constexpr char16_t Lower(char16_t c) noexcept { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; }

/// Characters of names in lower case; 0 for those that end one. [0] of elements, [1] of attributes.
constexpr auto kNameCharacters = [] {
  std::array<std::array<std::uint8_t, 128>, 2> table{};
  for (std::size_t c = 1; c < 128; ++c) {
    const auto unit = static_cast<char16_t>(c);
    if (IsBlank(unit) || unit == u'/' || unit == u'>') continue;
    table[0][c] = static_cast<std::uint8_t>(Lower(unit));
    table[1][c] = unit == u'=' ? std::uint8_t{0} : table[0][c];
  }
  return table;
}();

/// The text begins with the word, whose letters are lower case, in any case.
bool BeginsWith(const char16_t* text, std::u16string_view word) noexcept {
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (Lower(text[i]) != word[i]) return false;
  }
  return true;
}

int HexDigit(char16_t c) noexcept {
  if (IsDecimal(c)) return c - u'0';
  const auto letter = static_cast<char16_t>(c | 32);
  return letter >= u'a' && letter <= u'f' ? letter - u'a' + 10 : -1;
}

}  // namespace

Tokenizer::Tokenizer(Tree& tree)
    : tree_(tree), base_(tree.text.data()), end_(base_ + tree.text.size()), read_(base_), write_(base_) {}

void Tokenizer::SetTextMode(TextMode mode, NameId endTag) {
  mode_ = mode;
  endTag_ = endTag;
}

void Tokenizer::Next(Token& token) {
  token.selfClosing = token.forceQuirks = false;
  token.length = 0;
  if (inCdata_ && Cdata(token)) return;
  switch (mode_) {
    case TextMode::kData:
      return Data(token);
    case TextMode::kRcdata:
    case TextMode::kRawText:
      return RawText(token);
    case TextMode::kScript:
      return Script(token);
    case TextMode::kPlainText:
      return PlainText(token);
  }
}

void Tokenizer::FinishText(Token& token, const char16_t* begin) {
  token.kind = TokenKind::kText;
  token.begin = Offset(begin);
  token.length = static_cast<std::uint32_t>(write_ - begin);
}

void Tokenizer::Data(Token& token) {
  const char16_t* const begin = write_;
  for (;;) {
    MoveRun<u'<', u'&'>(read_, write_);
    if (*read_ == u'&') {
      Reference(false);
      continue;
    }
    if (*read_ == u'<') {
      const char16_t second = read_[1];
      const bool endTag = second == u'/' && IsLetter(read_[2]);
      const bool other = second == u'!' || second == u'?' || (second == u'/' && !AtEnd(read_ + 2) && read_[2] != u'>');
      if (!endTag && !IsLetter(second) && !other) {
        if (second == u'/' && read_[2] == u'>') {
          read_ += 3;  // "</>" is nothing
        } else {
          *write_++ = *read_++;
        }
        continue;
      }
      if (write_ != begin) return FinishText(token, begin);
      if (endTag || IsLetter(second)) {
        read_ += endTag ? 2 : 1;
        if (!Tag(token, endTag ? TokenKind::kEndTag : TokenKind::kStartTag)) token.kind = TokenKind::kEnd;
        return;
      }
      if (second == u'!') {
        read_ += 2;
        return MarkupDeclaration(token);
      }
      read_ += second == u'/' ? 2 : 1;
      return BogusComment(token);
    }
    if (write_ != begin) return FinishText(token, begin);
    if (AtEnd(read_)) {
      token.kind = TokenKind::kEnd;
      return;
    }
    return Nulls(token);
  }
}

void Tokenizer::Nulls(Token& token) {
  const char16_t* const begin = write_;
  for (; *read_ == 0 && !AtEnd(read_); ++read_) *write_++ = kReplacement;
  FinishText(token, begin);
  token.kind = TokenKind::kNulls;
}

bool Tokenizer::AtAppropriateEndTag(const char16_t* at) const noexcept {
  if (at[1] != u'/') return false;
  const std::u16string_view name = tree_.NameText(endTag_);
  if (!BeginsWith(at + 2, name)) return false;
  const char16_t behind = at[2 + name.size()];
  return IsBlank(behind) || behind == u'/' || behind == u'>';
}

void Tokenizer::RawText(Token& token) {
  const char16_t* const begin = write_;
  for (;;) {
    if (mode_ == TextMode::kRcdata) {
      MoveRun<u'<', u'&'>(read_, write_);
    } else {
      MoveRun<u'<'>(read_, write_);
    }
    if (*read_ == u'&') {
      Reference(false);
    } else if (*read_ == u'<') {
      if (AtAppropriateEndTag(read_)) break;
      *write_++ = *read_++;
    } else if (AtEnd(read_)) {
      break;
    } else {
      *write_++ = kReplacement;
      ++read_;
    }
  }
  if (write_ != begin) return FinishText(token, begin);
  token.kind = TokenKind::kEnd;
  if (AtEnd(read_)) return;
  read_ += 2;
  mode_ = TextMode::kData;
  if (!Tag(token, TokenKind::kEndTag)) token.kind = TokenKind::kEnd;
}

void Tokenizer::Script(Token& token) {
  const char16_t* const begin = write_;
  ScriptState state = ScriptState::kPlain;
  bool atEndTag = false;
  for (;;) {
    if (state == ScriptState::kPlain) {
      MoveRun<u'<'>(read_, write_);
    } else {
      MoveRun<u'<', u'-'>(read_, write_);
    }
    if (*read_ == u'-') {
      // Dashes and ">" end what "<!--" began.
      std::size_t dashes = 0;
      for (; *read_ == u'-'; ++dashes) *write_++ = *read_++;
      if (*read_ == u'>' && dashes >= 2) state = ScriptState::kPlain;
    } else if (*read_ == u'<') {
      if (state != ScriptState::kDoubleEscaped && AtAppropriateEndTag(read_)) {
        atEndTag = true;
        break;
      }
      if (state == ScriptState::kPlain && read_[1] == u'!' && read_[2] == u'-' && read_[3] == u'-') {
        state = ScriptState::kEscaped;
        // The two dashes may already be those before ">", so they are left for the next round.
        *write_++ = *read_++;
        *write_++ = *read_++;
        continue;
      }
      const bool closing = read_[1] == u'/';
      const char16_t* const word = read_ + (closing ? 2 : 1);
      const char16_t behind = BeginsWith(word, u"script") ? word[6] : u'\0';
      const bool isWord = IsBlank(behind) || behind == u'/' || behind == u'>';
      *write_++ = *read_++;
      if (isWord && state == ScriptState::kEscaped && !closing) {
        state = ScriptState::kDoubleEscaped;
      } else if (isWord && state == ScriptState::kDoubleEscaped && closing) {
        state = ScriptState::kEscaped;
      }
    } else if (AtEnd(read_)) {
      break;
    } else {
      *write_++ = kReplacement;
      ++read_;
    }
  }
  if (write_ != begin) return FinishText(token, begin);
  token.kind = TokenKind::kEnd;
  if (!atEndTag) return;
  read_ += 2;
  mode_ = TextMode::kData;
  if (!Tag(token, TokenKind::kEndTag)) token.kind = TokenKind::kEnd;
}

void Tokenizer::PlainText(Token& token) {
  const char16_t* const begin = write_;
  for (;;) {
    MoveRun(read_, write_);
    if (AtEnd(read_)) break;
    *write_++ = kReplacement;
    ++read_;
  }
  if (write_ != begin) return FinishText(token, begin);
  token.kind = TokenKind::kEnd;
}

bool Tokenizer::Cdata(Token& token) {
  const char16_t* const begin = write_;
  for (;;) {
    MoveRun<u']'>(read_, write_);
    if (*read_ == u']') {
      if (read_[1] == u']' && read_[2] == u'>') {
        read_ += 3;
        inCdata_ = false;
        break;
      }
      *write_++ = *read_++;
    } else if (write_ != begin || AtEnd(read_)) {
      break;
    } else {
      Nulls(token);
      return true;
    }
  }
  if (AtEnd(read_)) inCdata_ = false;
  if (write_ == begin) return false;
  FinishText(token, begin);
  return true;
}

void Tokenizer::Put(char32_t codePoint) noexcept {
  if (codePoint < 0x10000) {
    *write_++ = static_cast<char16_t>(codePoint);
    return;
  }
  codePoint -= 0x10000;
  *write_++ = static_cast<char16_t>(0xD800 + (codePoint >> 10));
  *write_++ = static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF));
}

void Tokenizer::Reference(bool inAttribute) {
  const char16_t* at = read_ + 1;
  if (*at == u'#') {
    const bool hex = (at[1] | 32) == u'x';
    at += hex ? 2 : 1;
    const char16_t* const digits = at;
    char32_t codePoint = 0;
    for (;; ++at) {
      const int digit = hex ? HexDigit(*at) : IsDecimal(*at) ? *at - u'0' : -1;
      if (digit < 0) break;
      if (codePoint <= 0x10FFFF) codePoint = codePoint * (hex ? 16U : 10U) + static_cast<char32_t>(digit);
    }
    if (at != digits) {
      read_ = at + (*at == u';' ? 1 : 0);
      Put(NumericReference(codePoint));
      return;
    }
  } else if (IsLetterOrDigit(*at)) {
    const NamedReference found = FindNamedReference(at);
    const char16_t behind = at[found.length];
    // In a value, "&copy=1" is part of a query, as its author meant it.
    const bool query = inAttribute && !found.endsInSemicolon && (behind == u'=' || IsLetterOrDigit(behind));
    if (found.length != 0 && !query) {
      read_ = at + found.length;
      Put(found.first);
      if (found.second != 0) Put(found.second);
      return;
    }
  }
  *write_++ = *read_++;
}

NameId Tokenizer::Name(bool attribute) {
  char16_t* const begin = base_ + (read_ - base_);
  char16_t* at = begin;
  std::uint64_t key = 0;
  bool plain = true;
  if (attribute && *at == u'=') {
    key = u'=';
    ++at;
  }
  const auto& characters = kNameCharacters[attribute ? 1 : 0];
  for (;; ++at) {
    char16_t c = *at;
    if (c < 0x80) {
      c = characters[c];
      if (c == 0) {
        if (*at != 0 || AtEnd(at)) break;
        c = kReplacement;
        plain = false;
      }
    } else {
      plain = false;
    }
    *at = c;
    key = key << 8 | c;
  }
  read_ = at;
  const std::u16string_view text(begin, static_cast<std::size_t>(at - begin));
  const NameKey nameKey{plain && text.size() <= NameKey::kShort ? key : 0, text};
  return tree_.names.Intern(nameKey, base_, [this](std::u16string_view name) {
    const std::uint32_t place = Offset(write_);
    for (const char16_t c : name) *write_++ = c;
    return place;
  });
}

template <char16_t... kStops>
void Tokenizer::Value() {
  for (;;) {
    MoveRun<u'&', kStops...>(read_, write_);
    if (*read_ == u'&') {
      Reference(true);
    } else if (*read_ == 0 && !AtEnd(read_)) {
      *write_++ = kReplacement;
      ++read_;
    } else {
      return;
    }
  }
}

bool Tokenizer::Tag(Token& token, TokenKind kind) {
  token.kind = kind;
  token.name = Name(false);
  const std::size_t first = tree_.attributes.size();
  ++tagNumber_;
  bool whole = false;
  for (;;) {
    const char16_t c = *read_;
    if (IsBlank(c)) {
      ++read_;
      continue;
    }
    if (c == u'>') {
      ++read_;
      whole = true;
      break;
    }
    if (c == u'/') {
      ++read_;
      if (*read_ == u'>') token.selfClosing = true;
      continue;
    }
    if (AtEnd(read_)) break;
    const NameId name = Name(true);
    while (IsBlank(*read_)) ++read_;
    char16_t* const begin = write_;
    if (*read_ == u'=') {
      ++read_;
      while (IsBlank(*read_)) ++read_;
      if (*read_ == u'"') {
        ++read_;
        Value<u'"'>();
        if (AtEnd(read_)) break;
        ++read_;
      } else if (*read_ == u'\'') {
        ++read_;
        Value<u'\''>();
        if (AtEnd(read_)) break;
        ++read_;
      } else {
        Value<u' ', u'\n', u'\t', u'\f', u'>'>();
      }
    }
    while (lastSeen_.size() <= name) lastSeen_.Push(0);
    if (lastSeen_[name] == tagNumber_ || kind == TokenKind::kEndTag) {
      write_ = begin;
      continue;
    }
    lastSeen_[name] = tagNumber_;
    tree_.attributes.Push({name & 0xFFFFFFU, false, Offset(begin), static_cast<std::uint32_t>(write_ - begin)});
  }
  token.begin = static_cast<std::uint32_t>(first);
  token.length = static_cast<std::uint32_t>(tree_.attributes.size() - first);
  return whole;
}

void Tokenizer::MarkupDeclaration(Token& token) {
  if (read_[0] == u'-' && read_[1] == u'-') {
    read_ += 2;
    Comment(token);
  } else if (BeginsWith(read_, u"doctype")) {
    read_ += 7;
    DoctypeDeclaration(token);
  } else if (allowCdata_ && std::u16string_view(read_, 7) == u"[CDATA[") {
    read_ += 7;
    inCdata_ = true;
    Next(token);
  } else {
    BogusComment(token);
  }
}

void Tokenizer::Comment(Token& token) {
  const char16_t* const begin = write_;
  if (read_[0] == u'>') {
    ++read_;
  } else if (read_[0] == u'-' && read_[1] == u'>') {
    read_ += 2;
  } else {
    for (;;) {
      MoveRun<u'-'>(read_, write_);
      if (*read_ == u'-') {
        if (read_[1] == u'-' && read_[2] == u'>') {
          read_ += 3;
          break;
        }
        if (read_[1] == u'-' && read_[2] == u'!' && read_[3] == u'>') {
          read_ += 4;
          break;
        }
        *write_++ = *read_++;
      } else if (AtEnd(read_)) {
        // The beginning of an end is no part of the comment.
        const std::u16string_view text(begin, static_cast<std::size_t>(write_ - begin));
        for (const std::u16string_view tail : {u"--!", u"--", u"-"}) {
          if (text.ends_with(tail)) {
            write_ -= tail.size();
            break;
          }
        }
        break;
      } else {
        *write_++ = kReplacement;
        ++read_;
      }
    }
  }
  FinishText(token, begin);
  token.kind = TokenKind::kComment;
}

void Tokenizer::BogusComment(Token& token) {
  const char16_t* const begin = write_;
  for (;;) {
    MoveRun<u'>'>(read_, write_);
    if (*read_ == u'>') {
      ++read_;
      break;
    }
    if (AtEnd(read_)) break;
    *write_++ = kReplacement;
    ++read_;
  }
  FinishText(token, begin);
  token.kind = TokenKind::kComment;
}

bool Tokenizer::DoctypeId(Slice& id, bool& quirks) {
  while (IsBlank(*read_)) ++read_;
  const char16_t quote = *read_;
  if (quote != u'"' && quote != u'\'') return false;
  ++read_;
  const char16_t* const begin = write_;
  for (;;) {
    MoveRun<u'"', u'\'', u'>'>(read_, write_);
    if (*read_ == quote) {
      ++read_;
      break;
    }
    if (*read_ == u'>' || AtEnd(read_)) {
      quirks = true;
      break;
    }
    *write_++ = *read_ == 0 ? kReplacement : *read_;
    ++read_;
  }
  id = {Offset(begin), static_cast<std::uint32_t>(write_ - begin), true};
  return true;
}

void Tokenizer::DoctypeDeclaration(Token& token) {
  doctype_ = {};
  token.kind = TokenKind::kDoctype;
  while (IsBlank(*read_)) ++read_;
  const char16_t* const begin = write_;
  while (!IsBlank(*read_) && *read_ != u'>' && !AtEnd(read_)) {
    *write_++ = *read_ == 0 ? kReplacement : Lower(*read_);
    ++read_;
  }
  doctype_.name = {Offset(begin), static_cast<std::uint32_t>(write_ - begin), write_ != begin};
  bool quirks = write_ == begin || AtEnd(read_);
  while (IsBlank(*read_)) ++read_;
  if (*read_ != u'>' && !AtEnd(read_)) {
    if (BeginsWith(read_, u"public")) {
      read_ += 6;
      if (!DoctypeId(doctype_.publicId, quirks)) {
        quirks = true;
      } else if (!quirks && !DoctypeId(doctype_.systemId, quirks) && *read_ != u'>') {
        quirks = true;
      }
    } else if (BeginsWith(read_, u"system")) {
      read_ += 6;
      if (!DoctypeId(doctype_.systemId, quirks)) quirks = true;
    } else {
      quirks = true;
    }
    // What stands behind the identifiers says nothing.
    while (*read_ != u'>' && !AtEnd(read_)) ++read_;
  }
  if (AtEnd(read_)) {
    quirks = true;
  } else {
    ++read_;
  }
  token.forceQuirks = quirks;
}

}  // namespace zeph::html
