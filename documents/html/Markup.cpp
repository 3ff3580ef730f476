// SPDX-License-Identifier: Apache-2.0
#include "documents/html/Markup.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "documents/html/HtmlText.h"
#include "documents/html/Scan.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zeph::html {
namespace {

constexpr char16_t Upper(char16_t c) noexcept { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; }

constexpr bool IsBare(char16_t c) noexcept {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-' || c == u'_' ||
         c == u'/' || c == u'#';
}

/// What the units of a value ask for, together.
constexpr unsigned kQuotes = 1;
constexpr unsigned kReferences = 2;
constexpr auto kAsciiNeeds = [] {
  std::array<std::uint8_t, 128> needs{};
  for (char16_t c = 0; c < 128; ++c) {
    needs[c] = static_cast<std::uint8_t>((IsBare(c) ? 0U : kQuotes) | (c == u'&' || c == u'"' ? kReferences : 0U));
  }
  return needs;
}();
unsigned NeedsOf(std::u16string_view value) noexcept {
  unsigned needs = value.empty() ? kQuotes : 0U;
  for (const char16_t c : value) {
    needs |= c < 128 ? kAsciiNeeds[c] : c == u'\u00A0' ? kQuotes | kReferences : kQuotes;
  }
  return needs;
}

/// The first blank that isn't a single " " between two other characters, or the end.
const char16_t* EndOfRun(const char16_t* at, const char16_t* end) noexcept {
#if defined(__SSE2__)
  const auto equal = [](__m128i block, char16_t c) {
    return _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(c)));
  };
  const auto breaks = [&](__m128i block) {
    return _mm_or_si128(_mm_or_si128(equal(block, u'\n'), equal(block, u'\t')),
                        _mm_or_si128(equal(block, u'\f'), equal(block, u'\r')));
  };
  for (; end - at > 8; at += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i behind = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 1));
    const __m128i blanksBehind = _mm_or_si128(equal(behind, u' '), breaks(behind));
    const __m128i hits = _mm_or_si128(breaks(block), _mm_and_si128(equal(block, u' '), blanksBehind));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask != 0) return at + __builtin_ctz(mask) / 2;
  }
#endif
  for (; at != end; ++at) {
    if (IsBlank(*at) && (*at != u' ' || at + 1 == end || IsBlank(at[1]))) return at;
  }
  return end;
}

