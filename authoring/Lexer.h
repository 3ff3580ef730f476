// SPDX-License-Identifier: Apache-2.0
// The words of rules.zeph and brands.zeph. Line ends mean nothing, but in a list of items without brackets, which ends
// with its line unless that ends in a comma. "#" begins a comment.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "authoring/Diagnostics.h"

namespace zeph {

enum class TokenKind : std::uint8_t { kEnd, kName, kNumber, kText, kSign };

struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::string_view text;  ///< as written
  std::u16string value;   ///< of a text, what it says
  Place place;
};

/// One entry of a list.
struct Item {
  std::u16string text;
  bool quoted = false;
  Place place;
};

/// Walks a file, one token ahead.
class Lexer {
 public:
  Lexer(const SourceFile& file, Diagnostics& found);

  [[nodiscard]] const Token& Next() const noexcept { return next_; }
  Token Take();
  [[nodiscard]] bool Is(std::string_view word) const noexcept {
    return (next_.kind == TokenKind::kName || next_.kind == TokenKind::kSign) && next_.text == word;
  }
  bool TakeIf(std::string_view word);

  /// Items up to the end of the line, or, when Next is "[", up to the "]". An item stands bare, up to the comma, or in
  /// quotation marks. A comma parts items once more in rules, so there no item can hold one.
  std::vector<Item> TakeItems(bool mayHoldCommas = false);

 private:
  void Advance();
  void ReportAhead();
  void SkipBlanks(bool lineEndsToo);
  std::u16string TakeQuoted();
  [[nodiscard]] bool AtEnd() const noexcept { return at_ >= text_.size(); }
  [[nodiscard]] Place From(std::size_t begin) const noexcept { return {&file_, begin, at_ - begin}; }

  const SourceFile& file_;
  std::string_view text_;
  Diagnostics& found_;
  Diagnostics ahead_;  ///< of the token ahead, which may yet be read as an item
  Diagnostics* sink_ = &found_;
  std::size_t at_ = 0;
  Token next_;
};

/// The text in quotation marks, so that the lexer gives it back.
[[nodiscard]] std::string Quote(std::u16string_view text);
/// An item as it may stand in brackets: bare where that gives it back.
[[nodiscard]] std::string ItemText(std::u16string_view item);
/// "[a, b]", in lines of readable width that begin with the indent.
[[nodiscard]] std::string ItemsInBrackets(const std::vector<std::string>& items, std::string_view indent);

[[nodiscard]] bool IsName(std::string_view text) noexcept;
[[nodiscard]] bool IsNumber(std::string_view text) noexcept;

}  // namespace zeph
