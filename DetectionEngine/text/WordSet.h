// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/text/WordFinder.h"

namespace zeph {

/// A list of words to be cut out of texts, one word after another in the order of the list. Made once from the list,
/// then read by any number of threads.
class WordSet {
 public:
  WordSet() = default;
  explicit WordSet(std::span<const std::u16string> words) { Assign(words); }

  /// Takes the place of all words so far. An empty word is never found, nor, in a text in lower case, one that isn't.
  void Assign(std::span<const std::u16string> words);
  [[nodiscard]] bool empty() const noexcept { return words_.empty(); }

  /// For each word in the list's order that the text, as the words before left it, contains: calls hit(word) and puts
  /// a blank in the place of every occurrence, from the left, without overlap. The text is in lower case. A text
  /// without any of the words costs one pass, and no allocation.
  template <class Hit>
  void CutOut(std::u16string& text, Hit hit) const {
    std::vector<std::uint32_t> candidates;
    FindCandidates(text, candidates);
    for (const std::uint32_t candidate : candidates) {
      const std::u16string& word = words_[candidate];
      if (FindExact(text, word) == std::u16string_view::npos) continue;
      ReplaceAll(text, word, u" ");
      hit(std::u16string_view(word));
    }
  }

 private:
  /// Positions in the list, ascending, of all words that can be met: what the text contains as it came, and what holds
  /// a blank, which may come about.
  void FindCandidates(std::u16string_view text, std::vector<std::uint32_t>& candidates) const;

  std::vector<std::u16string> words_;
  std::vector<std::uint32_t> withBlank_;
  WordFinder finder_;
};

}  // namespace zeph