std::u16string_view Trimmed(std::u16string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

class Writer {
 public:
  explicit Writer(GrowArray<char16_t>& out) : out_(out) {}

  [[nodiscard]] std::uint32_t Place() const noexcept { return static_cast<std::uint32_t>(out_.size()); }
  void Put(char16_t c) { out_.Push(c); }
  void Put(std::u16string_view text) {
    if (!text.empty()) std::memcpy(out_.Extend(text.size()), text.data(), 2 * text.size());
  }
  void PutTagName(const Tree& tree, NameId id) {
    if (id < name::kKnownCount) return Put(KnownNameInUpperCase(id));
    const std::u16string_view text = tree.NameText(id);
    std::ranges::transform(text, out_.Extend(text.size()), Upper);
  }

  template <char16_t... kSpecial>
  void PutEscaped(std::u16string_view text) {
    const char16_t* at = text.data();
    const char16_t* const end = at + text.size();
    for (;;) {
      const char16_t* const special = FindAny<kSpecial...>(at, end);
      Put(std::u16string_view(at, static_cast<std::size_t>(special - at)));
      if (special == end) return;
      Put(Reference(*special));
      at = special + 1;
    }
  }

 private:
  static std::u16string_view Reference(char16_t c) noexcept {
    switch (c) {
      case u'&':
        return u"&amp;";
      case u'<':
        return u"&lt;";
      case u'>':
        return u"&gt;";
      case u'"':
        return u"&quot;";
      default:
        return u"&nbsp;";
    }
  }

  GrowArray<char16_t>& out_;
};

/// Gives, along a walk, the index of each element whose slices are wanted.
class Indexer {
 public:
  explicit Indexer(const GrowArray<NodeId>& elements) : elements_(elements) {}
  /// On entering a node: its index, or kNone.
  std::size_t Enter(NodeId id) { return next_ < elements_.size() && elements_[next_] == id ? next_++ : kNone; }
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

 private:
  const GrowArray<NodeId>& elements_;
  std::size_t next_ = 0;
};

class MarkupWriter {
 public:
  MarkupWriter(const Tree& tree, const GrowArray<NodeId>& elements, ValueReader& values, Markup& result)
      : tree_(tree), values_(values), result_(result), out_(result.text), indexer_(elements) {}

  void Run() {
    for (TreeWalk walk(tree_, kDocument); !walk.Done(); walk.Next()) {
      const NodeId id = walk.Id();
      const Node& node = tree_.nodes[id];
      switch (node.kind) {
        case NodeKind::kDocument:
        case NodeKind::kDoctype:
          break;
        case NodeKind::kText:
          if (walk.Entering()) Text(node);
          break;
        case NodeKind::kComment:
          if (walk.Entering()) Comment(id, node);
          break;
        case NodeKind::kElement:
          if (walk.Entering()) {
            Enter(id, node);
          } else {
            Leave(node);
          }
          break;
      }
    }
  }

 private:
  [[nodiscard]] std::uint16_t Kinds(const Node& node) const {
    return node.space == Space::kHtml ? KindsOf(node.name) : std::uint16_t{0};
  }

  void Text(const Node& node) {
    const Node& parent = tree_.nodes[node.parent];
    // NOSCRIPT holds markup, and no raw text, where the page was parsed for a reader without scripts.
    const bool raw = (Kinds(parent) & kRaw) != 0 && parent.kind == NodeKind::kElement;
    if (raw) {
      out_.Put(tree_.TextOf(node));
    } else {
      out_.PutEscaped<u'&', u'<', u'>', u'\u00A0'>(tree_.TextOf(node));
    }
  }

  void Comment(NodeId id, const Node& node) {
    const std::uint32_t begin = out_.Place();
    out_.Put(u"<!--");
    out_.Put(tree_.TextOf(node));
    out_.Put(u"-->");
    if (const std::size_t index = indexer_.Enter(id); index != Indexer::kNone) {
      result_.spans.Push({begin, out_.Place(), out_.Place(), out_.Place()});
    }
  }

  void Enter(NodeId id, const Node& node) {
    const std::uint32_t begin = out_.Place();
    out_.Put(u'<');
    out_.PutTagName(tree_, node.name);
    for (const Attribute& item : tree_.AttributesOf(id)) {
      out_.Put(u' ');
      out_.Put(tree_.NameText(item.name));
      out_.Put(u'=');
      const std::u16string_view value = values_.Read(id, item);
      const unsigned needs = NeedsOf(value);
      if ((needs & kQuotes) != 0) out_.Put(u'"');
      if ((needs & kReferences) != 0) {
        out_.PutEscaped<u'&', u'"', u'\u00A0'>(value);
      } else {
        out_.Put(value);
      }
      if ((needs & kQuotes) != 0) out_.Put(u'"');
    }
    out_.Put(u'>');
    const std::size_t index = indexer_.Enter(id);
    if (index != Indexer::kNone) result_.spans.Push({begin, out_.Place(), out_.Place(), out_.Place()});
    if ((Kinds(node) & kVoid) == 0) open_.Push(static_cast<std::uint32_t>(index));
  }

  void Leave(const Node& node) {
    if ((Kinds(node) & kVoid) != 0) return;
    const std::uint32_t innerEnd = out_.Place();
    out_.Put(u"</");
    out_.PutTagName(tree_, node.name);
    out_.Put(u'>');
    const std::uint32_t index = open_.back();
    open_.Pop();
    if (index == static_cast<std::uint32_t>(Indexer::kNone)) return;
    result_.spans[index].innerEnd = innerEnd;
    result_.spans[index].outerEnd = out_.Place();
  }

  const Tree& tree_;
  ValueReader& values_;
  Markup& result_;
  Writer out_;
  Indexer indexer_;
  GrowArray<std::uint32_t> open_;  ///< indexes of the elements that the walk is in
};

class TextWriter {
 public:
  TextWriter(const Tree& tree, const GrowArray<NodeId>& elements, VisibleText& result)
      : tree_(tree), result_(result), out_(result.text), indexer_(elements) {}

  void Run() {
    bool skip = false;
    for (TreeWalk walk(tree_, kDocument); !walk.Done(); walk.Next(skip)) {
      const NodeId id = walk.Id();
      const Node& node = tree_.nodes[id];
      skip = false;
      if (node.kind == NodeKind::kElement) {
        if (walk.Entering()) {
          // What is in a hidden element gives nothing, but is still passed: its elements have slices too.
          if (unseenDepth_ != 0 || IsUnseen(tree_, id)) ++unseenDepth_;
          skip = IsInert(tree_, id);
          Enter(id, node);
        } else {
          Leave(node);
          if (unseenDepth_ != 0) --unseenDepth_;
        }
      } else if (walk.Entering() && node.kind == NodeKind::kText && unseenDepth_ == 0) {
        Text(tree_.TextOf(node));
      } else if (walk.Entering() && node.kind == NodeKind::kComment) {
        if (indexer_.Enter(id) != Indexer::kNone) result_.spans.Push({out_.Place(), out_.Place()});
      }
    }
  }

 private:
  [[nodiscard]] static std::uint16_t Kinds(const Node& node) {
    return node.space == Space::kHtml ? KindsOf(node.name) : std::uint16_t{0};
  }
  [[nodiscard]] static bool IsPreformatted(const Node& node) {
    return node.space == Space::kHtml &&
           (node.name == name::kPre || node.name == name::kTextarea || node.name == name::kListing ||
            node.name == name::kXmp || node.name == name::kPlaintext);
  }

  void EndLine() {
    out_.Put(u"\r\n");
    lineHasText_ = false;
    blankPending_ = false;
  }

  void Enter(NodeId id, const Node& node) {
    if (unseenDepth_ == 0) Boundary(node);
    const std::size_t index = indexer_.Enter(id);
    if (index != Indexer::kNone) result_.spans.Push({out_.Place(), out_.Place()});
    open_.Push(static_cast<std::uint32_t>(index));
    if (unseenDepth_ == 0 && node.space == Space::kHtml && node.name == name::kBr) EndLine();
    if (IsPreformatted(node)) ++preformatted_;
  }

  void Leave(const Node& node) {
    if (IsPreformatted(node)) --preformatted_;
    const std::uint32_t index = open_.back();
    open_.Pop();
    if (index != static_cast<std::uint32_t>(Indexer::kNone)) result_.spans[index].end = out_.Place();
    if (unseenDepth_ == 0) Boundary(node);
  }

  void Boundary(const Node& node) {
    const std::uint16_t kinds = Kinds(node);
    if ((kinds & kBlock) != 0) {
      if (lineHasText_) EndLine();
      blankPending_ = false;
    } else if ((kinds & kCell) != 0) {
      blankPending_ = lineHasText_;
    }
  }

  void Text(std::u16string_view text) {
    if (preformatted_ != 0) {
      if (text.empty()) return;
      Flush();
      out_.Put(text);
      lineHasText_ = text.back() != u'\n' && text.back() != u'\r';
      return;
    }
    const char16_t* at = text.data();
    const char16_t* const end = at + text.size();
    while (at != end) {
      if (IsBlank(*at)) {
        blankPending_ = lineHasText_;
        ++at;
        continue;
      }
      const char16_t* const runEnd = EndOfRun(at, end);
      Flush();
      out_.Put(std::u16string_view(at, static_cast<std::size_t>(runEnd - at)));
      lineHasText_ = true;
      at = runEnd;
    }
  }

  void Flush() {
    if (blankPending_) out_.Put(u' ');
    blankPending_ = false;
  }

  const Tree& tree_;
  VisibleText& result_;
  Writer out_;
  Indexer indexer_;
  GrowArray<std::uint32_t> open_;
  std::size_t unseenDepth_ = 0;
  std::size_t preformatted_ = 0;
  bool lineHasText_ = false;
  bool blankPending_ = false;
};

}  // namespace

