// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/WordFinder.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {
namespace {

/// So many words are searched sooner one after another than in one pass.
constexpr std::size_t kFewWords = 3;

/// Words are told apart by their first units: enough that few places of a text look like a word's beginning, and so
/// few that most words have them.
constexpr std::size_t kPrefixUnits = 3;

/// From this length on jumps pay, and no jump is longer than the second.
constexpr std::size_t kShortestJumped = 6;
constexpr std::size_t kLongestJumped = 24;

std::size_t PrefixLengthOf(std::u16string_view word) noexcept { return std::min(word.size(), kPrefixUnits); }

/// The last unit stands in the low bits.
std::uint64_t PrefixOf(std::u16string_view word) noexcept {
  std::uint64_t prefix = 0;
  for (const char16_t c : word.substr(0, kPrefixUnits)) prefix = prefix << 16 | c;
  return prefix;
}

std::uint64_t HashOf(std::uint64_t prefix) noexcept { return prefix * 0x9E3779B97F4A7C15U; }

/// The prefix of what stands at a place of a text, folded.
std::uint64_t FoldedPrefixAt(const char16_t* units) noexcept {
  static_assert(kPrefixUnits == 3);
  return std::uint64_t{LowerOf(units[0])} << 32 | std::uint64_t{LowerOf(units[1])} << 16 | LowerOf(units[2]);
}

/// The place of a prefix's hash in a table whose size is a power of two.
std::size_t PlaceOf(std::uint64_t prefix, std::size_t size) noexcept {
  return static_cast<std::size_t>(HashOf(prefix) >> (64 - std::countr_zero(size)));
}

/// Linear, since words come from packages: borders[i] is the length of the longest text that the first i + 1 units
/// both begin and, further on, end with.
bool OverlapsItselfBehindNonLetter(std::u16string_view word) {
  std::vector<std::size_t> borders(word.size());
  for (std::size_t i = 1; i < word.size(); ++i) {
    std::size_t border = borders[i - 1];
    while (border > 0 && word[i] != word[border]) border = borders[border - 1];
    borders[i] = word[i] == word[border] ? border + 1 : 0;
  }
  for (std::size_t border = word.empty() ? 0 : borders.back(); border > 0; border = borders[border - 1]) {
    if (!IsAlpha(word[word.size() - border - 1])) return true;
  }
  return false;
}

}  // namespace

WordFinder::Level::Level(std::size_t length, std::size_t words)
    : prefixLength(length),
      seen(std::bit_ceil(words)),  // 64 bits a word
      slots(std::bit_ceil(2 * words)),
      mask((std::uint64_t{1} << (16 * length)) - 1),
      shift(64 - std::countr_zero(64 * seen.size())) {}

std::size_t WordFinder::Level::SlotOf(std::uint64_t prefix) const noexcept {
  std::size_t at = static_cast<std::size_t>(HashOf(prefix) >> 32) & (slots.size() - 1);
  while (slots[at].end != slots[at].begin && slots[at].prefix != prefix) at = (at + 1) & (slots.size() - 1);
  return at;
}

void WordFinder::Assign(std::span<const std::u16string> words) {
  *this = WordFinder();
  count_ = words.size();
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i].empty()) continue;
    words_.push_back({static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(words[i].size()),
                      static_cast<std::uint32_t>(i), OverlapsItselfBehindNonLetter(words[i])});
    text_ += words[i];
  }
  if (words_.size() <= kFewWords) return;
  std::ranges::stable_sort(
      words_, {}, [&](const Word& word) { return std::pair(PrefixLengthOf(TextOf(word)), PrefixOf(TextOf(word))); });
  for (std::size_t begin = 0; begin < words_.size();) {
    const std::size_t length = PrefixLengthOf(TextOf(words_[begin]));
    std::size_t end = begin + 1;
    while (end < words_.size() && PrefixLengthOf(TextOf(words_[end])) == length) ++end;
    Level& level = levels_.emplace_back(length, end - begin);
    if (length == kPrefixUnits) MakeJumps(level, begin, end);
    for (; begin < end; ++begin) {
      const std::uint64_t prefix = PrefixOf(TextOf(words_[begin]));
      const std::uint64_t bit = HashOf(prefix) >> level.shift;
      level.last = std::max(level.last, words_[begin].position);
      level.seen[bit / 64] |= std::uint64_t{1} << (bit % 64);
      Slot& slot = level.slots[level.SlotOf(prefix)];
      if (slot.end == slot.begin) slot = {prefix, static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(begin)};
      ++slot.end;
    }
  }
}

void WordFinder::MakeJumps(Level& level, std::size_t begin, std::size_t end) const {
  std::size_t length = kLongestJumped;
  for (std::size_t w = begin; w < end; ++w) length = std::min<std::size_t>(length, words_[w].length);
  if (length < kShortestJumped) return;
  level.jumpedLength = length;
  // Many places for each end of units, so that few places of a text stop the search without cause.
  const std::size_t size = std::clamp<std::size_t>(std::bit_ceil(8 * length * (end - begin)), 1024, 1 << 16);
  level.jumps.assign(size, static_cast<std::uint8_t>(length - kPrefixUnits + 1));
  for (std::size_t w = begin; w < end; ++w) {
    const std::u16string_view word = TextOf(words_[w]);
    for (std::size_t at = kPrefixUnits; at <= length; ++at) {
      std::uint8_t& jump = level.jumps[PlaceOf(PrefixOf(word.substr(at - kPrefixUnits)), size)];
      jump = std::min(jump, static_cast<std::uint8_t>(length - at));
    }
  }
}

