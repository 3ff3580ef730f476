// SPDX-License-Identifier: Apache-2.0
#include "tools/zeph/RunTotals.h"

#include <algorithm>
#include <tuple>

#include "judging/Answers.h"

namespace zeph {

void RunTotals::Add(const Judgement& judgement) {
  ++inputs_;
  ++counts_[static_cast<std::size_t>(judgement.verdict)];
  if (const std::string brand = ImitatedBrand(judgement); !brand.empty()) ++brands_[brand];
  if (judgement.verdict == Verdict::kNotJudged && NotJudged() == 1) {
    constexpr std::size_t kMost = 200;  // bytes of an input that one line names
    firstComplaint_ = judgement.input.substr(0, kMost) + (judgement.input.size() > kMost ? "..." : "") + ": " +
                      judgement.reason;
  }
}

std::string RunTotals::Text() const {
  constexpr std::size_t kMostBrands = 5;
  std::string text = std::to_string(inputs_) + " inputs";
  std::string_view separator = ": ";
  for (std::size_t i = 0; i < kVerdicts; ++i) {
    if (counts_[i] == 0) continue;
    text.append(separator).append(std::to_string(counts_[i])).append(" ").append(NameOf(static_cast<Verdict>(i)));
    separator = ", ";
  }
  std::vector<std::pair<std::string, std::size_t>> brands(brands_.begin(), brands_.end());
  std::ranges::stable_sort(brands, std::greater{}, &std::pair<std::string, std::size_t>::second);
  separator = "; brands: ";
  for (const auto& [brand, count] : brands) {
    if (separator == ", " && &brand == &brands[std::min(kMostBrands, brands.size() - 1)].first &&
        brands.size() > kMostBrands) {
      return text.append(", and ").append(std::to_string(brands.size() - kMostBrands)).append(" more");
    }
    text.append(separator).append(brand).append(" ").append(std::to_string(count));
    separator = ", ";
  }
  return text;
}

std::string RunTotals::Complaint() const {
  if (NotJudged() == 0) return "";
  if (NotJudged() == 1) return "not judged: " + firstComplaint_;
  return std::to_string(NotJudged()) + " inputs not judged, the first: " + firstComplaint_;
}

void Groups::Add(const std::string& name, const Judgement& judgement) {
  const auto [entry, isNew] = groups_.try_emplace(name);
  Group& group = entry->second;
  const float score = judgement.spooficity.value_or(0.0F);
  if (isNew || score > group.highest) {
    group.highest = score;
    group.example = judgement.input;
  }
  ++group.inputs;
  group.held += IsHeld(judgement.verdict) ? 1 : 0;
}

std::vector<Group> Groups::Sorted() const {
  std::vector<Group> sorted;
  for (const auto& [name, group] : groups_) {
    sorted.push_back(group);
    sorted.back().name = name;
  }
  std::ranges::stable_sort(sorted, std::greater{}, [](const Group& group) { return std::tuple(group.held, group.inputs); });
  return sorted;
}

}  // namespace zeph
