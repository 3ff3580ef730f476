// SPDX-License-Identifier: Apache-2.0
#include "documents/html/StyleSheet.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "documents/html/HtmlText.h"

namespace zeph::html {
namespace {

constexpr std::uint64_t kImportant = std::uint64_t{1} << 63;
constexpr std::uint64_t kInline = std::uint64_t{1} << 62;
constexpr unsigned kSpecificityShift = 32;
/// Of an identifier, a class, a tag: numbers that no selector makes run over.
constexpr std::uint64_t kOfId = std::uint64_t{1} << 20;
constexpr std::uint64_t kOfClass = std::uint64_t{1} << 10;
constexpr std::uint64_t kOfTag = 1;
constexpr std::size_t kMaxSimples = 64;
constexpr std::size_t kFreeSteps = 65'536;
constexpr std::size_t kStepsPerCharacter = 16;
constexpr std::size_t kFreeRoom = 4096;
constexpr std::size_t kCharactersPerItem = 8;
constexpr float kScreenWidth = 1280;
constexpr float kScreenHeight = 800;
constexpr float kFontSize = 16;

std::u16string_view Trimmed(std::u16string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool IsNameUnit(char16_t c) noexcept {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'-' || c == u'_' ||
         c >= 0x80;
}
bool IsHex(char16_t c) noexcept { return (c >= u'0' && c <= u'9') || (Lower(c) >= u'a' && Lower(c) <= u'f'); }

/// Comments become blanks, escapes of letters and digits what they stand for; true if the text had any. What an escape
/// makes of other characters is no part of a name that a rule here asks for.
bool Clean(std::u16string_view text, std::u16string& clean) {
  if (text.find(u'\\') == std::u16string_view::npos && text.find(u"/*") == std::u16string_view::npos) return false;
  clean.clear();
  clean.reserve(text.size());
  char16_t quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c == u'\\') {
      std::size_t digits = 0;
      std::uint32_t code = 0;
      while (digits < 6 && i + 1 + digits < text.size() && IsHex(text[i + 1 + digits])) {
        const char16_t digit = Lower(text[i + 1 + digits++]);
        code = code * 16 + static_cast<std::uint32_t>(digit <= u'9' ? digit - u'0' : digit - u'a' + 10);
      }
      if (digits != 0) {
        i += digits;
        if (i + 1 < text.size() && IsBlank(text[i + 1])) ++i;
      } else if (i + 1 < text.size()) {
        code = text[++i];
      }
      const bool plain = code != 0 && code < 0xD800 && IsNameUnit(static_cast<char16_t>(code));
      clean += plain ? static_cast<char16_t>(code) : u'\uFFFD';
    } else if (quote != 0) {
      if (c == quote || c == u'\n') quote = 0;
      clean += c;
    } else if (c == u'/' && i + 1 < text.size() && text[i + 1] == u'*') {
      const std::size_t end = text.find(u"*/", i + 2);
      clean += u' ';
      if (end == std::u16string_view::npos) break;
      i = end + 1;
    } else {
      if (c == u'"' || c == u'\'') quote = c;
      clean += c;
    }
  }
  return true;
}

/// The first of the stops that stands outside of quotes, brackets and braces, or the end. A stop may be a brace.
std::size_t FindOutside(std::u16string_view text, std::size_t at, std::u16string_view stops) {
  std::size_t depth = 0;
  for (; at < text.size(); ++at) {
    const char16_t c = text[at];
    if (depth == 0 && stops.find(c) != std::u16string_view::npos) return at;
    switch (c) {
      case u'"':
      case u'\'':
        for (++at; at < text.size() && text[at] != c && text[at] != u'\n';) ++at;
        break;
      case u'(':
      case u'[':
      case u'{':
        ++depth;
        break;
      case u')':
      case u']':
      case u'}':
        if (depth != 0) --depth;
        break;
      default:
        break;
    }
  }
  return text.size();
}

std::u16string_view TakeWord(std::u16string_view& rest) {
  rest = Trimmed(rest);
  std::size_t end = 0;
  std::size_t depth = 0;
  for (; end < rest.size() && (depth != 0 || (!IsBlank(rest[end]) && rest[end] != u',')); ++end) {
    if (rest[end] == u'(') ++depth;
    if (rest[end] == u')' && depth != 0) --depth;
  }
  const std::u16string_view word = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

/// The number at the text's start, which is left behind it; nothing when there is none.
std::optional<float> TakeNumber(std::u16string_view& text) {
  bool negative = false;
  std::size_t at = 0;
  if (at < text.size() && (text[at] == u'-' || text[at] == u'+')) negative = text[at++] == u'-';
  float number = 0;
  float scale = 0;  // of the next digit of the fraction
  bool any = false;
  for (; at < text.size(); ++at) {
    const char16_t c = text[at];
    if (c >= u'0' && c <= u'9') {
      any = true;
      const auto digit = static_cast<float>(c - u'0');
      if (scale == 0) {
        number = std::min(number * 10 + digit, 1e9F);
      } else {
        number += digit * scale;
        scale /= 10;
      }
    } else if (c == u'.' && scale == 0) {
      scale = 0.1F;
    } else {
      break;
    }
  }
  if (!any) return std::nullopt;
  // An exponent, which only stands before a digit; "1em" has none.
  if (at + 1 < text.size() && Lower(text[at]) == u'e') {
    std::size_t digits = at + 1;
    const bool small = text[digits] == u'-';
    if (small || text[digits] == u'+') ++digits;
    if (digits < text.size() && text[digits] >= u'0' && text[digits] <= u'9') {
      int exponent = 0;
      for (; digits < text.size() && text[digits] >= u'0' && text[digits] <= u'9'; ++digits) {
        exponent = std::min(exponent * 10 + (text[digits] - u'0'), 40);
      }
      number *= std::pow(10.0F, static_cast<float>(small ? -exponent : exponent));
      at = digits;
    }
  }
  text.remove_prefix(at);
  return negative ? -number : number;
}

Style::Entry Word() noexcept { return {0, Unit::kWord}; }

/// A length; a word for what is none.
Style::Entry ReadLength(std::u16string_view value) {
  if (BeginsNoCase(value, u"calc(") && value.back() == u')') value = Trimmed(value.substr(5, value.size() - 6));
  if (EqualsNoCase(value, u"inherit")) return {0, Unit::kInherit};
  const std::optional<float> number = TakeNumber(value);
  if (!number) return Word();
  if (value.empty()) return *number == 0 ? Style::Entry{0, Unit::kPixels} : Word();
  struct Scale {
    std::u16string_view unit;
    float pixels;
  };
  constexpr Scale kScales[] = {{u"px", 1},
                               {u"rem", kFontSize},
                               {u"pt", 4.0F / 3},
                               {u"vw", kScreenWidth / 100},
                               {u"in", 96},
                               {u"cm", 96 / 2.54F},
                               {u"mm", 9.6F / 2.54F},
                               {u"vh", kScreenHeight / 100},
                               {u"pc", 16},
                               {u"ex", 8},
                               {u"ch", 8},
                               {u"q", 2.4F / 2.54F}};
  if (EqualsNoCase(value, u"em")) return {*number, Unit::kFontSizes};
  if (value == u"%") return {*number, Unit::kPercent};
  for (const Scale& scale : kScales) {
    if (EqualsNoCase(value, scale.unit)) return {*number * scale.pixels, Unit::kPixels};
  }
  return Word();
}

Style::Entry Flag(bool shows) noexcept { return {shows ? 1.0F : 0.0F, Unit::kWord}; }

bool IsOneOf(std::u16string_view value, std::initializer_list<std::u16string_view> words) {
  return std::ranges::any_of(words, [&](std::u16string_view word) { return EqualsNoCase(value, word); });
}

/// The arguments of a function, or nothing.
std::optional<std::u16string_view> Arguments(std::u16string_view value, std::u16string_view name) {
  if (!BeginsNoCase(value, name) || value.size() <= name.size() + 1 || value[name.size()] != u'(') return std::nullopt;
  const std::size_t end = value.find(u')', name.size());
  if (end == std::u16string_view::npos) return std::nullopt;
  return Trimmed(value.substr(name.size() + 1, end - name.size() - 1));
}

/// rect() with nothing, or one pixel, between its sides.
bool ClipShows(std::u16string_view value) {
  std::optional<std::u16string_view> rest = Arguments(value, u"rect");
  if (!rest) return true;
  std::array<Style::Entry, 4> sides{};
  for (Style::Entry& side : sides) side = ReadLength(TakeWord(*rest));
  const auto between = [](const Style::Entry& near, const Style::Entry& far) {
    return near.unit != Unit::kPixels || far.unit != Unit::kPixels || far.value - near.value > 1;
  };
  return between(sides[0], sides[2]) && between(sides[3], sides[1]);
}

bool ClipPathShows(std::u16string_view value) {
  if (const auto inset = Arguments(value, u"inset")) {
    std::u16string_view rest = *inset;
    const Style::Entry side = ReadLength(TakeWord(rest));
    return side.unit != Unit::kPercent || side.value < 50;
  }
  for (const std::u16string_view shape : {u"circle", u"ellipse"}) {
    if (const auto size = Arguments(value, shape)) {
      std::u16string_view rest = *size;
      const Style::Entry radius = ReadLength(TakeWord(rest));
      return radius.unit < Unit::kPixels || radius.value > 0;
    }
  }
  if (const auto corners = Arguments(value, u"polygon")) {
    // Nothing is left where all corners are one.
    return std::ranges::any_of(*corners, [](char16_t c) { return c >= u'1' && c <= u'9'; });
  }
  return true;
}

/// As far off as nobody looks, or as the screen is wide.
bool IsFarOff(const Style::Entry& entry) noexcept {
  return (entry.unit == Unit::kPixels && entry.value <= -500) ||
         (entry.unit == Unit::kFontSizes && entry.value <= -32) ||
         (entry.unit == Unit::kPercent && entry.value <= -100);
}

bool TransformShows(std::u16string_view value) {
  for (const std::u16string_view scale : {u"scale", u"scaleX", u"scaleY", u"scale3d"}) {
    std::u16string lower(scale);
    std::ranges::transform(lower, lower.begin(), Lower);
    const auto arguments = Arguments(value, lower);
    if (!arguments) continue;
    std::u16string_view rest = *arguments;
    for (int i = 0; i < 2 && !rest.empty(); ++i) {
      std::u16string_view word = TakeWord(rest);
      if (const auto number = TakeNumber(word); number && std::abs(*number) < 0.01F) return false;
    }
  }
  for (const std::u16string_view move : {u"translate", u"translatex", u"translatey", u"translate3d"}) {
    const auto arguments = Arguments(value, move);
    if (!arguments) continue;
    std::u16string_view rest = *arguments;
    // A percentage is one of the element's own size here, which may be small.
    for (int i = 0; i < 2 && !rest.empty(); ++i) {
      const Style::Entry by = ReadLength(TakeWord(rest));
      if (by.unit != Unit::kPercent && IsFarOff(by)) return false;
    }
  }
  return true;
}

Style::Entry ReadFontSize(std::u16string_view value) {
  const Style::Entry size = ReadLength(value);
  if (size.unit != Unit::kWord) return size;
  return IsOneOf(value, {u"smaller", u"larger"}) ? Style::Entry{1, Unit::kFontSizes}
                                                 : Style::Entry{kFontSize, Unit::kPixels};
}

/// The size in the shorthand for fonts: the first number with a unit or a slash behind it, or a zero.
std::optional<Style::Entry> FontSizeOf(std::u16string_view font) {
  while (!font.empty()) {
    std::u16string_view word = TakeWord(font);
    const std::size_t slash = std::min(word.find(u'/'), word.size());
    std::u16string_view number = word.substr(0, slash);
    const std::u16string_view written = number;
    const std::optional<float> size = TakeNumber(number);
    if (size && (!number.empty() || slash != word.size() || *size == 0)) return ReadLength(written);
  }
  return std::nullopt;
}

struct PropertyName {
  std::u16string_view name;
  Property property;
};
constexpr PropertyName kLengths[] = {
    {u"text-indent", Property::kTextIndent},
    {u"left", Property::kLeft},
    {u"top", Property::kTop},
    {u"right", Property::kRight},
    {u"bottom", Property::kBottom},
    {u"margin-left", Property::kMarginLeft},
    {u"margin-top", Property::kMarginTop},
    {u"width", Property::kWidth},
    {u"height", Property::kHeight},
    {u"max-width", Property::kMaxWidth},
    {u"max-height", Property::kMaxHeight},
};

/// Gives each property that a declaration sets.
template <class Put>
void ReadDeclaration(std::u16string_view name, std::u16string_view value, Put&& put) {
  if (name.size() < 3 || value.empty()) return;
  const auto is = [name](std::u16string_view wanted) { return EqualsNoCase(name, wanted); };
  switch (Lower(name[0])) {
    case u'b':
    case u'h':
    case u'l':
    case u'r':
    case u'w':
      break;
    case u'c':
      if (is(u"clip")) return put(Property::kClip, Flag(ClipShows(value)));
      if (is(u"clip-path")) return put(Property::kClipPath, Flag(ClipPathShows(value)));
      if (is(u"content-visibility")) return put(Property::kContentVisibility, Flag(!EqualsNoCase(value, u"hidden")));
      return;
    case u'd':
      if (is(u"display")) {
        const float box = EqualsNoCase(value, u"none")                                              ? kNoBox
                          : IsOneOf(value, {u"inline", u"initial", u"unset", u"contents", u"ruby"}) ? kInlineBox
                                                                                                    : kBlockBox;
        put(Property::kDisplay, {box, Unit::kWord});
      }
      return;
    case u'f':
      if (is(u"font-size")) return put(Property::kFontSize, ReadFontSize(value));
      if (is(u"font")) {
        if (const auto size = FontSizeOf(value)) put(Property::kFontSize, *size);
      }
      return;
    case u'i':
    case u'm': {
      const bool inset = is(u"inset");
      if (inset || is(u"margin")) {
        // Up to four values: top, right, bottom, left.
        std::array<Style::Entry, 4> sides{};
        std::size_t count = 0;
        while (count < 4 && !Trimmed(value).empty()) sides[count++] = ReadLength(TakeWord(value));
        put(inset ? Property::kTop : Property::kMarginTop, sides[0]);
        put(inset ? Property::kLeft : Property::kMarginLeft, sides[count == 4 ? 3U : count == 1 ? 0U : 1U]);
        return;
      }
      break;
    }
    case u'o':
      if (is(u"opacity")) {
        std::u16string_view rest = value;
        if (const auto number = TakeNumber(rest)) {
          put(Property::kOpacity, {rest == u"%" ? *number / 100 : *number, Unit::kWord});
        }
      } else if (is(u"overflow") || is(u"overflow-x") || is(u"overflow-y")) {
        put(Property::kOverflow, Flag(EqualsNoCase(value, u"visible")));
      }
      return;
    case u'p':
      if (is(u"position")) {
        const float place = IsOneOf(value, {u"absolute", u"fixed"})    ? kOutOfFlow
                            : IsOneOf(value, {u"relative", u"sticky"}) ? kShifted
                                                                       : kInFlow;
        put(Property::kPosition, {place, Unit::kWord});
      }
      return;
    case u't':
      if (is(u"transform")) return put(Property::kTransform, Flag(TransformShows(value)));
      break;
    case u'v':
      if (is(u"visibility")) {
        if (IsOneOf(value, {u"inherit", u"unset"})) return put(Property::kVisibility, {0, Unit::kInherit});
        put(Property::kVisibility, Flag(!IsOneOf(value, {u"hidden", u"collapse"})));
      }
      return;
    default:
      return;
  }
  for (const PropertyName& length : kLengths) {
    if (is(length.name)) return put(length.property, ReadLength(value));
  }
}

/// Whether the property has a say in hiding with this value.
bool MayHide(Property property, const Style::Entry& entry) noexcept {
  switch (property) {
    case Property::kDisplay:
    case Property::kVisibility:
    case Property::kOverflow:
    case Property::kClip:
    case Property::kClipPath:
    case Property::kTransform:
    case Property::kContentVisibility:
      return entry.unit == Unit::kWord && entry.value == 0;
    case Property::kPosition:
      return entry.value != kInFlow;
    case Property::kOpacity:
      return entry.value < 1;
    case Property::kLeft:
    case Property::kTop:
    case Property::kRight:
    case Property::kBottom:
    case Property::kMarginLeft:
    case Property::kMarginTop:
      return entry.value < 0;
    case Property::kTextIndent:
      return entry.value < 0 || entry.unit == Unit::kPercent;
    default:  // sizes
      return entry.unit >= Unit::kPixels && entry.value <= 1;
  }
}

/// A media query list that a screen meets.
bool IsForScreen(std::u16string_view queries) {
  if (Trimmed(queries).empty()) return true;
  for (std::size_t at = 0; at <= queries.size();) {
    const std::size_t end = FindOutside(queries, at, u",");
    std::u16string_view query = Trimmed(queries.substr(at, end - at));
    at = end + 1;
    bool holds = !query.empty();
    while (holds && !query.empty()) {
      const std::u16string_view word = TakeWord(query);
      if (IsOneOf(word, {u"all", u"screen", u"only", u"and"})) continue;
      holds = false;
      if (word.size() < 2 || word.front() != u'(' || word.back() != u')') continue;
      const std::u16string_view feature = word.substr(1, word.size() - 2);
      const std::size_t colon = std::min(feature.find(u':'), feature.size());
      const std::u16string_view name = Trimmed(feature.substr(0, colon));
      const Style::Entry size = ReadLength(Trimmed(feature.substr(std::min(colon + 1, feature.size()))));
      if (size.unit != Unit::kPixels && size.unit != Unit::kFontSizes) continue;
      const float pixels = size.unit == Unit::kFontSizes ? size.value * kFontSize : size.value;
      holds = (EqualsNoCase(name, u"min-width") && kScreenWidth >= pixels) ||
              (EqualsNoCase(name, u"max-width") && kScreenWidth <= pixels) ||
              (EqualsNoCase(name, u"min-height") && kScreenHeight >= pixels) ||
              (EqualsNoCase(name, u"max-height") && kScreenHeight <= pixels);
    }
    if (holds) return true;
  }
  return false;
}

template <class Take>
void ForEachClass(std::u16string_view names, Take&& take) {
  for (std::size_t at = 0; at < names.size();) {
    if (IsBlank(names[at])) {
      ++at;
      continue;
    }
    const std::size_t begin = at;
    while (at < names.size() && !IsBlank(names[at])) ++at;
    take(names.substr(begin, at - begin));
  }
}

}  // namespace

// ---- Declarations

Declarations::Declarations(std::u16string_view style) {
  rest_ = Clean(style, clean_) ? std::u16string_view(clean_) : style;
}

bool Declarations::Next() {
  while (!rest_.empty()) {
    const std::size_t end = FindOutside(rest_, 0, u";{");
    if (end < rest_.size() && rest_[end] == u'{') {  // a rule within the rule
      rest_.remove_prefix(std::min(FindOutside(rest_, end + 1, u"}") + 1, rest_.size()));
      continue;
    }
    const std::u16string_view declaration = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    const std::size_t colon = declaration.find(u':');
    if (colon == std::u16string_view::npos) continue;
    name_ = Trimmed(declaration.substr(0, colon));
    value_ = Trimmed(declaration.substr(colon + 1));
    important_ = false;
    if (const std::size_t mark = value_.rfind(u'!'); mark != std::u16string_view::npos) {
      important_ = EqualsNoCase(Trimmed(value_.substr(mark + 1)), u"important");
      if (important_) value_ = Trimmed(value_.substr(0, mark));
    }
    return true;
  }
  return false;
}

std::u16string StyleValue(std::u16string_view style, std::u16string_view property) {
  std::u16string found;
  Declarations declarations(style);
  while (declarations.Next()) {
    if (EqualsNoCase(declarations.Name(), property)) found = declarations.Value();
  }
  return found;
}

// ---- Style

void Style::Set(Property property, Entry entry, std::uint64_t weight) noexcept {
  const std::size_t index = Index(property);
  if (weight < weights_[index]) return;
  weights_[index] = weight;
  entries_[index] = entry;
}

void Style::AddInline(std::u16string_view style) {
  Declarations declarations(style);
  while (declarations.Next()) {
    const std::uint64_t weight = kInline | (declarations.IsImportant() ? kImportant : 0);
    ReadDeclaration(declarations.Name(), declarations.Value(),
                    [&](Property property, Entry entry) { Set(property, entry, weight); });
  }
}

// ---- StyleRules

StyleRules::StyleRules(const Tree& tree, const GrowArray<NodeId>& elements)
    : tree_(tree),
      room_(kFreeRoom + tree.text.size() / kCharactersPerItem),
      steps_(kFreeSteps + kStepsPerCharacter * tree.text.size()) {
  std::u16string text;
  for (const NodeId id : elements) {
    const Node& node = tree.nodes[id];
    if (node.kind != NodeKind::kElement || node.name != name::kStyle || node.space == Space::kMathMl) continue;
    const std::u16string_view type = Trimmed(tree.AttributeText(id, name::kType));
    if (!type.empty() && !EqualsNoCase(type, u"text/css")) continue;
    if (!IsForScreen(tree.AttributeText(id, name::kMedia))) continue;
    for (NodeId child = tree.FirstChild(id); child != 0; child = tree.nodes[child].next) {
      if (tree.nodes[child].kind == NodeKind::kText) text += tree.TextOf(tree.nodes[child]);
    }
    std::u16string clean;
    Read(Clean(text, clean) ? std::u16string_view(clean) : text);
    text.clear();
  }
}

void StyleRules::Read(std::u16string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const char16_t c = text[at];
    if (IsBlank(c) || c == u'}' || c == u';') {  // the end of a block that was entered
      ++at;
      continue;
    }
    if (text.substr(at, 4) == u"<!--" || text.substr(at, 3) == u"-->") {
      at += c == u'<' ? 4U : 3U;
      continue;
    }
    const std::size_t block = FindOutside(text, at, c == u'@' ? u"{;" : u"{");
    if (block == text.size() || text[block] == u';') {
      at = block + 1;
      continue;
    }
    const std::u16string_view head = text.substr(at, block - at);
    if (c == u'@') {
      std::u16string_view condition = head.substr(1);
      const std::u16string_view name = TakeWord(condition);
      condition = Trimmed(condition);
      const bool enters = EqualsNoCase(name, u"media")      ? IsForScreen(condition)
                          : EqualsNoCase(name, u"supports") ? !BeginsNoCase(condition, u"not")
                                                            : EqualsNoCase(name, u"layer");
      if (enters) {
        at = block + 1;
        continue;
      }
    }
    const std::size_t end = FindOutside(text, block + 1, u"}");
    if (c != u'@') ReadRule(head, text.substr(block + 1, end - block - 1));
    at = end + 1;
  }
}

