// SPDX-License-Identifier: Apache-2.0
#include "documents/Recording.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/Text.h"
#include "documents/ElementFacets.h"
#include "documents/JsonReader.h"

namespace zeph {

namespace {

Status StatusOf(const RecordedAnswer* answer) noexcept { return answer == nullptr ? 0 : answer->status; }

TextAnswer TextOf(const RecordedAnswer* answer) noexcept {
  return answer == nullptr ? TextAnswer() : TextAnswer{answer->status, answer->text};
}

/// Reads the parts of a recording as the reader comes to them.
class RecordingParser {
 public:
  RecordingParser(std::string_view json, Recording& recording, PageBudget& budget)
      : reader_(json), recording_(recording), budget_(budget) {}

  /// An empty text, or what is wrong.
  std::string Parse() {
    // Whoever made the recording may have put notes beside these; nothing else may stand inside them.
    bool hasVersion = false;
    bool hasDocument = false;
    reader_.BeginObject();
    while (reader_.NextMember(name_)) {
      if (name_ == u"recording") {
        hasVersion = true;
        ReadVersion();
      } else if (name_ == u"document") {
        hasDocument = true;
        recording_.document.clear();
        reader_.BeginObject();
        ReadOperations(Answerer::kDocument, recording_.document);
        SortAnswers(recording_.document);
      } else if (name_ == u"elements") {
        ReadElements();
      } else if (name_ == u"cache") {
        ReadCache();
      } else {
        reader_.Skip();
      }
    }
    reader_.ReadEnd();
    if (!hasVersion) reader_.FailAt("/recording", "is missing");
    if (!hasDocument) reader_.FailAt("/document", "is missing");
    if (highestElement_ >= std::ssize(recording_.elements)) {
      reader_.FailAt(highestPath_, "there is no element " + std::to_string(highestElement_));
    }
    return reader_.Error();
  }

 private:
  /// For what is kept of the recording, with the room to spare of lists that grow.
  void Take(std::size_t bytes) {
    if (!budget_.Take(bytes)) reader_.Fail("too costly: a recording of this size may not keep so much");
  }

  void ReadVersion() {
    JsonReader::Number version;
    if (reader_.ReadNumber(version) && (!version.isWhole || version.value != 1)) {
      reader_.Fail("only recordings of version 1 are known");
    }
  }

  void ReadElements() {
    recording_.elements.clear();
    recording_.answers.clear();
    reader_.BeginArray();
    while (reader_.NextItem()) {
      Take(2 * sizeof(RecordedElement) + sizeof(void*));
      RecordedElement& element = recording_.elements.emplace_back();
      answers_.clear();
      reader_.BeginObject();
      while (reader_.NextMember(name_)) {
        const Answerer answerer = AnswererOf(name_);
        element.Give(answerer);
        reader_.BeginObject();
        ReadOperations(answerer, answers_);
      }
      recording_.SetAnswers(element, answers_);
    }
  }

  Answerer AnswererOf(std::u16string_view name) {
    const auto at = std::ranges::find(kAnswererNames, Narrow(name));
    const auto answerer = static_cast<Answerer>(at - kAnswererNames.begin());
    if (answerer != Answerer::kCount && answerer != Answerer::kDocument) return answerer;
    reader_.Fail("an element has no such interface");
    return Answerer::kElement;
  }

  /// The members of an object that was begun.
  void ReadOperations(Answerer answerer, std::vector<RecordedAnswer>& answers) {
    while (reader_.NextMember(name_)) {
      const std::string name = Narrow(name_);
      const auto row = std::ranges::find_if(
          kOperations, [&](const OperationRow& r) { return r.answerer == answerer && r.name == name; });
      if (row == kOperations.end()) return reader_.Fail("there is no such operation");
      RecordedAnswer answer;
      answer.operation = row->operation;
      switch (row->shape) {
        case AnswerShape::kText:
          ReadTextAnswer(answer);
          break;
        case AnswerShape::kNumber:
          ReadNumberAnswer(answer);
          break;
        case AnswerShape::kElement:
          ReadElementAnswer(answer);
          break;
        case AnswerShape::kList:
          ReadListAnswer(answer);
          break;
        case AnswerShape::kLists:
        case AnswerShape::kAttributes:
          ReadNamed(row->shape, answer, answers);
          continue;
      }
      Take(2 * sizeof(RecordedAnswer));
      answers.push_back(answer);
    }
  }