template <class Hit>
bool WordFinder::Jump(const Level& level, std::u16string_view text, Hit& hit) const {
  for (std::size_t end = level.jumpedLength; end <= text.size();) {
    const std::size_t jump = level.jumps[PlaceOf(FoldedPrefixAt(&text[end - kPrefixUnits]), level.jumps.size())];
    if (jump > 0) {
      end += jump;
      continue;
    }
    const std::size_t begin = end - level.jumpedLength;
    const Slot& slot = level.slots[level.SlotOf(FoldedPrefixAt(&text[begin]))];
    for (std::size_t w = slot.begin; w < slot.end; ++w) {
      if (StartsWithNoCase(text.substr(begin), TextOf(words_[w])) && !hit(words_[w], begin)) return false;
    }
    ++end;
  }
  return true;
}

template <class Hit>
void WordFinder::Walk(std::u16string_view text, Hit hit, std::size_t from) const {
  for (const Level& level : levels_) {
    if (level.last < from) continue;
    if (!level.jumps.empty()) {
      if (!Jump(level, text, hit)) return;
      continue;
    }
    const std::uint64_t* const seen = level.seen.data();
    const std::uint64_t mask = level.mask;
    const int shift = level.shift;
    std::uint64_t window = 0;  // the last units of the text, folded
    for (std::size_t i = 0; i < text.size(); ++i) {
      window = window << 16 | LowerOf(text[i]);
      const std::uint64_t prefix = window & mask;
      const std::uint64_t bit = HashOf(prefix) >> shift;
      if ((seen[bit / 64] >> (bit % 64) & 1) == 0 || level.prefixLength > i + 1) continue;
      const Slot& slot = level.slots[level.SlotOf(prefix)];
      const std::size_t begin = i + 1 - level.prefixLength;
      for (std::size_t w = slot.begin; w < slot.end; ++w) {
        const std::u16string_view word = TextOf(words_[w]);
        if (!StartsWithNoCase(text.substr(begin), word)) continue;
        if (!hit(words_[w], begin)) return;
      }
    }
  }
}

template <class Holds>
std::size_t WordFinder::FirstOf(std::size_t first, Holds holds) const {
  for (const Word& word : words_) {
    if (word.position < first && holds(word)) first = word.position;
  }
  return first;
}

std::ptrdiff_t WordFinder::FindFirst(std::u16string_view text) const {
  std::size_t first = count_;
  if (levels_.empty()) {
    first = FirstOf(first, [&](const Word& word) { return ContainsNoCase(TextOf(word), text); });
  } else {
    Walk(text, [&](const Word& word, std::size_t) {
      first = std::min<std::size_t>(first, word.position);
      return first != 0;
    });
  }
  return first < count_ ? static_cast<std::ptrdiff_t>(first) : -1;
}

std::ptrdiff_t WordFinder::FindFirstAlone(std::u16string_view text) const {
  std::size_t first = count_;
  const bool few = levels_.empty();
  if (!few) {
    Walk(text, [&](const Word& word, std::size_t begin) {
      const std::size_t behind = begin + word.length;
      const bool begins = begin == 0 || !IsAlpha(text[begin - 1]);
      const bool ends = behind + 1 >= text.size() || !IsAlpha(text[behind]);
      if (begins && ends && !word.overlapsItself) first = std::min<std::size_t>(first, word.position);
      return first != 0;
    });
  }
  first = FirstOf(
      first, [&](const Word& word) { return (few || word.overlapsItself) && ContainsWordNoCase(TextOf(word), text); });
  return first < count_ ? static_cast<std::ptrdiff_t>(first) : -1;
}

std::size_t WordFinder::CountContained(std::u16string_view text, std::size_t from, std::size_t limit) const {
  std::size_t count = 0;
  if (limit == 0) return count;
  if (levels_.empty()) {
    for (const Word& word : words_) {
      if (word.position >= from && ContainsNoCase(TextOf(word), text) && ++count == limit) break;
    }
    return count;
  }
  std::vector<bool> seen(count_);
  const auto hit = [&](const Word& word, std::size_t) {
    if (word.position < from || seen[word.position]) return true;
    seen[word.position] = true;
    return ++count < limit;
  };
  Walk(text, hit, from);
  return count;
}

void WordFinder::FindAll(std::u16string_view text, std::vector<std::uint32_t>& positions) const {
  positions.clear();
  if (levels_.empty()) {
    for (const Word& word : words_) {
      if (ContainsNoCase(TextOf(word), text)) positions.push_back(word.position);
    }
    return;
  }
  std::vector<bool> seen;
  Walk(text, [&](const Word& word, std::size_t) {
    if (seen.empty()) seen.resize(count_);
    if (!seen[word.position]) positions.push_back(word.position);
    seen[word.position] = true;
    return true;
  });
  std::ranges::sort(positions);
}

}  // namespace zeph