void StyleRules::ReadRule(std::u16string_view selectors, std::u16string_view text) {
  Block block;
  bool any = false;
  Declarations declarations(text);
  while (declarations.Next()) {
    ReadDeclaration(declarations.Name(), declarations.Value(), [&](Property property, Style::Entry entry) {
      std::optional<Declared>& kept = block.entries[static_cast<std::size_t>(property)];
      if (kept && kept->important && !declarations.IsImportant()) return;
      kept = Declared{entry.value, order_++, kNone, property, entry.unit, declarations.IsImportant()};
      any = true;
    });
  }
  if (!any) return;
  for (std::size_t at = 0; at <= selectors.size();) {
    const std::size_t comma = FindOutside(selectors, at, u",");
    if (const auto selector = ReadSelector(Trimmed(selectors.substr(at, comma - at)))) AddRule(*selector, block);
    at = comma + 1;
  }
}

std::uint64_t StyleRules::NameHash(std::u16string_view text) const {
  // In quirks mode classes and identifiers are the same in either case.
  if (!tree_.quirks) return HashWithSecret(text);
  std::u16string lower(text);
  std::ranges::transform(lower, lower.begin(), Lower);
  return HashWithSecret(lower);
}

std::optional<StyleRules::Selector> StyleRules::ReadSelector(std::u16string_view text) {
  const auto begin = static_cast<std::uint32_t>(simples_.size());
  Selector selector{begin, begin, 0, true};
  const auto give = [&]() -> std::optional<Selector> {
    simples_.Truncate(begin);
    return std::nullopt;
  };
  const auto add = [&](Kind kind, NameId name, std::uint64_t hash, std::uint64_t specificity) {
    simples_.Push({hash, name, kind});
    selector.specificity += specificity;
  };
  std::u16string lower;
  // A name that the page has, by its number; nothing matches one that it hasn't.
  const auto find = [&](std::u16string_view name) {
    lower = name;
    std::ranges::transform(lower, lower.begin(), Lower);
    return tree_.names.Find(lower, tree_.text.data());
  };
  for (std::size_t at = 0; at < text.size();) {
    if (simples_.size() - begin >= kMaxSimples || simples_.size() >= room_) return give();
    const auto takeName = [&] {
      const std::size_t from = at;
      while (at < text.size() && IsNameUnit(text[at])) ++at;
      return text.substr(from, at - from);
    };
    const char16_t c = text[at];
    if (IsBlank(c) || c == u'>' || c == u'+' || c == u'~') {
      Kind kind = Kind::kAncestor;
      for (; at < text.size() && (IsBlank(text[at]) || text[at] == u'>' || text[at] == u'+' || text[at] == u'~');
           ++at) {
        if (text[at] == u'>') kind = Kind::kParent;
        if (text[at] == u'+' || text[at] == u'~') {
          // Neighbours aren't asked: what stands before is a condition that isn't understood.
          simples_.Truncate(begin);
          selector.certain = false;
        }
      }
      if (simples_.size() != begin) add(kind, 0, 0, 0);
      continue;
    }
    if (c == u'*') {
      ++at;
      add(Kind::kAny, 0, 0, 0);
      continue;
    }
    if (c == u'.' || c == u'#') {
      ++at;
      const std::u16string_view name = takeName();
      if (name.empty()) return give();
      add(c == u'.' ? Kind::kClass : Kind::kId, 0, NameHash(name), c == u'.' ? kOfClass : kOfId);
      continue;
    }
    if (c == u'[') {
      const std::size_t end = FindOutside(text, at + 1, u"]");
      const std::u16string_view inside = text.substr(at + 1, end - at - 1);
      at = std::min(end + 1, text.size());
      const std::size_t equal = std::min(inside.find(u'='), inside.size());
      const std::u16string_view name = Trimmed(inside.substr(0, equal));
      if (!std::ranges::all_of(name, IsNameUnit)) {
        selector.certain = false;
        selector.specificity += kOfClass;
        continue;
      }
      const std::int64_t id = find(name);
      if (id < 0) return give();
      if (equal == inside.size()) {
        add(Kind::kAttribute, static_cast<NameId>(id), 0, kOfClass);
        continue;
      }
      std::u16string_view value = Trimmed(inside.substr(equal + 1));
      if (value.size() >= 2 && (value.front() == u'"' || value.front() == u'\'') && value.back() == value.front()) {
        value = value.substr(1, value.size() - 2);
      }
      add(Kind::kAttributeValue, static_cast<NameId>(id), HashWithSecret(value), kOfClass);
      continue;
    }
    if (c == u':') {
      ++at;
      if (at < text.size() && text[at] == u':') return give();
      const std::u16string_view name = takeName();
      if (IsOneOf(name, {u"hover", u"focus", u"active", u"focus-within", u"focus-visible", u"before", u"after",
                         u"first-line", u"first-letter"})) {
        return give();
      }
      if (EqualsNoCase(name, u"root")) {
        add(Kind::kTag, name::kHtml, 0, kOfClass);
        continue;
      }
      if (at < text.size() && text[at] == u'(') at = std::min(FindOutside(text, at + 1, u")") + 1, text.size());
      selector.certain = false;
      selector.specificity += kOfClass;
      continue;
    }
    const std::u16string_view name = takeName();
    if (name.empty()) return give();  // no selector
    const std::int64_t id = find(name);
    if (id < 0) return give();
    add(Kind::kTag, static_cast<NameId>(id), 0, kOfTag);
  }
  if (text.empty()) return give();
  selector.end = static_cast<std::uint32_t>(simples_.size());
  if (selector.end == begin || simples_[selector.end - 1].kind >= Kind::kAncestor) add(Kind::kAny, 0, 0, 0);
  selector.end = static_cast<std::uint32_t>(simples_.size());
  return selector;
}

