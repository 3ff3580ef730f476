// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <random>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/WordSet.h"

namespace zeph {
namespace {

/// What stands between blanks: how many stand in the place of a word doesn't matter.
std::vector<std::u16string> Pieces(const std::u16string& text) {
  std::vector<std::u16string> pieces = {u""};
  for (const char16_t c : text) {
    if (c != u' ') {
      pieces.back() += c;
    } else if (!pieces.back().empty()) {
      pieces.emplace_back();
    }
  }
  return pieces;
}

// Three letters and the blank, so that words overlap and cuts make new ones possible; some lists have none of the
// words that take the long way (with a blank, long, of letters beyond ASCII), some texts are long.
TEST(WordSet, CutsOutAsOneWordAfterAnotherWould) {
  std::mt19937 random(77);  // NOLINT(cert-msc51-cpp): the same cases each time
  std::u16string_view letters;
  const auto randomText = [&](std::size_t most) {
    std::u16string text(random() % (most + 1), u' ');
    for (char16_t& c : text) c = letters[random() % letters.size()];
    return text;
  };
  for (int round = 0; round < 30'000; ++round) {
    std::vector<std::u16string> words(random() % 14);
    letters = std::array<std::u16string_view, 3>{u"aabbc ", u"aabbc", u"aab\u0434"}[random() % 3];
    for (std::u16string& word : words) word = randomText(round % 100 == 0 ? 20 : round % 2 == 0 ? 3 : 6);
    const std::u16string text = randomText(round % 50 == 0 ? 200 : 30);
    std::string trace = "\"" + Narrow(text) + "\":";
    for (const std::u16string& word : words) trace += " \"" + Narrow(word) + "\"";

    std::u16string left = text;
    std::vector<std::u16string> expected;
    for (const std::u16string& word : words) {
      if (word.empty() || left.find(word) == std::u16string::npos) continue;
      for (std::size_t at = left.find(word); at != std::u16string::npos; at = left.find(word, at + 1)) {
        left.replace(at, word.size(), 1, u' ');
      }
      expected.push_back(word);
    }
    std::u16string cut = text;
    std::vector<std::u16string> hits;
    WordSet::Room room;
    WordSet(words).CutOut(cut, room, [&](std::uint32_t number) { hits.push_back(words[number]); });
    ASSERT_EQ(hits, expected) << trace;
    ASSERT_EQ(Pieces(cut), Pieces(left)) << trace;
  }
}

}  // namespace
}  // namespace zeph
