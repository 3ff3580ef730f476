// SPDX-License-Identifier: Apache-2.0
// A document that was written down: it gives every answer that the recording holds, as often as it is asked.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/Document.h"
#include "documents/RecordedAnswers.h"

namespace zeph {

/// One thread at a time. Lends its texts and elements as long as it lives.
class RecordedDocument final : public IHTMLDocument2, public IUrlCache {
 public:
  /// Reads a recording, JSON in UTF-8. Null when it is malformed; error then holds one line that says where and what.
  /// Time is linear in the recording; what is kept of it and derived from it is bounded by a budget.
  [[nodiscard]] static std::unique_ptr<RecordedDocument> Parse(std::string_view json, std::string& error);

  /// The budget is what reading the recording has left.
  RecordedDocument(Recording recording, PageBudget budget);
  ~RecordedDocument();
  RecordedDocument(const RecordedDocument&) = delete;
  RecordedDocument& operator=(const RecordedDocument&) = delete;

  CollectionAnswer get_all() noexcept override;
  ObjectAnswer get_body() noexcept override;
  CollectionAnswer get_images() noexcept override;
  CollectionAnswer get_links() noexcept override;
  CollectionAnswer get_forms() noexcept override;
  TextAnswer get_title() noexcept override;
  CollectionAnswer get_scripts() noexcept override;
  TextAnswer get_referrer() noexcept override;
  TextAnswer get_URL() noexcept override;
  IUrlCache* UrlCache() noexcept override { return recording_.cache.empty() ? nullptr : this; }
  std::optional<std::string_view> Retrieve(std::string_view url) noexcept override;

  PageBudget* Budget() noexcept override { return &budget_; }

  /// What was recorded.
  [[nodiscard]] const Recording& Data() const noexcept { return recording_; }

 private:
  class Element;
  class List;
  static constexpr std::size_t kBlock = 64;

  [[nodiscard]] ObjectAnswer ElementOf(const RecordedItem& item) noexcept;
  /// The list of an answer; null when there is none.
  [[nodiscard]] List* FindList(const RecordedAnswer* answer) noexcept;
  [[nodiscard]] CollectionAnswer ListOf(const RecordedAnswer* answer) noexcept;
  /// One list of an operation that gives one for each tag name.
  [[nodiscard]] CollectionAnswer ListOfTag(RecordedAnswers answers, Operation operation,
                                           std::u16string_view tagName) noexcept;

  Recording recording_;
  PageBudget budget_;
  std::vector<std::vector<Element>> blocks_;  ///< kBlock elements each, once one was asked for
  std::vector<List> lists_;
  std::unique_ptr<List> emptyList_;
};

}  // namespace zeph