  /// Reads a null or a failure; false when another value stands here.
  bool ReadNothing(Status& status) {
    switch (reader_.Next()) {
      case JsonReader::Kind::kNull:
        reader_.ReadNull();
        return true;
      case JsonReader::Kind::kObject:
        reader_.BeginObject();
        if (!reader_.NextMember(name_) || name_ != u"status") {
          reader_.Fail("an object that stands for a failure has the member \"status\"");
          return true;
        }
        ReadStatus(status);
        if (reader_.NextMember(name_)) reader_.Fail("a failure has no member but \"status\"");
        return true;
      default:
        return false;
    }
  }

  void ReadStatus(Status& status) {
    JsonReader::Number number;
    if (!reader_.ReadNumber(number)) return;
    if (!number.isWhole || !std::in_range<Status>(number.value)) {
      return reader_.Fail("a status is a whole number of 32 bits");
    }
    status = static_cast<Status>(number.value);
  }

  void ReadTextAnswer(RecordedAnswer& answer) {
    if (!ReadNothing(answer.status) && reader_.ReadText(text_)) answer.text = Keep(text_);
  }

  std::u16string_view Keep(std::u16string& text) {
    Take(2 * text.size());
    return recording_.texts.Keep(text);
  }

  /// Held at the ends of 32 bits.
  void ReadNumberAnswer(RecordedAnswer& answer) {
    JsonReader::Number number;
    if (ReadNothing(answer.status) || !reader_.ReadNumber(number)) return;
    if (!number.isWhole) return reader_.Fail("a whole number is expected");
    using Range = std::numeric_limits<std::int32_t>;
    answer.number = static_cast<std::int32_t>(std::clamp<std::int64_t>(number.value, Range::min(), Range::max()));
  }

  void ReadElementAnswer(RecordedAnswer& answer) {
    const RecordedItem item = ReadItem();
    NoteElement(item.element, [this] { return reader_.Path(); });
    answer.status = item.status;
    if (item.element != RecordedItem::kNone) answer.number = item.element;
  }

  RecordedItem ReadItem() {
    RecordedItem item;
    JsonReader::Number number;
    if (ReadNothing(item.status) || !reader_.ReadNumber(number)) return item;
    if (!number.isWhole || number.value < 0 || !std::in_range<std::int32_t>(number.value)) {
      reader_.Fail("an element is named by its position in \"elements\"");
    } else {
      item.element = static_cast<std::int32_t>(number.value);
    }
    return item;
  }

  void ReadListAnswer(RecordedAnswer& answer) {
    if (ReadNothing(answer.status)) return;
    std::vector<RecordedItem> items;
    std::size_t highest = 0;
    reader_.BeginArray();
    const std::size_t ahead = reader_.ItemsAhead();
    Take(ahead * sizeof(RecordedItem) + kBytesOfList);
    if (reader_.Failed()) return;
    items.reserve(ahead);
    while (reader_.NextItem()) {
      items.push_back(ReadItem());
      if (items.back().element > items[highest].element) highest = items.size() - 1;
    }
    if (reader_.Failed()) return;
    if (!items.empty()) {
      NoteElement(items[highest].element, [&] { return reader_.Path() + "/" + std::to_string(highest); });
    }
    answer.number = static_cast<std::int32_t>(recording_.lists.size());
    recording_.lists.push_back(std::move(items));
  }

  /// Elements may come behind the lists that name them: the highest is looked at in the end.
  template <class MakePath>
  void NoteElement(std::int32_t element, MakePath&& makePath) {
    if (element <= highestElement_) return;
    highestElement_ = element;
    highestPath_ = makePath();
  }

  /// Lists by tag name or values by attribute name, or a failure of the whole operation.
  void ReadNamed(AnswerShape shape, RecordedAnswer whole, std::vector<RecordedAnswer>& answers) {
    if (reader_.Next() == JsonReader::Kind::kNull) {
      reader_.ReadNull();
      return;
    }
    const std::size_t before = answers.size();
    reader_.BeginObject();
    bool isFailure = false;
    while (reader_.NextMember(name_)) {
      // No attribute is called "status", nor is a list a number: alone, it is the failure of the operation.
      if (answers.size() == before && name_ == u"status" && reader_.Next() == JsonReader::Kind::kNumber) {
        ReadStatus(whole.status);
        isFailure = true;
        continue;
      }
      if (isFailure) return reader_.Fail("a failure has no member but \"status\"");
      RecordedAnswer answer;
      answer.operation = whole.operation;
      MakeLower(name_);
      answer.name = Keep(name_);
      if (shape == AnswerShape::kLists) {
        ReadListAnswer(answer);
      } else {
        ReadAttribute(answer);
      }
      Take(2 * sizeof(RecordedAnswer));
      answers.push_back(answer);
    }
    answers.push_back(whole);
  }

