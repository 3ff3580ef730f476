// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/text/WordFinder.h"

namespace zeph {

/// A list of words to be cut out of texts, one word after another in the order of the list: in one pass over the text,
/// however long the list. Made once from the list, then read by any number of threads.
class WordSet {
 public:
  WordSet() = default;
  explicit WordSet(std::span<const std::u16string> words) { Assign(words); }

  /// Takes the place of all words so far. An empty word is never found, nor, in a text in lower case, one that isn't.
  void Assign(std::span<const std::u16string> words);
  [[nodiscard]] bool empty() const noexcept { return words_.empty(); }
  [[nodiscard]] std::size_t size() const noexcept { return words_.size(); }
  [[nodiscard]] std::u16string_view operator[](std::size_t number) const noexcept { return words_[number]; }

  /// Room that calls share, so that they needn't allocate.
  struct Room {
    std::vector<std::uint64_t> hits;
    std::vector<std::uint32_t> candidates;
  };

  /// For each word in the list's order that the text, as the words before left it, contains: calls hit(number of the
  /// word) and puts blanks in the place of every occurrence, from the left, without overlap. The text is in lower case.
  template <class Hit>
  void CutOut(std::u16string& text, Room& room, Hit hit) const {
    if (hasRest_ && MayHoldRest(text)) return CutOneByOne(text, room, hit);
    FindHits(text, room.hits);
    std::vector<std::uint64_t>& hits = room.hits;
    const bool isSorted = hits.size() > kFewHits;
    if (isSorted) std::sort(hits.begin(), hits.end());
    std::uint32_t last = kNoWord;
    for (std::size_t first = 0; first < hits.size();) {
      // The next word of the list, and of that the leftmost place.
      const std::uint64_t next = isSorted ? hits[first++] : *std::min_element(hits.begin(), hits.end());
      const std::size_t begin = BeginOf(next);
      const std::size_t length = LengthOf(next);
      if (isSorted && text.find(u' ', begin) < begin + length) continue;  // an earlier word took of it
      std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(begin), length, u' ');
      if (NumberOf(next) != last) hit(NumberOf(next));
      last = NumberOf(next);
      if (isSorted) continue;
      const auto overlaps = [&](std::uint64_t other) {
        return BeginOf(other) < begin + length && BeginOf(other) + LengthOf(other) > begin;
      };
      hits.erase(std::remove_if(hits.begin(), hits.end(), overlaps), hits.end());
    }
  }

 private:
  static constexpr std::uint32_t kNoWord = 0xFFFFFFFF;
  /// Longer words aren't in the trie, so that a text has a bounded number of hits.
  static constexpr std::size_t kLongestInTrie = 16;
  /// So many hits are sooner looked through for the lowest, time and again, than sorted.
  static constexpr std::size_t kFewHits = 64;

  /// A place where a word stands: its number above, so that hits order as words do, then where it begins and its
  /// length.
  static std::uint64_t HitOf(std::uint32_t number, std::size_t begin, std::size_t length) noexcept {
    return std::uint64_t{number} << 32 | begin << kLengthBits | length;
  }
  static constexpr int kLengthBits = 5;
  static std::uint32_t NumberOf(std::uint64_t hit) noexcept { return static_cast<std::uint32_t>(hit >> 32); }
  static std::size_t BeginOf(std::uint64_t hit) noexcept { return (hit & 0xFFFFFFFF) >> kLengthBits; }
  static std::size_t LengthOf(std::uint64_t hit) noexcept { return hit & ((1U << kLengthBits) - 1); }

  /// The children of a node lie side by side, in the order of their letters; a bit for each that there is.
  struct Node {
    std::uint64_t children = 0;
    std::uint32_t firstChild = 0;
    std::uint32_t word = kNoWord;  ///< that ends here
  };

  /// The letter of a unit, below kNoLetter, or that.
  [[nodiscard]] std::size_t LetterOf(char16_t c) const noexcept {
    return c < letters_.size() ? letters_[c] : kNoLetter;
  }
  static constexpr std::uint8_t kNoLetter = 63;

  void MakeTrie();
  [[nodiscard]] bool FitsTrie(std::u16string_view word) const noexcept;
  /// All places where words of the trie stand in the text.
  void FindHits(std::u16string_view text, std::vector<std::uint64_t>& hits) const;
  /// A word that isn't in the trie may be met.
  [[nodiscard]] bool MayHoldRest(std::u16string_view text) const;

  template <class Hit>
  void CutOneByOne(std::u16string& text, Room& room, Hit hit) const {
    FindCandidates(text, room.candidates);
    for (const std::uint32_t candidate : room.candidates) {
      const std::u16string& word = words_[candidate];
      if (FindExact(text, word) == std::u16string_view::npos) continue;
      ReplaceAll(text, word, u" ");
      hit(candidate);
    }
  }
  /// Positions in the list, ascending, of all words that can be met: what the text contains as it came, and what holds
  /// a blank, which may come about.
  void FindCandidates(std::u16string_view text, std::vector<std::uint32_t>& candidates) const;

  std::vector<std::u16string> words_;
  std::array<std::uint8_t, 128> letters_{};
  std::vector<Node> trie_;  ///< of the short words of few different letters: as good as all
  bool hasRest_ = false;    ///< there are others
  WordFinder rest_;         ///< those
  WordFinder all_;          ///< all words, when there are others
  std::vector<std::uint32_t> withBlank_;
};

}  // namespace zeph
