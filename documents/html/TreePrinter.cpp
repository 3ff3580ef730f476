// SPDX-License-Identifier: Apache-2.0
#include "documents/html/TreePrinter.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph::html {
namespace {

using Spelling = std::pair<std::string_view, std::string_view>;

// What SVG writes with capital letters, though markup is read without regard to case.
constexpr std::string_view kSvgElements[] = {"altGlyph",          "altGlyphDef",
                                             "altGlyphItem",      "animateColor",
                                             "animateMotion",     "animateTransform",
                                             "clipPath",          "feBlend",
                                             "feColorMatrix",     "feComponentTransfer",
                                             "feComposite",       "feConvolveMatrix",
                                             "feDiffuseLighting", "feDisplacementMap",
                                             "feDistantLight",    "feFlood",
                                             "feFuncA",           "feFuncB",
                                             "feFuncG",           "feFuncR",
                                             "feGaussianBlur",    "feImage",
                                             "feMerge",           "feMergeNode",
                                             "feMorphology",      "feOffset",
                                             "fePointLight",      "feSpecularLighting",
                                             "feSpotLight",       "feTile",
                                             "feTurbulence",      "foreignObject",
                                             "glyphRef",          "linearGradient",
                                             "radialGradient",    "textPath"};
constexpr std::string_view kSvgAttributes[] = {"attributeName",
                                               "attributeType",
                                               "baseFrequency",
                                               "baseProfile",
                                               "calcMode",
                                               "clipPathUnits",
                                               "diffuseConstant",
                                               "edgeMode",
                                               "filterUnits",
                                               "glyphRef",
                                               "gradientTransform",
                                               "gradientUnits",
                                               "kernelMatrix",
                                               "kernelUnitLength",
                                               "keyPoints",
                                               "keySplines",
                                               "keyTimes",
                                               "lengthAdjust",
                                               "limitingConeAngle",
                                               "markerHeight",
                                               "markerUnits",
                                               "markerWidth",
                                               "maskContentUnits",
                                               "maskUnits",
                                               "numOctaves",
                                               "pathLength",
                                               "patternContentUnits",
                                               "patternTransform",
                                               "patternUnits",
                                               "pointsAtX",
                                               "pointsAtY",
                                               "pointsAtZ",
                                               "preserveAlpha",
                                               "preserveAspectRatio",
                                               "primitiveUnits",
                                               "refX",
                                               "refY",
                                               "repeatCount",
                                               "repeatDur",
                                               "requiredExtensions",
                                               "requiredFeatures",
                                               "specularConstant",
                                               "specularExponent",
                                               "spreadMethod",
                                               "startOffset",
                                               "stdDeviation",
                                               "stitchTiles",
                                               "surfaceScale",
                                               "systemLanguage",
                                               "tableValues",
                                               "targetX",
                                               "targetY",
                                               "textLength",
                                               "viewBox",
                                               "viewTarget",
                                               "xChannelSelector",
                                               "yChannelSelector",
                                               "zoomAndPan"};
/// Attributes that have a namespace in SVG and MathML: prefix and name.
constexpr Spelling kForeignAttributes[] = {
    {"xlink:actuate", "xlink actuate"}, {"xlink:arcrole", "xlink arcrole"}, {"xlink:href", "xlink href"},
    {"xlink:role", "xlink role"},       {"xlink:show", "xlink show"},       {"xlink:title", "xlink title"},
    {"xlink:type", "xlink type"},       {"xml:lang", "xml lang"},           {"xml:space", "xml space"},
    {"xmlns", "xmlns xmlns"},           {"xmlns:xlink", "xmlns xlink"}};

char LowerAscii(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

std::string WithCapitals(std::string name, std::span<const std::string_view> spellings) {
  for (const std::string_view spelling : spellings) {
    if (std::ranges::equal(spelling, name, {}, LowerAscii)) return std::string(spelling);
  }
  return name;
}

std::string AttributeName(std::string name, Space space) {
  if (space == Space::kHtml) return name;
  for (const auto& [written, shown] : kForeignAttributes) {
    if (name == written) return std::string(shown);
  }
  if (space == Space::kMathMl) return name == "definitionurl" ? "definitionURL" : name;
  return WithCapitals(std::move(name), kSvgAttributes);
}

class Printer {
 public:
  Printer(const Tree& tree, const std::function<void(std::string_view)>& write) : tree_(tree), write_(write) {}

  void Print() {
    for (TreeWalk walk(tree_, kDocument); !walk.Done(); walk.Next()) {
      const NodeId id = walk.Id();
      if (id == kDocument) continue;
      if (walk.Entering()) {
        Enter(id);
      } else if (tree_.nodes[id].kind == NodeKind::kElement) {
        depth_ -= tree_.IsHtml(id, name::kTemplate) ? 2 : 1;
      }
    }
    write_(out_);
  }

 private:
  void Line(std::string_view text) {
    out_ += "| ";
    out_.append(2 * depth_, ' ');
    out_ += text;
    out_ += '\n';
    if (out_.size() < kPiece) return;
    write_(out_);
    out_.clear();
  }

  void Enter(NodeId id) {
    const Node& node = tree_.nodes[id];
    switch (node.kind) {
      case NodeKind::kDocument:
        break;
      case NodeKind::kDoctype: {
        const auto text = [this](const Slice& slice) { return Narrow(tree_.TextOf(slice.begin, slice.length)); };
        std::string line = "<!DOCTYPE " + text(tree_.doctype.name);
        if (tree_.doctype.publicId.length != 0 || tree_.doctype.systemId.length != 0) {
          line += " \"" + text(tree_.doctype.publicId) + "\" \"" + text(tree_.doctype.systemId) + '"';
        }
        Line(line + '>');
        break;
      }
      case NodeKind::kElement:
        Element(id, node);
        break;
      case NodeKind::kText: {
        if (node.continues) break;
        std::u16string text(tree_.TextOf(node));
        for (NodeId next = node.next; next != 0 && tree_.nodes[next].continues; next = tree_.nodes[next].next) {
          text += tree_.TextOf(tree_.nodes[next]);
        }
        Line('"' + Narrow(text) + '"');
        break;
      }
      case NodeKind::kComment:
        Line("<!-- " + Narrow(tree_.TextOf(node)) + " -->");
        break;
    }
  }

  void Element(NodeId id, const Node& node) {
    std::string name = Narrow(tree_.NameText(node.name));
    if (node.space == Space::kSvg) {
      name = "svg " + WithCapitals(std::move(name), kSvgElements);
    } else if (node.space == Space::kMathMl) {
      name = "math " + name;
    }
    Line('<' + name + '>');
    ++depth_;
    std::vector<std::pair<std::string, std::string>> items;
    for (const Attribute& item : tree_.AttributesOf(id)) {
      items.emplace_back(AttributeName(Narrow(tree_.NameText(item.name)), node.space), Narrow(tree_.TextOf(item)));
    }
    std::ranges::sort(items);
    for (const auto& [itemName, value] : items) Line(itemName + "=\"" + value + '"');
    if (tree_.IsHtml(id, name::kTemplate)) {
      Line("content");
      ++depth_;
    }
  }

  static constexpr std::size_t kPiece = 65536;

  const Tree& tree_;
  const std::function<void(std::string_view)>& write_;
  std::string out_;
  std::size_t depth_ = 0;
};

}  // namespace

void PrintTree(const Tree& tree, const std::function<void(std::string_view)>& write) { Printer(tree, write).Print(); }

std::string PrintTree(const Tree& tree) {
  std::string text;
  PrintTree(tree, [&text](std::string_view piece) { text += piece; });
  return text;
}

}  // namespace zeph::html
