// SPDX-License-Identifier: Apache-2.0
#include "documents/RecordedAnswers.h"

#include <algorithm>

#include "DetectionEngine/platform/CharacterClass.h"

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
  std::ranges::stable_sort(answers_, IsBefore);
  const auto isSame = [](const RecordedAnswer& a, const RecordedAnswer& b) { return !IsBefore(a, b); };
  // From the back, so that of equal ones the last stays.
  answers_.erase(answers_.begin(),
                 std::unique(answers_.rbegin(), answers_.rend(), [&](const auto& later, const auto& earlier) {
                   return isSame(earlier, later);
                 }).base());
  answers_.shrink_to_fit();
}

const RecordedAnswer* AnswerSet::Find(Operation operation, std::u16string_view name) const noexcept {
  const auto at = std::ranges::partition_point(answers_, [&](const RecordedAnswer& answer) {
    return answer.operation != operation ? answer.operation < operation : NameIsBefore(answer.name, name);
  });
  const bool found = at != answers_.end() && at->operation == operation && at->name.size() == name.size() &&
                     !std::lexicographical_compare(name.begin(), name.end(), at->name.begin(), at->name.end(),
                                                   [](char16_t a, char16_t b) { return LowerOf(a) < LowerOf(b); });
  return found ? &*at : nullptr;
}

}  // namespace zeph