bool IsInert(const Tree& tree, NodeId id) {
  if (!tree.IsHtml(id, name::kTemplate)) return false;
  const std::u16string_view mode = tree.AttributeText(id, name::kShadowrootmode);
  return !EqualsNoCase(mode, u"open") && !EqualsNoCase(mode, u"closed");
}

bool HidesContent(NameId name, std::u16string_view value) {
  if (name == name::kHidden) return true;
  if (name != name::kStyle) return false;
  const std::u16string_view display = StyleValue(value, u"display");
  return display.size() >= 4 && EqualsNoCase(display.substr(0, 4), u"none");
}

bool IsUnseen(const Tree& tree, NodeId id) {
  const Node& node = tree.nodes[id];
  if (node.space == Space::kHtml && (KindsOf(node.name) & kUnseen) != 0) {
    return node.name != name::kTemplate || IsInert(tree, id);
  }
  return std::ranges::any_of(tree.AttributesOf(id),
                             [&](const Attribute& item) { return HidesContent(item.name, tree.TextOf(item)); });
}

std::u16string_view StyleValue(std::u16string_view style, std::u16string_view property) {
  std::u16string_view found;
  while (!style.empty()) {
    const std::size_t end = std::min(style.find(u';'), style.size());
    const std::u16string_view declaration = style.substr(0, end);
    style.remove_prefix(std::min(end + 1, style.size()));
    const std::size_t colon = declaration.find(u':');
    if (colon != std::u16string_view::npos && EqualsNoCase(Trimmed(declaration.substr(0, colon)), property)) {
      found = Trimmed(declaration.substr(colon + 1));
    }
  }
  return found;
}

Markup WriteMarkup(const Tree& tree, const GrowArray<NodeId>& elements, ValueReader& values, PageBudget& budget) {
  Markup result;
  result.text.TakeFrom(budget);
  result.spans.TakeFrom(budget);
  result.spans.Reserve(elements.size());
  MarkupWriter(tree, elements, values, result).Run();
  result.text.ShrinkToFit();
  return result;
}

VisibleText WriteVisibleText(const Tree& tree, const GrowArray<NodeId>& elements, PageBudget& budget) {
  VisibleText result;
  result.text.TakeFrom(budget);
  result.spans.TakeFrom(budget);
  result.spans.Reserve(elements.size());
  TextWriter(tree, elements, result).Run();
  result.text.ShrinkToFit();
  return result;
}

}  // namespace zeph::html
