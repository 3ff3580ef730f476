// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/NetLocation.h"
#include "DetectionEngine/text/TextHash.h"

namespace zeph {

/// Finds the first entry of a site list that matches a host, as the walk over the list would. Plain
/// domain and host names go into a hash of their text, which is asked for the host and for what stands behind each
/// of its dots; patterns with "*" and networks stay a short list that is walked as far as a hashed hit leaves it open.
class NetLocationIndex {
 public:
  void Build(std::span<const NetLocation> entries);
  void Clear();
  /// False until Build has run, and for an empty list.
  [[nodiscard]] bool IsBuilt() const noexcept { return built_; }
  /// Position of the first matching entry of the list that was indexed, which must be unchanged. Linear in the host,
  /// and in the patterns and networks. Resolves the host only where the walk would, and at most once.
  [[nodiscard]] std::optional<std::size_t> Find(std::u16string_view host, std::span<const NetLocation> entries) const;
  /// Some entry that names hosts or a network has exactly this name, letter by letter.
  [[nodiscard]] bool Names(std::u16string_view name, std::span<const NetLocation> entries) const;

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  struct Slot {
    std::uint64_t hash = 0;
    std::uint32_t domain = kNone;  ///< position of the first Domain entry of this name
    std::uint32_t host = kNone;    ///< position of the first Hostname entry of this name

    [[nodiscard]] bool IsFree() const noexcept { return domain == kNone && host == kNone; }
    [[nodiscard]] std::uint32_t AnyEntry() const noexcept { return domain != kNone ? domain : host; }
  };
  [[nodiscard]] std::size_t SlotOf(std::u16string_view name, std::uint64_t hash,
                                   std::span<const NetLocation> entries) const;

  std::vector<Slot> slots_;            ///< a power of two, at most half full
  std::vector<std::uint32_t> walked_;  ///< positions of patterns and networks, ascending
  std::size_t longest_ = 0;            ///< units of the longest name in the hash
  TextHash::Secret secret_ = TextHash::Seed();
  bool built_ = false;
};

}  // namespace zeph
