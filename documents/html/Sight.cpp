// SPDX-License-Identifier: Apache-2.0
#include "documents/html/Sight.h"

#include <algorithm>

#include "documents/html/HtmlText.h"

namespace zeph::html {
namespace {

constexpr float kFontSize = 16;
/// Letters of a pixel's size are read by nobody, nor is what a page is only tinted with.
constexpr float kLeastFontSize = 1;
constexpr float kLeastOpacity = 0.05F;
constexpr float kLeastLength = 1;
constexpr float kFarOff = -500;

/// A length that lies as far off as nobody looks, or all of its box.
bool IsFarOff(const Style::Entry& entry, float fontSize) noexcept {
  switch (entry.unit) {
    case Unit::kPixels:
      return entry.value <= kFarOff;
    case Unit::kFontSizes:
      return entry.value * fontSize <= kFarOff;
    case Unit::kPercent:
      return entry.value <= -100;
    default:
      return false;
  }
}

bool LeavesNoRoom(const Style::Entry& entry) noexcept {
  return entry.unit >= Unit::kPixels && entry.value <= (entry.unit == Unit::kPixels ? kLeastLength : 0);
}

/// What these styles alone do away with, for good: nothing within shows it again.
bool TakesAway(const Style& style, bool isInline, float fontSize) noexcept {
  const auto isZero = [&](Property property) { return style.Has(property) && style.Get(property).value == 0; };
  if (isZero(Property::kDisplay) || isZero(Property::kContentVisibility) || isZero(Property::kClipPath)) return true;
  if (style.Has(Property::kOpacity) && style.Get(Property::kOpacity).value <= kLeastOpacity) return true;
  const auto isFarOff = [&](Property property) { return IsFarOff(style.Get(property), fontSize); };
  if (isFarOff(Property::kMarginLeft) || isFarOff(Property::kMarginTop)) return true;
  const bool outOfFlow = style.Get(Property::kPosition).value == kOutOfFlow;
  if (style.Get(Property::kPosition).value != kInFlow) {
    if (isFarOff(Property::kLeft) || isFarOff(Property::kTop) || isFarOff(Property::kRight) ||
        isFarOff(Property::kBottom)) {
      return true;
    }
  }
  if (outOfFlow && isZero(Property::kClip)) return true;
  // Sizes and turns mean nothing to a box within a line.
  if (isInline && !outOfFlow && style.Get(Property::kDisplay).value != kBlockBox) return false;
  if (isZero(Property::kTransform)) return true;
  if (!isZero(Property::kOverflow)) return false;
  const Style::Entry& indent = style.Get(Property::kTextIndent);
  return LeavesNoRoom(style.Get(Property::kWidth)) || LeavesNoRoom(style.Get(Property::kHeight)) ||
         LeavesNoRoom(style.Get(Property::kMaxWidth)) || LeavesNoRoom(style.Get(Property::kMaxHeight)) ||
         (indent.unit == Unit::kPercent && indent.value >= 100);
}

bool IsInline(const Node& node) noexcept {
  return node.space == Space::kHtml && (KindsOf(node.name) & (kBlock | kCell)) == 0 && node.name != name::kButton &&
         node.name != name::kSelect && node.name != name::kTextarea;
}

/// SVG elements whose content is never drawn where it stands.
bool IsSvgAside(const Tree& tree, NameId name) {
  switch (name) {
    case name::kTitle:
    case name::kDesc:
    case name::kStyle:
    case name::kScript:
      return true;
    default: {
      const std::u16string_view text = tree.NameText(name);
      return text == u"metadata" || text == u"defs" || text == u"symbol";
    }
  }
}

bool HasAttribute(const Tree& tree, NodeId id, NameId name) { return tree.FindAttribute(id, name) != nullptr; }

/// By its kind, an element's content is never seen.
bool IsUnseen(const Tree& tree, NodeId id) {
  const Node& node = tree.nodes[id];
  switch (node.space) {
    case Space::kSvg:
      return IsSvgAside(tree, node.name);
    case Space::kMathMl:
      return node.name == name::kAnnotationXml || node.name == name::kScript || node.name == name::kStyle ||
             tree.NameText(node.name) == u"annotation";
    case Space::kHtml:
      break;
  }
  if (node.name == name::kTemplate) return IsInert(tree, id);
  // An OBJECT that shows something has its content for browsers that can't.
  if (node.name == name::kObject) return !tree.AttributeText(id, name::kData).empty();
  return (KindsOf(node.name) & kUnseen) != 0;
}

}  // namespace

bool IsInert(const Tree& tree, NodeId id) {
  if (!tree.IsHtml(id, name::kTemplate)) return false;
  const std::u16string_view mode = tree.AttributeText(id, name::kShadowrootmode);
  return !EqualsNoCase(mode, u"open") && !EqualsNoCase(mode, u"closed");
}

bool TellsSight(const Tree& tree, NameId name, Space space) { return space == Space::kSvg && IsSvgAside(tree, name); }

bool TellsSight(NameId name, std::u16string_view value) {
  if (name == name::kHidden) return true;
  if (name != name::kStyle) return false;
  Style style;
  style.AddInline(value);
  return style.Has(Property::kVisibility) || style.Has(Property::kFontSize) || style.Has(Property::kTextIndent) ||
         TakesAway(style, false, kFontSize);
}

void Sight::ApplyStyle(NodeId id, Level& level) {
  const Node& node = tree_.nodes[id];
  const bool isPage = node.space == Space::kHtml && (node.name == name::kHtml || node.name == name::kBody);
  if (isPage) return;
  bool styled = !rules_.Empty();
  bool isHidden = node.space == Space::kHtml && node.name == name::kDialog && !HasAttribute(tree_, id, name::kOpen);
  std::u16string_view inlineStyle;
  for (const Attribute& item : tree_.AttributesOf(id)) {
    if (item.name == name::kStyle) inlineStyle = tree_.TextOf(item);
    if (item.name == name::kHidden) isHidden = true;
  }
  if (!styled && !isHidden && inlineStyle.empty()) return;
  Style style;
  // The browser's own rules count least.
  if (isHidden) style.Set(Property::kDisplay, {kNoBox, Unit::kWord}, 0);
  if (styled) rules_.Apply(id, style);
  if (!inlineStyle.empty()) style.AddInline(inlineStyle);

  const Style::Entry& size = style.Get(Property::kFontSize);
  if (size.unit == Unit::kPixels) level.fontSize = size.value;
  if (size.unit == Unit::kFontSizes) level.fontSize *= size.value;
  if (size.unit == Unit::kPercent) level.fontSize *= size.value / 100;
  const Style::Entry& visibility = style.Get(Property::kVisibility);
  if (visibility.unit == Unit::kWord) level.visible = visibility.value != 0;
  const bool isInline = IsInline(node);
  const Style::Entry& indent = style.Get(Property::kTextIndent);
  if (indent.unit >= Unit::kWord && !(isInline && style.Get(Property::kDisplay).value != kBlockBox)) {
    level.indentedAway = IsFarOff(indent, level.fontSize);
  }
  if (TakesAway(style, isInline, level.fontSize)) level.shown = false;
}

void Sight::Enter(NodeId id) {
  Level level = levels_.empty() ? Level{kFontSize, true, true, true, false, Content::kAll} : levels_.back();
  level.seen = false;
  if (level.shown) {
    const Node& node = tree_.nodes[id];
    const bool isHtml = node.space == Space::kHtml;
    if (level.content == Content::kSummary && isHtml && node.name == name::kSummary) {
      levels_.back().content = Content::kSummaryTaken;
      level.content = Content::kAll;
    } else if (level.content == Content::kSummary || level.content == Content::kSummaryTaken) {
      level.shown = false;
    }
    if (isHtml && node.name == name::kDetails && !HasAttribute(tree_, id, name::kOpen)) {
      level.content = Content::kSummary;
    }
    if (level.shown) ApplyStyle(id, level);
    level.seen = level.shown && level.visible;
    if (level.shown && IsUnseen(tree_, id)) level.shown = false;
  }
  levels_.Push(level);
}

bool Sight::SeesText() const noexcept {
  if (levels_.empty()) return true;
  const Level& level = levels_.back();
  return level.shown && level.visible && !level.indentedAway && level.fontSize > kLeastFontSize &&
         level.content == Content::kAll;
}

}  // namespace zeph::html
