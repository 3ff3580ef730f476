// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/WordSet.h"

#include <algorithm>
#include <iterator>

namespace zeph {

void WordSet::Assign(std::span<const std::u16string> words) {
  words_.assign(words.begin(), words.end());
  withBlank_.clear();
  for (std::size_t i = 0; i < words_.size(); ++i) {
    if (words_[i].find(u' ') != std::u16string::npos) withBlank_.push_back(static_cast<std::uint32_t>(i));
  }
  finder_.Assign(words_);
}

// A word without blanks that stands in the text after other words gave way to blanks stood there before: a cut brings
// nothing together but around a blank.
void WordSet::FindCandidates(std::u16string_view text, std::vector<std::uint32_t>& candidates) const {
  finder_.FindAll(text, candidates);
  if (withBlank_.empty()) return;
  std::vector<std::uint32_t> found;
  found.swap(candidates);
  std::set_union(found.begin(), found.end(), withBlank_.begin(), withBlank_.end(), std::back_inserter(candidates));
}

}  // namespace zeph