std::uint64_t StyleRules::KeyOf(const Simple& simple) const noexcept {
  switch (simple.kind) {
    case Kind::kTag:
      return simple.name + 1;  // numbers that no hash will meet
    case Kind::kClass:
      return simple.hash;
    case Kind::kId:
      return ~simple.hash;
    default:
      return 0;
  }
}

/// Of rules that always hold together, a property's stronger declaration is the only one that counts.
void StyleRules::Merge(std::uint32_t& list, const Declared& item) {
  std::uint32_t at = list;
  while (at != kNone && declared_[at].property != item.property) at = declared_[at].next;
  if (at == kNone) {
    Declared added = item;
    added.next = list;
    declared_.Push(added);
    list = static_cast<std::uint32_t>(declared_.size() - 1);
  } else if (item.important || !declared_[at].important) {
    const std::uint32_t next = declared_[at].next;
    declared_[at] = item;
    declared_[at].next = next;
  }
}

void StyleRules::AddRule(const Selector& selector, Block& block) {
  // The last compound's rarest condition leads to the rule.
  const Simple* key = &simples_[selector.end - 1];
  for (std::uint32_t i = selector.end; i-- > selector.begin && simples_[i].kind < Kind::kAncestor;) {
    if (simples_[i].kind <= Kind::kId && (key->kind > Kind::kId || simples_[i].kind > key->kind)) key = &simples_[i];
  }
  const std::uint64_t hash = KeyOf(*key);
  if (declared_.size() >= room_ || rules_.size() >= room_ || (heads_.size() >= room_ && !heads_.contains(hash))) {
    simples_.Truncate(selector.begin);
    return;
  }
  const std::uint64_t alone = key->kind == Kind::kId      ? kOfId
                              : key->kind == Kind::kClass ? kOfClass
                              : key->kind == Kind::kTag   ? kOfTag
                                                          : 0;
  Head& head = heads_[hash];
  if (selector.end - selector.begin == 1 && selector.certain && selector.specificity == alone) {
    simples_.Truncate(selector.begin);
    for (const std::optional<Declared>& item : block.entries) {
      if (item) Merge(head.declared, *item);
    }
    return;
  }
  std::uint32_t& list = selector.certain ? block.all : block.showing;
  if (list == kNone) {
    for (const std::optional<Declared>& item : block.entries) {
      if (item && (selector.certain || !MayHide(item->property, {item->value, item->unit}))) Merge(list, *item);
    }
  }
  if (list == kNone) {
    simples_.Truncate(selector.begin);
    return;
  }
  rules_.Push({selector.begin, selector.end, list, head.rule, selector.specificity});
  head.rule = static_cast<std::uint32_t>(rules_.size() - 1);
}

