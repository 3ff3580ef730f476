// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <unordered_map>

#include "DetectionEngine/Document.h"
#include "documents/RecordedAnswers.h"

namespace zeph {

/// Stands between a reader and a document, passes every question on and keeps the answers. What was asked is recorded
/// and nothing else: hand it to the engine, or to all collectors, in the place of the document, and the recording gives
/// them the same answers again. One thread at a time. The document must stay until the recording was written.
class DocumentRecorder final : public IHTMLDocument2, public IUrlCache {
 public:
  /// Asks at once for what every recording has: URL, referrer and title.
  explicit DocumentRecorder(IHTMLDocument2& source);
  ~DocumentRecorder();
  DocumentRecorder(const DocumentRecorder&) = delete;
  DocumentRecorder& operator=(const DocumentRecorder&) = delete;

  CollectionAnswer get_all() noexcept override;
  ObjectAnswer get_body() noexcept override;
  CollectionAnswer get_images() noexcept override;
  CollectionAnswer get_links() noexcept override;
  CollectionAnswer get_forms() noexcept override;
  TextAnswer get_title() noexcept override;
  CollectionAnswer get_scripts() noexcept override;
  TextAnswer get_referrer() noexcept override;
  TextAnswer get_URL() noexcept override;
  IUrlCache* UrlCache() noexcept override { return source_.UrlCache() == nullptr ? nullptr : this; }
  std::optional<std::string_view> Retrieve(std::string_view url) noexcept override;
  PageBudget* Budget() noexcept override { return source_.Budget(); }

  /// All answers up to now. The texts lie with the document. This object is then of no further use.
  [[nodiscard]] Recording TakeRecording();

 private:
  class Element;
  class List;

  /// The element that stands for one of the document; null for null.
  [[nodiscard]] Element* ElementFor(DocumentObject* source);
  /// The list that stands for one of the document, as what is recorded. A list whose length fails is recorded, and
  /// given, as one that can't be had.
  template <class SourceList>
  [[nodiscard]] List* ListFor(const Answer<SourceList*>& source, RecordedAnswer& answer);
  CollectionAnswer RecordList(Operation operation, const CollectionAnswer& source);
  TextAnswer RecordText(Operation operation, const TextAnswer& source);

  IHTMLDocument2& source_;
  Recording recording_;
  std::deque<Element> elements_;
  std::deque<List> lists_;
  std::unordered_map<DocumentObject*, Element*> elementsBySource_;
};

}  // namespace zeph
