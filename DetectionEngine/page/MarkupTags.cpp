// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/MarkupTags.h"

#include <array>
#include <cstddef>

#include "DetectionEngine/text/FindAnyOf.h"

namespace zeph {

namespace {

constexpr std::size_t kLongestName = 8;

/// A name of up to eight capital letters as one number.
template <class Text>
constexpr std::uint64_t Pack(const Text& name) noexcept {
  std::uint64_t packed = 0;
  for (const auto c : name) packed = packed << 8 | static_cast<std::uint64_t>(c);
  return packed;
}

/// The names that somebody asks for, by a hash that keeps them apart.
class NameTable {
 public:
  consteval NameTable() {
    using namespace std::string_view_literals;
    constexpr std::array kNames = {"P"sv,    "DIV"sv,   "BR"sv,     "TR"sv,       "UL"sv,  "OL"sv,     "LI"sv,   "HR"sv,
                                   "FORM"sv, "INPUT"sv, "SELECT"sv, "TEXTAREA"sv, "IMG"sv, "SCRIPT"sv, "STYLE"sv};
    static_assert(kNames.size() == static_cast<std::size_t>(MarkupTag::kStyle) + 1);
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      Row& row = rows_[PlaceOf(Pack(kNames[i]))];
      if (row.name != 0) throw "two names fall together: take another factor";
      row = {Pack(kNames[i]), BareTag(static_cast<MarkupTag>(i))};
    }
  }
  /// The marks of a tag by its packed name, in its form without attributes; 0 for a tag that no one asks for.
  [[nodiscard]] TagMarks MarkOf(std::uint64_t packedName) const noexcept {
    const Row& row = rows_[PlaceOf(packedName)];
    return row.name == packedName ? row.mark : 0;
  }

 private:
  struct Row {
    std::uint64_t name = 0;
    TagMarks mark = 0;
  };
  static constexpr std::size_t PlaceOf(std::uint64_t packedName) noexcept {
    return static_cast<std::size_t>(packedName * kFactor >> 58);
  }
  static constexpr std::uint64_t kFactor = 0xC4647159C324C985U;

  std::array<Row, 64> rows_{};
};
constexpr NameTable kNames;

/// The mark of what stands at a "<".
TagMarks MarkAt(std::u16string_view text) noexcept {
  std::size_t begin = 1;
  const bool closing = text.size() > 1 && text[1] == u'/';
  if (closing) ++begin;
  std::size_t end = begin;
  while (end < text.size() && text[end] >= u'A' && text[end] <= u'Z') ++end;
  if (end == begin || end - begin > kLongestName || end == text.size()) return 0;
  const TagMarks bare = kNames.MarkOf(Pack(text.substr(begin, end - begin)));
  if (text[end] == u'>') return closing ? bare << 2 : bare;
  return text[end] == u' ' && !closing ? bare << 1 : 0;
}

/// The mark of what stands around an "=".
std::uint32_t AttributeMarkAt(std::u16string_view before, std::u16string_view behind) noexcept {
  struct Type {
    std::u16string_view name;
    std::uint32_t mark;
  };
  static constexpr std::array<Type, 10> kTypes = {{{u"text", kTypeText},
                                                   {u"password", kTypePassword},
                                                   {u"file", kTypeFile},
                                                   {u"button", kTypeButton},
                                                   {u"checkbox", kTypeCheckbox},
                                                   {u"hidden", kTypeHidden},
                                                   {u"image", kTypeImage},
                                                   {u"radio", kTypeRadio},
                                                   {u"reset", kTypeReset},
                                                   {u"submit", kTypeSubmit}}};
  if (before.ends_with(u"type")) {
    for (const Type& type : kTypes) {
      if (behind.starts_with(type.name)) return type.mark;
    }
    return 0;
  }
  if (before.ends_with(u"src")) return kHasSource;
  const bool one = behind.starts_with(u"1>") || behind.starts_with(u"1 ");
  if (one && before.ends_with(u"width")) return kWidthOne;
  if (one && before.ends_with(u"height")) return kHeightOne;
  return 0;
}

}  // namespace

TagMarks FindTagMarks(std::u16string_view tag) noexcept {
  TagMarks marks = 0;
  for (std::size_t at = FindAnyOf<u'<'>(tag, 0); at < tag.size(); at = FindAnyOf<u'<'>(tag, at + 1)) {
    marks |= MarkAt(tag.substr(at));
  }
  return marks;
}

std::uint32_t FindAttributeMarks(std::u16string_view tag) noexcept {
  std::uint32_t marks = 0;
  for (std::size_t at = FindAnyOf<u'='>(tag, 0); at < tag.size(); at = FindAnyOf<u'='>(tag, at + 1)) {
    marks |= AttributeMarkAt(tag.substr(0, at), tag.substr(at + 1));
  }
  return marks;
}

}  // namespace zeph
