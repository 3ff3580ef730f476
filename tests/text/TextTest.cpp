// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

using Texts = std::vector<std::u16string>;

std::u16string RandomText(std::mt19937& random, std::u16string_view alphabet, std::size_t most) {
  std::u16string text(std::uniform_int_distribution<std::size_t>(0, most)(random), u' ');
  std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1);
  for (char16_t& c : text) c = alphabet[pick(random)];
  return text;
}

TEST(SplitAt, DropsEmptyPiecesAndAppends) {
  struct {
    std::u16string_view text;
    Texts pieces;
  } const rows[] = {
      {u"", {}}, {u",", {}}, {u",a,,b,", {u"a", u"b"}}, {u"a", {u"a"}}, {u"a, b", {u"a", u" b"}},
  };
  for (const auto& row : rows) {
    Texts pieces = {u"before"};
    Texts expected = pieces;
    expected.insert(expected.end(), row.pieces.begin(), row.pieces.end());
    EXPECT_EQ(SplitAt(row.text, u',', pieces), expected.size()) << Narrow(row.text);
    EXPECT_EQ(pieces, expected) << Narrow(row.text);
  }
}

TEST(SplitWords, CleansEachWordAndKeepsEmptiedOnes) {
  struct {
    std::u16string_view text;
    std::u16string_view delimiters;
    bool removePunctuation;
    bool squeeze;
    Texts words;
  } const rows[] = {
      {u" \tone two\r\n", u"", false, false, {u"one", u"two"}},
      {u"one\u3000two", u"", false, false, {u"one", u"two"}},
      {u"a b,c", u",;", false, false, {u"a b", u"c"}},
      {u"it's -- aabb/", u"", true, false, {u"its", u"", u"aabb/"}},
      {u"aab.aabb", u".", false, true, {u"ab", u"abb"}},
      {u"a..ab", u" ", true, true, {u"ab"}},
      {u"   ", u"", true, true, {}},
  };
  for (const auto& row : rows) {
    Texts words;
    EXPECT_EQ(SplitWords(row.text, words, row.delimiters, row.removePunctuation, row.squeeze), row.words.size());
    EXPECT_EQ(words, row.words) << Narrow(row.text);
  }
}

TEST(Cleaning, CountsWhatItErasesAndLeavesLongTextsAlone) {
  std::u16string text = u"\u00c9t\u00e9 & Co./9_";
  EXPECT_EQ(RemovePunctuation(text), 3U);
  EXPECT_EQ(text, u"\u00c9t\u00e9  Co/9");
  EXPECT_EQ(KeepAlnum(text), 3U);
  EXPECT_EQ(text, u"\u00c9t\u00e9Co9");

  for (const std::size_t length : {kCleaningLimit, kCleaningLimit + 1}) {
    const std::u16string full = std::u16string(length - 1, u'.') + u"x";
    for (const auto clean : {RemovePunctuation, KeepAlnum, SqueezeRepeats}) {
      std::u16string cleaned = full;
      const bool tooLong = length > kCleaningLimit;
      EXPECT_EQ(clean(cleaned) == 0, tooLong) << length;
      EXPECT_EQ(cleaned == full, tooLong) << length;
    }
  }
}

TEST(SqueezeRepeats, ShortensRunsThatEndInsideTheText) {
  struct {
    std::u16string_view text;
    std::u16string_view squeezed;
    std::size_t erasures;
  } const rows[] = {
      {u"", u"", 0},           {u"bookkeeper", u"bookeeper", 1},
      {u"shopp", u"shopp", 0}, {u"shoppx", u"shopx", 1},
      {u"moood", u"mod", 1},   {u"ooox", u"ox", 1},
      {u"oox", u"oox", 0},     {u"OOx", u"Ox", 1},
      {u"aaa", u"aaa", 0},     {u"aaab", u"ab", 1},
      {u"aabbcc", u"abcc", 2},
  };
  for (const auto& row : rows) {
    std::u16string text(row.text);
    EXPECT_EQ(SqueezeRepeats(text), row.erasures) << Narrow(row.text);
    EXPECT_EQ(text, row.squeezed) << Narrow(row.text);
  }
}

/// Starts again at the beginning after each erasure.
std::size_t SqueezeByRestart(std::u16string& text) {
  std::size_t erasures = 0;
  std::size_t run = 1;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == text[i - 1]) {
      ++run;
      continue;
    }
    const bool pair = run == 2 && (text[i - 1] == u'o' || text[i - 1] == u'e');
    if (run > 1 && !pair) {
      text.erase(i - run, run - 1);
      ++erasures;
      i = 0;
    }
    run = 1;
  }
  return erasures;
}

TEST(SqueezeRepeats, GivesInOnePassWhatRestartsGive) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    const std::u16string text = RandomText(random, u"aoeO", 24);
    std::u16string once = text;
    std::u16string restarted = text;
    ASSERT_EQ(SqueezeRepeats(once), SqueezeByRestart(restarted)) << Narrow(text);
    ASSERT_EQ(once, restarted) << Narrow(text);
  }
}

