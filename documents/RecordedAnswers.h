// SPDX-License-Identifier: Apache-2.0
// What a document answered, as plain data: what recordings are read into, and written from.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/text/TextArena.h"

namespace zeph {

/// Who answers.
enum class Answerer : std::uint8_t {
  kDocument,
  kElement,
  kForm,
  kAnchor,
  kArea,
  kImg,
  kScript,
  kBody,
  kComment,
  kLink,
  kMeta,
  kNode,
  kCount,
};

/// Their names in a recording, by Answerer.
inline constexpr std::array<std::string_view, static_cast<std::size_t>(Answerer::kCount)> kAnswererNames = {
    "document",         "IHTMLElement",       "IHTMLFormElement", "IHTMLAnchorElement",  "IHTMLAreaElement",
    "IHTMLImgElement",  "IHTMLScriptElement", "IHTMLBodyElement", "IHTMLCommentElement", "IHTMLLinkElement",
    "IHTMLMetaElement", "IHTMLDOMNode"};

enum class Operation : std::uint8_t {
  kUrl,
  kReferrer,
  kTitle,
  kGetBody,
  kAll,
  kImages,
  kLinks,
  kForms,
  kScripts,
  kAllTags,
  kGetAttribute,
  kTagName,
  kInnerHtml,
  kInnerText,
  kOuterHtml,
  kAction,
  kFormTags,
  kAnchorHref,
  kAreaHref,
  kImgSrc,
  kWidth,
  kHeight,
  kScriptSrc,
  kScriptText,
  kBackground,
  kCommentText,
  kLinkHref,
  kRel,
  kHttpEquiv,
  kContent,
  kNodeName,
  kChildNodes,
  kAttributes,
  kCount,
};

/// What an operation gives.
enum class AnswerShape : std::uint8_t {
  kText,
  kNumber,
  kElement,     ///< one element
  kList,        ///< a collection
  kLists,       ///< a collection for each tag name
  kAttributes,  ///< a value for each name
};

struct OperationRow {
  Operation operation;
  Answerer answerer;
  std::string_view name;  ///< in a recording
  AnswerShape shape;
};

// clang-format off
inline constexpr std::array<OperationRow, static_cast<std::size_t>(Operation::kCount)> kOperations = {{
    {Operation::kUrl,          Answerer::kDocument, "get_URL",        AnswerShape::kText},
    {Operation::kReferrer,     Answerer::kDocument, "get_referrer",   AnswerShape::kText},
    {Operation::kTitle,        Answerer::kDocument, "get_title",      AnswerShape::kText},
    {Operation::kGetBody,      Answerer::kDocument, "get_body",       AnswerShape::kElement},
    {Operation::kAll,          Answerer::kDocument, "get_all",        AnswerShape::kList},
    {Operation::kImages,       Answerer::kDocument, "get_images",     AnswerShape::kList},
    {Operation::kLinks,        Answerer::kDocument, "get_links",      AnswerShape::kList},
    {Operation::kForms,        Answerer::kDocument, "get_forms",      AnswerShape::kList},
    {Operation::kScripts,      Answerer::kDocument, "get_scripts",    AnswerShape::kList},
    {Operation::kAllTags,      Answerer::kDocument, "tags",           AnswerShape::kLists},
    {Operation::kGetAttribute, Answerer::kElement,  "getAttribute",   AnswerShape::kAttributes},
    {Operation::kTagName,      Answerer::kElement,  "get_tagName",    AnswerShape::kText},
    {Operation::kInnerHtml,    Answerer::kElement,  "get_innerHTML",  AnswerShape::kText},
    {Operation::kInnerText,    Answerer::kElement,  "get_innerText",  AnswerShape::kText},
    {Operation::kOuterHtml,    Answerer::kElement,  "get_outerHTML",  AnswerShape::kText},
    {Operation::kAction,       Answerer::kForm,     "get_action",     AnswerShape::kText},
    {Operation::kFormTags,     Answerer::kForm,     "tags",           AnswerShape::kLists},
    {Operation::kAnchorHref,   Answerer::kAnchor,   "get_href",       AnswerShape::kText},
    {Operation::kAreaHref,     Answerer::kArea,     "get_href",       AnswerShape::kText},
    {Operation::kImgSrc,       Answerer::kImg,      "get_src",        AnswerShape::kText},
    {Operation::kWidth,        Answerer::kImg,      "get_width",      AnswerShape::kNumber},
    {Operation::kHeight,       Answerer::kImg,      "get_height",     AnswerShape::kNumber},
    {Operation::kScriptSrc,    Answerer::kScript,   "get_src",        AnswerShape::kText},
    {Operation::kScriptText,   Answerer::kScript,   "get_text",       AnswerShape::kText},
    {Operation::kBackground,   Answerer::kBody,     "get_background", AnswerShape::kText},
    {Operation::kCommentText,  Answerer::kComment,  "get_text",       AnswerShape::kText},
    {Operation::kLinkHref,     Answerer::kLink,     "get_href",       AnswerShape::kText},
    {Operation::kRel,          Answerer::kLink,     "get_rel",        AnswerShape::kText},
    {Operation::kHttpEquiv,    Answerer::kMeta,     "get_httpEquiv",  AnswerShape::kText},
    {Operation::kContent,      Answerer::kMeta,     "get_content",    AnswerShape::kText},
    {Operation::kNodeName,     Answerer::kNode,     "get_nodeName",   AnswerShape::kText},
    {Operation::kChildNodes,   Answerer::kNode,     "get_childNodes", AnswerShape::kList},
    {Operation::kAttributes,   Answerer::kNode,     "get_attributes", AnswerShape::kAttributes},
}};
// clang-format on

constexpr bool OperationRowsAreInOrder() {
  for (std::size_t i = 0; i < kOperations.size(); ++i) {
    if (static_cast<std::size_t>(kOperations[i].operation) != i) return false;
  }
  return true;
}
static_assert(OperationRowsAreInOrder());

/// One answer. For shapes of many, one for each name; a failure or an empty answer as a whole has no name.
struct RecordedAnswer {
  Operation operation = Operation::kUrl;
  Status status = 0;
  std::u16string_view name;  ///< of an attribute or a tag, lower case
  std::optional<std::u16string_view> text;
  std::optional<std::int32_t> number;  ///< the number, the position of an element or of a list
};

/// Answers of one object, by operation, then by name, each once.
using RecordedAnswers = std::span<const RecordedAnswer>;

/// The answer to an operation; null when there is none. name in any case.
[[nodiscard]] const RecordedAnswer* FindAnswer(RecordedAnswers answers, Operation operation,
                                               std::u16string_view name = {}) noexcept;

/// Brings answers into the order of RecordedAnswers. Of equal ones the last stays.
void SortAnswers(std::vector<RecordedAnswer>& answers);

/// An item of a list: an element's position, or none.
struct RecordedItem {
  static constexpr std::int32_t kNone = -1;

