// SPDX-License-Identifier: Apache-2.0
#include "documents/html/TreeBuilder.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <span>
#include <string_view>
#include <utility>

#include "documents/html/Markup.h"
#include "documents/html/Tokenizer.h"

namespace zeph::html {
namespace {

using namespace name;  // the known names, which every line below is about

enum class Mode : std::uint8_t {
  kInitial,
  kBeforeHtml,
  kBeforeHead,
  kInHead,
  kInHeadNoscript,
  kAfterHead,
  kInBody,
  kText,
  kInTable,
  kInTableText,
  kInCaption,
  kInColumnGroup,
  kInTableBody,
  kInRow,
  kInCell,
  kInSelect,
  kInSelectInTable,
  kInTemplate,
  kAfterBody,
  kInFrameset,
  kAfterFrameset,
  kAfterAfterBody,
  kAfterAfterFrameset
};

constexpr bool IsBlank(char16_t c) noexcept {
  return c == u' ' || c == u'\n' || c == u'\t' || c == u'\f' || c == u'\r';
}

bool EqualsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return std::ranges::equal(text, lower, [](char16_t a, char16_t b) {
    return (a >= u'A' && a <= u'Z' ? static_cast<char16_t>(a + 32) : a) == b;
  });
}
bool BeginsNoCase(std::u16string_view text, std::u16string_view lower) noexcept {
  return text.size() >= lower.size() && EqualsNoCase(text.substr(0, lower.size()), lower);
}

/// An element that is open.
struct Open {
  NodeId node;          ///< where its content goes
  std::uint32_t key;    ///< name and space; an HTML element's key is its name
  std::uint16_t kinds;  ///< what the rules see in it
  bool hasNode;         ///< the node is its own; false: it was left out, and its content goes where it would have stood
};
constexpr std::uint32_t kForeign = 1U << 24;
constexpr std::uint32_t KeyOf(NameId name, Space space) noexcept {
  return name | static_cast<std::uint32_t>(space) << 24;
}
constexpr NameId NameIn(std::uint32_t key) noexcept { return key & (kForeign - 1); }
constexpr Space SpaceIn(std::uint32_t key) noexcept { return static_cast<Space>(key >> 24); }
constexpr std::uint32_t kMathMlSpace = static_cast<std::uint32_t>(Space::kMathMl) << 24;
constexpr std::uint32_t kSvgSpace = static_cast<std::uint32_t>(Space::kSvg) << 24;

constexpr bool IsMathMlTextPoint(std::uint32_t key) noexcept {
  return key == (kMi | kMathMlSpace) || key == (kMo | kMathMlSpace) || key == (kMn | kMathMlSpace) ||
         key == (kMs | kMathMlSpace) || key == (kMtext | kMathMlSpace);
}
constexpr bool IsSvgHtmlPoint(std::uint32_t key) noexcept {
  return key == (kForeignObject | kSvgSpace) || key == (kDesc | kSvgSpace) || key == (kTitle | kSvgSpace);
}

std::uint16_t KindsIn(std::uint32_t key) noexcept {
  if (key < kForeign) return KindsOf(key);
  const bool bounds = IsMathMlTextPoint(key) || IsSvgHtmlPoint(key) || key == (kAnnotationXml | kMathMlSpace);
  return bounds ? kSpecial | kScope : 0;
}

/// Public identifiers of doctypes that ask for quirks, by their beginnings.
constexpr std::u16string_view kQuirksIds[] = {
    u"+//silmaril//dtd html pro v0r11 19970101//",
    u"-//as//dtd html 3.0 aswedit + extensions//",
    u"-//advasoft ltd//dtd html 3.0 aswedit + extensions//",
    u"-//ietf//dtd html 2.0 level 1//",
    u"-//ietf//dtd html 2.0 level 2//",
    u"-//ietf//dtd html 2.0 strict level 1//",
    u"-//ietf//dtd html 2.0 strict level 2//",
    u"-//ietf//dtd html 2.0 strict//",
    u"-//ietf//dtd html 2.0//",
    u"-//ietf//dtd html 2.1e//",
    u"-//ietf//dtd html 3.0//",
    u"-//ietf//dtd html 3.2 final//",
    u"-//ietf//dtd html 3.2//",
    u"-//ietf//dtd html 3//",
    u"-//ietf//dtd html level 0//",
    u"-//ietf//dtd html level 1//",
    u"-//ietf//dtd html level 2//",
    u"-//ietf//dtd html level 3//",
    u"-//ietf//dtd html strict level 0//",
    u"-//ietf//dtd html strict level 1//",
    u"-//ietf//dtd html strict level 2//",
    u"-//ietf//dtd html strict level 3//",
    u"-//ietf//dtd html strict//",
    u"-//ietf//dtd html//",
    u"-//metrius//dtd metrius presentational//",
    u"-//microsoft//dtd internet explorer 2.0 html strict//",
    u"-//microsoft//dtd internet explorer 2.0 html//",
    u"-//microsoft//dtd internet explorer 2.0 tables//",
    u"-//microsoft//dtd internet explorer 3.0 html strict//",
    u"-//microsoft//dtd internet explorer 3.0 html//",
    u"-//microsoft//dtd internet explorer 3.0 tables//",
    u"-//netscape comm. corp.//dtd html//",
    u"-//netscape comm. corp.//dtd strict html//",
    u"-//o'reilly and associates//dtd html 2.0//",
    u"-//o'reilly and associates//dtd html extended 1.0//",
    u"-//o'reilly and associates//dtd html extended relaxed 1.0//",
    u"-//softquad software//dtd hotmetal pro 6.0::19990601::extensions to html 4.0//",
    u"-//softquad//dtd hotmetal pro 4.0::19971010::extensions to html 4.0//",
    u"-//spyglass//dtd html 2.0 extended//",
    u"-//sun microsystems corp.//dtd hotjava html//",
    u"-//sun microsystems corp.//dtd hotjava strict html//",
    u"-//w3c//dtd html 3 1995-03-24//",
    u"-//w3c//dtd html 3.2 draft//",
    u"-//w3c//dtd html 3.2 final//",
    u"-//w3c//dtd html 3.2//",
    u"-//w3c//dtd html 3.2s draft//",
    u"-//w3c//dtd html 4.0 frameset//",
    u"-//w3c//dtd html 4.0 transitional//",
    u"-//w3c//dtd html experimental 19960712//",
    u"-//w3c//dtd html experimental 970421//",
    u"-//w3c//dtd w3 html//",
    u"-//w3o//dtd w3 html 3.0//",
    u"-//webtechs//dtd mozilla html 2.0//",
    u"-//webtechs//dtd mozilla html//"};

class TreeBuilder {
 public:
  TreeBuilder(Tree& tree, const ParseOptions& options)
      : tree_(tree),
        tokenizer_(tree),
        noscriptIsText_(options.noscriptIsText),
        copies_(kFreeCopies + tree.text.size() / kCharactersPerCopy),
        freeElements_(
            options.freeElements.value_or(std::max(kFreeElements, tree.text.size() / kCharactersPerElement))) {}