bool StyleRules::Holds(const Simple& simple, NodeId id) {
  const Node& node = tree_.nodes[id];
  switch (simple.kind) {
    case Kind::kAny:
      return true;
    case Kind::kTag:
      return node.name == simple.name;
    case Kind::kId: {
      const std::u16string_view own = tree_.AttributeText(id, name::kId);
      return !own.empty() && NameHash(own) == simple.hash;
    }
    case Kind::kClass: {
      bool found = false;
      const std::u16string_view names = tree_.AttributeText(id, name::kClass);
      steps_ -= std::min(steps_, names.size() / 8);
      ForEachClass(names, [&](std::u16string_view name) { found = found || NameHash(name) == simple.hash; });
      return found;
    }
    case Kind::kAttribute:
      return tree_.FindAttribute(id, simple.name) != nullptr;
    case Kind::kAttributeValue: {
      const Attribute* const item = tree_.FindAttribute(id, simple.name);
      return item != nullptr && HashWithSecret(tree_.TextOf(*item)) == simple.hash;
    }
    default:
      return false;
  }
}

bool StyleRules::Matches(const Rule& rule, NodeId id) {
  // From the last compound upwards. What stands before a descent is looked for from the nearest ancestor up; the
  // nearest that fits leaves the most for the rest, so that no other need be tried.
  std::uint32_t at = rule.end;
  std::uint32_t group = 0;  // the end of what the latest descent leads to; 0: none was met
  NodeId element = id;
  NodeId tried = id;  // where that is looked for
  const auto climb = [&] {
    if (group == 0 || tried == kDocument) return false;
    element = tried = tree_.nodes[tried].parent;
    at = group;
    return true;
  };
  while (at > rule.begin) {
    if (steps_ == 0) return false;
    --steps_;
    const Simple& simple = simples_[at - 1];
    if (element == kDocument) {
      if (!climb()) return false;
    } else if (simple.kind >= Kind::kAncestor) {
      element = tree_.nodes[element].parent;
      --at;
      if (simple.kind == Kind::kAncestor) {
        group = at;
        tried = element;
      }
    } else if (Holds(simple, element)) {
      --at;
    } else if (!climb()) {
      return false;
    }
  }
  return true;
}

