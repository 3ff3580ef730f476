// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/NetLocation.h"

namespace zeph {

/// Finds the first entry of a site list that matches a host, as the walk over the list would. Plain
/// domain and host names go into a hash of their text; patterns with "*" and networks stay a short list
/// that is walked as far as a hashed hit leaves it open.
class NetLocationIndex {
 public:
  void Build(std::span<const NetLocation> entries);
  void Clear();
  /// False until Build has run, and for an empty list.
  [[nodiscard]] bool IsBuilt() const noexcept { return built_; }
  /// Position of the first matching entry of the list that was indexed, which must be unchanged.
  [[nodiscard]] std::optional<std::size_t> Find(std::u16string_view host, std::span<const NetLocation> entries) const;

 private:
  struct Slot {
    std::uint64_t hash = 0;
    std::uint32_t domain = 0;  ///< position of the first Domain entry of this name, plus 1; 0 none
    std::uint32_t host = 0;    ///< position of the first Hostname entry of this name, plus 1; 0 none
  };
  std::vector<Slot> slots_;
  std::vector<std::uint32_t> walked_;  ///< positions of patterns and networks, ascending
  bool built_ = false;
};

}  // namespace zeph