TEST(TrimAndBlank, GoByWideWhiteSpace) {
  for (const auto& [text, trimmed] : std::map<std::u16string, std::u16string>{
           {u"", u""}, {u" \t\u2003", u""}, {u"\u3000 a b\n", u"a b"}, {u"ab", u"ab"}}) {
    std::u16string result = text;
    Trim(result);
    EXPECT_EQ(result, trimmed) << Narrow(text);
    EXPECT_EQ(IsBlank(text), trimmed.empty()) << Narrow(text);
  }
}

TEST(ReplaceAll, GoesOnBehindWhatItInserted) {
  struct {
    std::u16string_view text, find, replacement, exact, noCase;
  } const rows[] = {
      {u"aaa", u"a", u"aa", u"aaaaaa", u"aaaaaa"},    {u"aaaa", u"aa", u"a", u"aa", u"aa"},
      {u"aaab", u"aab", u"x", u"ax", u"ax"},          {u"xAbX", u"ab", u"Q", u"xAbX", u"xQx"},
      {u"KEEP", u"none", u"Q", u"KEEP", u"keep"},     {u"xABx", u"AB", u"", u"xx", u"xx"},
      {u"\u212aey", u"KEY", u"d", u"\u212aey", u"d"},
  };
  for (const auto& row : rows) {
    std::u16string exact(row.text);
    ReplaceAll(exact, row.find, row.replacement);
    EXPECT_EQ(exact, row.exact) << Narrow(row.text);
    std::u16string noCase(row.text);
    ReplaceAllNoCase(noCase, row.find, row.replacement);
    EXPECT_EQ(noCase, row.noCase) << Narrow(row.text);
  }
}

TEST(Prefixes, AnEmptyPrefixPassesAndAnEmptySuffixDoesNot) {
  EXPECT_TRUE(StartsWith(u"ab", u""));
  EXPECT_FALSE(StartsWith(u"ab", u"abc"));
  EXPECT_FALSE(StartsWith(u"ab", u"A"));
  EXPECT_TRUE(StartsWithNoCase(u"aB", u"Ab"));
  EXPECT_FALSE(StartsWithNoCase(u"a", u"ab"));
  EXPECT_FALSE(EndsWith(u"ab", u""));
  EXPECT_TRUE(EndsWith(u"ab", u"ab"));
  EXPECT_FALSE(EndsWith(u"b", u"ab"));
}

TEST(Search, KnowsEveryUnitThatFoldsToOne) {
  // The search keeps at most two units beside the lower-case one; a table with more would make it miss some.
  std::map<char16_t, int> origins;
  for (std::uint32_t i = 0; i < 0x10000; ++i) {
    const auto c = static_cast<char16_t>(i);
    if (LowerOf(c) != c) {
      ASSERT_LE(++origins[LowerOf(c)], 2) << i;
    }
    EXPECT_TRUE(ContainsNoCase(std::u16string(1, LowerOf(c)), std::u16string(1, c))) << i;
    EXPECT_TRUE(ContainsNoCase(std::u16string(1, c), std::u16string(1, LowerOf(c)))) << i;
  }
}

TEST(Search, AgreesWithTheDirectWalk) {
  std::mt19937 random(2);
  // Few letters, so that hits, near hits and periodic needles are common; the units of each line fold together.
  for (const std::u16string_view alphabet : {u"ab", u"aAbB", u"kK\u212ax", u"\u0416\u0436\u4e2da"}) {
    for (int i = 0; i < 2000; ++i) {
      std::u16string text = RandomText(random, alphabet, 300);
      std::u16string needle = RandomText(random, alphabet, 6);
      if (i % 2 == 0) {  // near hits so long and so many that the filter gives up and the other search takes over
        const std::u16string period = RandomText(random, alphabet, 5) + alphabet[0];
        needle.clear();
        while (needle.size() < 80) needle += period;
        text.clear();
        while (text.size() < 600) text += needle;
        needle.erase(random() % needle.size(), 1);
        if (i % 4 == 0) needle[random() % needle.size()] = alphabet[random() % alphabet.size()];
        if (i % 6 != 0) text.insert(text.size() - random() % 300, needle);
      }
      const std::size_t from = i % 3 == 0 ? random() % (text.size() + 2) : 0;
      ASSERT_EQ(FindExact(text, needle, from), text.find(needle, from)) << Narrow(needle) << " in " << Narrow(text);
      const std::size_t folded = ToLower(text).find(ToLower(needle));
      ASSERT_EQ(FindNoCase(text, needle).value_or(std::u16string::npos), folded)
          << Narrow(needle) << " in " << Narrow(text);
      ASSERT_EQ(ContainsNoCase(needle, text), folded != std::u16string::npos);
    }
  }
}

