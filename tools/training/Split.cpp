// SPDX-License-Identifier: Apache-2.0
#include "tools/training/Split.h"

#include <charconv>
#include <cmath>
#include <unordered_set>
#include <utility>

namespace zeph::training {

Split::Split(std::string_view text) {
  const std::size_t colon = text.find(':');
  const std::string_view kind = text.substr(0, colon);
  value_ = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
  const auto fail = [&] {
    throw TrainingError("split '" + std::string(text) + "': not none, group:SHARE, date:FROM or source:NAME");
  };
  if (kind == "none" && value_.empty()) return;
  if (value_.empty()) fail();
  if (kind == "group") {
    by_ = By::kGroup;
    double share = 0.0;
    const auto [end, error] = std::from_chars(value_.data(), value_.data() + value_.size(), share);
    if (error != std::errc() || end != value_.data() + value_.size() || !(share >= 1e-6 && share <= 0.5)) fail();
    nth_ = static_cast<std::uint64_t>(std::lround(1.0 / share));
  } else if (kind == "date") {
    by_ = By::kDate;
  } else if (kind == "source") {
    by_ = By::kSource;
  } else {
    fail();
  }
}

bool Split::IsHeldOut(const UrlRow& row) const {
  switch (by_) {
    case By::kNothing:
      return false;
    case By::kGroup:
      return StableHash(row.group) % nth_ == 0;
    case By::kDate:
      return row.date >= value_;  // what has no date is early
    case By::kSource:
      return row.source == value_;
  }
  return false;
}

void Split::Part(std::vector<UrlRow> rows, std::vector<UrlRow>& learned, std::vector<UrlRow>& heldOut) const {
  std::unordered_set<std::string> heldGroups;
  for (const UrlRow& row : rows) {
    if (IsHeldOut(row)) heldGroups.insert(row.group);
  }
  for (UrlRow& row : rows) {
    if (IsHeldOut(row)) {
      heldOut.push_back(std::move(row));
    } else if (!heldGroups.contains(row.group)) {
      learned.push_back(std::move(row));
    }
  }
}

}  // namespace zeph::training
