// SPDX-License-Identifier: Apache-2.0
// What many judgements come to: counts, brands, groups.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "judging/Judgement.h"

namespace zeph {

/// Counts of one run.
class RunTotals {
 public:
  void Add(const Judgement& judgement);
  [[nodiscard]] std::size_t Inputs() const noexcept { return inputs_; }
  [[nodiscard]] std::size_t NotJudged() const noexcept { return Count(Verdict::kNotJudged); }
  /// "12 inputs: 8 spoofing, 3 unclassified, 1 not judged; brands: PayPal 6, eBay 2".
  [[nodiscard]] std::string Text() const;
  /// "not judged: INPUT: REASON" of the only or the first one, and how many there are. Empty when all were judged.
  [[nodiscard]] std::string Complaint() const;

 private:
  static constexpr std::size_t kVerdicts = 6;
  [[nodiscard]] std::size_t Count(Verdict verdict) const noexcept { return counts_[static_cast<std::size_t>(verdict)]; }

  std::size_t inputs_ = 0;
  std::array<std::size_t, kVerdicts> counts_{};
  std::map<std::string, std::size_t> brands_;
  std::string firstComplaint_;
};

/// Judgements that belong together.
struct Group {
  std::string name;
  std::size_t inputs = 0;
  std::size_t held = 0;
  float highest = 0.0F;  ///< spooficity
  std::string example;   ///< the input that has it
};

/// Groups by name. Memory grows with the number of names alone.
class Groups {
 public:
  void Add(const std::string& name, const Judgement& judgement);
  /// Those with most held inputs first, then the larger ones.
  [[nodiscard]] std::vector<Group> Sorted() const;

 private:
  std::map<std::string, Group, std::less<>> groups_;
};

}  // namespace zeph