TEST(Search, EndsSoonOnTextsMadeToSlowIt) {
  const std::u16string text(4'000'000, u'a');
  const std::u16string half(text.size() / 4, u'A');
  EXPECT_FALSE(ContainsNoCase(half + u"b" + half, text));
  EXPECT_FALSE(ContainsNoCase(u"ab" + half, text));
  EXPECT_FALSE(ContainsNoCase(half + u"ba", text));
  EXPECT_FALSE(ContainsWordNoCase(half.substr(0, 1000), u"b" + text));
}

TEST(ContainsWordNoCase, WantsNoLetterOnEitherSide) {
  struct {
    std::u16string_view needle, text;
    bool found;
  } const rows[] = {
      {u"bank", u"in my bank!", true},
      {u"BANK", u"My Bank", true},
      {u"bank", u"embankment", false},
      {u"bank", u"bank1", true},
      {u"bank", u"banks", true},  // the text's last character isn't looked at
      {u"bank", u"banks.", false},
      {u"bank", u"banker bank of", true},
      {u"a a", u"xa a a b", false},  // the hits overlap: the search goes on behind the first
      {u"", u"a", true},
      {u"", u"ab", false},
      {u"bank", u"", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ContainsWordNoCase(row.needle, row.text), row.found) << Narrow(row.needle) << " in " << Narrow(row.text);
  }
}

TEST(Lists, CountAndFindItems) {
  const std::u16string_view list[] = {u"inbox", u"", u"Sent", u"trash"};
  EXPECT_TRUE(CountContainedNoCase(u"INBOX and sent", list, 3));  // an empty item is in any text
  EXPECT_FALSE(CountContainedNoCase(u"INBOX and sent", list, 4));
  EXPECT_TRUE(CountContainedNoCase(u"x", list, 0));
  EXPECT_FALSE(CountContainedNoCase(u"", list, 0));
  EXPECT_FALSE(CountContainedNoCase(u"x", {}, 0));

  std::u16string out = u"before";
  EXPECT_EQ(IndexOfExact(u"sent", list, out), -1);
  EXPECT_EQ(out, u"before");
  EXPECT_EQ(IndexOfExact(u"Sent", list, out), 2);
  EXPECT_EQ(out, u"Sent");
}

TEST(ToLower, FoldsEachUnitInWholeBlocksAndBehindThem) {
  std::u16string all;
  for (std::uint32_t i = 0; i < 0x10000; ++i) all += static_cast<char16_t>(i);
  all += u"TAIL";
  const std::u16string lower = ToLower(all);
  ASSERT_EQ(lower.size(), all.size());
  for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(lower[i], LowerOf(all[i])) << i;
}

TEST(ReadNumber, StopsAtTheFirstOtherCharacterAndHoldsAtTheRange) {
  for (const auto& [text, number] :
       std::map<std::u16string, std::int32_t>{{u"", 0},
                                              {u"x1", 0},
                                              {u" \t+12,5", 12},
                                              {u"-7x", -7},
                                              {u"- 7", 0},
                                              {u"+-7", 0},
                                              {u"007", 7},
                                              {u"2147483648", 2147483647},
                                              {u"-2147483648", -2147483647 - 1},
                                              {u"-99999999999999999999", -2147483647 - 1}}) {
    EXPECT_EQ(ReadNumber(text), number) << Narrow(text);
  }
}

TEST(ReadReal, ReadsDecimalTextOnly) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const auto& [text, number] : std::map<std::u16string, double>{{u"", 0.0},
                                                                     {u".", 0.0},
                                                                     {u" -.5x", -0.5},
                                                                     {u"+1.5e2", 150.0},
                                                                     {u"1e", 1.0},
                                                                     {u"5.", 5.0},
                                                                     {u"1e+", 1.0},
                                                                     {u"1,5", 1.0},
                                                                     {u"inf", 0.0},
                                                                     {u"nan", 0.0},
                                                                     {u"+-1", 0.0},
                                                                     {u"--1", 0.0},
                                                                     {u"0x10", 0.0},
                                                                     {u"1e999", kInfinity},
                                                                     {u"-1e999", -kInfinity},
                                                                     {u"1e-999", 0.0},
                                                                     {u"1.5.5", 1.5},
                                                                     {u"1-2", 1.0},
                                                                     {u"0." + std::u16string(400, u'0') + u"1e5", 0.0},
                                                                     {u"1" + std::u16string(400, u'0'), kInfinity}}) {
    EXPECT_EQ(ReadReal(text), number) << Narrow(text);
  }
}

TEST(RealText, IsWhatThePercentFormGives) {
  for (const double number : {0.0, -0.0, 0.5, 1.0 / 3, 2.5e-7, 0.0000005, -123456789.987654321,
                              std::numeric_limits<double>::max(), std::numeric_limits<double>::infinity()}) {
    char expected[512];
    std::snprintf(expected, sizeof expected, "%f", number);
    EXPECT_EQ(Narrow(RealText(number)), expected);
  }
}

}  // namespace
}  // namespace zeph
