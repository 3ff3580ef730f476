// SPDX-License-Identifier: Apache-2.0
// Turns a URL into coded feature tokens: a code for a part and a property of it, and what was found there ("BE*8080"
// for the port). Tokens are the keys of the table of probabilities, so their spelling is a format; docs/url-tokens.md
// lists the codes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/FixedTokens.h"
#include "DetectionEngine/text/WordSet.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

/// Receives tokens in the order of their emission. A token's text is valid during the call only.
class TokenSink {
 public:
  virtual void Take(std::u16string_view token) = 0;
  /// One whose text is known beforehand: such tokens come this way alone.
  virtual void TakeFixed(FixedToken token) { Take(TextOf(token)); }
  /// The token of a word of the list, by its number there: such tokens come this way alone, too.
  virtual void TakeWord(WordCode code, std::uint32_t number, std::u16string_view word);

 protected:
  ~TokenSink() = default;
};

/// The tokens of a URL given as text. False, and no token, for a text that can't be taken apart. O(length) for a
/// given word list.
bool Tokenize(std::u16string_view url, const WordSet& words, TokenSink& sink);
/// The tokens of a decoded URL; an empty record counts as the text of its RawUrl.
bool Tokenize(const UrlRecord& record, const WordSet& words, TokenSink& sink);

/// The same as a list; nothing for a text that can't be taken apart.
[[nodiscard]] std::optional<std::vector<std::u16string>> TokensOf(std::u16string_view url, const WordSet& words);
[[nodiscard]] std::optional<std::vector<std::u16string>> TokensOf(const UrlRecord& record, const WordSet& words);

/// "+" becomes a blank, "%XX" the byte of that code, all in the narrow code page; a zero byte ends the text. Nothing
/// when a "%" isn't followed by two hexadecimal digits.
[[nodiscard]] std::optional<std::u16string> Unescape(std::u16string_view text);

}  // namespace zeph