  void ReadAttribute(RecordedAnswer& answer) {
    if (reader_.Next() != JsonReader::Kind::kNumber) return ReadTextAnswer(answer);
    JsonReader::Number number;
    if (!reader_.ReadNumber(number)) return;
    if (number.isWhole && std::in_range<std::int16_t>(number.value)) {
      answer.number = static_cast<std::int32_t>(number.value);
    }
  }

  void ReadCache() {
    recording_.cache.clear();
    reader_.BeginObject();
    while (reader_.NextMember(name_)) {
      if (reader_.Next() == JsonReader::Kind::kNull) {
        reader_.ReadNull();
      } else if (reader_.ReadText(text_)) {
        Take(kBytesOfCached + name_.size() + text_.size());
        recording_.cache.insert_or_assign(Narrow(name_), Narrow(text_));
      }
    }
  }

  static constexpr std::size_t kBytesOfList = 160;    ///< a list, and the object that answers for it
  static constexpr std::size_t kBytesOfCached = 128;  ///< an entry of the cache, beside its texts

  JsonReader reader_;
  Recording& recording_;
  PageBudget& budget_;
  std::u16string name_;
  std::u16string text_;
  std::vector<RecordedAnswer> answers_;  ///< of the element that is being read
  std::int32_t highestElement_ = RecordedItem::kNone;
  std::string highestPath_;
};

}  // namespace

class RecordedDocument::List final : public IHTMLElementCollection, public IHTMLDOMChildrenCollection {
 public:
  List(RecordedDocument& document, std::span<const RecordedItem> items) : document_(&document), items_(items) {}

  NumberAnswer get_length() noexcept override { return {0, static_cast<std::int32_t>(items_.size())}; }
  ObjectAnswer item(std::int32_t index) noexcept override {
    if (index < 0 || index >= std::ssize(items_)) return {};
    return document_->ElementOf(items_[static_cast<std::size_t>(index)]);
  }
  CollectionAnswer tags(std::u16string_view tagName) noexcept override {
    // Only the list of all elements is asked for some of them.
    const RecordedAnswers answers = document_->recording_.document;
    if (document_->FindList(FindAnswer(answers, Operation::kAll)) != this) return {0, document_->emptyList_.get()};
    return document_->ListOfTag(answers, Operation::kAllTags, tagName);
  }

 private:
  RecordedDocument* document_;
  std::span<const RecordedItem> items_;
};

class RecordedDocument::Element final : public ElementFacets {
 public:
  Element(RecordedDocument& document, const RecordedElement& data) : document_(&document), data_(&data) {}

  CollectionAnswer tags(std::u16string_view tagName) noexcept override {
    return document_->ListOfTag(Answers(), Operation::kFormTags, tagName);
  }
  Answer<IHTMLDOMChildrenCollection*> get_childNodes() noexcept override {
    const RecordedAnswer* const answer = FindAnswer(Answers(), Operation::kChildNodes);
    return {StatusOf(answer), document_->FindList(answer)};
  }
  Answer<IHTMLAttributeCollection2*> get_attributes() noexcept override {
    const RecordedAnswer* const answer = FindAnswer(Answers(), Operation::kAttributes);
    return {StatusOf(answer), answer != nullptr && answer->status == 0 ? this : nullptr};
  }

 private:
  TextAnswer Text(Operation operation) noexcept override { return TextOf(FindAnswer(Answers(), operation)); }
  NumberAnswer Number(Operation operation) noexcept override {
    const RecordedAnswer* const answer = FindAnswer(Answers(), operation);
    return answer == nullptr ? NumberAnswer() : NumberAnswer{answer->status, answer->number.value_or(0)};
  }
  AttributeAnswer Attribute(Operation operation, std::u16string_view name) noexcept override {
    using Kind = AttributeValue::Kind;
    const RecordedAnswer* answer = FindAnswer(Answers(), operation, name);
    if (answer == nullptr) answer = FindAnswer(Answers(), operation);
    if (answer == nullptr) return {};
    if (answer->text) return {answer->status, {Kind::kString, *answer->text, 0}};
    if (answer->number) return {answer->status, {Kind::kNumber, {}, static_cast<std::int16_t>(*answer->number)}};
    return {answer->status, {}};
  }
  bool Has(Answerer answerer) noexcept override { return data_->Has(answerer); }

  [[nodiscard]] RecordedAnswers Answers() const noexcept { return document_->recording_.AnswersOf(*data_); }

