// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/TagIndex.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

#include "DetectionEngine/text/AsciiBlock.h"
#include "DetectionEngine/text/CharacterClass.h"

namespace zeph {

namespace {

constexpr unsigned kUnitBits = 16;

/// The first four units, folded, the first in the low bits; zeros where there are fewer.
inline std::uint64_t UnitsOf(std::u16string_view text) noexcept {
  std::uint64_t units = 0;
  if constexpr (std::endian::native == std::endian::little) {
    constexpr std::uint64_t kEach = 0x0001000100010001;
    if (text.size() >= 4) {
      std::memcpy(&units, text.data(), sizeof units);
      if ((units & 0xFF80 * kEach) == 0) {  // ASCII: fold all four at once
        const std::uint64_t fromA = units + (0x80 - u'A') * kEach;
        const std::uint64_t beyondZ = units + (0x7F - u'Z') * kEach;
        return units + ((fromA & ~beyondZ & 0x80 * kEach) >> 2);
      }
      units = 0;
    }
  }
  for (std::size_t i = 0; i < 4 && i < text.size(); ++i) units |= std::uint64_t{LowerOf(text[i])} << (kUnitBits * i);
  return units;
}

/// 1 or 0.
std::uint32_t IsLetter(char16_t c) noexcept { return IsAlpha(LowerOf(c)) ? 1 : 0; }

/// A key for the first four units and the next, 0 for those of a tag that hasn't as many.
std::uint64_t Further(std::uint64_t units, std::uint64_t next) noexcept {
  return (units ^ 0xD6E8FEB86659FD93U) * 0xC2B2AE3D27D4EB4FU ^ next;
}

/// The sign of the text against a tag; 0 when the tag matches at the text's start.
template <TagForm form>
int Compare(std::u16string_view text, std::u16string_view tag) noexcept {
  for (std::size_t i = 0; i < tag.size(); ++i) {
    if (i == text.size()) return -1;
    const char16_t c = LowerOf(text[i]);
    if (c != tag[i]) return c < tag[i] ? -1 : 1;
  }
  if constexpr (form == TagForm::kWord) {
    if (tag.size() < text.size() && IsAlpha(LowerOf(text[tag.size()]))) return 1;
  }
  return 0;
}

}  // namespace

void TagIndex::Assign(std::vector<TagIndexEntry> entries) {
  entries_ = std::move(entries);
  std::stable_sort(entries_.begin(), entries_.end(),
                   [](const TagIndexEntry& a, const TagIndexEntry& b) { return a.Tag < b.Tag; });
  // Many bits a tag, so that few positions pass without cause, and few enough in all to stay in the nearest cache.
  const std::size_t bits = std::clamp<std::size_t>(std::bit_ceil(entries_.size() * 32), 1024, 1 << 18);
  shift_ = static_cast<unsigned>(64 - std::countr_zero(bits));
  filter_.assign(bits / 64, 0);
  std::fill(std::begin(hasLength_), std::end(hasLength_), false);
  hasShort_ = false;
  for (const TagIndexEntry& entry : entries_) {
    const std::u16string_view tag = entry.Tag;
    const std::size_t count = std::min(tag.size(), kFilterUnits);
    Set(UnitsOf(tag.substr(0, count)));
    hasLength_[count] = true;
    hasShort_ |= count < kFilterUnits;
    if (count < kFilterUnits) continue;
    Set(Further(UnitsOf(tag), tag.size() < 2 * kFilterUnits ? 0 : UnitsOf(tag.substr(kFilterUnits))));
  }
}

void TagIndex::Set(std::uint64_t key) noexcept {
  const std::size_t bit = BitOf(key);
  filter_[bit / 64] |= std::uint64_t{1} << bit % 64;
}

inline unsigned TagIndex::IsSet(std::uint64_t key) const noexcept {
  const std::size_t bit = BitOf(key);
  return static_cast<unsigned>(filter_[bit / 64] >> bit % 64) & 1;
}

inline std::size_t TagIndex::BitOf(std::uint64_t units) const noexcept {
  return static_cast<std::size_t>(units * 0x9E3779B97F4A7C15U >> shift_);
}

/// units: the first four of the text, zeros behind its end.
[[gnu::always_inline]] inline unsigned TagIndex::MayBegin(std::uint64_t units,
                                                          std::u16string_view text) const noexcept {
  unsigned may = hasLength_[0];
  if (hasLength_[1]) may |= IsSet(units & 0xFFFF);
  if (hasLength_[2]) may |= IsSet(units & 0xFFFFFFFF);
  if (hasLength_[3]) may |= IsSet(units & 0xFFFFFFFFFFFF);
  if (hasLength_[4]) {
    // Many tags begin with one word: their next units tell them apart, where they have as many.
    const std::uint64_t next = UnitsOf(text.substr(std::min(text.size(), kFilterUnits)));
    may |= IsSet(units) & (IsSet(Further(units, 0)) | IsSet(Further(units, next)));
  }
  return may;
}

template <TagForm form>
const TagIndexEntry* TagIndex::Probe(std::u16string_view text) const noexcept {
  std::ptrdiff_t low = 0;
  std::ptrdiff_t high = std::ssize(entries_) - 1;
  while (high >= low) {
    const std::ptrdiff_t mid = (low + high) / 2;
    const TagIndexEntry& entry = entries_[static_cast<std::size_t>(mid)];
    const int order = Compare<form>(text, entry.Tag);
    if (order == 0) return &entry;
    if (order > 0) {
      low = mid + 1;
    } else {
      high = mid - 1;
    }
  }
  return nullptr;
}

const TagIndexEntry* TagIndex::SearchEverywhere(std::u16string_view text) const noexcept {
  std::uint64_t units = 0;
  for (std::size_t next = 0; next < text.size() + kFilterUnits - 1; ++next) {
    const std::uint64_t unit = next < text.size() ? LowerOf(text[next]) : u'\0';
    units = units >> kUnitBits | unit << (kUnitBits * (kFilterUnits - 1));
    if (next < kFilterUnits - 1) continue;
    if (IsSet(units) == 0 && !hasShort_) continue;  // most often, and cheaper than all of the question
    const std::u16string_view rest = text.substr(next - (kFilterUnits - 1));
    const TagIndexEntry* const entry = MayBegin(units, rest) != 0 ? Probe<TagForm::kUrl>(rest) : nullptr;
    if (entry != nullptr) return entry;
  }
  return nullptr;
}

const TagIndexEntry* TagIndex::SearchWords(std::u16string_view text) const noexcept {
  // Words that may be tags are gathered first, without a branch that hangs on the text, and looked up then: texts are
  // long, tags in them few, and a wrong guess of the processor costs more than a needless question.
  constexpr std::size_t kStretch = 32 * AsciiBlock::kUnits;
  std::array<std::size_t, kStretch> places;
  std::uint32_t inWord = 0;  // 1: the unit before is a letter
  for (std::size_t at = 0; at < text.size();) {
    std::size_t count = 0;
    for (const std::size_t end = at + std::min(kStretch, text.size() - at); at < end;) {
      std::uint32_t letters = 0;
      std::size_t length = 1;
      if (end - at >= AsciiBlock::kUnits) {
        const AsciiBlock block(&text[at]);
        letters = block.Letters();
        for (std::uint32_t others = block.Others(); others != 0; others &= others - 1) {
          const int other = std::countr_zero(others);
          letters |= IsLetter(text[at + static_cast<std::size_t>(other)]) << other;
        }
        length = AsciiBlock::kUnits;
      } else {
        letters = IsLetter(text[at]);
      }
      for (std::uint32_t begins = letters & ~(letters << 1 | inWord); begins != 0; begins &= begins - 1) {
        const std::size_t place = at + static_cast<std::size_t>(std::countr_zero(begins));
        const std::u16string_view rest = text.substr(place);
        places[count] = place;
        count += MayBegin(UnitsOf(rest), rest);
      }
      inWord = letters >> (length - 1) & 1;
      at += length;
    }
    for (std::size_t i = 0; i < count; ++i) {
      const TagIndexEntry* const entry = Probe<TagForm::kWord>(text.substr(places[i]));
      if (entry != nullptr) return entry;
    }
  }
  return nullptr;
}

std::optional<std::u16string_view> TagIndex::FindTag(std::u16string_view text, TagForm form) const {
  if (entries_.empty()) return std::nullopt;
  const TagIndexEntry* const entry = form == TagForm::kUrl ? SearchEverywhere(text) : SearchWords(text);
  if (entry == nullptr) return std::nullopt;
  return entry->Domain;
}

}  // namespace zeph
