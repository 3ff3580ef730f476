// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zeph {

/// The ascending order of 16-bit code units. URLs of one site begin alike: four units are compared at a time.
struct UnitOrder {
  using is_transparent = void;

  bool operator()(std::u16string_view a, std::u16string_view b) const noexcept {
    const std::size_t common = std::min(a.size(), b.size());
    std::size_t at = 0;
    for (; common - at >= 4; at += 4) {
      std::uint64_t ours = 0;
      std::uint64_t theirs = 0;
      std::memcpy(&ours, a.data() + at, sizeof ours);
      std::memcpy(&theirs, b.data() + at, sizeof theirs);
      if (ours != theirs) break;
    }
    for (; at < common; ++at) {
      if (a[at] != b[at]) return a[at] < b[at];
    }
    return a.size() < b.size();
  }
};

}  // namespace zeph
