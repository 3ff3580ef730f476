// SPDX-License-Identifier: Apache-2.0
// A parsed page as the browser of old saw it: its lists, and what its elements answer. The interfaces of the document
// stand on this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "DetectionEngine/text/DistinctTexts.h"
#include "DetectionEngine/text/TextArena.h"
#include "DetectionEngine/url/BrowserUrl.h"
#include "documents/ImageSize.h"
#include "documents/PageResources.h"
#include "documents/html/Markup.h"
#include "documents/html/Tree.h"

namespace zeph::html {

/// One thread at a time. What it gives lives as long as it does.
class PageView : private ValueReader {
 public:
  /// url: the page's own; may be empty, as may resources. What the view derives is taken from the budget; an operation
  /// that would pass it throws std::bad_alloc.
  PageView(Tree tree, std::u16string url, std::shared_ptr<const PageResources> resources,
           PageBudget budget = PageBudget(static_cast<std::size_t>(-1)));

  [[nodiscard]] PageBudget& Budget() noexcept { return budget_; }

  [[nodiscard]] const Tree& Nodes() const noexcept { return tree_; }
  /// What addresses in the page are taken against; empty when there is nothing.
  [[nodiscard]] std::u16string BaseUrl() const { return base_ ? base_->Text() : std::u16string(); }
  /// Elements and comments in source order, those in templates left out; all other lists are parts of it.
  [[nodiscard]] const GrowArray<NodeId>& All() const noexcept { return all_; }
  [[nodiscard]] const GrowArray<NodeId>& Forms() const noexcept { return forms_; }
  /// A and AREA with a href.
  [[nodiscard]] const GrowArray<NodeId>& Links() const noexcept { return links_; }
  [[nodiscard]] const GrowArray<NodeId>& Images() const noexcept { return images_; }
  [[nodiscard]] const GrowArray<NodeId>& Scripts() const noexcept { return scripts_; }
  /// The BODY, or the FRAMESET that stands in its place; 0 when there is none.
  [[nodiscard]] NodeId Body() const noexcept { return body_; }
  [[nodiscard]] std::u16string_view Title();

  /// Upper case; "!" for a comment.
  [[nodiscard]] std::u16string_view TagName(NodeId id);
  [[nodiscard]] bool HasTagName(NodeId id, std::u16string_view name) const;
  /// By name without regard to case; nothing when there is no such attribute.
  [[nodiscard]] std::optional<std::u16string_view> AttributeValue(NodeId id, std::u16string_view name);
  [[nodiscard]] std::optional<std::u16string_view> AttributeValue(NodeId id, NameId name);
  [[nodiscard]] std::u16string_view InnerMarkup(NodeId id);
  [[nodiscard]] std::u16string_view OuterMarkup(NodeId id);
  [[nodiscard]] std::u16string_view InnerText(NodeId id);
  /// All text in it, as it stands in the page; the text of a comment.
  [[nodiscard]] std::u16string_view TextContent(NodeId id);
  /// Pixels; 0 when not known.
  [[nodiscard]] std::int32_t ImageWidth(NodeId id) { return ImageLength(id, name::kWidth); }
  [[nodiscard]] std::int32_t ImageHeight(NodeId id) { return ImageLength(id, name::kHeight); }
  /// The elements of this tag name that belong to a form: controls by their form, others by where they stand.
  [[nodiscard]] GrowArray<NodeId> FormElements(NodeId form, std::u16string_view tagName) const;
  /// Children as the tree of a browser has them.
  [[nodiscard]] GrowArray<NodeId> Children(NodeId id) const;

 private:
  std::u16string_view Read(NodeId element, const Attribute& attribute) override;
  void Collect();
  [[nodiscard]] std::size_t NumberOf(NodeId id) const noexcept { return tree_.nodes[id].previous - 1; }
  [[nodiscard]] const Markup& WrittenMarkup();
  [[nodiscard]] const VisibleText& WrittenText();
  /// The address as a browser gives it; what it refuses, and what is too long to be decoded, as it stands.
  [[nodiscard]] std::u16string_view Absolute(const Attribute& attribute);
  [[nodiscard]] bool Resolve(std::u16string_view written, std::u16string& absolute) const;
  /// Where a form sends to or a script comes from: absolute when that is another host or names a scheme, else as it
  /// stands.
  [[nodiscard]] std::u16string_view Elsewhere(const Attribute& attribute);
  void Take(std::size_t bytes);
  /// Keeps a derived text, which is then empty.
  std::u16string_view Keep(std::u16string& text);
  [[nodiscard]] std::int32_t ImageLength(NodeId id, NameId name);

  Tree tree_;
  std::optional<BrowserUrl> base_;
  std::u16string host_;  ///< the page's own
  std::shared_ptr<const PageResources> resources_;
  GrowArray<NodeId> all_;
  GrowArray<NodeId> forms_;
  GrowArray<NodeId> links_;
  GrowArray<NodeId> images_;
  GrowArray<NodeId> scripts_;
  struct Control {
    NodeId id;
    NodeId form;
  };
  GrowArray<Control> controls_;  ///< those of one form together, in source order
  NodeId body_ = 0;
  NodeId title_ = 0;
  std::optional<std::u16string> titleText_;
  std::optional<Markup> markup_;
  std::optional<VisibleText> text_;
  PageBudget budget_;
  TextArena arena_;
  std::u16string scratch_;
  /// Values that don't read as they are written, each distinct one worked out and kept once.
  struct Readings {
    DistinctTexts written;
    std::vector<std::u16string_view> read;  ///< by the number of the written text
  };
  Readings addresses_;
  Readings types_;
  std::unordered_map<NodeId, std::u16string_view> contents_;                 ///< texts that stand in pieces
  std::unordered_map<NameId, std::u16string_view> tagNames_;                 ///< of names that aren't known beforehand
  std::unordered_map<std::u16string_view, std::optional<ImageSize>> sizes_;  ///< by the source as written
};

}  // namespace zeph::html
