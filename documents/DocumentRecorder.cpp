// SPDX-License-Identifier: Apache-2.0
#include "documents/DocumentRecorder.h"

#include <cstdint>
#include <string>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"
#include "documents/ElementFacets.h"

namespace zeph {

class DocumentRecorder::List final : public IHTMLElementCollection, public IHTMLDOMChildrenCollection {
 public:
  struct Item {
    Status status = 0;
    Element* element = nullptr;
  };

  /// source is null for a list of nodes, which has no tags.
  List(DocumentRecorder& recorder, IHTMLElementCollection* source, bool isAll)
      : recorder_(recorder), source_(source), isAll_(isAll) {}

  NumberAnswer get_length() noexcept override { return {0, static_cast<std::int32_t>(items_.size())}; }
  ObjectAnswer item(std::int32_t index) noexcept override;
  CollectionAnswer tags(std::u16string_view tagName) noexcept override;

  void Add(Item item) { items_.push_back(item); }

 private:
  DocumentRecorder& recorder_;
  IHTMLElementCollection* source_;
  bool isAll_;
  std::vector<Item> items_;
};

class DocumentRecorder::Element final : public ElementFacets {
 public:
  Element(DocumentRecorder& recorder, DocumentObject& source, std::size_t index)
      : recorder_(recorder), source_(source), index_(index) {}

  [[nodiscard]] std::vector<RecordedAnswer>& Answers() noexcept { return answers_; }
  [[nodiscard]] std::int32_t Index() const noexcept { return static_cast<std::int32_t>(index_); }

  CollectionAnswer tags(std::u16string_view tagName) noexcept override {
    RecordedAnswer answer = NamedAnswer(Operation::kFormTags, tagName);
    List* const list = recorder_.ListFor(source_.QueryForm()->tags(tagName), answer);
    Add(answer);
    return {answer.status, list};
  }

  Answer<IHTMLDOMChildrenCollection*> get_childNodes() noexcept override {
    RecordedAnswer answer;
    answer.operation = Operation::kChildNodes;
    List* const list = recorder_.ListFor(source_.QueryNode()->get_childNodes(), answer);
    Add(answer);
    return {answer.status, list};
  }

  Answer<IHTMLAttributeCollection2*> get_attributes() noexcept override {
    const Answer<IHTMLAttributeCollection2*> source = source_.QueryNode()->get_attributes();
    attributes_ = source.HasValue() ? source.value : nullptr;
    RecordedAnswer answer;
    answer.operation = Operation::kAttributes;
    answer.status = source.status;
    if (attributes_ != nullptr || source.status != 0) Add(answer);
    return {source.status, attributes_ == nullptr ? nullptr : this};
  }

 private:
  TextAnswer Text(Operation operation) noexcept override {
    const TextAnswer source = SourceText(operation);
    RecordedAnswer answer;
    answer.operation = operation;
    answer.status = source.status;
    answer.text = source.value;
    Add(answer);
    return source;
  }

  TextAnswer SourceText(Operation operation) noexcept {
    switch (operation) {
      case Operation::kTagName:
        return source_.QueryElement()->get_tagName();
      case Operation::kInnerHtml:
        return source_.QueryElement()->get_innerHTML();
      case Operation::kInnerText:
        return source_.QueryElement()->get_innerText();
      case Operation::kOuterHtml:
        return source_.QueryElement()->get_outerHTML();
      case Operation::kAction:
        return source_.QueryForm()->get_action();
      case Operation::kAnchorHref:
        return source_.QueryAnchor()->get_href();
      case Operation::kAreaHref:
        return source_.QueryArea()->get_href();
      case Operation::kImgSrc:
        return source_.QueryImg()->get_src();
      case Operation::kScriptSrc:
        return source_.QueryScript()->get_src();
      case Operation::kScriptText:
        return source_.QueryScript()->get_text();
      case Operation::kBackground:
        return source_.QueryBody()->get_background();
      case Operation::kCommentText:
        return source_.QueryComment()->get_text();
      case Operation::kLinkHref:
        return source_.QueryLink()->get_href();
      case Operation::kRel:
        return source_.QueryLink()->get_rel();
      case Operation::kHttpEquiv:
        return source_.QueryMeta()->get_httpEquiv();
      case Operation::kContent:
        return source_.QueryMeta()->get_content();
      case Operation::kNodeName:
        return source_.QueryNode()->get_nodeName();
      default:
        return {};
    }
  }

