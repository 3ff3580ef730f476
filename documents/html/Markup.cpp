// SPDX-License-Identifier: Apache-2.0
#include "documents/html/Markup.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "documents/html/HtmlText.h"
#include "documents/html/Scan.h"
#include "documents/html/Sight.h"

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

/// The first blank that isn't a single " " between two other characters, the first character that may be invisible, or
/// the end.
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
    __m128i hits = _mm_or_si128(breaks(block), _mm_and_si128(equal(block, u' '), blanksBehind));
    const __m128i ascii = _mm_cmpeq_epi16(_mm_srli_epi16(block, 7), _mm_setzero_si128());
    if (_mm_movemask_epi8(ascii) != 0xFFFF) {
      // By the rows of 128 or 256 that hold them all; IsInvisible tells which are.
      const __m128i row = _mm_srli_epi16(block, 8);
      hits = _mm_or_si128(hits, _mm_or_si128(equal(row, 0xFE), equal(row, 0xDB)));
      hits = _mm_or_si128(hits, _mm_or_si128(equal(_mm_srli_epi16(block, 7), 0x2000 >> 7), equal(row, 0x17)));
      hits = _mm_or_si128(hits, _mm_or_si128(equal(block, 0xAD), equal(_mm_srli_epi16(block, 4), 0x180)));
      hits = _mm_or_si128(hits, _mm_or_si128(equal(block, 0x34F), equal(block, 0x61C)));
    }
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
    if (mask != 0) return at + __builtin_ctz(mask) / 2;
  }
#endif
  for (; at != end; ++at) {
    if (IsInvisible(*at) || (IsBlank(*at) && (*at != u' ' || at + 1 == end || IsBlank(at[1])))) return at;
  }
  return end;
}

class Writer {
 public:
  explicit Writer(GrowArray<char16_t>& out) : out_(out) {}

  [[nodiscard]] std::uint32_t Place() const noexcept { return static_cast<std::uint32_t>(out_.size()); }
  char16_t* Extend(std::size_t count) { return out_.Extend(count); }
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
      : tree_(tree), result_(result), out_(result.text), indexer_(elements), sight_(tree, elements) {}

  void Run() {
    bool skip = false;
    for (TreeWalk walk(tree_, kDocument); !walk.Done(); walk.Next(skip)) {
      const NodeId id = walk.Id();
      const Node& node = tree_.nodes[id];
      skip = false;
      if (node.kind == NodeKind::kElement) {
        if (walk.Entering()) {
          // What is in a hidden element gives nothing, but is still passed: its elements have slices too.
          sight_.Enter(id);
          skip = IsInert(tree_, id);
          Enter(id, node);
        } else {
          Leave(node);
        }
      } else if (walk.Entering() && node.kind == NodeKind::kText && sight_.SeesText()) {
        Text(tree_.TextOf(node));
      } else if (walk.Entering() && node.kind == NodeKind::kComment) {
        if (indexer_.Enter(id) != Indexer::kNone) result_.spans.Push({out_.Place(), out_.Place()});
      }
    }
  }

 private:
  struct Open {
    std::uint32_t index;  ///< of its slice, or none
    std::uint32_t begin;  ///< of its text
  };

  [[nodiscard]] static std::uint16_t Kinds(const Node& node) {
    return node.space == Space::kHtml ? KindsOf(node.name) : std::uint16_t{0};
  }
  [[nodiscard]] static bool IsPreformatted(const Node& node) {
    return node.space == Space::kHtml &&
           (node.name == name::kPre || node.name == name::kTextarea || node.name == name::kListing ||
            node.name == name::kXmp || node.name == name::kPlaintext);
  }
  /// Something to look at that stands in the line like a word.
  [[nodiscard]] bool IsObject(NodeId id, const Node& node) const {
    if (node.space == Space::kSvg) return node.name == name::kSvg;
    if (node.space != Space::kHtml) return false;
    switch (node.name) {
      case name::kInput:
        return !EqualsNoCase(tree_.AttributeText(id, name::kType), u"hidden");
      case name::kImg:
      case name::kEmbed:
      case name::kIframe:
      case name::kCanvas:
      case name::kVideo:
      case name::kAudio:
      case name::kMeter:
      case name::kProgress:
        return true;
      default:
        return false;
    }
  }
  /// The same, if it has no text.
  [[nodiscard]] static bool IsField(const Node& node) {
    return node.space == Space::kHtml && (node.name == name::kSelect || node.name == name::kTextarea ||
                                          node.name == name::kButton || node.name == name::kObject);
  }

  void EndLine() {
    EndBlanks();
    out_.Put(u"\r\n");
    BeginLine();
  }
  void BeginLine() {
    blanks_.Truncate(0);
    lineHasText_ = false;
    lineHasObject_ = false;
    objectPlace_ = 0;
    blankPending_ = false;
  }
  /// At a line's end its last blank is none; those before an image stay, if there are words before them.
  void EndBlanks() {
    if (blankPending_) {
      blanks_.Pop();
      blankPending_ = false;
    }
    if (lineHasText_) Flush();
  }

