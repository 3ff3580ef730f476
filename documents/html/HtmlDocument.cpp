// SPDX-License-Identifier: Apache-2.0
#include "documents/html/HtmlDocument.h"

#include <deque>
#include <new>
#include <optional>

#include "documents/html/Decoder.h"
#include "documents/html/TreeBuilder.h"

namespace zeph {

using html::GrowArray;
using html::NodeId;
using html::NodeKind;
using html::PageView;

namespace {

/// Runs what gives an answer; want of memory is a failed operation, and one that the page's budget remembers.
template <class AnswerType, class Work>
AnswerType Answering(PageView& view, Work&& work) noexcept {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    view.Budget().Fail(kStatusOutOfMemory);
    AnswerType failed;
    failed.status = view.Budget().Failure();
    return failed;
  }
}

/// For so many bytes that are made for the page.
void TakeFrom(PageView& view, std::size_t bytes) {
  if (!view.Budget().Take(bytes)) throw std::bad_alloc();
}

/// What a table or a list has beside an item, at the most.
constexpr std::size_t kBytesOfPlace = 64;

TextAnswer Text(std::optional<std::u16string_view> text) noexcept { return {0, text}; }

AttributeAnswer AttributeText(const std::optional<std::u16string_view>& text) noexcept {
  AttributeAnswer answer;
  if (text) {
    answer.value.kind = AttributeValue::Kind::kString;
    answer.value.text = *text;
  }
  return answer;
}

}  // namespace

/// An interface of one element.
template <class Interface>
class HtmlDocument::Facet : public Interface {
 public:
  Facet(HtmlDocument& document, NodeId id) noexcept : document_(document), id_(id) {}

 protected:
  [[nodiscard]] PageView& View() const noexcept { return document_.view_; }
  TextAnswer AttributeOf(html::NameId name) const noexcept {
    return Answering<TextAnswer>(View(), [&] { return Text(View().AttributeValue(id_, name)); });
  }
  /// An address: an empty text where the element has none.
  TextAnswer AddressOf(html::NameId name) const noexcept {
    return Answering<TextAnswer>(
        View(), [&] { return Text(View().AttributeValue(id_, name).value_or(std::u16string_view())); });
  }

  HtmlDocument& document_;
  NodeId id_;
};

class HtmlDocument::Form final : public Facet<IHTMLFormElement> {
 public:
  using Facet::Facet;
  TextAnswer get_action() noexcept override { return AddressOf(html::name::kAction); }
  CollectionAnswer tags(std::u16string_view tagName) noexcept override;
};
class HtmlDocument::Anchor final : public Facet<IHTMLAnchorElement> {
 public:
  using Facet::Facet;
  TextAnswer get_href() noexcept override { return AddressOf(html::name::kHref); }
};
class HtmlDocument::Area final : public Facet<IHTMLAreaElement> {
 public:
  using Facet::Facet;
  TextAnswer get_href() noexcept override { return AddressOf(html::name::kHref); }
};
class HtmlDocument::Img final : public Facet<IHTMLImgElement> {
 public:
  using Facet::Facet;
  TextAnswer get_src() noexcept override { return AddressOf(html::name::kSrc); }
  NumberAnswer get_width() noexcept override {
    return Answering<NumberAnswer>(View(), [&] { return NumberAnswer{0, View().ImageWidth(id_)}; });
  }
  NumberAnswer get_height() noexcept override {
    return Answering<NumberAnswer>(View(), [&] { return NumberAnswer{0, View().ImageHeight(id_)}; });
  }
};
class HtmlDocument::Script final : public Facet<IHTMLScriptElement> {
 public:
  using Facet::Facet;
  TextAnswer get_src() noexcept override { return AddressOf(html::name::kSrc); }
  TextAnswer get_text() noexcept override {
    return Answering<TextAnswer>(View(), [&] { return Text(View().TextContent(id_)); });
  }
};
class HtmlDocument::Body final : public Facet<IHTMLBodyElement> {
 public:
  using Facet::Facet;
  TextAnswer get_background() noexcept override { return AttributeOf(html::name::kBackground); }
};
class HtmlDocument::Comment final : public Facet<IHTMLCommentElement> {
 public:
  using Facet::Facet;
  TextAnswer get_text() noexcept override { return Text(View().TextContent(id_)); }
};
class HtmlDocument::Link final : public Facet<IHTMLLinkElement> {
 public:
  using Facet::Facet;
  TextAnswer get_href() noexcept override { return AttributeOf(html::name::kHref); }
  TextAnswer get_rel() noexcept override { return AttributeOf(html::name::kRel); }
};
class HtmlDocument::Meta final : public Facet<IHTMLMetaElement> {
 public:
  using Facet::Facet;
  TextAnswer get_httpEquiv() noexcept override { return AttributeOf(html::name::kHttpEquiv); }
  TextAnswer get_content() noexcept override { return AttributeOf(html::name::kContent); }
};