  NumberAnswer Number(Operation operation) noexcept override {
    IHTMLImgElement* const image = source_.QueryImg();
    const NumberAnswer source = operation == Operation::kWidth ? image->get_width() : image->get_height();
    RecordedAnswer answer;
    answer.operation = operation;
    answer.status = source.status;
    answer.number = source.value;
    Add(answer);
    return source;
  }

  AttributeAnswer Attribute(Operation operation, std::u16string_view name) noexcept override {
    const AttributeAnswer source = operation == Operation::kGetAttribute ? source_.QueryElement()->getAttribute(name)
                                                                         : attributes_->getNamedItem(name);
    using Kind = AttributeValue::Kind;
    RecordedAnswer answer = NamedAnswer(operation, name);
    answer.status = source.status;
    if (source.status >= 0 && source.value.kind == Kind::kString) answer.text = source.value.text;
    if (source.status >= 0 && source.value.kind == Kind::kNumber) answer.number = source.value.number;
    if (source.status != 0 || source.value.kind != Kind::kNone) Add(answer);
    return source;
  }

  bool Has(Answerer answerer) noexcept override {
    const bool has = SourceHas(answerer);
    if (has) Data().Give(answerer);
    return has;
  }

  bool SourceHas(Answerer answerer) noexcept {
    switch (answerer) {
      case Answerer::kElement:
        return source_.QueryElement() != nullptr;
      case Answerer::kForm:
        return source_.QueryForm() != nullptr;
      case Answerer::kAnchor:
        return source_.QueryAnchor() != nullptr;
      case Answerer::kArea:
        return source_.QueryArea() != nullptr;
      case Answerer::kImg:
        return source_.QueryImg() != nullptr;
      case Answerer::kScript:
        return source_.QueryScript() != nullptr;
      case Answerer::kBody:
        return source_.QueryBody() != nullptr;
      case Answerer::kComment:
        return source_.QueryComment() != nullptr;
      case Answerer::kLink:
        return source_.QueryLink() != nullptr;
      case Answerer::kMeta:
        return source_.QueryMeta() != nullptr;
      case Answerer::kNode:
        return source_.QueryNode() != nullptr;
      default:
        return false;
    }
  }

  [[nodiscard]] RecordedElement& Data() noexcept { return recorder_.recording_.elements[index_]; }
  void Add(const RecordedAnswer& answer) { answers_.push_back(answer); }
  [[nodiscard]] RecordedAnswer NamedAnswer(Operation operation, std::u16string_view name) {
    std::u16string lower = ToLower(name);
    RecordedAnswer answer;
    answer.operation = operation;
    answer.name = recorder_.recording_.texts.Keep(lower);
    return answer;
  }

