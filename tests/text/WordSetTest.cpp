// SPDX-License-Identifier: Apache-2.0
#include <random>

#include <gtest/gtest.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/WordSet.h"

namespace zeph {
namespace {

// Three letters and the blank, so that words overlap and cuts make new ones possible.
TEST(WordSet, CutsOutAsOneWordAfterAnotherWould) {
  std::mt19937 random(77);  // NOLINT(cert-msc51-cpp): the same cases each time
  const auto randomText = [&](std::size_t most) {
    std::u16string text(random() % (most + 1), u' ');
    for (char16_t& c : text) c = u"aabbc "[random() % 6];
    return text;
  };
  for (int round = 0; round < 30'000; ++round) {
    std::vector<std::u16string> words(random() % 14);
    for (std::u16string& word : words) word = randomText(round % 2 == 0 ? 3 : 6);
    const std::u16string text = randomText(30);
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
    WordSet(words).CutOut(cut, [&](std::u16string_view word) { hits.emplace_back(word); });
    ASSERT_EQ(hits, expected) << trace;
    ASSERT_EQ(cut, left) << trace;
  }
}

}  // namespace
}  // namespace zeph