/// An element or a comment. There is one for each that was asked for; its further interfaces are made when asked for.
class HtmlDocument::Element final : public DocumentObject, public IHTMLElement {
 public:
  Element(HtmlDocument& document, NodeId id) noexcept : document_(document), id_(id) {}

  IHTMLElement* QueryElement() noexcept override { return this; }
  IHTMLFormElement* QueryForm() noexcept override;
  IHTMLAnchorElement* QueryAnchor() noexcept override;
  IHTMLAreaElement* QueryArea() noexcept override;
  IHTMLImgElement* QueryImg() noexcept override;
  IHTMLScriptElement* QueryScript() noexcept override;
  IHTMLBodyElement* QueryBody() noexcept override;
  IHTMLCommentElement* QueryComment() noexcept override;
  IHTMLLinkElement* QueryLink() noexcept override;
  IHTMLMetaElement* QueryMeta() noexcept override;
  IHTMLDOMNode* QueryNode() noexcept override;

  AttributeAnswer getAttribute(std::u16string_view name) noexcept override {
    return Answering<AttributeAnswer>(View(), [&] {
      std::optional<std::u16string_view> value = View().AttributeValue(id_, name);
      // A field without a type is a text field, and says so.
      const bool typeless = !value || value->empty();
      if (typeless && View().Nodes().IsHtml(id_, html::name::kInput) && name.size() == 4 && (name[0] | 32) == u't' &&
          (name[1] | 32) == u'y' && (name[2] | 32) == u'p' && (name[3] | 32) == u'e') {
        value = u"text";
      }
      return AttributeText(value);
    });
  }
  TextAnswer get_tagName() noexcept override {
    return Answering<TextAnswer>(View(), [&] { return Text(View().TagName(id_)); });
  }
  TextAnswer get_innerHTML() noexcept override {
    return Answering<TextAnswer>(View(), [&] { return Text(View().InnerMarkup(id_)); });
  }
  TextAnswer get_innerText() noexcept override {
    return Answering<TextAnswer>(View(), [&] { return Text(View().InnerText(id_)); });
  }
  TextAnswer get_outerHTML() noexcept override {
    return Answering<TextAnswer>(View(), [&] { return Text(View().OuterMarkup(id_)); });
  }

 private:
  [[nodiscard]] PageView& View() const noexcept { return document_.view_; }
  /// The element's own interface, beside those that all have: an element has at most one.
  template <class Facets>
  auto* Made(Facets& facets, bool has) noexcept;

  HtmlDocument& document_;
  NodeId id_;
  std::uint32_t facet_ = 0;  ///< 1 + its place among those of its kind; 0: not made
};

/// A text of the tree, which is a node and nothing else.
class HtmlDocument::TextNode final : public DocumentObject {
 public:
  explicit TextNode(IHTMLDOMNode* node) noexcept : node_(node) {}
  IHTMLDOMNode* QueryNode() noexcept override { return node_; }

 private:
  IHTMLDOMNode* node_;
};

/// A list of elements, and the lists of single tag names that were made of it.
class HtmlDocument::List final : public IHTMLElementCollection {
 public:
  /// The items live in the view.
  List(HtmlDocument& document, const GrowArray<NodeId>& items) noexcept : document_(document), items_(&items) {}
  List(HtmlDocument& document, GrowArray<NodeId>&& items) noexcept
      : document_(document), own_(std::move(items)), items_(&own_) {}
  List(const List&) = delete;
  List& operator=(const List&) = delete;