  void Run();

 private:
  struct Format {
    NodeId node;  ///< 0: a marker
    NameId name;
    bool open;
    std::uint64_t hash;  ///< of the attributes; 0: not computed
  };
  struct Place {
    NodeId parent;
    NodeId before;  ///< 0: at the end
  };
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  // Each of these handles a token by the rules of one mode; false asks to have it handled again, by the mode now set.
  bool Dispatch(Mode mode, Token& token);
  bool Initial(Token& token);
  bool BeforeHtml(Token& token);
  bool BeforeHead(Token& token);
  bool InHead(Token& token);
  bool InHeadNoscript(Token& token);
  bool AfterHead(Token& token);
  bool InBody(Token& token);
  bool Text(Token& token);
  bool InTable(Token& token);
  bool InTableText(Token& token);
  bool InCaption(Token& token);
  bool InColumnGroup(Token& token);
  bool InTableBody(Token& token);
  bool InRow(Token& token);
  bool InCell(Token& token);
  bool InSelect(Token& token);
  bool InSelectInTable(Token& token);
  bool InTemplate(Token& token);
  bool AfterBody(Token& token);
  bool InFrameset(Token& token);
  bool AfterFrameset(Token& token);
  bool AfterAfterBody(Token& token);
  bool AfterAfterFrameset(Token& token);
  bool ForeignContent(Token& token);

  void Take(Token& token);
  [[nodiscard]] bool IsForeign(const Token& token) const;
  bool StartTagInBody(Token& token);
  bool EndTagInBody(Token& token);
  void EndTagOfAnyOther(NameId name);
  void AdoptionAgency(NameId name);
  void EndTemplate();
  bool TextElement(Token& token, TextMode mode);

  // Nodes.
  NodeId NewNode(NodeKind kind);
  NodeId NewElement(NameId name, Space space, std::uint32_t attributes);
  /// An element or a comment more.
  void CountElement() {
    if (freeElements_ != 0) --freeElements_;
  }
  /// The page may still have it: there is room for all, or it says something.
  [[nodiscard]] bool MayHave(NameId name, Space space, std::span<const Attribute> attributes) const {
    return freeElements_ != 0 || SaysSomething(name, space, attributes);
  }
  [[nodiscard]] bool MayHaveCopy(NodeId node) const {
    return freeElements_ != 0 || SaysSomething(tree_.nodes[node].name, Space::kHtml, tree_.AttributesOf(node));
  }
  [[nodiscard]] bool SaysSomething(NameId name, Space space, std::span<const Attribute> attributes) const;
  [[nodiscard]] Place PlaceIn(const Open& target) const;
  void PutAt(NodeId node, const Place& place) { tree_.InsertBefore(place.parent, node, place.before); }
  [[nodiscard]] std::span<const Attribute> AttributesOf(const Token& token) const {
    return {tree_.attributes.data() + token.begin, token.length};
  }
  /// The attributes of a tag, as a node names them; from now on they belong to it.
  std::uint32_t TakeAttributes(const Token& token);
  /// Opens an element; gives its node, or 0 for one that the page may not have.
  NodeId Insert(const Token& token, Space space = Space::kHtml);
  NodeId InsertImplied(NameId name);
  NodeId InsertNode(NameId name, Space space, std::uint32_t attributes);
  void InsertFormatting(const Token& token) {
    if (const NodeId node = Insert(token); node != 0) PushFormat(node, token.name);
  }
  void InsertVoid(const Token& token, Space space = Space::kHtml);
  void InsertText(std::uint32_t begin, std::uint32_t length, const Place& place);
  void InsertText(std::uint32_t begin, std::uint32_t length) { InsertText(begin, length, PlaceIn(Top())); }
  void InsertText(const Token& token) { InsertText(token.begin, token.length); }
  void InsertComment(const Token& token, const Place& place);
  void InsertComment(const Token& token) { InsertComment(token, PlaceIn(Top())); }
  void MergeAttributes(const Token& token, NodeId node, std::uint8_t bit);
  /// White space at the token's start is inserted, or dropped; true when nothing of the token is left.
  bool LeadingBlanks(Token& token, bool insert);
  /// Takes all but the white space out of the token's text.
  void KeepBlanks(Token& token);
  void DropNulls(const Token& token) { tokenizer_.TrimText(token.begin); }
  /// Keeps what stands before a tag from what stands behind it, where an element that was left out would have.
  void InsertGap();
  [[nodiscard]] bool HasInk(std::uint32_t begin, std::uint32_t length) const;

  // Open elements.
  [[nodiscard]] Open& Top() { return open_[open_.size() - 1]; }
  [[nodiscard]] const Open& Top() const { return open_[open_.size() - 1]; }
  void Push(NodeId node, NameId name, Space space);
  /// Opens an element that is left out.
  void PushWithoutNode(NameId name, Space space);
  void NoteGap(std::uint32_t key) {
    gap_ = gap_ || (key < kForeign && (key == kBr || (KindsOf(key) & (kBlock | kCell)) != 0));
  }
  void Pop();
  void RemoveOpen(std::size_t index);
  void MakeRoom();
  [[nodiscard]] std::size_t FindOpen(NodeId node) const;
  [[nodiscard]] bool IsOpen(NameId name) const { return name < kKnownCount && counts_[name] != 0; }
  [[nodiscard]] bool InScope(NameId name, unsigned boundaries = kScope) const;
  [[nodiscard]] bool AnyInTableScope(std::initializer_list<NameId> names) const;
  [[nodiscard]] bool InSelectScope(NameId name) const;
  /// Closes elements down to the innermost of those named, it included; nothing when there is none.
  void PopUntil(std::initializer_list<NameId> names);
  /// Closes elements down to the innermost of those named, which stays, or to the root.
  void ClearBackTo(std::initializer_list<NameId> names);
  void ImplyEndTags(NameId except = kKnownCount);
  void CloseParagraph();
  void CloseParagraphInButtonScope() {
    if (InScope(kP, kScope | kButtonScope)) CloseParagraph();
  }
  void CloseCell();
  void ResetMode();
  [[nodiscard]] bool SecondIsBody() const { return open_.size() > 1 && open_[1].key == kBody; }

