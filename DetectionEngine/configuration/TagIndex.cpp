// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/TagIndex.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "DetectionEngine/platform/CharacterClass.h"

namespace zeph {

namespace {

constexpr unsigned kUnitBits = 16;

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
  // Many bits a tag, so that few positions pass without cause, and few enough in all to stay in the cache.
  const std::size_t bits = std::clamp<std::size_t>(std::bit_ceil(entries_.size() * 256), 1024, 1 << 20);
  shift_ = static_cast<unsigned>(64 - std::countr_zero(bits));
  filter_.assign(bits / 64, 0);
  std::fill(std::begin(hasLength_), std::end(hasLength_), false);
  for (const TagIndexEntry& entry : entries_) {
    const std::size_t count = std::min(entry.Tag.size(), kFilterUnits);
    std::uint64_t units = 0;
    for (std::size_t i = 0; i < count; ++i) units |= std::uint64_t{entry.Tag[i]} << (kUnitBits * i);
    const std::size_t bit = BitOf(units);
    filter_[bit / 64] |= std::uint64_t{1} << bit % 64;
    hasLength_[count] = true;
  }
}

std::size_t TagIndex::BitOf(std::uint64_t units) const noexcept {
  return static_cast<std::size_t>(units * 0x9E3779B97F4A7C15U >> shift_);
}

/// units: the first four of a text position, zeros behind the text's end.
inline bool TagIndex::MayBegin(std::uint64_t units) const noexcept {
  const auto isSet = [this](std::uint64_t key) {
    const std::size_t bit = BitOf(key);
    return (filter_[bit / 64] >> bit % 64 & 1) != 0;
  };
  return (hasLength_[4] && isSet(units)) || (hasLength_[3] && isSet(units & 0xFFFFFFFFFFFF)) ||
         (hasLength_[2] && isSet(units & 0xFFFFFFFF)) || (hasLength_[1] && isSet(units & 0xFFFF)) || hasLength_[0];
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
    if (next < kFilterUnits - 1 || !MayBegin(units)) continue;
    const TagIndexEntry* const entry = Probe<TagForm::kUrl>(text.substr(next - (kFilterUnits - 1)));
    if (entry != nullptr) return entry;
  }
  return nullptr;
}

const TagIndexEntry* TagIndex::SearchWords(std::u16string_view text) const noexcept {
  bool inWord = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool begins = !std::exchange(inWord, IsAlpha(LowerOf(text[at]))) && inWord;
    if (!begins) continue;
    std::uint64_t units = 0;
    for (std::size_t i = 0; i < kFilterUnits && at + i < text.size(); ++i) {
      units |= std::uint64_t{LowerOf(text[at + i])} << (kUnitBits * i);
    }
    if (!MayBegin(units)) continue;
    const TagIndexEntry* const entry = Probe<TagForm::kWord>(text.substr(at));
    if (entry != nullptr) return entry;
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
