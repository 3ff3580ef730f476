// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "DetectionEngine/Document.h"
#include "documents/RecordedAnswers.h"

namespace zeph {

namespace detail {

/// An interface that has an operation of the same name as another one.
template <class Interface>
class TextFacet : public Interface {
 protected:
  ~TextFacet() = default;
  virtual TextAnswer Text(Operation operation) noexcept = 0;
};

class AnchorFacet : public TextFacet<IHTMLAnchorElement> {
  TextAnswer get_href() noexcept final { return Text(Operation::kAnchorHref); }
};
class AreaFacet : public TextFacet<IHTMLAreaElement> {
  TextAnswer get_href() noexcept final { return Text(Operation::kAreaHref); }
};
class LinkFacet : public TextFacet<IHTMLLinkElement> {
  TextAnswer get_href() noexcept final { return Text(Operation::kLinkHref); }
  TextAnswer get_rel() noexcept final { return Text(Operation::kRel); }
};
class ScriptFacet : public TextFacet<IHTMLScriptElement> {
  TextAnswer get_src() noexcept final { return Text(Operation::kScriptSrc); }
  TextAnswer get_text() noexcept final { return Text(Operation::kScriptText); }
};
class CommentFacet : public TextFacet<IHTMLCommentElement> {
  TextAnswer get_text() noexcept final { return Text(Operation::kCommentText); }
};
class ImgFacet : public TextFacet<IHTMLImgElement> {
  TextAnswer get_src() noexcept final { return Text(Operation::kImgSrc); }
};

}  // namespace detail

/// All interfaces of an element in one object, over operations by number; and those of its attributes.
class ElementFacets : public DocumentObject,
                      public IHTMLElement,
                      public IHTMLFormElement,
                      public detail::AnchorFacet,
                      public detail::AreaFacet,
                      public detail::ImgFacet,
                      public detail::ScriptFacet,
                      public IHTMLBodyElement,
                      public detail::CommentFacet,
                      public detail::LinkFacet,
                      public IHTMLMetaElement,
                      public IHTMLDOMNode,
                      public IHTMLAttributeCollection2 {
 public:
  IHTMLElement* QueryElement() noexcept final { return Has(Answerer::kElement) ? this : nullptr; }
  IHTMLFormElement* QueryForm() noexcept final { return Has(Answerer::kForm) ? this : nullptr; }
  IHTMLAnchorElement* QueryAnchor() noexcept final { return Has(Answerer::kAnchor) ? this : nullptr; }
  IHTMLAreaElement* QueryArea() noexcept final { return Has(Answerer::kArea) ? this : nullptr; }
  IHTMLImgElement* QueryImg() noexcept final { return Has(Answerer::kImg) ? this : nullptr; }
  IHTMLScriptElement* QueryScript() noexcept final { return Has(Answerer::kScript) ? this : nullptr; }
  IHTMLBodyElement* QueryBody() noexcept final { return Has(Answerer::kBody) ? this : nullptr; }
  IHTMLCommentElement* QueryComment() noexcept final { return Has(Answerer::kComment) ? this : nullptr; }
  IHTMLLinkElement* QueryLink() noexcept final { return Has(Answerer::kLink) ? this : nullptr; }
  IHTMLMetaElement* QueryMeta() noexcept final { return Has(Answerer::kMeta) ? this : nullptr; }
  IHTMLDOMNode* QueryNode() noexcept final { return Has(Answerer::kNode) ? this : nullptr; }

  AttributeAnswer getAttribute(std::u16string_view name) noexcept final {
    return Attribute(Operation::kGetAttribute, name);
  }
  TextAnswer get_tagName() noexcept final { return Text(Operation::kTagName); }
  TextAnswer get_innerHTML() noexcept final { return Text(Operation::kInnerHtml); }
  TextAnswer get_innerText() noexcept final { return Text(Operation::kInnerText); }
  TextAnswer get_outerHTML() noexcept final { return Text(Operation::kOuterHtml); }
  TextAnswer get_action() noexcept final { return Text(Operation::kAction); }
  NumberAnswer get_width() noexcept final { return Number(Operation::kWidth); }
  NumberAnswer get_height() noexcept final { return Number(Operation::kHeight); }
  TextAnswer get_background() noexcept final { return Text(Operation::kBackground); }
  TextAnswer get_httpEquiv() noexcept final { return Text(Operation::kHttpEquiv); }
  TextAnswer get_content() noexcept final { return Text(Operation::kContent); }
  TextAnswer get_nodeName() noexcept final { return Text(Operation::kNodeName); }
  AttributeAnswer getNamedItem(std::u16string_view name) noexcept final {
    return Attribute(Operation::kAttributes, name);
  }

 protected:
  ~ElementFacets() = default;
  TextAnswer Text(Operation operation) noexcept override = 0;
  virtual NumberAnswer Number(Operation operation) noexcept = 0;
  virtual AttributeAnswer Attribute(Operation operation, std::u16string_view name) noexcept = 0;
  virtual bool Has(Answerer answerer) noexcept = 0;
};

}  // namespace zeph