  // Active formatting elements.
  void PushFormat(NodeId node, NameId name);
  void PushMarker();
  void ClearToMarker();
  void Reconstruct();
  [[nodiscard]] std::size_t FindFormat(NodeId node) const;
  [[nodiscard]] std::size_t FindFormatByName(NameId name) const;
  [[nodiscard]] std::uint64_t HashAttributes(NodeId node) const;
  [[nodiscard]] std::size_t CopyCost(NodeId node) const;
  /// A copy of this formatting element may be made, and is paid for.
  bool SpendCopy(NodeId node);

  Tree& tree_;
  Tokenizer tokenizer_;
  bool noscriptIsText_;
  std::size_t copies_;
  std::size_t freeElements_;  ///< how many more are kept whatever they are
  Mode mode_ = Mode::kInitial;
  Mode originalMode_ = Mode::kInitial;
  GrowArray<Open> open_;
  std::array<std::uint16_t, kKnownCount> counts_{};  ///< open HTML elements by known name
  GrowArray<Format> formats_;
  GrowArray<Mode> templateModes_;
  NodeId head_ = 0;
  NodeId form_ = 0;
  bool framesetOk_ = true;
  bool quirks_ = false;
  bool foster_ = false;
  bool ignoreLineFeed_ = false;
  bool attributesTaken_ = false;
  bool gap_ = false;               ///< an element that was left out began or ended a line or a cell
  std::uint32_t lastTextEnd_ = 0;  ///< of the text that was inserted last
  std::uint32_t pendingBegin_ = 0;
  std::uint32_t pendingLength_ = 0;
  /// Which of the root and the body have an attribute of the name, once a second tag of theirs was met.
  GrowArray<std::uint8_t> merged_;
  std::uint8_t mergedBits_ = 0;
  std::array<std::uint32_t, 3> mergedCapacity_{};
  std::array<std::uint32_t, 3> mergedCount_{};
};

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
      default:
        break;
    }
  }
  return std::ranges::any_of(attributes, [&](const Attribute& item) {
    return item.name == telling || HidesContent(item.name, tree_.TextOf(item));
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
    case kSelect:
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

bool TreeBuilder::InSelectScope(NameId name) const {
  for (std::size_t i = open_.size(); i-- > 0;) {
    if (open_[i].key == name) return true;
    if (open_[i].key != kOptgroup && open_[i].key != kOption) return false;
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
      case kSelect:
        for (std::size_t j = i; j-- > 1;) {
          if (open_[j].key == kTemplate) break;
          if (open_[j].key == kTable) {
            mode_ = Mode::kInSelectInTable;
            return;
          }
        }
        mode_ = Mode::kInSelect;
        return;
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

// ---- Modes

void TreeBuilder::Run() {
  tree_.nodes.Reserve(tree_.text.size() / 12 + 16);
  open_.Reserve(kMaxDepth + 1);
  NewNode(NodeKind::kDocument);
  Token token;
  do {
    tokenizer_.AllowCdata(!open_.empty() && Top().key >= kForeign);
    tokenizer_.Next(token);
    Take(token);
  } while (token.kind != TokenKind::kEnd);
  tree_.text.Truncate(tokenizer_.KeptLength());
}

void TreeBuilder::Take(Token& token) {
  if (ignoreLineFeed_) {
    ignoreLineFeed_ = false;
    if (token.kind == TokenKind::kText && tree_.text.data()[token.begin] == u'\n') {
      ++token.begin;
      if (--token.length == 0) return;
    }
  }
  attributesTaken_ = false;
  const std::uint32_t attributes = token.begin;
  while (!(IsForeign(token) ? ForeignContent(token) : Dispatch(mode_, token))) {
  }
  if (token.kind == TokenKind::kStartTag && !attributesTaken_) tree_.attributes.Truncate(attributes);
  if (gap_ && (token.kind == TokenKind::kStartTag || token.kind == TokenKind::kEndTag)) InsertGap();
}

bool TreeBuilder::Dispatch(Mode mode, Token& token) {
  switch (mode) {
    case Mode::kInitial:
      return Initial(token);
    case Mode::kBeforeHtml:
      return BeforeHtml(token);
    case Mode::kBeforeHead:
      return BeforeHead(token);
    case Mode::kInHead:
      return InHead(token);
    case Mode::kInHeadNoscript:
      return InHeadNoscript(token);
    case Mode::kAfterHead:
      return AfterHead(token);
    case Mode::kInBody:
      return InBody(token);
    case Mode::kText:
      return Text(token);
    case Mode::kInTable:
      return InTable(token);
    case Mode::kInTableText:
      return InTableText(token);
    case Mode::kInCaption:
      return InCaption(token);
    case Mode::kInColumnGroup:
      return InColumnGroup(token);
    case Mode::kInTableBody:
      return InTableBody(token);
    case Mode::kInRow:
      return InRow(token);
    case Mode::kInCell:
      return InCell(token);
    case Mode::kInSelect:
      return InSelect(token);
    case Mode::kInSelectInTable:
      return InSelectInTable(token);
    case Mode::kInTemplate:
      return InTemplate(token);
    case Mode::kAfterBody:
      return AfterBody(token);
    case Mode::kInFrameset:
      return InFrameset(token);
    case Mode::kAfterFrameset:
      return AfterFrameset(token);
    case Mode::kAfterAfterBody:
      return AfterAfterBody(token);
    case Mode::kAfterAfterFrameset:
      return AfterAfterFrameset(token);
  }
  return true;
}

bool TreeBuilder::Initial(Token& token) {
  if (token.kind == TokenKind::kText && LeadingBlanks(token, false)) return true;
  if (token.kind == TokenKind::kComment) {
    InsertComment(token, {kDocument, 0});
    return true;
  }
  mode_ = Mode::kBeforeHtml;
  if (token.kind != TokenKind::kDoctype) {
    quirks_ = true;
    return false;
  }
  const Doctype& doctype = tokenizer_.LastDoctype();
  tree_.doctype = doctype;
  tree_.Append(kDocument, NewNode(NodeKind::kDoctype));
  const auto text = [this](const Slice& slice) { return tree_.TextOf(slice.begin, slice.length); };
  const std::u16string_view publicId = text(doctype.publicId);
  quirks_ = token.forceQuirks || text(doctype.name) != u"html" ||
            EqualsNoCase(publicId, u"-//w3o//dtd w3 html strict 3.0//en//") ||
            EqualsNoCase(publicId, u"-/w3c/dtd html 4.0 transitional/en") || EqualsNoCase(publicId, u"html") ||
            EqualsNoCase(text(doctype.systemId), u"http://www.ibm.com/data/dtd/v11/ibmxhtml1-transitional.dtd") ||
            std::ranges::any_of(kQuirksIds, [&](std::u16string_view id) { return BeginsNoCase(publicId, id); }) ||
            (!doctype.systemId.present && (BeginsNoCase(publicId, u"-//w3c//dtd html 4.01 frameset//") ||
                                           BeginsNoCase(publicId, u"-//w3c//dtd html 4.01 transitional//")));
  return true;
}

bool TreeBuilder::BeforeHtml(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token, {kDocument, 0});
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, false)) return true;
      break;
    case TokenKind::kEndTag:
      if (token.name != kHead && token.name != kBody && token.name != kHtml && token.name != kBr) return true;
      break;
    default:
      break;
  }
  mode_ = Mode::kBeforeHead;
  const bool own = token.kind == TokenKind::kStartTag && token.name == kHtml;
  const NodeId root = NewElement(kHtml, Space::kHtml, own ? TakeAttributes(token) : 0);
  tree_.Append(kDocument, root);
  Push(root, kHtml, Space::kHtml);
  return own;
}