  DocumentRecorder& recorder_;
  DocumentObject& source_;
  std::size_t index_;
  IHTMLAttributeCollection2* attributes_ = nullptr;
  std::vector<RecordedAnswer> answers_;
};

ObjectAnswer DocumentRecorder::List::item(std::int32_t index) noexcept {
  if (index < 0 || index >= std::ssize(items_)) return {};
  const Item& item = items_[static_cast<std::size_t>(index)];
  return {item.status, item.element};
}

CollectionAnswer DocumentRecorder::List::tags(std::u16string_view tagName) noexcept {
  if (source_ == nullptr) return {};
  std::u16string lower = ToLower(tagName);
  RecordedAnswer answer;
  answer.operation = Operation::kAllTags;
  answer.name = recorder_.recording_.texts.Keep(lower);
  List* const list = recorder_.ListFor(source_->tags(tagName), answer);
  // A recording knows the tags of all elements alone.
  if (isAll_) recorder_.recording_.document.push_back(answer);
  return {answer.status, list};
}

DocumentRecorder::DocumentRecorder(IHTMLDocument2& source) : source_(source) {
  get_URL();
  get_referrer();
  get_title();
}

DocumentRecorder::~DocumentRecorder() = default;

DocumentRecorder::Element* DocumentRecorder::ElementFor(DocumentObject* source) {
  if (source == nullptr) return nullptr;
  Element*& element = elementsBySource_[source];
  if (element == nullptr) {
    element = &elements_.emplace_back(*this, *source, recording_.elements.size());
    recording_.elements.emplace_back();
  }
  return element;
}

template <class SourceList>
DocumentRecorder::List* DocumentRecorder::ListFor(const Answer<SourceList*>& source, RecordedAnswer& answer) {
  answer.status = source.status;
  if (!source.HasValue()) return nullptr;
  const NumberAnswer length = source.value->get_length();
  if (length.status < 0) {
    answer.status = length.status;
    return nullptr;
  }
  IHTMLElementCollection* elements = nullptr;
  if constexpr (std::is_same_v<SourceList, IHTMLElementCollection>) elements = source.value;
  List& list = lists_.emplace_back(*this, elements, answer.operation == Operation::kAll);
  std::vector<RecordedItem> items;
  for (std::int32_t i = 0; i < length.value; ++i) {
    const ObjectAnswer item = source.value->item(i);
    Element* const element = item.status < 0 ? nullptr : ElementFor(item.value);
    list.Add({item.status, element});
    items.push_back({item.status, element == nullptr ? RecordedItem::kNone : element->Index()});
  }
  answer.number = static_cast<std::int32_t>(recording_.lists.size());
  recording_.lists.push_back(std::move(items));
  return &list;
}

CollectionAnswer DocumentRecorder::RecordList(Operation operation, const CollectionAnswer& source) {
  RecordedAnswer answer;
  answer.operation = operation;
  List* const list = ListFor(source, answer);
  recording_.document.push_back(answer);
  return {answer.status, list};
}

TextAnswer DocumentRecorder::RecordText(Operation operation, const TextAnswer& source) {
  RecordedAnswer answer;
  answer.operation = operation;
  answer.status = source.status;
  answer.text = source.value;
  recording_.document.push_back(answer);
  return source;
}

CollectionAnswer DocumentRecorder::get_all() noexcept { return RecordList(Operation::kAll, source_.get_all()); }
CollectionAnswer DocumentRecorder::get_images() noexcept {
  return RecordList(Operation::kImages, source_.get_images());
}
CollectionAnswer DocumentRecorder::get_links() noexcept { return RecordList(Operation::kLinks, source_.get_links()); }
CollectionAnswer DocumentRecorder::get_forms() noexcept { return RecordList(Operation::kForms, source_.get_forms()); }
CollectionAnswer DocumentRecorder::get_scripts() noexcept {
  return RecordList(Operation::kScripts, source_.get_scripts());
}

ObjectAnswer DocumentRecorder::get_body() noexcept {
  const ObjectAnswer source = source_.get_body();
  Element* const element = source.HasValue() ? ElementFor(source.value) : nullptr;
  RecordedAnswer answer;
  answer.operation = Operation::kGetBody;
  answer.status = source.status;
  if (element != nullptr) answer.number = element->Index();
  recording_.document.push_back(answer);
  return {source.status, element};
}

TextAnswer DocumentRecorder::get_title() noexcept { return RecordText(Operation::kTitle, source_.get_title()); }
TextAnswer DocumentRecorder::get_referrer() noexcept {
  return RecordText(Operation::kReferrer, source_.get_referrer());
}
TextAnswer DocumentRecorder::get_URL() noexcept { return RecordText(Operation::kUrl, source_.get_URL()); }

std::optional<std::string_view> DocumentRecorder::Retrieve(std::string_view url) noexcept {
  const std::optional<std::string_view> bytes = source_.UrlCache()->Retrieve(url);
  if (bytes) recording_.cache.insert_or_assign(std::string(url), std::string(*bytes));
  return bytes;
}

Recording DocumentRecorder::TakeRecording() {
  SortAnswers(recording_.document);
  for (std::size_t i = 0; i < elements_.size(); ++i) {
    recording_.SetAnswers(recording_.elements[i], elements_[i].Answers());
  }
  return std::move(recording_);
}

}  // namespace zeph