void StyleRules::ApplyHead(std::uint64_t key, std::uint64_t specificity, NodeId id, Style& style) {
  const auto found = heads_.find(key);
  if (found == heads_.end()) return;
  const auto put = [&](std::uint32_t at, std::uint64_t specific) {
    for (; at != kNone; at = declared_[at].next) {
      const Declared& item = declared_[at];
      style.Set(item.property, {item.value, item.unit},
                (item.important ? kImportant : 0) | specific << kSpecificityShift | (std::uint64_t{item.order} + 1));
    }
  };
  put(found->second.declared, specificity);
  for (std::uint32_t at = found->second.rule; at != kNone; at = rules_[at].next) {
    if (steps_ == 0) return;
    if (Matches(rules_[at], id)) put(rules_[at].declared, rules_[at].specificity);
  }
}

void StyleRules::Apply(NodeId id, Style& style) {
  ApplyHead(0, 0, id, style);  // "*", and what only an attribute names
  ApplyHead(KeyOf({0, tree_.nodes[id].name, Kind::kTag}), kOfTag, id, style);
  for (const Attribute& item : tree_.AttributesOf(id)) {
    if (item.name == name::kId) {
      ApplyHead(KeyOf({NameHash(tree_.TextOf(item)), 0, Kind::kId}), kOfId, id, style);
    } else if (item.name == name::kClass) {
      ForEachClass(tree_.TextOf(item), [&](std::u16string_view name) {
        ApplyHead(KeyOf({NameHash(name), 0, Kind::kClass}), kOfClass, id, style);
      });
    }
  }
}

}  // namespace zeph::html