  void Enter(NodeId id, const Node& node) {
    if (sight_.IsShown()) Boundary(node);
    if (sight_.SeesElement() && IsObject(id, node)) Object();
    const std::size_t index = indexer_.Enter(id);
    if (index != Indexer::kNone) result_.spans.Push({out_.Place(), out_.Place()});
    open_.Push({static_cast<std::uint32_t>(index), out_.Place()});
    if (node.space == Space::kHtml && node.name == name::kBr && sight_.IsShown()) EndLine();
    if (IsPreformatted(node)) ++preformatted_;
  }

  void Leave(const Node& node) {
    if (IsPreformatted(node)) --preformatted_;
    const Open open = open_.back();
    open_.Pop();
    if (IsField(node) && out_.Place() == open.begin && sight_.SeesElement()) Object();
    if ((Kinds(node) & kBlock) != 0 && sight_.IsShown()) EndBlanks();
    if (open.index != static_cast<std::uint32_t>(Indexer::kNone)) result_.spans[open.index].end = out_.Place();
    if (sight_.IsShown()) Boundary(node);
    sight_.Leave();
  }

  void Boundary(const Node& node) {
    const std::uint16_t kinds = Kinds(node);
    if ((kinds & kBlock) != 0) {
      if (lineHasText_) {
        EndLine();
      } else {
        BeginLine();
      }
    } else if ((kinds & kCell) != 0) {
      blanks_.Truncate(0);
      blankPending_ = false;
      lineHasObject_ = false;
      objectPlace_ = 0;
      if (lineHasText_) Blank();
    }
  }

  void Text(std::u16string_view text) {
    if (preformatted_ != 0) {
      for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at + InvisibleAt(text, at);
        at = begin;
        if (at < text.size()) ++at;  // a joiner that is kept
        while (at < text.size() && !IsInvisible(text[at])) ++at;
        if (at == begin) break;
        Flush();
        out_.Put(text.substr(begin, at - begin));
        lineHasText_ = text[at - 1] != u'\n' && text[at - 1] != u'\r';
      }
      return;
    }
    const char16_t* const begin = text.data();
    const char16_t* at = begin;
    const char16_t* const end = at + text.size();
    while (at != end) {
      if (IsBlank(*at)) {
        if (lineHasText_ || lineHasObject_) Blank();
        ++at;
        continue;
      }
      const char16_t* runEnd = EndOfRun(at, end);
      while (runEnd != end && !IsBlank(*runEnd) && InvisibleAt(text, static_cast<std::size_t>(runEnd - begin)) == 0) {
        runEnd = EndOfRun(runEnd + 1, end);
      }
      if (runEnd != at) {
        Flush();
        const char16_t* const wordsEnd = runEnd[-1] == u' ' ? runEnd - 1 : runEnd;  // a blank in front of what is unseen
        out_.Put(std::u16string_view(at, static_cast<std::size_t>(wordsEnd - at)));
        lineHasText_ = true;
        if (wordsEnd != runEnd) Blank();
      }
      at = runEnd + InvisibleAt(text, static_cast<std::size_t>(runEnd - begin));
    }
  }

  /// A blank stands here, if anything follows in the line.
  void Blank() {
    if (blankPending_) return;
    blankPending_ = true;
    blanks_.Push(objectPlace_);
  }
  void Object() {
    blankPending_ = false;  // the one before it stays
    lineHasObject_ = true;
    objectPlace_ = static_cast<std::uint32_t>(result_.spans.size());
  }

  /// Writes the blanks that wait. An element begins behind a blank, unless it has something before that.
  void Flush() {
    blankPending_ = false;
    if (blanks_.empty()) return;
    const std::uint32_t place = out_.Place();
    auto before = static_cast<std::uint32_t>(blanks_.size());
    for (std::size_t i = result_.spans.size(); i-- > 0 && result_.spans[i].begin == place;) {
      while (before != 0 && blanks_[before - 1] > i) --before;
      result_.spans[i].begin += before;
      result_.spans[i].end += before;
    }
    std::ranges::fill_n(out_.Extend(blanks_.size()), static_cast<std::ptrdiff_t>(blanks_.size()), u' ');
    blanks_.Truncate(0);
  }

  const Tree& tree_;
  VisibleText& result_;
  Writer out_;
  Indexer indexer_;
  Sight sight_;
  GrowArray<Open> open_;
  GrowArray<std::uint32_t> blanks_;  ///< that wait for what follows: of each, objectPlace_
  std::uint32_t objectPlace_ = 0;    ///< slices that began before the line's last image or field
  std::size_t preformatted_ = 0;
  bool lineHasText_ = false;
  bool lineHasObject_ = false;
  bool blankPending_ = false;  ///< the last of them, which more white space adds nothing to
};

}  // namespace

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