  NumberAnswer get_length() noexcept override { return {0, static_cast<std::int32_t>(items_->size())}; }
  ObjectAnswer item(std::int32_t index) noexcept override;
  CollectionAnswer tags(std::u16string_view tagName) noexcept override;

 private:
  HtmlDocument& document_;
  GrowArray<NodeId> own_;
  const GrowArray<NodeId>* items_;
  std::map<std::u16string, std::unique_ptr<List>> tags_;
};

/// A node with its children and attributes.
class HtmlDocument::DomNode final : public IHTMLDOMNode,
                                    public IHTMLDOMChildrenCollection,
                                    public IHTMLAttributeCollection2 {
 public:
  DomNode(HtmlDocument& document, NodeId id) noexcept : document_(document), id_(id), text_(this) {}

  TextAnswer get_nodeName() noexcept override {
    return Answering<TextAnswer>(document_.view_, [&] {
      const NodeKind kind = document_.view_.Nodes().nodes[id_].kind;
      if (kind == NodeKind::kText) return Text(u"#text");
      return Text(kind == NodeKind::kComment ? u"#comment" : document_.view_.TagName(id_));
    });
  }
  Answer<IHTMLDOMChildrenCollection*> get_childNodes() noexcept override {
    return Answering<Answer<IHTMLDOMChildrenCollection*>>(document_.view_, [&] {
      if (!children_) children_ = document_.view_.Children(id_);
      return Answer<IHTMLDOMChildrenCollection*>{0, this};
    });
  }
  Answer<IHTMLAttributeCollection2*> get_attributes() noexcept override { return {0, this}; }

  NumberAnswer get_length() noexcept override {
    return {0, children_ ? static_cast<std::int32_t>(children_->size()) : 0};
  }
  ObjectAnswer item(std::int32_t index) noexcept override;
  AttributeAnswer getNamedItem(std::u16string_view name) noexcept override {
    return Answering<AttributeAnswer>(document_.view_,
                                      [&] { return AttributeText(document_.view_.AttributeValue(id_, name)); });
  }

  DocumentObject* AsText() noexcept { return &text_; }

 private:
  HtmlDocument& document_;
  NodeId id_;
  TextNode text_;
  std::optional<GrowArray<NodeId>> children_;
};

struct HtmlDocument::Objects {
  explicit Objects(HtmlDocument& owner)
      : document(owner),
        all(owner, owner.view_.All()),
        images(owner, owner.view_.Images()),
        links(owner, owner.view_.Links()),
        forms(owner, owner.view_.Forms()),
        scripts(owner, owner.view_.Scripts()) {}

  Element* ElementOf(NodeId id) {
    // Elements come into being a block at a time, in the order of the list of all.
    const std::size_t place = document.view_.Nodes().nodes[id].previous - 1;
    if (blocks.empty()) blocks.resize(document.view_.All().size() / kBlock + 1);
    std::vector<Element>& block = blocks[place / kBlock];
    if (block.empty()) {
      const std::size_t first = place - place % kBlock;
      const std::size_t last = std::min(first + kBlock, document.view_.All().size());
      TakeFrom(document.view_, (last - first) * sizeof(Element));
      block.reserve(last - first);
      for (std::size_t i = first; i < last; ++i) block.emplace_back(document, document.view_.All()[i]);
    }
    return &block[place % kBlock];
  }

  DomNode& DomNodeOf(NodeId id) {
    const auto [found, isNew] = domNodes.try_emplace(id, document, id);
    if (isNew) TakeFrom(document.view_, sizeof(DomNode) + kBytesOfPlace);
    return found->second;
  }

  static constexpr std::size_t kBlock = 64;