  RecordedDocument* document_;
  const RecordedElement* data_;
};

std::unique_ptr<RecordedDocument> RecordedDocument::Parse(std::string_view json, std::string& error) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (json.starts_with(kByteOrderMark)) json.remove_prefix(kByteOrderMark.size());
  Recording recording;
  PageBudget budget = PageBudget::ForPage(json.size());
  error = RecordingParser(json, recording, budget).Parse();
  if (!error.empty()) return nullptr;
  return std::make_unique<RecordedDocument>(std::move(recording), budget);
}

RecordedDocument::RecordedDocument(Recording recording, PageBudget budget)
    : recording_(std::move(recording)),
      budget_(budget),
      blocks_(recording_.elements.size() / kBlock + 1),
      emptyList_(std::make_unique<List>(*this, std::span<const RecordedItem>())) {
  lists_.reserve(recording_.lists.size());
  for (const std::vector<RecordedItem>& items : recording_.lists) lists_.emplace_back(*this, items);
}

RecordedDocument::~RecordedDocument() = default;

ObjectAnswer RecordedDocument::ElementOf(const RecordedItem& item) noexcept {
  if (item.element == RecordedItem::kNone) return {item.status, nullptr};
  // Elements come into being a block at a time, when one of it is asked for.
  const auto place = static_cast<std::size_t>(item.element);
  std::vector<Element>& block = blocks_[place / kBlock];
  if (block.empty()) {
    const std::size_t first = place - place % kBlock;
    const std::size_t count = std::min(kBlock, recording_.elements.size() - first);
    try {
      if (!budget_.Take(count * sizeof(Element))) return {budget_.Failure(), nullptr};
      block.reserve(count);
    } catch (const std::bad_alloc&) {
      budget_.Fail(kStatusOutOfMemory);
      return {kStatusOutOfMemory, nullptr};
    }
    for (std::size_t i = 0; i < count; ++i) block.emplace_back(*this, recording_.elements[first + i]);
  }
  return {item.status, &block[place % kBlock]};
}

CollectionAnswer RecordedDocument::ListOfTag(RecordedAnswers answers, Operation operation,
                                             std::u16string_view tagName) noexcept {
  const RecordedAnswer* answer = FindAnswer(answers, operation, tagName);
  if (answer == nullptr) {
    answer = FindAnswer(answers, operation);
    if (answer == nullptr || answer->status == 0) return {0, emptyList_.get()};
  }
  return ListOf(answer);
}

CollectionAnswer RecordedDocument::ListOf(const RecordedAnswer* answer) noexcept {
  return {StatusOf(answer), FindList(answer)};
}

RecordedDocument::List* RecordedDocument::FindList(const RecordedAnswer* answer) noexcept {
  return answer != nullptr && answer->number ? &lists_[static_cast<std::size_t>(*answer->number)] : nullptr;
}

CollectionAnswer RecordedDocument::get_all() noexcept {
  return ListOf(FindAnswer(recording_.document, Operation::kAll));
}
CollectionAnswer RecordedDocument::get_images() noexcept {
  return ListOf(FindAnswer(recording_.document, Operation::kImages));
}
CollectionAnswer RecordedDocument::get_links() noexcept {
  return ListOf(FindAnswer(recording_.document, Operation::kLinks));
}
CollectionAnswer RecordedDocument::get_forms() noexcept {
  return ListOf(FindAnswer(recording_.document, Operation::kForms));
}
CollectionAnswer RecordedDocument::get_scripts() noexcept {
  return ListOf(FindAnswer(recording_.document, Operation::kScripts));
}

ObjectAnswer RecordedDocument::get_body() noexcept {
  const RecordedAnswer* const answer = FindAnswer(recording_.document, Operation::kGetBody);
  if (answer == nullptr) return {};
  return ElementOf({answer->status, answer->number.value_or(RecordedItem::kNone)});
}

TextAnswer RecordedDocument::get_title() noexcept { return TextOf(FindAnswer(recording_.document, Operation::kTitle)); }
TextAnswer RecordedDocument::get_referrer() noexcept {
  return TextOf(FindAnswer(recording_.document, Operation::kReferrer));
}
TextAnswer RecordedDocument::get_URL() noexcept { return TextOf(FindAnswer(recording_.document, Operation::kUrl)); }

std::optional<std::string_view> RecordedDocument::Retrieve(std::string_view url) noexcept {
  const auto entry = recording_.cache.find(url);
  return entry == recording_.cache.end() ? std::nullopt : std::optional<std::string_view>(entry->second);
}

}  // namespace zeph
