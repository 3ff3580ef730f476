// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/training/UrlList.h"

namespace zeph::training {

/// Which rows are held out of the training: a share of the groups, at most half ("group:0.1"), what is as late as a date or later
/// ("date:2025-10"), one source ("source:NAME"), or none ("none"). Rows of one group stay together in the first case;
/// in the others a group that has held out rows has them alone.
class Split {
 public:
  /// Throws TrainingError for a text that is none of these.
  explicit Split(std::string_view text);

  [[nodiscard]] bool IsHeldOut(const UrlRow& row) const;
  /// Parts the rows, each part in their order. A row that is learned from never shares its group with one held out.
  void Part(std::vector<UrlRow> rows, std::vector<UrlRow>& learned, std::vector<UrlRow>& heldOut) const;

 private:
  enum class By { kNothing, kGroup, kDate, kSource } by_ = By::kNothing;
  std::uint64_t nth_ = 1;  ///< group, by its hash, is held out
  std::string value_;
};

}  // namespace zeph::training
