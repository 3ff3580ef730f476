// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/MarkupTags.h"

#include <array>
#include <cstddef>

#include "DetectionEngine/platform/FindAnyOf.h"

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

/// The marks of a tag by its packed name, in its form without attributes; 0 for a tag that no one asks for.
constexpr TagMarks MarkOf(std::uint64_t packedName) noexcept {
  using namespace std::string_view_literals;
  switch (packedName) {
    case Pack("P"sv):
      return BareTag(MarkupTag::kP);
    case Pack("DIV"sv):
      return BareTag(MarkupTag::kDiv);
    case Pack("BR"sv):
      return BareTag(MarkupTag::kBr);
    case Pack("TR"sv):
      return BareTag(MarkupTag::kTr);
    case Pack("UL"sv):
      return BareTag(MarkupTag::kUl);
    case Pack("OL"sv):
      return BareTag(MarkupTag::kOl);
    case Pack("LI"sv):
      return BareTag(MarkupTag::kLi);
    case Pack("HR"sv):
      return BareTag(MarkupTag::kHr);
    case Pack("FORM"sv):
      return BareTag(MarkupTag::kForm);
    case Pack("INPUT"sv):
      return BareTag(MarkupTag::kInput);
    case Pack("SELECT"sv):
      return BareTag(MarkupTag::kSelect);
    case Pack("TEXTAREA"sv):
      return BareTag(MarkupTag::kTextarea);
    case Pack("IMG"sv):
      return BareTag(MarkupTag::kImg);
    case Pack("SCRIPT"sv):
      return BareTag(MarkupTag::kScript);
    case Pack("STYLE"sv):
      return BareTag(MarkupTag::kStyle);
    default:
      return 0;
  }
}

/// The mark of what stands at a "<".
TagMarks MarkAt(std::u16string_view text) noexcept {
  std::size_t begin = 1;
  const bool closing = text.size() > 1 && text[1] == u'/';
  if (closing) ++begin;
  std::size_t end = begin;
  while (end < text.size() && text[end] >= u'A' && text[end] <= u'Z') ++end;
  if (end == begin || end - begin > kLongestName || end == text.size()) return 0;
  const TagMarks bare = MarkOf(Pack(text.substr(begin, end - begin)));
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
