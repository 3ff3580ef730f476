// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// Finds the words of a list in a text, case ignored: in one pass over the text where the list is long, one word
/// after another where it is short. Made once from the list, then read by any number of threads.
class WordFinder {
 public:
  /// Takes the place of all words so far. words are in lower case; an empty one is never found.
  void Assign(std::span<const std::u16string> words);

  /// Position in the list of the first word that the text contains, or -1: what ContainsNoCase of one word after
  /// another gives.
  [[nodiscard]] std::ptrdiff_t FindFirst(std::u16string_view text) const;
  /// The same with ContainsWordNoCase: the word stands alone, no letter before it and none behind it.
  [[nodiscard]] std::ptrdiff_t FindFirstAlone(std::u16string_view text) const;
  /// How many of the words from position from on the text contains; counting ends at limit. Equal words count each.
  [[nodiscard]] std::size_t CountContained(std::u16string_view text, std::size_t from, std::size_t limit) const;
  /// positions becomes those of all words that the text contains, ascending. Allocates only when there are some.
  void FindAll(std::u16string_view text, std::vector<std::uint32_t>& positions) const;

 private:
  struct Word {
    std::uint32_t begin = 0;  ///< into text_
    std::uint32_t length = 0;
    std::uint32_t position = 0;  ///< in the list
    /// It can overlap itself behind a unit that is no letter: whether it stands alone then depends on where the search
    /// for it went on, so FindFirstAlone searches it by itself.
    bool overlapsItself = false;
  };
  /// Words that begin alike, a run of words_ in the order of the list.
  struct Slot {
    std::uint64_t prefix = 0;
    std::uint32_t begin = 0;
    std::uint32_t end = 0;  ///< equal to begin: the slot is free
  };
  /// The words whose prefix has this length: a word's first three units, or all of a shorter one.
  struct Level {
    Level(std::size_t length, std::size_t words);
    /// Where the prefix stands, or the free slot where it would.
    [[nodiscard]] std::size_t SlotOf(std::uint64_t prefix) const noexcept;

    std::size_t prefixLength;
    std::vector<std::uint64_t> seen;  ///< bit set of the prefixes' hashes: most places of a text end here
    std::vector<Slot> slots;          ///< a power of two, at most half full
    std::uint64_t mask;               ///< of the prefix among the last units of the text
    int shift;                        ///< brings a hash down to a bit of seen
    std::uint32_t last = 0;           ///< the highest position of its words in the list
    /// How far the search may go on from the last units of the shortest word's length, by their hash; 0: a word may
    /// stand there. Empty where even the shortest word is too short for that to pay.
    std::vector<std::uint8_t> jumps;
    std::size_t jumpedLength = 0;  ///< that length
  };

  [[nodiscard]] std::u16string_view TextOf(const Word& word) const noexcept {
    return std::u16string_view(text_).substr(word.begin, word.length);
  }
  /// Calls hit(word, begin) for each place where a word stands in the text, until it gives false. Needs levels. Those
  /// that have no word from a position of the list on aren't walked.
  template <class Hit>
  void Walk(std::u16string_view text, Hit hit, std::size_t from = 0) const;
  /// The same for one level, in jumps over places where none of its words can stand. False when a hit ended the walk.
  template <class Hit>
  bool Jump(const Level& level, std::u16string_view text, Hit& hit) const;
  /// Makes the jumps of a level of these words, a run of words_.
  void MakeJumps(Level& level, std::size_t begin, std::size_t end) const;
  /// The lowest position below first of a word that holds, or first: the words one after another.
  template <class Holds>
  [[nodiscard]] std::size_t FirstOf(std::size_t first, Holds holds) const;

  std::u16string text_;        ///< all words, one behind another
  std::vector<Word> words_;    ///< by length and text of the prefix, then in the order of the list
  std::vector<Level> levels_;  ///< empty while the words are few
  std::size_t count_ = 0;      ///< of the list, empty words included
};

}  // namespace zeph
