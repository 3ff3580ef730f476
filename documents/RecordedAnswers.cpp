// SPDX-License-Identifier: Apache-2.0
#include "documents/RecordedAnswers.h"

#include <algorithm>

#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// So many answers are walked sooner than halved.
constexpr std::size_t kFew = 16;

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

void SortAnswers(std::vector<RecordedAnswer>& answers) {
  // Most come in order, each once.
  const auto isOutOfOrder = [](const RecordedAnswer& a, const RecordedAnswer& b) { return !IsBefore(a, b); };
  if (std::ranges::adjacent_find(answers, isOutOfOrder) == answers.end()) return;
  std::ranges::stable_sort(answers, IsBefore);
  // From the back, so that of equal ones the last stays.
  const auto isSame = [](const RecordedAnswer& later, const RecordedAnswer& earlier) {
    return !IsBefore(earlier, later);
  };
  answers.erase(answers.begin(), std::unique(answers.rbegin(), answers.rend(), isSame).base());
}

const RecordedAnswer* FindAnswer(RecordedAnswers answers, Operation operation, std::u16string_view name) noexcept {
  // An element has few operations, but one of them may have many names.
  auto at = answers.begin();
  if (answers.size() <= kFew) {
    while (at != answers.end() && at->operation < operation) ++at;
  } else {
    at = std::ranges::lower_bound(answers, operation, {}, &RecordedAnswer::operation);
  }
  if (at == answers.end() || at->operation != operation) return nullptr;
  if (name.empty()) return at->name.empty() ? &*at : nullptr;
  at = std::partition_point(at, answers.end(), [&](const RecordedAnswer& answer) {
    return answer.operation == operation && NameIsBefore(answer.name, name);
  });
  const bool found = at != answers.end() && at->operation == operation && at->name.size() == name.size() &&
                     StartsWithNoCase(name, at->name);
  return found ? &*at : nullptr;
}

void Recording::SetAnswers(RecordedElement& element, std::vector<RecordedAnswer>& unsorted) {
  SortAnswers(unsorted);
  element.firstAnswer = answers.size();
  element.answerCount = static_cast<std::uint32_t>(unsorted.size());
  answers.insert(answers.end(), unsorted.begin(), unsorted.end());
}

}  // namespace zeph
