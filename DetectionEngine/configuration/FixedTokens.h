// SPDX-License-Identifier: Apache-2.0
// Tokens that hang on no word of the URL: a host's characters, small counts, marks. Their texts are made by the
// compiler, so that a token costs no more than its number. And the codes in front of words.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zeph {

/// The beginning of a token as a number: tokens whose numbers differ are in the order of these. It takes in the first
/// eight units, up to the first that isn't of Latin-1.
[[nodiscard]] constexpr std::uint64_t BeginningOf(std::u16string_view token) noexcept {
  constexpr std::size_t kUnits = 8;
  const std::size_t length = std::min(token.size(), kUnits);
  std::uint64_t beginning = 0;
  for (std::size_t i = 0; i < kUnits; ++i) {
    const std::uint64_t unit = i < length ? token[i] : 0;
    beginning = beginning << 8 | std::min<std::uint64_t>(unit, 0xFF);
    if (unit >= 0xFF) return beginning << (8 * (kUnits - 1 - i));
  }
  return beginning;
}

/// A short text that the compiler can make.
class TokenText {
 public:
  constexpr TokenText& operator+=(std::u16string_view text) {
    for (const char16_t c : text) text_[length_++] = c;
    return *this;
  }
  constexpr TokenText& operator+=(char16_t c) { return *this += std::u16string_view(&c, 1); }
  constexpr operator std::u16string_view() const { return {text_.data(), length_}; }

 private:
  std::array<char16_t, 11> text_{};
  std::uint8_t length_ = 0;
};

/// The token of one character of a host: an ASCII letter or digit itself, of others the code.
[[nodiscard]] constexpr TokenText HostCharacterToken(char16_t c) {
  TokenText text;
  text += u"AGAE*";
  const bool isItself = (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
  if (isItself) return text += c;
  text += u'%';
  int shift = 12;
  while (shift > 0 && c >> shift == 0) shift -= 4;
  for (; shift >= 0; shift -= 4) text += u"0123456789abcdef"[c >> shift & 15];
  return text;
}

using FixedToken = std::uint16_t;

namespace fixed {

inline constexpr std::size_t kCharacters = 0x80;

/// A code with each of the numbers below count.
struct Counted {
  std::u16string_view code;
  std::size_t count;
};
inline constexpr std::array kCounted = {
    Counted{u"ALAE*", 11},   Counted{u"BQ*", 4},   Counted{u"BT*", 10},  Counted{u"BKBL*", 13},
    Counted{u"BKBM*AK", 11}, Counted{u"BKBN*", 2}, Counted{u"BKBO*", 4}, Counted{u"AICD*", 20},
};
inline constexpr auto kMarks = std::to_array<std::u16string_view>(
    {u"CE*1",    u"CF*1",    u"BD*http", u"BD*https", u"BW*1",  u"BE*-1",   u"BH*",     u"BI*AJ",
     u"BI*AM",   u"ALAE*AS", u"BQ*AP",   u"BQ*AQ",    u"BX*1",  u"BKBL*AT", u"BKBM*AN", u"BKBN*AR",
     u"BKBO*AO", u"BP*50",   u"BP*40",   u"BP*35",    u"BP*30", u"BP*20"});

inline constexpr std::size_t kCount = [] {
  std::size_t count = kCharacters + kMarks.size();
  for (const Counted& counted : kCounted) count += counted.count;
  return count;
}();

struct Text {
  TokenText text;
  std::uint64_t beginning = 0;
};
inline constexpr auto kTexts = [] {
  std::array<Text, kCount> texts;
  std::size_t at = 0;
  const auto add = [&](TokenText text) { texts[at++] = {text, BeginningOf(text)}; };
  for (char16_t c = 0; c < kCharacters; ++c) add(HostCharacterToken(c));
  for (const Counted& counted : kCounted) {
    for (std::size_t n = 0; n < counted.count; ++n) {
      TokenText text;
      text += counted.code;
      if (n >= 10) text += static_cast<char16_t>(u'0' + n / 10);
      add(text += static_cast<char16_t>(u'0' + n % 10));
    }
  }
  for (const std::u16string_view mark : kMarks) {
    TokenText text;
    add(text += mark);
  }
  return texts;
}();

}  // namespace fixed

inline constexpr std::size_t kFixedTokenCount = fixed::kCount;

/// The token of that text; the compiler refuses a text that isn't in the lists.
[[nodiscard]] consteval FixedToken Fixed(std::u16string_view text) {
  std::size_t at = 0;
  while (std::u16string_view(fixed::kTexts[at].text) != text) ++at;
  return static_cast<FixedToken>(at);
}

/// The tokens of a code and the numbers below count, one behind another.
struct FixedCounts {
  std::u16string_view code;
  std::size_t count;
  FixedToken first;
};
[[nodiscard]] consteval FixedCounts CountsOf(std::u16string_view code) {
  std::size_t first = fixed::kCharacters;
  std::size_t at = 0;
  while (fixed::kCounted[at].code != code) first += fixed::kCounted[at++].count;
  return {fixed::kCounted[at].code, fixed::kCounted[at].count, static_cast<FixedToken>(first)};
}

/// Of an ASCII character of the host.
[[nodiscard]] constexpr FixedToken FixedCharacter(char16_t c) noexcept { return c; }

[[nodiscard]] constexpr std::u16string_view TextOf(FixedToken token) noexcept { return fixed::kTexts[token].text; }
[[nodiscard]] constexpr std::uint64_t BeginningOf(FixedToken token) noexcept { return fixed::kTexts[token].beginning; }

/// What stands in front of a word in its token: where in the URL it was found; kAnywhere, for words of the list, beside
/// each of the others.
enum class WordCode : std::uint8_t { kFile, kSite, kSubdomain, kFolder, kKey, kValue, kAnywhere };
inline constexpr std::array<std::u16string_view, 7> kWordCodes = {u"AF*",   u"BU*",   u"AE*", u"BK*",
                                                                  u"AIBY*", u"AIBZ*", u"BG*"};
[[nodiscard]] constexpr std::u16string_view TextOf(WordCode code) noexcept {
  return kWordCodes[static_cast<std::size_t>(code)];
}

}  // namespace zeph
