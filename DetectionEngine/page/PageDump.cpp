// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/page/PageDump.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

constexpr std::u16string_view kFieldTypes[] = {u"text",  u"password", u"button", u"submit", u"reset",
                                               u"image", u"checkbox", u"radio",  u"file"};
constexpr std::u16string_view kOpeningTags[] = {u"BUTTON", u"TEXTAREA", u"SELECT", u"TABLE", u"TR",
                                                u"TD",     u"IMG",      u"HR",     u"P",     u"DIV",
                                                u"SPAN",   u"BR",       u"UL",     u"OL",    u"LI"};
constexpr std::u16string_view kClosingTags[] = {u"TABLE", u"TR", u"TD", u"DIV", u"SPAN", u"P", u"TEXTAREA"};
constexpr std::u16string_view kPlainTags[] = {u"FRAME", u"IFRAME", u"FORM"};

/// The class and id that an office program gives to all that it writes.
constexpr std::u16string_view kOfficeName = u"MsoNormal";

bool IsOneOf(std::u16string_view text, std::span<const std::u16string_view> list) {
  return std::ranges::find(list, text) != list.end();
}

}  // namespace

/// One walk over the nodes.
class PageDump::Walker {
 public:
  Walker(IHTMLDocument2& document, PageDump& dump) : dump_(dump), kept_(document) {
    kept_.Take(2 * dump.visibleText_.size());
  }

  /// Adds what the node and all below it show. Recurses no deeper than kDepthLimit.
  void Walk(IHTMLDOMNode& node, int depth) {
    if (++nodeCount_ > kNodeLimit) {
      tooLarge_ = true;
      return;
    }
    if (depth >= kDepthLimit) return;
    const std::u16string_view name = reader_.Take(node.get_nodeName()).value_or(std::u16string_view());
    if (!name.empty()) Add(name, node);

    IHTMLDOMChildrenCollection* const children = reader_.Take(node.get_childNodes());
    if (children == nullptr) return;
    const std::int32_t length = reader_.Length(children);
    if (reader_.Failed()) return;
    for (std::int32_t i = 0; i < length && !tooLarge_; ++i) {
      DocumentObject* const object = reader_.Take(children->item(i));
      IHTMLDOMNode* const child = object == nullptr ? nullptr : object->QueryNode();
      if (child != nullptr) {
        Walk(*child, depth + 1);
      } else if (++missingCount_ > kMissingLimit) {
        tooLarge_ = true;
      }
    }
    if (IsOneOf(name, kClosingTags)) AddLine(dump_.structure_, {u"</", name, u">"});
  }

  [[nodiscard]] bool TooLarge() const noexcept { return tooLarge_; }

 private:
  /// Children that don't come cost time too.
  static constexpr int kMissingLimit = 1'000'000;

  void Add(std::u16string_view name, IHTMLDOMNode& node) {
    IHTMLAttributeCollection2* const attributes = reader_.Take(node.get_attributes());
    std::u16string digits;
    const bool isInput = name == u"INPUT";
    const std::u16string_view type = isInput ? ReadAttribute(attributes, u"type", digits) : std::u16string_view();
    const bool isImage = name == u"IMG" || (isInput && type == u"image");
    if (isInput && IsOneOf(type, kFieldTypes)) {
      AddLine(dump_.structure_, {u"<", name, u" type=\"", type, u"\">"});
    } else if (IsOneOf(name, kOpeningTags)) {
      AddLine(dump_.structure_, {u"<", name, u">"});
    }
    if (isImage) {
      const std::u16string_view source = ReadAttribute(attributes, u"src", digits);
      if (!source.empty()) AddLine(dump_.images_, {source});
    }
    if (!IsOneOf(name, kPlainTags)) AddDistinctive(name, attributes);
  }

  void AddDistinctive(std::u16string_view name, IHTMLAttributeCollection2* attributes) {
    std::u16string classDigits;
    std::u16string idDigits;
    const std::u16string_view classes = ReadAttribute(attributes, u"class", classDigits);
    const std::u16string_view id = ReadAttribute(attributes, u"id", idDigits);
    if (classes.empty() && id.empty()) return;
    const bool showsClass = !classes.empty() && classes != kOfficeName;
    const bool showsId = !id.empty() && id != kOfficeName;
    const auto ifShown = [](bool shown, std::u16string_view text) { return shown ? text : std::u16string_view(); };
    AddLine(dump_.distinctiveTags_,
            {u"<", name, ifShown(showsClass, u" class=\""), ifShown(showsClass, classes), ifShown(showsClass, u"\""),
             ifShown(showsId, u" id=\""), ifShown(showsId, id), ifShown(showsId, u"\""), u">"});
  }

  /// A text as it is, a number written out, which digits then holds; empty for anything else.
  std::u16string_view ReadAttribute(IHTMLAttributeCollection2* attributes, std::u16string_view name,
                                    std::u16string& digits) {
    if (attributes == nullptr) return {};
    const AttributeAnswer answer = attributes->getNamedItem(name);
    if (answer.status < 0) return {};
    if (answer.value.kind == AttributeValue::Kind::kString) return answer.value.text;
    if (answer.value.kind != AttributeValue::Kind::kNumber) return {};
    digits = NumberText(answer.value.number);
    return digits;
  }

  void AddLine(std::u16string& text, std::initializer_list<std::u16string_view> parts) {
    const std::u16string_view separator = text.empty() ? u"" : u"\r\n";
    std::size_t length = separator.size();
    for (const std::u16string_view part : parts) length += part.size();
    try {
      kept_.TakeText(2 * length);  // in its block, and in the whole
    } catch (const TooCostly&) {
      tooLarge_ = true;
      return;
    }
    text.append(separator);
    for (const std::u16string_view part : parts) text.append(part);
  }

  PageDump& dump_;
  KeptTexts kept_;
  DocumentReader reader_;
  int nodeCount_ = 0;
  int missingCount_ = 0;
  bool tooLarge_ = false;
};

Status PageDump::Build(IHTMLDocument2* document, std::u16string_view visibleText) {
  visibleText_ = visibleText;
  structure_.clear();
  images_.clear();
  distinctiveTags_.clear();
  if (document == nullptr) return kStatusUnexpected;
  const ObjectAnswer body = document->get_body();
  IHTMLDOMNode* const node = body.HasValue() ? body.value->QueryNode() : nullptr;
  if (node == nullptr) return body.status;
  Walker walker(*document, *this);
  walker.Walk(*node, 0);
  if (walker.TooLarge()) {
    structure_.clear();
    images_.clear();
    distinctiveTags_.clear();
  }
  return body.status;
}

std::u16string PageDump::Text() const {
  constexpr std::size_t kMarks = 256;  // no shorter than what stands between the blocks
  std::u16string text;
  text.reserve(visibleText_.size() + structure_.size() + images_.size() + distinctiveTags_.size() + kMarks);
  const auto addBlock = [&](std::u16string_view opening, std::u16string_view content, std::u16string_view closing) {
    text.append(opening).append(content).append(closing);
  };
  addBlock(u"<Visible.Text>\r\n", visibleText_, u"\r\n</Visible.Text>\r\n");
  addBlock(u"\r\n<Html.Structure>\r\n", structure_, u"\r\n</Html.Structure>\r\n");
  addBlock(u"\r\n<Images>\r\n", images_, u"\r\n</Images>\r\n");
  addBlock(u"\r\n<Distinctive.Tags>\r\n", distinctiveTags_, u"\r\n</Distinctive.Tags>\r\n");
  return text;
}

}  // namespace zeph