  HtmlDocument& document;
  List all;
  List images;
  List links;
  List forms;
  List scripts;
  List none{document, GrowArray<NodeId>()};
  std::vector<std::vector<Element>> blocks;
  std::deque<Form> formFacets;
  std::deque<Anchor> anchorFacets;
  std::deque<Area> areaFacets;
  std::deque<Img> imgFacets;
  std::deque<Script> scriptFacets;
  std::deque<Body> bodyFacets;
  std::deque<Comment> commentFacets;
  std::deque<Link> linkFacets;
  std::deque<Meta> metaFacets;
  std::unordered_map<NodeId, DomNode> domNodes;
  std::map<std::pair<NodeId, std::u16string>, std::unique_ptr<List>> formLists;
};

ObjectAnswer HtmlDocument::List::item(std::int32_t index) noexcept {
  if (index < 0 || static_cast<std::size_t>(index) >= items_->size()) return {};
  return Answering<ObjectAnswer>(document_.view_, [&] {
    return ObjectAnswer{0, document_.objects_->ElementOf((*items_)[static_cast<std::size_t>(index)])};
  });
}

CollectionAnswer HtmlDocument::List::tags(std::u16string_view tagName) noexcept {
  return Answering<CollectionAnswer>(document_.view_, [&] {
    std::unique_ptr<List>& list = tags_[std::u16string(tagName)];
    if (list == nullptr) {
      TakeFrom(document_.view_, sizeof(List) + 2 * kBytesOfPlace);
      GrowArray<NodeId> items;
      items.TakeFrom(document_.view_.Budget());
      for (const NodeId id : *items_) {
        if (document_.view_.HasTagName(id, tagName)) items.Push(id);
      }
      list = std::make_unique<List>(document_, std::move(items));
    }
    return CollectionAnswer{0, list.get()};
  });
}

CollectionAnswer HtmlDocument::Form::tags(std::u16string_view tagName) noexcept {
  return Answering<CollectionAnswer>(document_.view_, [&] {
    GrowArray<NodeId> items = View().FormElements(id_, tagName);
    if (items.empty()) return CollectionAnswer{0, &document_.objects_->none};
    const auto [list, isNew] = document_.objects_->formLists.try_emplace({id_, std::u16string(tagName)});
    if (isNew) {
      TakeFrom(View(), sizeof(List) + 2 * kBytesOfPlace + items.size() * sizeof(NodeId));
      items.ShrinkToFit();
      list->second = std::make_unique<List>(document_, std::move(items));
    }
    return CollectionAnswer{0, list->second.get()};
  });
}

ObjectAnswer HtmlDocument::DomNode::item(std::int32_t index) noexcept {
  if (!children_ || index < 0 || static_cast<std::size_t>(index) >= children_->size()) return {};
  return Answering<ObjectAnswer>(document_.view_, [&] {
    const NodeId child = (*children_)[static_cast<std::size_t>(index)];
    if (document_.view_.Nodes().nodes[child].kind != NodeKind::kText) {
      return ObjectAnswer{0, document_.objects_->ElementOf(child)};
    }
    return ObjectAnswer{0, document_.objects_->DomNodeOf(child).AsText()};
  });
}

template <class Facets>
auto* HtmlDocument::Element::Made(Facets& facets, bool has) noexcept {
  using Facet = typename Facets::value_type;
  if (!has) return static_cast<Facet*>(nullptr);
  try {
    if (facet_ == 0) {
      TakeFrom(View(), sizeof(Facet));
      facets.emplace_back(document_, id_);
      facet_ = static_cast<std::uint32_t>(facets.size());
    }
    return &facets[facet_ - 1];
  } catch (const std::bad_alloc&) {
    View().Budget().Fail(kStatusOutOfMemory);
    return static_cast<Facet*>(nullptr);
  }
}

