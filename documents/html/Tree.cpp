// SPDX-License-Identifier: Apache-2.0
#include "documents/html/Tree.h"

namespace zeph::html {

std::span<const Attribute> Tree::AttributesOf(NodeId id) const noexcept {
  const Node& node = nodes[id];
  if (node.kind != NodeKind::kElement || node.begin == 0) return {};
  const Attribute* const first = attributes.data() + node.begin - 1;
  const Attribute* last = first;
  while (!last->isLast) ++last;
  return {first, last + 1};
}

const Attribute* Tree::FindAttribute(NodeId id, NameId wanted) const noexcept {
  const Node& node = nodes[id];
  if (node.kind != NodeKind::kElement || node.begin == 0) return nullptr;
  for (const Attribute* item = attributes.data() + node.begin - 1;; ++item) {
    if (item->name == wanted) return item;
    if (item->isLast) return nullptr;
  }
}

std::u16string_view Tree::AttributeText(NodeId id, NameId wanted) const noexcept {
  const Attribute* const found = FindAttribute(id, wanted);
  return found != nullptr ? TextOf(*found) : std::u16string_view();
}

void Tree::InsertBefore(NodeId parent, NodeId child, NodeId before) noexcept {
  Node& node = nodes[child];
  Node& above = nodes[parent];
  node.parent = parent;
  node.next = before;
  const NodeId first = above.firstChild;
  if (first == 0) {
    above.firstChild = child;
    node.previous = child;
  } else if (before == 0) {
    const NodeId last = nodes[first].previous;
    nodes[last].next = child;
    node.previous = last;
    nodes[first].previous = child;
  } else if (before == first) {
    node.previous = nodes[first].previous;
    nodes[first].previous = child;
    above.firstChild = child;
  } else {
    const NodeId previous = nodes[before].previous;
    nodes[previous].next = child;
    node.previous = previous;
    nodes[before].previous = child;
  }
}

void Tree::Detach(NodeId child) noexcept {
  Node& node = nodes[child];
  if (node.previous == 0) return;
  Node& above = nodes[node.parent];
  if (above.firstChild == child) {
    above.firstChild = node.next;
    if (node.next != 0) nodes[node.next].previous = node.previous;
  } else {
    nodes[node.previous].next = node.next;
    nodes[node.next != 0 ? node.next : above.firstChild].previous = node.previous;
  }
  node.parent = node.previous = node.next = 0;
}

void TreeWalk::Next(bool skipChildren) noexcept {
  const Node& node = tree_.nodes[at_];
  if (entering_) {
    const NodeId child = skipChildren ? 0 : tree_.FirstChild(at_);
    if (child != 0) {
      at_ = child;
    } else {
      entering_ = false;
    }
    return;
  }
  if (at_ == root_) {
    done_ = true;
  } else if (node.next != 0) {
    at_ = node.next;
    entering_ = true;
  } else {
    at_ = node.parent;
  }
}

}  // namespace zeph::html