bool TreeBuilder::BeforeHead(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, false)) return true;
      break;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      if (token.name == kHead) {
        head_ = Insert(token);
        mode_ = Mode::kInHead;
        return true;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name != kHead && token.name != kBody && token.name != kHtml && token.name != kBr) return true;
      break;
    default:
      break;
  }
  head_ = InsertImplied(kHead);
  mode_ = Mode::kInHead;
  return false;
}

bool TreeBuilder::TextElement(Token& token, TextMode mode) {
  Insert(token);
  tokenizer_.SetTextMode(mode, token.name);
  originalMode_ = mode_;
  mode_ = Mode::kText;
  return true;
}

void TreeBuilder::EndTemplate() {
  if (!IsOpen(kTemplate)) return;
  while ((Top().kinds & kImpliedThoroughly) != 0) Pop();
  PopUntil({kTemplate});
  ClearToMarker();
  if (!templateModes_.empty()) templateModes_.Pop();
  ResetMode();
}

bool TreeBuilder::InHead(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kBase:
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
          InsertVoid(token);
          return true;
        case kTitle:
          return TextElement(token, TextMode::kRcdata);
        case kNoscript:
          if (noscriptIsText_) return TextElement(token, TextMode::kRawText);
          Insert(token);
          mode_ = Mode::kInHeadNoscript;
          return true;
        case kNoframes:
        case kStyle:
          return TextElement(token, TextMode::kRawText);
        case kScript:
          return TextElement(token, TextMode::kScript);
        case kTemplate:
          // Room is made first: closing an element there may set the mode.
          Insert(token);
          PushMarker();
          framesetOk_ = false;
          mode_ = Mode::kInTemplate;
          templateModes_.Push(Mode::kInTemplate);
          return true;
        case kHead:
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      switch (token.name) {
        case kTemplate:
          EndTemplate();
          return true;
        case kHead:
          Pop();
          mode_ = Mode::kAfterHead;
          return true;
        case kBody:
        case kHtml:
        case kBr:
          break;
        default:
          return true;
      }
      break;
    default:
      break;
  }
  Pop();
  mode_ = Mode::kAfterHead;
  return false;
}

bool TreeBuilder::InHeadNoscript(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      return InHead(token);
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
        case kNoframes:
        case kStyle:
          return InHead(token);
        case kHead:
        case kNoscript:
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name == kNoscript) {
        Pop();
        mode_ = Mode::kInHead;
        return true;
      }
      if (token.name != kBr) return true;
      break;
    default:
      break;
  }
  Pop();
  mode_ = Mode::kInHead;
  return false;
}

bool TreeBuilder::AfterHead(Token& token) {
  switch (token.kind) {
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kBody:
          Insert(token);
          framesetOk_ = false;
          mode_ = Mode::kInBody;
          return true;
        case kFrameset:
          Insert(token);
          mode_ = Mode::kInFrameset;
          return true;
        case kBase:
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
        case kNoframes:
        case kScript:
        case kStyle:
        case kTemplate:
        case kTitle: {
          Push(head_, kHead, Space::kHtml);
          InHead(token);
          if (const std::size_t at = FindOpen(head_); at != kNone) RemoveOpen(at);
          return true;
        }
        case kHead:
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name == kTemplate) return InHead(token);
      if (token.name != kBody && token.name != kHtml && token.name != kBr) return true;
      break;
    default:
      break;
  }
  InsertImplied(kBody);
  mode_ = Mode::kInBody;
  return false;
}

bool TreeBuilder::InBody(Token& token) {
  switch (token.kind) {
    case TokenKind::kNulls:
      DropNulls(token);
      return true;
    case TokenKind::kText:
      Reconstruct();
      InsertText(token);
      if (framesetOk_ && HasInk(token.begin, token.length)) framesetOk_ = false;
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      return StartTagInBody(token);
    case TokenKind::kEndTag:
      return EndTagInBody(token);
    case TokenKind::kEnd:
      return templateModes_.empty() || InTemplate(token);
  }
  return true;
}