  Status status = 0;
  std::int32_t element = kNone;
};

struct RecordedElement {
  std::uint32_t interfaces = 0;  ///< a bit for each Answerer
  std::uint32_t answerCount = 0;
  std::size_t firstAnswer = 0;  ///< in the recording's answers

  [[nodiscard]] bool Has(Answerer answerer) const noexcept {
    return (interfaces >> static_cast<unsigned>(answerer) & 1U) != 0;
  }
  void Give(Answerer answerer) noexcept { interfaces |= 1U << static_cast<unsigned>(answerer); }
};

/// A whole recording. Texts lie in its arena, or with the document that was recorded.
struct Recording {
  std::vector<RecordedAnswer> document;
  std::vector<RecordedElement> elements;
  std::vector<RecordedAnswer> answers;  ///< of all elements, one behind another
  std::vector<std::vector<RecordedItem>> lists;
  std::map<std::string, std::string, std::less<>> cache;  ///< URL to bytes
  TextArena texts;

  [[nodiscard]] RecordedAnswers AnswersOf(const RecordedElement& element) const noexcept {
    return RecordedAnswers(answers).subspan(element.firstAnswer, element.answerCount);
  }
  /// Gives an element its answers, which may come in any order.
  void SetAnswers(RecordedElement& element, std::vector<RecordedAnswer>& unsorted);
};

}  // namespace zeph
