// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/text/WordFinder.h"

namespace zeph {
namespace {

WordFinder FinderOf(const std::vector<std::u16string>& words) {
  WordFinder finder;
  finder.Assign(words);
  return finder;
}

template <class Holds>
std::ptrdiff_t FirstByWalk(const std::vector<std::u16string>& words, Holds holds) {
  const auto at = std::ranges::find_if(words, [&](const std::u16string& word) { return !word.empty() && holds(word); });
  return at == words.end() ? -1 : at - words.begin();
}

// Few letters, so that words overlap each other and themselves; the Kelvin sign folds to a letter of one.
std::u16string RandomText(std::mt19937& random, std::size_t length, std::u16string_view units) {
  std::u16string text(random() % (length + 1), u'\0');
  for (char16_t& c : text) c = units[random() % units.size()];
  return text;
}

TEST(WordFinder, AnswersAsOneSearchAfterAnother) {
  std::mt19937 random(20240);  // NOLINT(cert-msc51-cpp): the same cases each time
  for (int round = 0; round < 5'000; ++round) {
    const std::u16string_view lower = round % 2 == 0 ? u"ak-" : u"akn- \u00e9";
    const std::u16string_view any = round % 2 == 0 ? u"aAk-\u212a" : u"akNn- \u00e9\u00c9";
    std::vector<std::u16string> words(random() % 14);
    for (std::u16string& word : words) word = RandomText(random, round % 3 == 0 ? 9 : 5, lower);
    // Long words alone are searched in jumps.
    const bool isLong = round % 4 == 3;
    for (std::u16string& word : words) {
      while (isLong && word.size() < 6) word += lower[random() % lower.size()];
    }
    const std::u16string text = RandomText(random, isLong ? 200 : 24, any);
    const WordFinder finder = FinderOf(words);
    std::string trace = "in \"" + Narrow(text) + "\":";
    for (const std::u16string& word : words) trace += " \"" + Narrow(word) + "\"";
    SCOPED_TRACE(trace);

    ASSERT_EQ(finder.FindFirst(text),
              FirstByWalk(words, [&](const std::u16string& word) { return ContainsNoCase(word, text); }));
    ASSERT_EQ(finder.FindFirstAlone(text),
              FirstByWalk(words, [&](const std::u16string& word) { return ContainsWordNoCase(word, text); }));
    const std::size_t from = random() % 3;
    const std::size_t limit = random() % 5;
    std::size_t count = 0;
    for (std::size_t i = from; i < words.size() && count < limit; ++i) {
      count += !words[i].empty() && ContainsNoCase(words[i], text) ? 1 : 0;
    }
    ASSERT_EQ(finder.CountContained(text, from, limit), count);
    std::vector<std::uint32_t> contained;
    for (std::size_t i = 0; i < words.size(); ++i) {
      if (!words[i].empty() && ContainsNoCase(words[i], text)) contained.push_back(static_cast<std::uint32_t>(i));
    }
    std::vector<std::uint32_t> positions = {7};
    finder.FindAll(text, positions);
    ASSERT_EQ(positions, contained);
  }
}

// As many as a package of some 100 KB can bring: minutes, when each word is compared with itself at every shift.
TEST(WordFinder, TakesLongWordsThatNearlyRepeat) {
  std::u16string word(30'000, u'.');
  word += u'x';
  const WordFinder finder = FinderOf(std::vector<std::u16string>(60, word));
  EXPECT_EQ(finder.FindFirstAlone(u" " + word), 0);
}

TEST(WordFinder, TellsAUnitOfZeroFromNoUnit) {
  const WordFinder finder = FinderOf({std::u16string(u"\0a", 2), u"\0b\0\0"});
  EXPECT_EQ(finder.FindFirst(u"a"), -1);
  EXPECT_EQ(finder.FindFirst(std::u16string(u"\0\0a", 3)), 0);
}

TEST(WordFinder, AssignTakesThePlaceOfEarlierWords) {
  WordFinder finder = FinderOf({u"bank", u"login"});
  finder.Assign(std::vector<std::u16string>{u"mail"});
  EXPECT_EQ(finder.FindFirst(u"bank login"), -1);
  EXPECT_EQ(finder.FindFirst(u"My Mail"), 0);
  finder.Assign({});
  EXPECT_EQ(finder.FindFirst(u"My Mail"), -1);
}

}  // namespace
}  // namespace zeph
