// SPDX-License-Identifier: Apache-2.0
// A tree's markup and text as the browser of old gave them back: each written once, in one buffer, of which every
// element's is a slice.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "documents/html/GrowArray.h"
#include "documents/html/Tree.h"

namespace zeph::html {

/// What an attribute's value reads as, where that isn't what stands in the page.
class ValueReader {
 public:
  virtual std::u16string_view Read(NodeId element, const Attribute& attribute) = 0;

 protected:
  ~ValueReader() = default;
};

/// Tag names in upper case, attribute names in lower case; a value bare when it is made of ASCII letters, digits, "-",
/// "_", "/" and "#", else in double quotes; no end tags for void elements; references for & < > and the no-break space
/// in text, for & and " in values; comments and raw text as they are.
struct Markup {
  struct Span {
    std::uint32_t outerBegin;
    std::uint32_t innerBegin;
    std::uint32_t innerEnd;
    std::uint32_t outerEnd;
  };
  GrowArray<char16_t> text;
  GrowArray<Span> spans;

  [[nodiscard]] std::u16string_view Outer(std::size_t index) const noexcept {
    const Span& span = spans[index];
    return {text.data() + span.outerBegin, span.outerEnd - span.outerBegin};
  }
  [[nodiscard]] std::u16string_view Inner(std::size_t index) const noexcept {
    const Span& span = spans[index];
    return {text.data() + span.innerBegin, span.innerEnd - span.innerBegin};
  }
};

/// The markup of a tree, taken from the budget. elements are those whose slices are wanted, in the order in which a
/// walk meets them.
[[nodiscard]] Markup WriteMarkup(const Tree& tree, const GrowArray<NodeId>& elements, ValueReader& values,
                                 PageBudget& budget);

/// The text that a reader sees. Blocks begin and end lines; their ends and BR give CR LF; runs of white space give one
/// blank, but as they stand in PRE and TEXTAREA; a blank keeps cells and options from each other. An image or a field
/// keeps the blanks on its two sides apart. Characters without ink and width are left out.
struct VisibleText {
  struct Span {
    std::uint32_t begin;
    std::uint32_t end;
  };
  GrowArray<char16_t> text;
  GrowArray<Span> spans;

  [[nodiscard]] std::u16string_view Inner(std::size_t index) const noexcept {
    const Span& span = spans[index];
    return {text.data() + span.begin, span.end - span.begin};
  }
};

[[nodiscard]] VisibleText WriteVisibleText(const Tree& tree, const GrowArray<NodeId>& elements, PageBudget& budget);

}  // namespace zeph::html