IHTMLFormElement* HtmlDocument::Element::QueryForm() noexcept {
  return Made(document_.objects_->formFacets, View().Nodes().IsHtml(id_, html::name::kForm));
}
IHTMLAnchorElement* HtmlDocument::Element::QueryAnchor() noexcept {
  return Made(document_.objects_->anchorFacets, View().Nodes().IsHtml(id_, html::name::kA));
}
IHTMLAreaElement* HtmlDocument::Element::QueryArea() noexcept {
  return Made(document_.objects_->areaFacets, View().Nodes().IsHtml(id_, html::name::kArea));
}
IHTMLImgElement* HtmlDocument::Element::QueryImg() noexcept {
  return Made(document_.objects_->imgFacets, View().Nodes().IsHtml(id_, html::name::kImg));
}
IHTMLScriptElement* HtmlDocument::Element::QueryScript() noexcept {
  const html::Node& node = View().Nodes().nodes[id_];
  return Made(document_.objects_->scriptFacets, node.kind == NodeKind::kElement && node.name == html::name::kScript &&
                                                    node.space != html::Space::kMathMl);
}
IHTMLBodyElement* HtmlDocument::Element::QueryBody() noexcept {
  return Made(document_.objects_->bodyFacets, View().Nodes().IsHtml(id_, html::name::kBody));
}
IHTMLCommentElement* HtmlDocument::Element::QueryComment() noexcept {
  return Made(document_.objects_->commentFacets, View().Nodes().nodes[id_].kind == NodeKind::kComment);
}
IHTMLLinkElement* HtmlDocument::Element::QueryLink() noexcept {
  return Made(document_.objects_->linkFacets, View().Nodes().IsHtml(id_, html::name::kLink));
}
IHTMLMetaElement* HtmlDocument::Element::QueryMeta() noexcept {
  return Made(document_.objects_->metaFacets, View().Nodes().IsHtml(id_, html::name::kMeta));
}
IHTMLDOMNode* HtmlDocument::Element::QueryNode() noexcept {
  try {
    return &document_.objects_->DomNodeOf(id_);
  } catch (const std::bad_alloc&) {
    View().Budget().Fail(kStatusOutOfMemory);
    return nullptr;
  }
}

HtmlDocument::HtmlDocument(std::string_view bytes, HtmlDocumentOptions options)
    : options_(std::move(options)),
      view_(html::ParseTree(html::DecodeMarkup(bytes, options_.charset).text), options_.url, options_.resources,
            PageBudget::ForPage(bytes.size())),
      objects_(std::make_unique<Objects>(*this)) {}

HtmlDocument::~HtmlDocument() = default;

CollectionAnswer HtmlDocument::get_all() noexcept { return {0, &objects_->all}; }
CollectionAnswer HtmlDocument::get_images() noexcept { return {0, &objects_->images}; }
CollectionAnswer HtmlDocument::get_links() noexcept { return {0, &objects_->links}; }
CollectionAnswer HtmlDocument::get_forms() noexcept { return {0, &objects_->forms}; }
CollectionAnswer HtmlDocument::get_scripts() noexcept { return {0, &objects_->scripts}; }

ObjectAnswer HtmlDocument::get_body() noexcept {
  if (view_.Body() == 0) return {};
  return Answering<ObjectAnswer>(view_, [&] { return ObjectAnswer{0, objects_->ElementOf(view_.Body())}; });
}

TextAnswer HtmlDocument::get_title() noexcept {
  return Answering<TextAnswer>(view_, [&] { return Text(view_.Title()); });
}

std::optional<std::string_view> HtmlDocument::Retrieve(std::string_view url) noexcept {
  if (options_.resources == nullptr) return std::nullopt;
  try {
    return options_.resources->Find(url);
  } catch (const std::bad_alloc&) {
    view_.Budget().Fail(kStatusOutOfMemory);
    return std::nullopt;
  }
}

std::u16string HtmlDocument::CanonicalUrl() {
  std::u16string_view base;
  for (const NodeId id : view_.All()) {
    if (view_.Nodes().IsHtml(id, html::name::kLink)) {
      const std::u16string_view rel = view_.Nodes().AttributeText(id, html::name::kRel);
      const std::u16string_view href = view_.Nodes().AttributeText(id, html::name::kHref);
      constexpr std::u16string_view kCanonical = u"canonical";
      const bool canonical = std::ranges::equal(
          rel, kCanonical, {}, [](char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; });
      if (canonical && !href.empty()) return std::u16string(href);
    } else if (base.empty() && view_.Nodes().IsHtml(id, html::name::kBase)) {
      base = view_.Nodes().AttributeText(id, html::name::kHref);
    }
  }
  return std::u16string(base);
}

}  // namespace zeph