bool TreeBuilder::StartTagInBody(Token& token) {
  switch (token.name) {
    case kHtml:
      if (!IsOpen(kTemplate)) MergeAttributes(token, open_[0].node, 1);
      return true;
    case kBase:
    case kBasefont:
    case kBgsound:
    case kLink:
    case kMeta:
    case kNoframes:
    case kScript:
    case kStyle:
    case kTemplate:
    case kTitle:
      return InHead(token);
    case kBody:
      if (!SecondIsBody() || IsOpen(kTemplate)) return true;
      framesetOk_ = false;
      MergeAttributes(token, open_[1].node, 2);
      return true;
    case kFrameset:
      if (!SecondIsBody() || !framesetOk_) return true;
      tree_.Detach(open_[1].node);
      while (open_.size() > 1) Pop();
      Insert(token);
      mode_ = Mode::kInFrameset;
      return true;
    case kAddress:
    case kArticle:
    case kAside:
    case kBlockquote:
    case kCenter:
    case kDetails:
    case kDialog:
    case kDir:
    case kDiv:
    case kDl:
    case kFieldset:
    case kFigcaption:
    case kFigure:
    case kFooter:
    case kHeader:
    case kHgroup:
    case kMain:
    case kMenu:
    case kNav:
    case kOl:
    case kP:
    case kSearch:
    case kSection:
    case kSummary:
    case kUl:
      CloseParagraphInButtonScope();
      Insert(token);
      return true;
    case kH1:
    case kH2:
    case kH3:
    case kH4:
    case kH5:
    case kH6:
      CloseParagraphInButtonScope();
      if ((Top().kinds & kHeading) != 0) Pop();
      Insert(token);
      return true;
    case kPre:
    case kListing:
      CloseParagraphInButtonScope();
      Insert(token);
      ignoreLineFeed_ = true;
      framesetOk_ = false;
      return true;
    case kForm:
      if (form_ != 0 && !IsOpen(kTemplate)) return true;
      CloseParagraphInButtonScope();
      Insert(token);
      if (!IsOpen(kTemplate)) form_ = Top().node;
      return true;
    case kLi:
    case kDd:
    case kDt: {
      framesetOk_ = false;
      const bool listItem = token.name == kLi;
      for (std::size_t i = open_.size(); i-- > 0;) {
        const std::uint32_t key = open_[i].key;
        if (listItem ? key == kLi : key == kDd || key == kDt) {
          ImplyEndTags(key);
          PopUntil({key});
          break;
        }
        if ((open_[i].kinds & kSpecial) != 0 && key != kAddress && key != kDiv && key != kP) break;
      }
      CloseParagraphInButtonScope();
      Insert(token);
      return true;
    }
    case kPlaintext:
      CloseParagraphInButtonScope();
      Insert(token);
      tokenizer_.SetTextMode(TextMode::kPlainText, kPlaintext);
      return true;
    case kButton:
      if (InScope(kButton)) {
        ImplyEndTags();
        PopUntil({kButton});
      }
      Reconstruct();
      Insert(token);
      framesetOk_ = false;
      return true;
    case kA:
      if (const std::size_t format = FindFormatByName(kA); format != kNone) {
        const NodeId node = formats_[format].node;
        AdoptionAgency(kA);
        if (const std::size_t at = FindFormat(node); at != kNone) formats_.Erase(at);
        if (const std::size_t at = FindOpen(node); at != kNone) RemoveOpen(at);
      }
      Reconstruct();
      InsertFormatting(token);
      return true;
    case kB:
    case kBig:
    case kCode:
    case kEm:
    case kFont:
    case kI:
    case kS:
    case kSmall:
    case kStrike:
    case kStrong:
    case kTt:
    case kU:
      Reconstruct();
      InsertFormatting(token);
      return true;
    case kNobr:
      Reconstruct();
      if (InScope(kNobr)) {
        AdoptionAgency(kNobr);
        Reconstruct();
      }
      InsertFormatting(token);
      return true;
    case kApplet:
    case kMarquee:
    case kObject:
      Reconstruct();
      Insert(token);
      PushMarker();
      framesetOk_ = false;
      return true;
    case kTable:
      if (!quirks_) CloseParagraphInButtonScope();
      Insert(token);
      framesetOk_ = false;
      mode_ = Mode::kInTable;
      return true;
    case kArea:
    case kBr:
    case kEmbed:
    case kImg:
    case kKeygen:
    case kWbr:
      Reconstruct();
      InsertVoid(token);
      framesetOk_ = false;
      return true;
    case kImage:
      token.name = kImg;
      return StartTagInBody(token);
    case kInput: {
      Reconstruct();
      InsertVoid(token);
      const NodeId node = static_cast<NodeId>(tree_.nodes.size() - 1);
      if (!EqualsNoCase(tree_.AttributeText(node, kType), u"hidden")) framesetOk_ = false;
      return true;
    }
    case kParam:
    case kSource:
    case kTrack:
      InsertVoid(token);
      return true;
    case kHr:
      CloseParagraphInButtonScope();
      InsertVoid(token);
      framesetOk_ = false;
      return true;
    case kTextarea:
      TextElement(token, TextMode::kRcdata);
      ignoreLineFeed_ = true;
      framesetOk_ = false;
      return true;
    case kXmp:
      CloseParagraphInButtonScope();
      Reconstruct();
      framesetOk_ = false;
      return TextElement(token, TextMode::kRawText);
    case kIframe:
      framesetOk_ = false;
      return TextElement(token, TextMode::kRawText);
    case kNoembed:
      return TextElement(token, TextMode::kRawText);
    case kNoscript:
      if (noscriptIsText_) return TextElement(token, TextMode::kRawText);
      break;
    case kSelect:
      Reconstruct();
      Insert(token);
      framesetOk_ = false;
      switch (mode_) {
        case Mode::kInTable:
        case Mode::kInCaption:
        case Mode::kInTableBody:
        case Mode::kInRow:
        case Mode::kInCell:
          mode_ = Mode::kInSelectInTable;
          break;
        default:
          mode_ = Mode::kInSelect;
          break;
      }
      return true;
    case kOptgroup:
    case kOption:
      if (Top().key == kOption) Pop();
      Reconstruct();
      Insert(token);
      return true;
    case kRb:
    case kRtc:
      if (InScope(kRuby)) ImplyEndTags();
      Insert(token);
      return true;
    case kRp:
    case kRt:
      if (InScope(kRuby)) ImplyEndTags(kRtc);
      Insert(token);
      return true;
    case kMath:
    case kSvg: {
      Reconstruct();
      const Space space = token.name == kMath ? Space::kMathMl : Space::kSvg;
      if (token.selfClosing) {
        InsertVoid(token, space);
      } else {
        Insert(token, space);
      }
      return true;
    }
    case kCaption:
    case kCol:
    case kColgroup:
    case kFrame:
    case kHead:
    case kTbody:
    case kTd:
    case kTfoot:
    case kTh:
    case kThead:
    case kTr:
      return true;
    default:
      break;
  }
  Reconstruct();
  Insert(token);
  return true;
}

