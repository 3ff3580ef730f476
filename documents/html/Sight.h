// SPDX-License-Identifier: Apache-2.0
// Which of a page's text a reader sees: what elements show of their content by their kind, by attributes and by the
// page's styles. Scripts don't run, and style sheets of other files aren't read.
#pragma once

#include <cstdint>
#include <string_view>

#include "documents/html/GrowArray.h"
#include "documents/html/StyleSheet.h"
#include "documents/html/Tree.h"

namespace zeph::html {

/// Whether what stands in this element is no part of the page: in a template, unless it is the content of a shadow
/// tree.
[[nodiscard]] bool IsInert(const Tree& tree, NodeId id);

/// Whether a foreign element of that name decides what is seen of its content.
[[nodiscard]] bool TellsSight(const Tree& tree, NameId name, Space space);
/// Whether an attribute of that name and text has a say in whether its element's content is seen: hidden, or an inline
/// style that hides, or that shows what an element around it hides.
[[nodiscard]] bool TellsSight(NameId name, std::u16string_view value);

/// Follows a walk of the whole tree. What stands in HTML and BODY is seen whatever their styles say: a page that shows
/// nothing until a script has run is shown by it. Linear in the page, styles included.
class Sight {
 public:
  /// elements: all of the page's, in the order of the walk. Both outlive this.
  Sight(const Tree& tree, const GrowArray<NodeId>& elements) : tree_(tree), rules_(tree, elements) {}

  /// On entering an element, and on leaving it.
  void Enter(NodeId id);
  void Leave() { levels_.Pop(); }
  /// Text right in the innermost element is seen.
  [[nodiscard]] bool SeesText() const noexcept;
  /// The innermost element takes room on the page, seen or not.
  [[nodiscard]] bool IsShown() const noexcept { return levels_.empty() || levels_.back().shown; }
  /// The innermost element itself is seen, if not its content: an image, a field, a frame.
  [[nodiscard]] bool SeesElement() const noexcept { return levels_.empty() || levels_.back().seen; }

 private:
  enum class Content : std::uint8_t {
    kAll,
    kSummary,       ///< its first SUMMARY alone: closed DETAILS
    kSummaryTaken,  ///< nothing more of it
  };
  struct Level {
    float fontSize;
    bool seen;
    bool shown;  ///< its content
    bool visible;
    bool indentedAway;
    Content content;
  };

  void ApplyStyle(NodeId id, Level& level);

  const Tree& tree_;
  StyleRules rules_;
  GrowArray<Level> levels_;
};

}  // namespace zeph::html
