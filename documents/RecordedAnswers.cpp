// SPDX-License-Identifier: Apache-2.0
#include "documents/RecordedAnswers.h"

#include <algorithm>

#include "DetectionEngine/platform/CharacterClass.h"
#include "DetectionEngine/url/Text.h"

namespace zeph {

namespace {

/// The order of answers; names are in lower case.
bool IsBefore(const RecordedAnswer& a, const RecordedAnswer& b) noexcept {
  return a.operation != b.operation ? a.operation < b.operation : a.name < b.name;
}

/// Whether a name in lower case stands before one in any case.
bool NameIsBefore(std::u16string_view lower, std::u16string_view name) noexcept {
  return std::lexicographical_compare(lower.begin(), lower.end(), name.begin(), name.end(),
                                      [](char16_t a, char16_t b) { return LowerOf(a) < LowerOf(b); });
}

}  // namespace

void AnswerSet::Add(const RecordedAnswer& answer) { answers_.push_back(answer); }

void AnswerSet::Sort() {
  // Most come in order, each once.
  const auto isInOrder = [](const RecordedAnswer& a, const RecordedAnswer& b) { return !IsBefore(a, b); };
  if (std::ranges::adjacent_find(answers_, isInOrder) == answers_.end()) return;
  std::ranges::stable_sort(answers_, IsBefore);
  // From the back, so that of equal ones the last stays.
  const auto isSame = [](const RecordedAnswer& later, const RecordedAnswer& earlier) {
    return !IsBefore(earlier, later);
  };
  answers_.erase(answers_.begin(), std::unique(answers_.rbegin(), answers_.rend(), isSame).base());
}

const RecordedAnswer* AnswerSet::Find(Operation operation, std::u16string_view name) const noexcept {
  auto at = std::ranges::lower_bound(answers_, operation, {}, &RecordedAnswer::operation);
  if (!name.empty()) {
    at = std::partition_point(at, answers_.end(), [&](const RecordedAnswer& answer) {
      return answer.operation == operation && NameIsBefore(answer.name, name);
    });
  }
  const bool found = at != answers_.end() && at->operation == operation && at->name.size() == name.size() &&
                     StartsWithNoCase(name, at->name);
  return found ? &*at : nullptr;
}

}  // namespace zeph
