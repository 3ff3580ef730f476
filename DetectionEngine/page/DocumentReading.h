// SPDX-License-Identifier: Apache-2.0
// The rules that all collectors share when they ask a document. A failure or a null ends what is done with one element,
// never the walk; a collector returns the status of the last operation that it made.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "DetectionEngine/Document.h"

namespace zeph {

/// How many characters of texts that stand in lists one collector keeps, all together. No page comes near it; it keeps
/// elements nested in one another, and lists that name one element over and over, from multiplying what they hold.
inline constexpr std::size_t kKeptTextLimit = std::size_t{1} << 26;

/// Counts down from kKeptTextLimit.
class TextBudget {
 public:
  /// True when a text of this length may still be kept; it then counts. A text that doesn't fit is taken for none.
  [[nodiscard]] bool Take(std::size_t length) noexcept {
    if (length > left_) return false;
    left_ -= length;
    return true;
  }

 private:
  std::size_t left_ = kKeptTextLimit;
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
