// SPDX-License-Identifier: Apache-2.0
// The construction of a tree: one class, whose rules stand in several files, and what only they know of it.
//
//   TreeBuilder.cpp     nodes, the stack of open elements, the list of active formatting elements, ParseTree
//   InsertionModes.cpp  the road of a token; the modes around the body; templates, framesets, SVG and MathML
//   BodyMode.cpp        the mode of a page's body
//   TableModes.cpp      tables and their parts
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

#include "documents/html/GrowArray.h"
#include "documents/html/HtmlText.h"
#include "documents/html/NameTable.h"
#include "documents/html/Tokenizer.h"
#include "documents/html/Tree.h"
#include "documents/html/TreeBuilder.h"

namespace zeph::html {

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
  kInTemplate,
  kAfterBody,
  kInFrameset,
  kAfterFrameset,
  kAfterAfterBody,
  kAfterAfterFrameset
};

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
  return key == (name::kMi | kMathMlSpace) || key == (name::kMo | kMathMlSpace) || key == (name::kMn | kMathMlSpace) ||
         key == (name::kMs | kMathMlSpace) || key == (name::kMtext | kMathMlSpace);
}
constexpr bool IsSvgHtmlPoint(std::uint32_t key) noexcept {
  return key == (name::kForeignObject | kSvgSpace) || key == (name::kDesc | kSvgSpace) ||
         key == (name::kTitle | kSvgSpace);
}

inline std::uint16_t KindsIn(std::uint32_t key) noexcept {
  if (key < kForeign) return KindsOf(key);
  const bool bounds = IsMathMlTextPoint(key) || IsSvgHtmlPoint(key) || key == (name::kAnnotationXml | kMathMlSpace);
  return bounds ? kSpecial | kScope : 0;
}

/// On one thread, for one page.
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
    gap_ = gap_ || (key < kForeign && (key == name::kBr || (KindsOf(key) & (kBlock | kCell)) != 0));
  }
  void Pop();
  void RemoveOpen(std::size_t index);
  void MakeRoom();
  [[nodiscard]] std::size_t FindOpen(NodeId node) const;
  [[nodiscard]] bool IsOpen(NameId name) const { return name < name::kKnownCount && counts_[name] != 0; }
  [[nodiscard]] bool InScope(NameId name, unsigned boundaries = kScope) const;
  [[nodiscard]] bool AnyInTableScope(std::initializer_list<NameId> names) const;
  /// Closes elements down to the innermost of those named, it included; nothing when there is none.
  void PopUntil(std::initializer_list<NameId> names);
  /// Closes elements down to the innermost of those named, which stays, or to the root.
  void ClearBackTo(std::initializer_list<NameId> names);
  void ImplyEndTags(NameId except = name::kKnownCount);
  void CloseParagraph();
  void CloseParagraphInButtonScope() {
    if (InScope(name::kP, kScope | kButtonScope)) CloseParagraph();
  }
  void CloseCell();
  void ResetMode();
  [[nodiscard]] bool SecondIsBody() const { return open_.size() > 1 && open_[1].key == name::kBody; }

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
  std::array<std::uint16_t, name::kKnownCount> counts_{};  ///< open HTML elements by known name
  GrowArray<Format> formats_;
  GrowArray<Mode> templateModes_;
  NodeId head_ = 0;
  NodeId form_ = 0;
  bool framesetOk_ = true;
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

}  // namespace zeph::html
