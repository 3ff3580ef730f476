// SPDX-License-Identifier: Apache-2.0
// Markup to tokens, by the tokenization rules of the HTML standard. Works in place: what is kept of the markup (texts,
// values, new names) is moved down within the buffer that holds it, so that texts with references and dropped markup
// between them end up whole and nothing is allocated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "documents/html/Tree.h"

namespace zeph::html {

enum class TokenKind : std::uint8_t { kText, kNulls, kStartTag, kEndTag, kComment, kDoctype, kEnd };

struct Token {
  TokenKind kind = TokenKind::kEnd;
  bool selfClosing = false;
  bool forceQuirks = false;
  NameId name = 0;           ///< of a tag
  std::uint32_t begin = 0;   ///< of the text or comment; of a tag's attributes, which are the array's last
  std::uint32_t length = 0;  ///< their number
};

/// How text is read until the end tag of the element just opened.
enum class TextMode : std::uint8_t { kData, kRcdata, kRawText, kScript, kPlainText };

class Tokenizer {
 public:
  /// The tree's text is the markup; it is consumed and becomes the text of the tree's nodes. Line ends are single line
  /// feeds, and kScanPadding zeros stand behind its end.
  explicit Tokenizer(Tree& tree);

  /// Reads one token. Text comes in runs without zeros; zeros come as kNulls, however many stand in a row, with the
  /// replacement characters that they may become as the text.
  void Next(Token& token);

  /// What the tree builder asks for after a start tag; endTag is the name whose end tag ends the mode.
  void SetTextMode(TextMode mode, NameId endTag);
  /// Whether "<![CDATA[" opens a section, which depends on the node that is open.
  void AllowCdata(bool allow) noexcept { allowCdata_ = allow; }
  [[nodiscard]] const Doctype& LastDoctype() const noexcept { return doctype_; }
  /// Shortens the text that the last token brought; only before the next one is read.
  void TrimText(std::uint32_t end) noexcept { write_ = base_ + end; }
  /// Puts a blank behind all that was kept and gives its place. Only when the last token is a tag, which takes more
  /// room than what is kept of it.
  std::uint32_t PutBlank() noexcept {
    *write_++ = u' ';
    return Offset(write_ - 1);
  }
  /// Gives the end of what was kept.
  [[nodiscard]] std::size_t KeptLength() const noexcept { return static_cast<std::size_t>(write_ - base_); }

 private:
  enum class ScriptState : std::uint8_t { kPlain, kEscaped, kDoubleEscaped };

  [[nodiscard]] bool AtEnd(const char16_t* at) const noexcept { return at >= end_; }
  [[nodiscard]] std::uint32_t Offset(const char16_t* at) const noexcept {
    return static_cast<std::uint32_t>(at - base_);
  }
  void FinishText(Token& token, const char16_t* begin);
  void Data(Token& token);
  void Nulls(Token& token);
  void RawText(Token& token);
  void Script(Token& token);
  void PlainText(Token& token);
  bool Cdata(Token& token);
  /// At "<": an end tag of the element that holds the text.
  [[nodiscard]] bool AtAppropriateEndTag(const char16_t* at) const noexcept;
  /// At "&": moves what the reference stands for, or the ampersand.
  void Reference(bool inAttribute);
  void Put(char32_t codePoint) noexcept;
  /// Behind "<" or "</"; false when the text ends within the tag, which then is no token.
  bool Tag(Token& token, TokenKind kind);
  NameId Name(bool attribute);
  template <char16_t... kStops>
  void Value();
  void MarkupDeclaration(Token& token);
  void Comment(Token& token);
  void BogusComment(Token& token);
  void DoctypeDeclaration(Token& token);
  bool DoctypeId(Slice& id, bool& quirks);

  Tree& tree_;
  char16_t* base_;
  const char16_t* end_;
  const char16_t* read_;
  char16_t* write_;
  TextMode mode_ = TextMode::kData;
  bool inCdata_ = false;
  bool allowCdata_ = false;
  NameId endTag_ = 0;
  Doctype doctype_;
  /// The tag in which a name stood last, so that a second attribute of one name is found at once.
  GrowArray<std::uint32_t> lastSeen_;
  std::uint32_t tagNumber_ = 0;
};

}  // namespace zeph::html