bool TreeBuilder::EndTagInBody(Token& token) {
  switch (token.name) {
    case kTemplate:
      return InHead(token);
    case kBody:
    case kHtml:
      if (!InScope(kBody)) return true;
      mode_ = Mode::kAfterBody;
      return token.name == kBody;
    case kAddress:
    case kArticle:
    case kAside:
    case kBlockquote:
    case kButton:
    case kCenter:
    case kDetails:
    case kDialog:
    case kDir:
    case kDiv:
    case kDl:
    case kFieldset:
    case kFigcaption:
    case kFigure:
    case kFooter:
    case kHeader:
    case kHgroup:
    case kListing:
    case kMain:
    case kMenu:
    case kNav:
    case kOl:
    case kPre:
    case kSearch:
    case kSection:
    case kSummary:
    case kUl:
      if (!InScope(token.name)) return true;
      ImplyEndTags();
      PopUntil({token.name});
      return true;
    case kForm: {
      if (IsOpen(kTemplate)) {
        if (!InScope(kForm)) return true;
        ImplyEndTags();
        PopUntil({kForm});
        return true;
      }
      const NodeId node = std::exchange(form_, 0);
      const std::size_t at = node == 0 ? kNone : FindOpen(node);
      if (at == kNone) return true;
      for (std::size_t i = open_.size() - 1; i > at; --i) {
        if ((open_[i].kinds & kScope) != 0) return true;
      }
      ImplyEndTags();
      RemoveOpen(at);
      return true;
    }
    case kP:
      if (!InScope(kP, kScope | kButtonScope)) InsertImplied(kP);
      CloseParagraph();
      return true;
    case kLi:
      if (!InScope(kLi, kScope | kListScope)) return true;
      ImplyEndTags(kLi);
      PopUntil({kLi});
      return true;
    case kDd:
    case kDt:
      if (!InScope(token.name)) return true;
      ImplyEndTags(token.name);
      PopUntil({token.name});
      return true;
    case kH1:
    case kH2:
    case kH3:
    case kH4:
    case kH5:
    case kH6:
      if (!InScope(kH1) && !InScope(kH2) && !InScope(kH3) && !InScope(kH4) && !InScope(kH5) && !InScope(kH6)) {
        return true;
      }
      ImplyEndTags();
      PopUntil({kH1, kH2, kH3, kH4, kH5, kH6});
      return true;
    case kA:
    case kB:
    case kBig:
    case kCode:
    case kEm:
    case kFont:
    case kI:
    case kNobr:
    case kS:
    case kSmall:
    case kStrike:
    case kStrong:
    case kTt:
    case kU:
      AdoptionAgency(token.name);
      return true;
    case kApplet:
    case kMarquee:
    case kObject:
      if (!InScope(token.name)) return true;
      ImplyEndTags();
      PopUntil({token.name});
      ClearToMarker();
      return true;
    case kBr:
      Reconstruct();
      InsertVoid(token);
      framesetOk_ = false;
      return true;
    default:
      EndTagOfAnyOther(token.name);
      return true;
  }
}

void TreeBuilder::EndTagOfAnyOther(NameId name) {
  if (name < kKnownCount && !IsOpen(name)) return;
  for (std::size_t i = open_.size(); i-- > 0;) {
    if (open_[i].key == name) {
      ImplyEndTags(name);
      while (open_.size() > i) Pop();
      return;
    }
    if ((open_[i].kinds & kSpecial) != 0) return;
  }
}

bool TreeBuilder::Text(Token& token) {
  if (token.kind == TokenKind::kText) {
    InsertText(token);
    return true;
  }
  Pop();
  mode_ = originalMode_;
  return token.kind == TokenKind::kEndTag;
}

bool TreeBuilder::InTable(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
    case TokenKind::kNulls:
      switch (Top().key) {
        case kTable:
        case kTbody:
        case kTemplate:
        case kTfoot:
        case kThead:
        case kTr:
          pendingLength_ = 0;
          originalMode_ = mode_;
          mode_ = Mode::kInTableText;
          return false;
        default:
          break;
      }
      break;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kCaption:
          ClearBackTo({kTable, kTemplate});
          PushMarker();
          Insert(token);
          mode_ = Mode::kInCaption;
          return true;
        case kColgroup:
          ClearBackTo({kTable, kTemplate});
          Insert(token);
          mode_ = Mode::kInColumnGroup;
          return true;
        case kCol:
          ClearBackTo({kTable, kTemplate});
          InsertImplied(kColgroup);
          mode_ = Mode::kInColumnGroup;
          return false;
        case kTbody:
        case kTfoot:
        case kThead:
          ClearBackTo({kTable, kTemplate});
          Insert(token);
          mode_ = Mode::kInTableBody;
          return true;
        case kTd:
        case kTh:
        case kTr:
          ClearBackTo({kTable, kTemplate});
          InsertImplied(kTbody);
          mode_ = Mode::kInTableBody;
          return false;
        case kTable:
          if (!AnyInTableScope({kTable})) return true;
          PopUntil({kTable});
          ResetMode();
          return false;
        case kStyle:
        case kScript:
        case kTemplate:
          return InHead(token);
        case kInput: {
          bool hidden = false;
          for (std::uint32_t i = 0; i < token.length; ++i) {
            const Attribute& item = tree_.attributes[token.begin + i];
            hidden = hidden || (item.name == kType && EqualsNoCase(tree_.TextOf(item), u"hidden"));
          }
          if (!hidden) break;
          InsertVoid(token);
          return true;
        }
        case kForm:
          if (form_ != 0 || IsOpen(kTemplate)) return true;
          form_ = Insert(token);
          Pop();
          return true;
        default:
          break;
      }
      break;
    case TokenKind::kEndTag:
      switch (token.name) {
        case kTable:
          if (!AnyInTableScope({kTable})) return true;
          PopUntil({kTable});
          ResetMode();
          return true;
        case kBody:
        case kCaption:
        case kCol:
        case kColgroup:
        case kHtml:
        case kTbody:
        case kTd:
        case kTfoot:
        case kTh:
        case kThead:
        case kTr:
          return true;
        case kTemplate:
          return InHead(token);
        default:
          break;
      }
      break;
    case TokenKind::kEnd:
      return InBody(token);
  }
  foster_ = true;
  const bool handled = InBody(token);
  foster_ = false;
  return handled;
}

bool TreeBuilder::InTableText(Token& token) {
  if (token.kind == TokenKind::kNulls) {
    DropNulls(token);
    return true;
  }
  if (token.kind == TokenKind::kText) {
    if (pendingLength_ == 0) pendingBegin_ = token.begin;
    pendingLength_ += token.length;
    return true;
  }
  mode_ = originalMode_;
  if (pendingLength_ == 0) return false;
  if (HasInk(pendingBegin_, pendingLength_)) {
    foster_ = true;
    Reconstruct();
    InsertText(pendingBegin_, pendingLength_);
    foster_ = false;
    framesetOk_ = false;
  } else {
    InsertText(pendingBegin_, pendingLength_);
  }
  return false;
}

bool TreeBuilder::InCaption(Token& token) {
  bool closes = false;
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTd:
      case kTfoot:
      case kTh:
      case kThead:
      case kTr:
        closes = true;
        break;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kCaption:
      case kTable:
        closes = true;
        break;
      case kBody:
      case kCol:
      case kColgroup:
      case kHtml:
      case kTbody:
      case kTd:
      case kTfoot:
      case kTh:
      case kThead:
      case kTr:
        return true;
      default:
        break;
    }
  }
  if (!closes) return InBody(token);
  if (!AnyInTableScope({kCaption})) return true;
  ImplyEndTags();
  PopUntil({kCaption});
  ClearToMarker();
  mode_ = Mode::kInTable;
  return token.kind == TokenKind::kEndTag && token.name == kCaption;
}

