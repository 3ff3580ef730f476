// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/WordSet.h"

#include <bit>
#include <iterator>
#include <numeric>

namespace zeph {

void WordSet::Assign(std::span<const std::u16string> words) {
  *this = WordSet();
  words_.assign(words.begin(), words.end());
  letters_.fill(kNoLetter);
  std::uint8_t letters = 0;
  for (const std::u16string& word : words_) {
    for (const char16_t c : word) {
      if (c < letters_.size() && c != u' ' && letters_[c] == kNoLetter && letters < kNoLetter) letters_[c] = letters++;
    }
  }
  MakeTrie();
  std::vector<std::u16string> rest;
  for (std::size_t i = 0; i < words_.size(); ++i) {
    if (words_[i].empty() || FitsTrie(words_[i])) continue;
    if (words_[i].find(u' ') != std::u16string::npos) withBlank_.push_back(static_cast<std::uint32_t>(i));
    rest.push_back(words_[i]);
  }
  hasRest_ = !rest.empty();
  if (!hasRest_) return;
  rest_.Assign(rest);
  all_.Assign(words_);
}

bool WordSet::FitsTrie(std::u16string_view word) const noexcept {
  return !word.empty() && word.size() <= kLongestInTrie &&
         std::all_of(word.begin(), word.end(), [&](char16_t c) { return LetterOf(c) != kNoLetter; });
}

void WordSet::MakeTrie() {
  std::vector<std::uint32_t> sorted;
  for (std::uint32_t i = 0; i < words_.size(); ++i) {
    if (FitsTrie(words_[i])) sorted.push_back(i);
  }
  if (sorted.empty()) return;
  const auto isBefore = [&](std::uint32_t a, std::uint32_t b) {
    const auto letter = [&](char16_t c) { return LetterOf(c); };
    const std::u16string& one = words_[a];
    const std::u16string& other = words_[b];
    for (std::size_t i = 0; i < std::min(one.size(), other.size()); ++i) {
      if (one[i] != other[i]) return letter(one[i]) < letter(other[i]);
    }
    return one.size() != other.size() ? one.size() < other.size() : a < b;
  };
  std::sort(sorted.begin(), sorted.end(), isBefore);
  // Node by node in breadth: each stands for the run of sorted words that begin with its letters.
  struct Run {
    std::size_t begin, end, depth;
  };
  std::vector<Run> runs = {{0, sorted.size(), 0}};
  trie_.emplace_back();
  for (std::size_t node = 0; node < runs.size(); ++node) {
    auto [begin, end, depth] = runs[node];
    // Of equal words only the first is ever met.
    if (words_[sorted[begin]].size() == depth) trie_[node].word = sorted[begin];
    while (begin < end && words_[sorted[begin]].size() == depth) ++begin;
    trie_[node].firstChild = static_cast<std::uint32_t>(runs.size());
    while (begin < end) {
      const char16_t c = words_[sorted[begin]][depth];
      std::size_t behind = begin + 1;
      while (behind < end && words_[sorted[behind]][depth] == c) ++behind;
      trie_[node].children |= std::uint64_t{1} << LetterOf(c);
      runs.push_back({begin, behind, depth + 1});
      trie_.emplace_back();
      begin = behind;
    }
  }
}

void WordSet::FindHits(std::u16string_view text, std::vector<std::uint64_t>& hits) const {
  hits.clear();
  if (trie_.empty()) return;
  for (std::size_t begin = 0; begin < text.size(); ++begin) {
    const Node* node = trie_.data();
    for (std::size_t i = begin; i < text.size(); ++i) {
      const std::size_t letter = LetterOf(text[i]);
      if ((node->children >> letter & 1) == 0) break;
      const std::uint64_t before = node->children & ((std::uint64_t{1} << letter) - 1);
      node = &trie_[node->firstChild + static_cast<std::size_t>(std::popcount(before))];
      if (node->word != kNoWord) hits.push_back(HitOf(node->word, begin, i + 1 - begin));
    }
  }
}

bool WordSet::MayHoldRest(std::u16string_view text) const {
  return !withBlank_.empty() || rest_.FindFirst(text) >= 0;
}

// A word without blanks that stands in the text after other words gave way to blanks stood there before: a cut brings
// nothing together but around a blank.
void WordSet::FindCandidates(std::u16string_view text, std::vector<std::uint32_t>& candidates) const {
  all_.FindAll(text, candidates);
  if (withBlank_.empty()) return;
  std::vector<std::uint32_t> found;
  found.swap(candidates);
  std::set_union(found.begin(), found.end(), withBlank_.begin(), withBlank_.end(), std::back_inserter(candidates));
}

}  // namespace zeph
