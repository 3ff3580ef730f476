// SPDX-License-Identifier: Apache-2.0
// As much of a page's styles as tells whether a reader sees the text of an element: the properties that hide, from
// inline styles and from STYLE elements, by the cascade of the CSS standards. Selectors are made of tags, classes,
// identifiers, attributes ([name], [name=value]), "*" and :root, joined by descent or by ">". A rule with any other
// condition is not believed to hide: only what it shows counts. Conditions of a pointer or a key (:hover, :focus,
// :active) and what isn't an element (::before) never hold. Media are those of a screen of 1280 by 800.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "documents/html/GrowArray.h"
#include "documents/html/Tree.h"

namespace zeph::html {

/// Goes through a list of declarations. Comments and escapes are resolved; what isn't a declaration is passed over.
class Declarations {
 public:
  explicit Declarations(std::u16string_view style);

  /// Moves to the next one; false at the end.
  bool Next();
  [[nodiscard]] std::u16string_view Name() const noexcept { return name_; }
  /// Without white space around it and without "!important".
  [[nodiscard]] std::u16string_view Value() const noexcept { return value_; }
  [[nodiscard]] bool IsImportant() const noexcept { return important_; }

 private:
  std::u16string clean_;
  std::u16string_view rest_;
  std::u16string_view name_;
  std::u16string_view value_;
  bool important_ = false;
};

/// The value of a property in an inline style, the last one that stands there; nothing when there is none.
[[nodiscard]] std::u16string StyleValue(std::u16string_view style, std::u16string_view property);

/// Properties that can hide text.
enum class Property : std::uint8_t {
  kDisplay,     ///< a box, as below
  kVisibility,  ///< 0: hidden
  kFontSize,
  kOpacity,  ///< 0 to 1
  kTextIndent,
  kPosition,  ///< a placement, as below
  kLeft,
  kTop,
  kRight,
  kBottom,
  kMarginLeft,
  kMarginTop,
  kWidth,
  kHeight,
  kMaxWidth,
  kMaxHeight,
  kOverflow,  ///< 0: what doesn't fit isn't seen
  kClip,      ///< this and the following, 0: nothing is left
  kClipPath,
  kTransform,
  kContentVisibility,
  kCount
};
enum class Unit : std::uint8_t { kUnset, kInherit, kWord, kPixels, kFontSizes, kPercent };
inline constexpr float kNoBox = 0;
inline constexpr float kInlineBox = 1;
inline constexpr float kBlockBox = 2;
inline constexpr float kInFlow = 0;
inline constexpr float kShifted = 1;
inline constexpr float kOutOfFlow = 2;

/// What an element's own rules say, property by property.
class Style {
 public:
  struct Entry {
    float value = 0;
    Unit unit = Unit::kUnset;
  };
  /// The entry with the higher weight counts, the later one of equals.
  void Set(Property property, Entry entry, std::uint64_t weight) noexcept;
  [[nodiscard]] const Entry& Get(Property property) const noexcept { return entries_[Index(property)]; }
  [[nodiscard]] bool Has(Property property) const noexcept { return Get(property).unit != Unit::kUnset; }
  /// An inline style, which counts more than any rule.
  void AddInline(std::u16string_view style);

 private:
  static constexpr std::size_t kCount = static_cast<std::size_t>(Property::kCount);
  static constexpr std::size_t Index(Property property) noexcept { return static_cast<std::size_t>(property); }

  std::array<Entry, kCount> entries_{};
  std::array<std::uint64_t, kCount> weights_{};
};

/// The rules of a page's STYLE elements. A rule whose selector is one tag, class or identifier costs an element one
/// look; all others together no more steps than a few for each character of the page: past them they aren't asked.
/// Memory is a few times the page's at most; rules that would take more are left out.
class StyleRules {
 public:
  /// Reads all STYLE elements. The tree outlives this.
  StyleRules(const Tree& tree, const GrowArray<NodeId>& elements);

  [[nodiscard]] bool Empty() const noexcept { return heads_.empty(); }
  void Apply(NodeId id, Style& style);

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFU;

  struct Declared {
    float value;
    std::uint32_t order;
    std::uint32_t next;
    Property property;
    Unit unit;
    bool important;
  };
  enum class Kind : std::uint8_t { kAny, kTag, kClass, kId, kAttribute, kAttributeValue, kAncestor, kParent };
  /// One condition; of a descent, what stands before it is asked of an ancestor.
  struct Simple {
    std::uint64_t hash;  ///< of a class, an identifier, an attribute's value
    NameId name;         ///< of a tag or an attribute
    Kind kind;
  };
  struct Rule {
    std::uint32_t begin;  ///< in simples_
    std::uint32_t end;
    std::uint32_t declared;
    std::uint32_t next;
    std::uint64_t specificity;
  };
  struct Head {
    std::uint32_t declared = kNone;  ///< of the rules that ask for nothing else
    std::uint32_t rule = kNone;
  };
  struct Selector {
    std::uint32_t begin;
    std::uint32_t end;
    std::uint64_t specificity;
    bool certain;  ///< all of it was understood
  };

  /// What a rule declares, one entry a property.
  struct Block {
    std::array<std::optional<Declared>, static_cast<std::size_t>(Property::kCount)> entries;
    std::uint32_t all = kNone;      ///< as a list, once one was needed
    std::uint32_t showing = kNone;  ///< those that can't hide
  };

  void Read(std::u16string_view text);
  void ReadRule(std::u16string_view selectors, std::u16string_view text);
  [[nodiscard]] std::optional<Selector> ReadSelector(std::u16string_view text);
  void AddRule(const Selector& selector, Block& block);
  void Merge(std::uint32_t& list, const Declared& item);
  [[nodiscard]] std::uint64_t NameHash(std::u16string_view text) const;
  [[nodiscard]] std::uint64_t KeyOf(const Simple& simple) const noexcept;
  [[nodiscard]] bool Matches(const Rule& rule, NodeId id);
  [[nodiscard]] bool Holds(const Simple& simple, NodeId id);
  void ApplyHead(std::uint64_t key, std::uint64_t specificity, NodeId id, Style& style);

  const Tree& tree_;
  std::unordered_map<std::uint64_t, Head> heads_;  ///< by the last compound's identifier, class or tag
  GrowArray<Declared> declared_;
  GrowArray<Rule> rules_;
  GrowArray<Simple> simples_;
  std::uint32_t order_ = 0;
  std::size_t room_;  ///< rules, conditions and declarations of their own kind past this are left out
  std::size_t steps_;
};

}  // namespace zeph::html
