// SPDX-License-Identifier: Apache-2.0
#include "documents/html/TreeBuilder.h"

#include <algorithm>
#include <utility>

#include "documents/html/Sight.h"
#include "documents/html/TreeConstruction.h"

namespace zeph::html {

using namespace name;  // the known names, which every line below is about

// ---- Nodes

NodeId TreeBuilder::NewNode(NodeKind kind) {
  Node node{};
  node.kind = kind;
  tree_.nodes.Push(node);
  return static_cast<NodeId>(tree_.nodes.size() - 1);
}

NodeId TreeBuilder::NewElement(NameId name, Space space, std::uint32_t attributes) {
  const NodeId id = NewNode(NodeKind::kElement);
  Node& node = tree_.nodes[id];
  node.name = name & 0xFFFFFFU;
  node.space = space;
  node.begin = attributes;
  CountElement();
  return id;
}

bool TreeBuilder::SaysSomething(NameId name, Space space, std::span<const Attribute> attributes) const {
  if (name == kScript || name == kAnnotationXml) return true;
  if (TellsSight(tree_, name, space)) return true;
  std::int64_t telling = -1;
  if (space == Space::kHtml) {
    if ((KindsOf(name) & (kTelling | kRaw | kUnseen)) != 0) return true;
    switch (name) {
      case kFrameset:
        return Top().key == kHtml;
      case kA:
      case kArea:
      case kBase:
      case kLink:
        telling = kHref;
        break;
      case kEmbed:
      case kFrame:
      case kImg:
        telling = kSrc;
        break;
      case kTable:
      case kTd:
        telling = kBackground;
        break;
      case kMeta:
        telling = kHttpEquiv;
        break;
      case kObject:
        telling = kData;
        break;
      default:
        break;
    }
  }
  return std::ranges::any_of(attributes, [&](const Attribute& item) {
    return item.name == telling || TellsSight(item.name, tree_.TextOf(item));
  });
}

TreeBuilder::Place TreeBuilder::PlaceIn(const Open& target) const {
  const bool tablePart =
      target.key == kTable || target.key == kTbody || target.key == kTfoot || target.key == kThead || target.key == kTr;
  if (!foster_ || !tablePart) return {target.node, 0};
  for (std::size_t i = open_.size(); i-- > 0;) {
    if (open_[i].key == kTemplate) return {open_[i].node, 0};
    if (open_[i].key == kTable && open_[i].hasNode) return {tree_.nodes[open_[i].node].parent, open_[i].node};
    if (open_[i].key == kTable) return {open_[i].node, 0};
  }
  return {open_[0].node, 0};
}

std::uint32_t TreeBuilder::TakeAttributes(const Token& token) {
  if (token.length == 0) return 0;
  tree_.attributes[token.begin + token.length - 1].isLast = true;
  attributesTaken_ = true;
  return token.begin + 1;
}

NodeId TreeBuilder::Insert(const Token& token, Space space) {
  if (MayHave(token.name, space, AttributesOf(token))) return InsertNode(token.name, space, TakeAttributes(token));
  PushWithoutNode(token.name, space);
  return 0;
}

NodeId TreeBuilder::InsertImplied(NameId name) {
  if (MayHave(name, Space::kHtml, {})) return InsertNode(name, Space::kHtml, 0);
  PushWithoutNode(name, Space::kHtml);
  return 0;
}

NodeId TreeBuilder::InsertNode(NameId name, Space space, std::uint32_t attributes) {
  MakeRoom();
  const NodeId node = NewElement(name, space, attributes);
  PutAt(node, PlaceIn(Top()));
  Push(node, name, space);
  if (form_ != 0 && space == Space::kHtml && !IsOpen(kTemplate)) {
    switch (name) {
      case kButton:
      case kFieldset:
      case kObject:
      case kOutput:
      case kSelect:
      case kTextarea:
        tree_.owners.Push({node, form_});
        break;
      default:
        break;
    }
  }
  return node;
}

void TreeBuilder::InsertVoid(const Token& token, Space space) {
  if (!MayHave(token.name, space, AttributesOf(token))) {
    NoteGap(KeyOf(token.name, space));
    return;
  }
  const NodeId node = NewElement(token.name, space, TakeAttributes(token));
  PutAt(node, PlaceIn(Top()));
  if (token.name == kInput && form_ != 0 && space == Space::kHtml && !IsOpen(kTemplate)) {
    tree_.owners.Push({node, form_});
  }
}

void TreeBuilder::InsertText(std::uint32_t begin, std::uint32_t length, const Place& place) {
  lastTextEnd_ = begin + length;
  const NodeId previous = place.before != 0 ? tree_.PreviousSibling(place.before) : tree_.LastChild(place.parent);
  bool continues = false;
  if (previous != 0 && tree_.nodes[previous].kind == NodeKind::kText) {
    Node& text = tree_.nodes[previous];
    if (text.begin + text.length == begin) {
      text.length += length;
      return;
    }
    continues = true;
  }
  const NodeId node = NewNode(NodeKind::kText);
  tree_.nodes[node].begin = begin;
  tree_.nodes[node].length = length;
  tree_.nodes[node].continues = continues;
  PutAt(node, place);
}

void TreeBuilder::InsertComment(const Token& token, const Place& place) {
  if (freeElements_ == 0 && token.length < kTellingComment) {
    tokenizer_.TrimText(token.begin);
    return;
  }
  const NodeId node = NewNode(NodeKind::kComment);
  tree_.nodes[node].begin = token.begin;
  tree_.nodes[node].length = token.length;
  CountElement();
  PutAt(node, place);
}

void TreeBuilder::InsertGap() {
  gap_ = false;
  const char16_t* const text = tree_.text.data();
  if (lastTextEnd_ == tokenizer_.KeptLength() && lastTextEnd_ != 0 && IsBlank(text[lastTextEnd_ - 1])) return;
  // What is read as it stands is no place for it.
  const Open& top = Top();
  const bool isText = mode_ == Mode::kText || (top.kinds & kRaw) != 0;
  InsertText(tokenizer_.PutBlank(), 1, isText ? Place{tree_.nodes[top.node].parent, top.node} : PlaceIn(top));
}

void TreeBuilder::MergeAttributes(const Token& token, NodeId node, std::uint8_t bit) {
  while (merged_.size() < tree_.names.Count()) merged_.Push(0);
  if ((mergedBits_ & bit) == 0) {
    mergedBits_ |= bit;
    for (const Attribute& item : tree_.AttributesOf(node)) {
      merged_[item.name] |= bit;
      ++mergedCount_[bit];
    }
    mergedCapacity_[bit] = mergedCount_[bit];
  }
  // What is new moves to the front of the tag's attributes, and from there behind those that the node has.
  GrowArray<Attribute>& items = tree_.attributes;
  std::uint32_t added = 0;
  for (std::uint32_t i = 0; i < token.length; ++i) {
    const Attribute item = items[token.begin + i];
    if ((merged_[item.name] & bit) != 0) continue;
    merged_[item.name] |= bit;
    items[token.begin + added++] = item;
  }
  if (added == 0) return;
  const std::uint32_t count = mergedCount_[bit];
  std::uint32_t place = tree_.nodes[node].begin == 0 ? 0 : tree_.nodes[node].begin - 1;
  if (count + added > mergedCapacity_[bit]) {
    // The run moves to the array's end with room for as much again, so that many tags cost no more than their sum.
    const std::uint32_t capacity = 2 * (count + added);
    const std::uint32_t target = token.begin + added;
    items.Truncate(target);
    items.Extend(capacity);
    for (std::uint32_t i = 0; i < count; ++i) items[target + i] = items[place + i];
    for (std::uint32_t i = count; i < capacity; ++i) items[target + i] = Attribute{};
    place = target;
    mergedCapacity_[bit] = capacity;
    attributesTaken_ = true;
  }
  for (std::uint32_t i = 0; i < added; ++i) items[place + count + i] = items[token.begin + i];
  if (count != 0) items[place + count - 1].isLast = false;
  items[place + count + added - 1].isLast = true;
  mergedCount_[bit] = count + added;
  tree_.nodes[node].begin = place + 1;
}

bool TreeBuilder::LeadingBlanks(Token& token, bool insert) {
  const char16_t* const text = tree_.text.data();
  std::uint32_t count = 0;
  while (count < token.length && IsBlank(text[token.begin + count])) ++count;
  if (insert && count != 0) InsertText(token.begin, count);
  token.begin += count;
  token.length -= count;
  return token.length == 0;
}

void TreeBuilder::KeepBlanks(Token& token) {
  char16_t* const text = tree_.text.data() + token.begin;
  const char16_t* const kept = std::remove_if(text, text + token.length, [](char16_t c) { return !IsBlank(c); });
  token.length = static_cast<std::uint32_t>(kept - text);
  tokenizer_.TrimText(token.begin + token.length);
}

bool TreeBuilder::HasInk(std::uint32_t begin, std::uint32_t length) const {
  const char16_t* const text = tree_.text.data() + begin;
  return std::any_of(text, text + length, [](char16_t c) { return !IsBlank(c); });
}

// ---- Open elements

void TreeBuilder::Push(NodeId node, NameId name, Space space) {
  const std::uint32_t key = KeyOf(name, space);
  open_.Push({node, key, KindsIn(key), true});
  if (key < kKnownCount) ++counts_[key];
}

void TreeBuilder::PushWithoutNode(NameId name, Space space) {
  MakeRoom();
  const std::uint32_t key = KeyOf(name, space);
  open_.Push({Top().node, key, static_cast<std::uint16_t>(KindsIn(key) & ~kFormatting), false});
  if (key < kKnownCount) ++counts_[key];
  NoteGap(key);
}

void TreeBuilder::Pop() { RemoveOpen(open_.size() - 1); }

void TreeBuilder::RemoveOpen(std::size_t index) {
  const Open entry = open_[index];
  if (entry.key < kKnownCount) --counts_[entry.key];
  if (!entry.hasNode) NoteGap(entry.key);
  if ((entry.kinds & kFormatting) != 0) {
    if (const std::size_t at = FindFormat(entry.node); at != kNone) formats_[at].open = false;
  }
  open_.Erase(index);
}

void TreeBuilder::MakeRoom() {
  if (open_.size() < kMaxDepth) return;
  const std::uint32_t key = Top().key;
  Pop();
  if (key == kTemplate && !templateModes_.empty()) templateModes_.Pop();
  switch (key) {
    case kTable:
    case kCaption:
    case kColgroup:
    case kTbody:
    case kTfoot:
    case kThead:
    case kTr:
    case kTd:
    case kTh:
    case kTemplate:
      ResetMode();
      break;
    default:
      break;
  }
}

std::size_t TreeBuilder::FindOpen(NodeId node) const {
  for (std::size_t i = open_.size(); i-- > 0;) {
    if (open_[i].node == node && open_[i].hasNode) return i;
  }
  return kNone;
}

bool TreeBuilder::InScope(NameId name, unsigned boundaries) const {
  if (!IsOpen(name)) return false;
  for (std::size_t i = open_.size(); i-- > 0;) {
    if (open_[i].key == name) return true;
    if ((open_[i].kinds & boundaries) != 0) return false;
  }
  return false;
}

bool TreeBuilder::AnyInTableScope(std::initializer_list<NameId> names) const {
  for (std::size_t i = open_.size(); i-- > 0;) {
    const std::uint32_t key = open_[i].key;
    if (std::ranges::find(names, key) != names.end()) return true;
    if (key == kTable || key == kTemplate || key == kHtml) return false;
  }
  return false;
}

void TreeBuilder::PopUntil(std::initializer_list<NameId> names) {
  for (std::size_t i = open_.size(); i-- > 1;) {
    if (std::ranges::find(names, open_[i].key) == names.end()) continue;
    while (open_.size() > i) Pop();
    return;
  }
}

void TreeBuilder::ClearBackTo(std::initializer_list<NameId> names) {
  while (open_.size() > 1 && std::ranges::find(names, Top().key) == names.end()) Pop();
}

void TreeBuilder::ImplyEndTags(NameId except) {
  while ((Top().kinds & kImplied) != 0 && Top().key != except) Pop();
}

void TreeBuilder::CloseParagraph() {
  ImplyEndTags(kP);
  PopUntil({kP});
}

void TreeBuilder::CloseCell() {
  ImplyEndTags();
  PopUntil({kTd, kTh});
  ClearToMarker();
  mode_ = Mode::kInRow;
}

void TreeBuilder::ResetMode() {
  for (std::size_t i = open_.size(); i-- > 0;) {
    switch (open_[i].key) {
      case kTd:
      case kTh:
        mode_ = Mode::kInCell;
        return;
      case kTr:
        mode_ = Mode::kInRow;
        return;
      case kTbody:
      case kThead:
      case kTfoot:
        mode_ = Mode::kInTableBody;
        return;
      case kCaption:
        mode_ = Mode::kInCaption;
        return;
      case kColgroup:
        mode_ = Mode::kInColumnGroup;
        return;
      case kTable:
        mode_ = Mode::kInTable;
        return;
      case kTemplate:
        mode_ = templateModes_.empty() ? Mode::kInBody : templateModes_.back();
        return;
      case kHead:
        mode_ = Mode::kInHead;
        return;
      case kBody:
        mode_ = Mode::kInBody;
        return;
      case kFrameset:
        mode_ = Mode::kInFrameset;
        return;
      case kHtml:
        mode_ = head_ == 0 ? Mode::kBeforeHead : Mode::kAfterHead;
        return;
      default:
        break;
    }
  }
}

// ---- Active formatting elements

void TreeBuilder::PushFormat(NodeId node, NameId name) {
  // Of equal elements the last three are kept.
  std::size_t first = formats_.size();
  while (first > 0 && formats_[first - 1].node != 0) --first;
  const auto alike = [&](const Format& entry) { return entry.name == name; };
  Format added{node, name, true, 0};
  if (std::count_if(formats_.begin() + first, formats_.end(), alike) >= 3) {
    added.hash = HashAttributes(node);
    std::size_t equal = 0;
    std::size_t earliest = 0;
    for (std::size_t i = formats_.size(); i-- > first;) {
      if (!alike(formats_[i])) continue;
      if (formats_[i].hash == 0) formats_[i].hash = HashAttributes(formats_[i].node);
      if (formats_[i].hash != added.hash) continue;
      ++equal;
      earliest = i;
    }
    if (equal >= 3) formats_.Erase(earliest);
  }
  if (formats_.size() == kMaxFormatting) formats_.Erase(0);
  formats_.Push(added);
}

void TreeBuilder::PushMarker() {
  if (formats_.size() == kMaxFormatting) formats_.Erase(0);
  formats_.Push({0, 0, false, 0});
}

void TreeBuilder::ClearToMarker() {
  while (!formats_.empty()) {
    const bool marker = formats_.back().node == 0;
    formats_.Pop();
    if (marker) return;
  }
}

std::uint64_t TreeBuilder::HashAttributes(NodeId node) const {
  // The order of attributes doesn't count. Two different sets that fall together would cost their page a tag, no more.
  std::uint64_t sum = 1;
  for (const Attribute& item : tree_.AttributesOf(node)) {
    std::uint64_t hash = 0xCBF29CE484222325U ^ item.name;
    for (const char16_t c : tree_.TextOf(item)) hash = (hash ^ c) * 0x100000001B3U;
    sum += hash ^ hash >> 29;
  }
  return sum == 0 ? 1 : sum;
}

std::size_t TreeBuilder::CopyCost(NodeId node) const {
  std::size_t length = 0;
  for (const Attribute& item : tree_.AttributesOf(node)) {
    length += tree_.NameText(item.name).size() + item.length + kCharactersPerCopy;
  }
  return 1 + length / kCharactersPerCopy;
}

bool TreeBuilder::SpendCopy(NodeId node) {
  const std::size_t cost = copies_ == 0 ? 1 : CopyCost(node);
  if (copies_ < cost) return false;
  copies_ -= cost;
  return true;
}

void TreeBuilder::Reconstruct() {
  if (formats_.empty() || formats_.back().node == 0 || formats_.back().open) return;
  std::size_t i = formats_.size() - 1;
  while (i > 0 && formats_[i - 1].node != 0 && !formats_[i - 1].open) --i;
  while (i < formats_.size()) {
    const NodeId old = formats_[i].node;
    if (!MayHaveCopy(old) || !SpendCopy(old)) {
      formats_.Erase(i);
      continue;
    }
    const NodeId node = InsertNode(formats_[i].name, Space::kHtml, tree_.nodes[old].begin);
    formats_[i].node = node;
    formats_[i].open = true;
    ++i;
  }
}

std::size_t TreeBuilder::FindFormat(NodeId node) const {
  for (std::size_t i = formats_.size(); i-- > 0;) {
    if (formats_[i].node == node) return i;
  }
  return kNone;
}

std::size_t TreeBuilder::FindFormatByName(NameId name) const {
  for (std::size_t i = formats_.size(); i-- > 0 && formats_[i].node != 0;) {
    if (formats_[i].name == name) return i;
  }
  return kNone;
}

void TreeBuilder::AdoptionAgency(NameId name) {
  if (freeElements_ == 0) {
    // One that was left out has nothing that could be torn apart.
    for (std::size_t i = open_.size(); i-- > 0 && (open_[i].kinds & kScope) == 0;) {
      if (open_[i].key != name) continue;
      if (open_[i].hasNode) break;
      RemoveOpen(i);
      return;
    }
  }
  if (Top().key == name && FindFormat(Top().node) == kNone) {
    Pop();
    return;
  }
  for (int round = 0; round < 8; ++round) {
    std::size_t format = FindFormatByName(name);
    if (format == kNone) {
      EndTagOfAnyOther(name);
      return;
    }
    const NodeId formatNode = formats_[format].node;
    const std::size_t at = formats_[format].open ? FindOpen(formatNode) : kNone;
    if (at == kNone) {
      formats_.Erase(format);
      return;
    }
    for (std::size_t i = open_.size() - 1; i > at; --i) {
      if ((open_[i].kinds & kScope) != 0) return;
    }
    std::size_t nearest = at + 1;
    while (nearest < open_.size() && (open_[nearest].kinds & kSpecial) == 0) ++nearest;
    std::size_t furthest = nearest;
    while (furthest < open_.size() && ((open_[furthest].kinds & kSpecial) == 0 || !open_[furthest].hasNode)) ++furthest;
    if (furthest == open_.size() && nearest != open_.size()) {
      // There is nothing to tear apart: the block that was left out only moves out of the formatting element.
      for (std::size_t i = nearest; i-- > at;) RemoveOpen(i);
      for (std::size_t i = at; i < open_.size() && !open_[i].hasNode; ++i) open_[i].node = open_[i - 1].node;
      formats_.Erase(format);
      return;
    }
    if (furthest == open_.size() || !SpendCopy(formatNode)) {
      while (open_.size() > at) Pop();
      formats_.Erase(format);
      return;
    }
    const NodeId furthestNode = open_[furthest].node;
    NodeId last = furthestNode;
    std::size_t bookmark = format;
    std::size_t counter = 0;
    for (std::size_t i = furthest; --i > at;) {
      ++counter;
      std::size_t entry = open_[i].hasNode ? FindFormat(open_[i].node) : kNone;
      if (entry != kNone && (counter > 3 || !SpendCopy(open_[i].node))) {
        formats_.Erase(entry);
        if (entry < format) --format;
        if (entry < bookmark) --bookmark;
        entry = kNone;
      }
      if (entry == kNone) {
        RemoveOpen(i);
        --furthest;
        continue;
      }
      const Node& original = tree_.nodes[open_[i].node];
      const NodeId copy = NewElement(original.name, Space::kHtml, original.begin);
      formats_[entry].node = copy;
      open_[i].node = copy;
      if (last == furthestNode) bookmark = entry + 1;
      tree_.Detach(last);
      tree_.Append(copy, last);
      last = copy;
    }
    tree_.Detach(last);
    std::size_t ancestor = at - 1;
    while (!open_[ancestor].hasNode) --ancestor;
    PutAt(last, PlaceIn(open_[ancestor]));

    const NodeId copy = NewElement(name, Space::kHtml, tree_.nodes[formatNode].begin);
    Node& block = tree_.nodes[furthestNode];
    tree_.nodes[copy].firstChild = block.firstChild;
    for (NodeId child = block.firstChild; child != 0; child = tree_.nodes[child].next) tree_.nodes[child].parent = copy;
    block.firstChild = 0;
    tree_.Append(furthestNode, copy);

    Format moved = formats_[format];
    moved.node = copy;
    if (format < bookmark) --bookmark;
    formats_.Erase(format);
    formats_.Insert(bookmark, moved);
    const Open entry{copy, open_[at].key, open_[at].kinds, true};
    open_.Erase(at);
    open_.Insert(furthest, entry);
  }
}

Tree ParseTree(GrowArray<char16_t> markup, const ParseOptions& options) {
  Tree tree;
  tree.text = std::move(markup);
  TreeBuilder(tree, options).Run();
  tree.text.ShrinkToFit();
  tree.nodes.ShrinkToFit();
  tree.attributes.ShrinkToFit();
  return tree;
}

}  // namespace zeph::html
