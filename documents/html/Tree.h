// SPDX-License-Identifier: Apache-2.0
// The tree of an HTML page, flat: nodes in one array, attributes in another, all text in one buffer of 16-bit text that
// both point into. Nodes stand in the order in which they were made, which is close to, but not always, source order.
//
//   nodes       [document][html][head][body][p][text]...     parent, siblings and first child by index
//   attributes  [class "x"][href "y"]...                      a node has a run of them
//   text        x y Hello ...                                 a node or an attribute has a slice of it
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "documents/html/GrowArray.h"
#include "documents/html/NameTable.h"

namespace zeph::html {

using NodeId = std::uint32_t;
/// The document, which is nobody's child or sibling: there, 0 says "none".
inline constexpr NodeId kDocument = 0;

enum class NodeKind : std::uint8_t { kDocument, kDoctype, kElement, kText, kComment };
enum class Space : std::uint8_t { kHtml, kSvg, kMathMl };

struct Node {
  NodeId parent;
  NodeId previous;  ///< of a first child: the last child; 0 for a node that is in no place
  NodeId next;
  union {
    NodeId firstChild;     ///< of the document or an element
    std::uint32_t length;  ///< of a text or a comment
  };
  std::uint32_t name : 24;  ///< of an element
  NodeKind kind : 3;
  Space space : 2;
  /// The text goes on from the sibling before it, with which it is one text.
  bool continues : 1;
  std::uint32_t begin;  ///< of the text; of an element: 1 + the place of its first attribute, or 0
};
static_assert(sizeof(Node) == 24, "a page of three-letter tags is to stay within twelve times its size");

struct Attribute {
  NameId name : 24;
  bool isLast : 1;  ///< of its element
  std::uint32_t begin;
  std::uint32_t length;
};

/// A slice of Tree::text, or none.
struct Slice {
  std::uint32_t begin = 0;
  std::uint32_t length = 0;
  bool present = false;
};

struct Doctype {
  Slice name;
  Slice publicId;
  Slice systemId;
};

struct Tree {
  GrowArray<Node> nodes;
  GrowArray<Attribute> attributes;
  GrowArray<char16_t> text;
  NameTable names;
  Doctype doctype;  ///< of the one doctype node, if there is one
  bool quirks = false;  ///< browsers read its styles as they did before there were standards
  /// Form controls whose form the parser told, though it need not be around them: pairs in the order of the controls'
  /// numbers.
  struct Owner {
    NodeId control;
    NodeId form;
  };
  GrowArray<Owner> owners;

  [[nodiscard]] std::u16string_view TextOf(std::uint32_t begin, std::uint32_t length) const noexcept {
    return {text.data() + begin, length};
  }
  [[nodiscard]] std::u16string_view TextOf(const Node& node) const noexcept { return TextOf(node.begin, node.length); }
  [[nodiscard]] std::u16string_view TextOf(const Attribute& item) const noexcept {
    return TextOf(item.begin, item.length);
  }
  [[nodiscard]] std::span<const Attribute> AttributesOf(NodeId id) const noexcept;
  [[nodiscard]] NodeId FirstChild(NodeId id) const noexcept {
    const Node& node = nodes[id];
    return node.kind == NodeKind::kElement || node.kind == NodeKind::kDocument ? node.firstChild : 0;
  }
  [[nodiscard]] std::u16string_view NameText(NameId id) const noexcept { return names.Text(id, text.data()); }
  [[nodiscard]] bool IsHtml(NodeId id, NameId wanted) const noexcept {
    const Node& node = nodes[id];
    return node.kind == NodeKind::kElement && node.name == wanted && node.space == Space::kHtml;
  }
  /// The attribute of that name, or null.
  [[nodiscard]] const Attribute* FindAttribute(NodeId id, NameId wanted) const noexcept;
  [[nodiscard]] std::u16string_view AttributeText(NodeId id, NameId wanted) const noexcept;

  [[nodiscard]] NodeId LastChild(NodeId parent) const noexcept {
    const NodeId first = FirstChild(parent);
    return first == 0 ? 0 : nodes[first].previous;
  }
  [[nodiscard]] NodeId PreviousSibling(NodeId id) const noexcept {
    return nodes[nodes[id].parent].firstChild == id ? 0 : nodes[id].previous;
  }
  void Append(NodeId parent, NodeId child) noexcept { InsertBefore(parent, child, 0); }
  /// Before a child of parent, or at its end (before 0).
  void InsertBefore(NodeId parent, NodeId child, NodeId before) noexcept;
  /// Nothing for a node that is in no place.
  void Detach(NodeId child) noexcept;
};

/// A walk over a node and what is in it, without recursion and without memory of its own.
class TreeWalk {
 public:
  /// Begins by entering root.
  TreeWalk(const Tree& tree, NodeId root) noexcept : tree_(tree), root_(root), at_(root) {}

  [[nodiscard]] NodeId Id() const noexcept { return at_; }
  [[nodiscard]] bool Entering() const noexcept { return entering_; }
  [[nodiscard]] bool Done() const noexcept { return done_; }
  /// Goes on: into the children, or, told to skip them, to the node's end.
  void Next(bool skipChildren = false) noexcept;

 private:
  const Tree& tree_;
  NodeId root_;
  NodeId at_;
  bool entering_ = true;
  bool done_ = false;
};

}  // namespace zeph::html