bool TreeBuilder::InColumnGroup(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
      if (LeadingBlanks(token, true)) return true;
      break;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      if (token.name == kTemplate) return InHead(token);
      if (token.name == kCol) {
        InsertVoid(token);
        return true;
      }
      break;
    case TokenKind::kEndTag:
      if (token.name == kTemplate) return InHead(token);
      if (token.name == kCol) return true;
      if (token.name == kColgroup) {
        if (Top().key != kColgroup) return true;
        Pop();
        mode_ = Mode::kInTable;
        return true;
      }
      break;
    case TokenKind::kEnd:
      return InBody(token);
    case TokenKind::kNulls:
      break;
  }
  if (Top().key != kColgroup) {
    if (token.kind == TokenKind::kNulls) DropNulls(token);
    if (token.kind == TokenKind::kText) {
      KeepBlanks(token);
      if (token.length != 0) InsertText(token);
    }
    return true;
  }
  Pop();
  mode_ = Mode::kInTable;
  return false;
}

bool TreeBuilder::InTableBody(Token& token) {
  bool closes = false;
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kTr:
        ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
        Insert(token);
        mode_ = Mode::kInRow;
        return true;
      case kTd:
      case kTh:
        ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
        InsertImplied(kTr);
        mode_ = Mode::kInRow;
        return false;
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTfoot:
      case kThead:
        closes = true;
        break;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kTbody:
      case kTfoot:
      case kThead:
        if (!AnyInTableScope({token.name})) return true;
        ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
        Pop();
        mode_ = Mode::kInTable;
        return true;
      case kTable:
        closes = true;
        break;
      case kBody:
      case kCaption:
      case kCol:
      case kColgroup:
      case kHtml:
      case kTd:
      case kTh:
      case kTr:
        return true;
      default:
        break;
    }
  }
  if (!closes) return InTable(token);
  if (!AnyInTableScope({kTbody, kThead, kTfoot})) return true;
  ClearBackTo({kTbody, kTfoot, kThead, kTemplate});
  Pop();
  mode_ = Mode::kInTable;
  return false;
}

bool TreeBuilder::InRow(Token& token) {
  bool closes = false;
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kTd:
      case kTh:
        ClearBackTo({kTr, kTemplate});
        Insert(token);
        mode_ = Mode::kInCell;
        PushMarker();
        return true;
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTfoot:
      case kThead:
      case kTr:
        closes = true;
        break;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kTr:
      case kTable:
        closes = true;
        break;
      case kTbody:
      case kTfoot:
      case kThead:
        if (!AnyInTableScope({token.name})) return true;
        closes = true;
        break;
      case kBody:
      case kCaption:
      case kCol:
      case kColgroup:
      case kHtml:
      case kTd:
      case kTh:
        return true;
      default:
        break;
    }
  }
  if (!closes) return InTable(token);
  if (!AnyInTableScope({kTr})) return true;
  ClearBackTo({kTr, kTemplate});
  Pop();
  mode_ = Mode::kInTableBody;
  return token.kind == TokenKind::kEndTag && token.name == kTr;
}

bool TreeBuilder::InCell(Token& token) {
  if (token.kind == TokenKind::kStartTag) {
    switch (token.name) {
      case kCaption:
      case kCol:
      case kColgroup:
      case kTbody:
      case kTd:
      case kTfoot:
      case kTh:
      case kThead:
      case kTr:
        if (!AnyInTableScope({kTd, kTh})) return true;
        CloseCell();
        return false;
      default:
        break;
    }
  } else if (token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kTd:
      case kTh:
        if (!AnyInTableScope({token.name})) return true;
        ImplyEndTags();
        PopUntil({token.name});
        ClearToMarker();
        mode_ = Mode::kInRow;
        return true;
      case kBody:
      case kCaption:
      case kCol:
      case kColgroup:
      case kHtml:
        return true;
      case kTable:
      case kTbody:
      case kTfoot:
      case kThead:
      case kTr:
        if (!AnyInTableScope({token.name})) return true;
        CloseCell();
        return false;
      default:
        break;
    }
  }
  return InBody(token);
}

bool TreeBuilder::InSelect(Token& token) {
  switch (token.kind) {
    case TokenKind::kNulls:
      DropNulls(token);
      return true;
    case TokenKind::kText:
      InsertText(token);
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      switch (token.name) {
        case kHtml:
          return InBody(token);
        case kOption:
          if (Top().key == kOption) Pop();
          Insert(token);
          return true;
        case kOptgroup:
        case kHr:
          if (Top().key == kOption) Pop();
          if (Top().key == kOptgroup) Pop();
          if (token.name == kHr) {
            InsertVoid(token);
          } else {
            Insert(token);
          }
          return true;
        case kSelect:
        case kInput:
        case kKeygen:
        case kTextarea:
          if (!InSelectScope(kSelect)) return true;
          PopUntil({kSelect});
          ResetMode();
          return token.name == kSelect;
        case kScript:
        case kTemplate:
          return InHead(token);
        default:
          return true;
      }
    case TokenKind::kEndTag:
      switch (token.name) {
        case kOptgroup:
          if (Top().key == kOption && open_.size() > 1 && open_[open_.size() - 2].key == kOptgroup) Pop();
          if (Top().key == kOptgroup) Pop();
          return true;
        case kOption:
          if (Top().key == kOption) Pop();
          return true;
        case kSelect:
          if (!InSelectScope(kSelect)) return true;
          PopUntil({kSelect});
          ResetMode();
          return true;
        case kTemplate:
          return InHead(token);
        default:
          return true;
      }
    case TokenKind::kEnd:
      return InBody(token);
  }
  return true;
}

bool TreeBuilder::InSelectInTable(Token& token) {
  if (token.kind == TokenKind::kStartTag || token.kind == TokenKind::kEndTag) {
    switch (token.name) {
      case kCaption:
      case kTable:
      case kTbody:
      case kTfoot:
      case kThead:
      case kTr:
      case kTd:
      case kTh:
        if (token.kind == TokenKind::kEndTag && !AnyInTableScope({token.name})) return true;
        PopUntil({kSelect});
        ResetMode();
        return false;
      default:
        break;
    }
  }
  return InSelect(token);
}

