// SPDX-License-Identifier: Apache-2.0
// The rules that all collectors share when they ask a document. A failure or a null ends what is done with one element,
// never the walk; a collector returns the status of the last operation that it made.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "DetectionEngine/Document.h"

namespace zeph {

/// How many bytes of texts one collector keeps of a document without a budget. No page comes near it.
inline constexpr std::size_t kKeptTextLimit = std::size_t{1} << 27;

/// What stops a collector whose page costs too much.
struct TooCostly : std::bad_alloc {
  [[nodiscard]] const char* what() const noexcept override { return "the page costs too much"; }
};

/// What a collector keeps is taken from its page's budget: elements nested in one another, and lists that name one
/// element over and over, would multiply what the page holds.
class KeptTexts {
 public:
  explicit KeptTexts(IHTMLDocument2& document) noexcept : budget_(document.Budget()) {}

  /// For a text that grows in a buffer, which has room to spare.
  void TakeText(std::size_t length) { Take(6 * length); }
  /// For a text that the document lends and a list names: it is looked at, however often it is named.
  void TakeView(std::u16string_view text) { Take(kViewBytes + text.size()); }
  /// For so many bytes. Throws TooCostly.
  void Take(std::size_t bytes) {
    if (!(budget_ != nullptr ? *budget_ : own_).Take(bytes)) throw TooCostly();
  }

 private:
  /// A view, in a list that has room to spare.
  static constexpr std::size_t kViewBytes = 24;

  PageBudget own_{kKeptTextLimit};
  PageBudget* budget_;
};

/// Asks operations and remembers the status of the last one. A failure reads as none.
class DocumentReader {
 public:
  [[nodiscard]] Status LastStatus() const noexcept { return status_; }
  /// The last operation failed.
  [[nodiscard]] bool Failed() const noexcept { return status_ < 0; }

  template <class T>
  [[nodiscard]] T* Take(const Answer<T*>& answer) noexcept {
    return Note(answer.status) ? answer.value : nullptr;
  }
  [[nodiscard]] std::optional<std::u16string_view> Take(const TextAnswer& answer) noexcept {
    return Note(answer.status) ? answer.value : std::nullopt;
  }
  [[nodiscard]] std::int32_t Take(const NumberAnswer& answer) noexcept {
    return Note(answer.status) ? answer.value : 0;
  }
  /// Only a string counts.
  [[nodiscard]] std::optional<std::u16string_view> Take(const AttributeAnswer& answer) noexcept {
    if (!Note(answer.status) || answer.value.kind != AttributeValue::Kind::kString) return std::nullopt;
    return answer.value.text;
  }

  /// The list's length; 0 without a list, which costs no operation.
  template <class List>
  [[nodiscard]] std::int32_t Length(List* list) noexcept {
    return list == nullptr ? 0 : std::max(Take(list->get_length()), 0);
  }

  /// Visits the elements of a list in order, passing over those that don't come. A visit that gives false ends the
  /// walk.
  template <class List, class Visit>
  void Walk(List* list, std::int32_t length, Visit&& visit) {
    for (std::int32_t i = 0; i < length; ++i) {
      DocumentObject* const object = Take(list->item(i));
      if (object == nullptr) continue;
      if constexpr (std::is_same_v<decltype(visit(*object)), bool>) {
        if (!visit(*object)) return;
      } else {
        visit(*object);
      }
    }
  }
  template <class List, class Visit>
  void Walk(List* list, Visit&& visit) {
    Walk(list, Length(list), std::forward<Visit>(visit));
  }

 private:
  bool Note(Status status) noexcept {
    status_ = status;
    return status >= 0;
  }

  Status status_ = 0;
};

}  // namespace zeph
