// SPDX-License-Identifier: Apache-2.0
// Names of elements and attributes as numbers: equal names have equal numbers within one document, and the names of
// HTML have the same number in every document.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "documents/html/GrowArray.h"

namespace zeph::html {

using NameId = std::uint32_t;

/// The known names: name::kDiv and so on.
namespace name {
enum Known : NameId {
#define ZEPH_NAME(identifier, text, kinds) k##identifier,
#include "documents/html/Names.inc"
#undef ZEPH_NAME
  kKnownCount
};
}  // namespace name

/// What an HTML element of some name is.
enum NameKind : std::uint16_t {
  kSpecial = 1 << 0,
  kFormatting = 1 << 1,
  kVoid = 1 << 2,               ///< has no content and no end tag
  kScope = 1 << 3,              ///< bounds every scope
  kListScope = 1 << 4,          ///< bounds the scope of list items
  kButtonScope = 1 << 5,        ///< bounds the scope of paragraphs
  kImplied = 1 << 6,            ///< its end tag may be implied
  kImpliedThoroughly = 1 << 7,  ///< also at the end of a template
  kHeading = 1 << 8,
  kLeavesForeign = 1 << 9,  ///< its start tag ends SVG and MathML
  kRaw = 1 << 10,           ///< its text is markup as it stands
  kBlock = 1 << 11,         ///< begins and ends a line of the visible text
  kCell = 1 << 12,          ///< a blank keeps it from its neighbour's text
  kUnseen = 1 << 13,        ///< no part of the visible text
  kTelling = 1 << 14,       ///< says something without attributes too
};

/// The kinds of a name; none for an unknown one.
[[nodiscard]] std::uint16_t KindsOf(NameId id) noexcept;
/// The text of a known name, lower case.
[[nodiscard]] std::u16string_view KnownNameText(NameId id) noexcept;
/// The same in upper case.
[[nodiscard]] std::u16string_view KnownNameInUpperCase(NameId id) noexcept;
/// The number of a known name in lower case, or kKnownCount.
[[nodiscard]] NameId FindKnownName(std::u16string_view text) noexcept;

/// A hash with a secret of the process: nobody can choose texts that fall together.
[[nodiscard]] std::uint64_t HashWithSecret(std::u16string_view text) noexcept;

/// A name as the tokenizer has read it: lower case, with a number made of its first letters.
struct NameKey {
  std::uint64_t key = 0;
  std::u16string_view text;

  /// Keys of names of at most 8 ASCII characters are these characters; the key then is the name.
  static constexpr std::size_t kShort = 8;
};

/// The names of one document. Unknown names are found by a hash with a secret of the process, so that nobody can
/// choose names that fall together.
class NameTable {
 public:
  /// More different names than this share one number.
  static constexpr std::size_t kMaxNames = (1U << 24) - 1;

  NameTable();

  /// The number of a name; for a name that was never seen before, store(text) says where in the document's text it
  /// was put for good.
  template <class Store>
  NameId Intern(const NameKey& name, const char16_t* base, Store&& store);

  /// The number of a name in lower case, if the document has it; else -1.
  [[nodiscard]] std::int64_t Find(std::u16string_view text, const char16_t* base) const noexcept;
  /// The text of a name; base is the document's text.
  [[nodiscard]] std::u16string_view Text(NameId id, const char16_t* base) const noexcept {
    if (id < name::kKnownCount) return KnownNameText(id);
    const Place& place = places_[id - name::kKnownCount];
    return {base + place.begin, place.length};
  }
  [[nodiscard]] std::size_t Count() const noexcept { return name::kKnownCount + places_.size(); }

 private:
  struct Slot {
    std::uint32_t hash;
    NameId id;  ///< kNoId: free
  };
  struct Place {
    std::uint32_t begin;
    std::uint32_t length;
  };
  static constexpr NameId kNoId = 0xFFFFFFFFU;

  [[nodiscard]] static NameId FindKnown(const NameKey& name) noexcept;
  /// The slot of the name, or the free slot where it belongs.
  [[nodiscard]] std::size_t SlotOf(const NameKey& name, std::uint32_t hash, const char16_t* base) const noexcept;
  [[nodiscard]] std::uint32_t HashOf(const NameKey& name) const noexcept;
  void Grow();

  GrowArray<Slot> slots_;
  GrowArray<Place> places_;
  std::uint64_t secret_ = 0;
};

template <class Store>
NameId NameTable::Intern(const NameKey& name, const char16_t* base, Store&& store) {
  if (const NameId known = FindKnown(name); known != name::kKnownCount) return known;
  const std::uint32_t hash = HashOf(name);
  std::size_t slot = SlotOf(name, hash, base);
  if (slots_[slot].id != kNoId) return slots_[slot].id;
  if (Count() == kMaxNames) return static_cast<NameId>(Count() - 1);
  if ((places_.size() + 1) * 4 > slots_.size() * 3) {
    Grow();
    slot = SlotOf(name, hash, base);
  }
  const auto id = static_cast<NameId>(Count());
  places_.Push({store(name.text), static_cast<std::uint32_t>(name.text.size())});
  slots_[slot] = {hash, id};
  return id;
}

/// The key of a short name, or nothing that tells for a long one.
[[nodiscard]] inline NameKey MakeNameKey(std::u16string_view lower) noexcept {
  NameKey result{0, lower};
  if (lower.size() <= NameKey::kShort) {
    for (const char16_t c : lower) {
      if (c >= 0x80 || c == 0) {
        result.key = 0;
        break;
      }
      result.key = result.key << 8 | c;
    }
  }
  return result;
}

}  // namespace zeph::html