bool TreeBuilder::InTemplate(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
    case TokenKind::kNulls:
    case TokenKind::kComment:
    case TokenKind::kDoctype:
      return InBody(token);
    case TokenKind::kStartTag: {
      Mode next = Mode::kInBody;
      switch (token.name) {
        case kBase:
        case kBasefont:
        case kBgsound:
        case kLink:
        case kMeta:
        case kNoframes:
        case kScript:
        case kStyle:
        case kTemplate:
        case kTitle:
          return InHead(token);
        case kCaption:
        case kColgroup:
        case kTbody:
        case kTfoot:
        case kThead:
          next = Mode::kInTable;
          break;
        case kCol:
          next = Mode::kInColumnGroup;
          break;
        case kTr:
          next = Mode::kInTableBody;
          break;
        case kTd:
        case kTh:
          next = Mode::kInRow;
          break;
        default:
          break;
      }
      if (!templateModes_.empty()) templateModes_.back() = next;
      mode_ = next;
      return false;
    }
    case TokenKind::kEndTag:
      return token.name != kTemplate || InHead(token);
    case TokenKind::kEnd:
      if (!IsOpen(kTemplate)) return true;
      PopUntil({kTemplate});
      ClearToMarker();
      if (!templateModes_.empty()) templateModes_.Pop();
      ResetMode();
      return false;
  }
  return true;
}

bool TreeBuilder::AfterBody(Token& token) {
  switch (token.kind) {
    case TokenKind::kText: {
      Token blanks = token;
      const bool all = LeadingBlanks(token, false);
      blanks.length -= token.length;
      if (blanks.length != 0) InBody(blanks);
      if (all) return true;
      break;
    }
    case TokenKind::kComment:
      InsertComment(token, {open_[0].node, 0});
      return true;
    case TokenKind::kDoctype:
    case TokenKind::kEnd:
      return true;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      break;
    case TokenKind::kEndTag:
      if (token.name == kHtml) {
        mode_ = Mode::kAfterAfterBody;
        return true;
      }
      break;
    case TokenKind::kNulls:
      break;
  }
  mode_ = Mode::kInBody;
  return false;
}

bool TreeBuilder::InFrameset(Token& token) {
  switch (token.kind) {
    case TokenKind::kText:
      KeepBlanks(token);
      if (token.length == 0) return true;
      if (mode_ == Mode::kAfterAfterFrameset) return InBody(token);
      InsertText(token);
      return true;
    case TokenKind::kNulls:
      DropNulls(token);
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
      return true;
    case TokenKind::kStartTag:
      if (token.name == kHtml) return InBody(token);
      if (token.name == kNoframes) return InHead(token);
      if (mode_ == Mode::kInFrameset && token.name == kFrameset) {
        Insert(token);
      } else if (mode_ == Mode::kInFrameset && token.name == kFrame) {
        InsertVoid(token);
      }
      return true;
    case TokenKind::kEndTag:
      if (mode_ == Mode::kInFrameset && token.name == kFrameset && open_.size() > 1) {
        Pop();
        if (Top().key != kFrameset) mode_ = Mode::kAfterFrameset;
      }
      return true;
    case TokenKind::kEnd:
      return true;
  }
  return true;
}

bool TreeBuilder::AfterFrameset(Token& token) {
  if (token.kind == TokenKind::kEndTag && token.name == kHtml) {
    mode_ = Mode::kAfterAfterFrameset;
    return true;
  }
  return InFrameset(token);
}

bool TreeBuilder::AfterAfterBody(Token& token) {
  if (token.kind == TokenKind::kComment) {
    InsertComment(token, {kDocument, 0});
    return true;
  }
  if (token.kind == TokenKind::kEndTag) {
    mode_ = Mode::kInBody;
    return false;
  }
  return AfterBody(token);
}

bool TreeBuilder::AfterAfterFrameset(Token& token) {
  if (token.kind == TokenKind::kComment) {
    InsertComment(token, {kDocument, 0});
    return true;
  }
  return InFrameset(token);
}

// ---- SVG and MathML

bool TreeBuilder::IsForeign(const Token& token) const {
  if (open_.empty() || Top().key < kForeign || token.kind == TokenKind::kEnd) return false;
  const std::uint32_t key = Top().key;
  const bool text = token.kind == TokenKind::kText || token.kind == TokenKind::kNulls;
  const bool startTag = token.kind == TokenKind::kStartTag;
  if (IsMathMlTextPoint(key)) return !(text || (startTag && token.name != kMglyph && token.name != kMalignmark));
  if (IsSvgHtmlPoint(key)) return !(text || startTag);
  if (key == (kAnnotationXml | kMathMlSpace)) {
    if (startTag && token.name == kSvg) return false;
    const std::u16string_view encoding = tree_.AttributeText(Top().node, kEncoding);
    const bool html = EqualsNoCase(encoding, u"text/html") || EqualsNoCase(encoding, u"application/xhtml+xml");
    return !(html && (text || startTag));
  }
  return true;
}

bool TreeBuilder::ForeignContent(Token& token) {
  const auto leave = [this] {
    while (open_.size() > 1 && Top().key >= kForeign && !IsMathMlTextPoint(Top().key) && !IsSvgHtmlPoint(Top().key)) {
      if (Top().key == (kAnnotationXml | kMathMlSpace)) {
        const std::u16string_view encoding = tree_.AttributeText(Top().node, kEncoding);
        if (EqualsNoCase(encoding, u"text/html") || EqualsNoCase(encoding, u"application/xhtml+xml")) break;
      }
      Pop();
    }
  };
  switch (token.kind) {
    case TokenKind::kNulls:
      InsertText(token);
      return true;
    case TokenKind::kText:
      InsertText(token);
      if (framesetOk_ && HasInk(token.begin, token.length)) framesetOk_ = false;
      return true;
    case TokenKind::kComment:
      InsertComment(token);
      return true;
    case TokenKind::kDoctype:
    case TokenKind::kEnd:
      return true;
    case TokenKind::kStartTag: {
      bool leaves = (KindsOf(token.name) & kLeavesForeign) != 0;
      for (std::uint32_t i = 0; token.name == kFont && i < token.length; ++i) {
        const NameId name = tree_.attributes[token.begin + i].name;
        leaves = leaves || name == kColor || name == kFace || name == kSize;
      }
      if (leaves) {
        leave();
        return Dispatch(mode_, token);
      }
      const Space space = SpaceIn(Top().key);
      if (token.selfClosing) {
        InsertVoid(token, space);
      } else {
        Insert(token, space);
      }
      return true;
    }
    case TokenKind::kEndTag:
      if (token.name == kP || token.name == kBr) {
        leave();
        return Dispatch(mode_, token);
      }
      for (std::size_t i = open_.size(); i-- > 1;) {
        if (open_[i].key < kForeign) break;
        if (NameIn(open_[i].key) == token.name) {
          while (open_.size() > i) Pop();
          return true;
        }
      }
      return Dispatch(mode_, token);
  }
  return true;
}

}  // namespace

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
