// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph {

inline constexpr std::uint32_t kStringCount = 222;
inline constexpr std::uint32_t kStringIdBase = 0x80000000U;

/// Makes sure that the table can be read; construct one in a scope before GetString. Any thread. The texts
/// lie in the library plainly, so there is nothing to wait for.
class [[maybe_unused]] StringTableGuard {
 public:
  StringTableGuard() noexcept = default;
};

/// The zero-terminated text of an id, which is kStringIdBase plus the entry number; null when the id's top
/// bit is clear or the entry doesn't exist. Lives for the life of the process. Any thread.
[[nodiscard]] const char16_t* GetString(std::uint32_t id) noexcept;

/// The same by entry number, with its length: empty when the entry doesn't exist.
[[nodiscard]] std::u16string_view StringEntry(std::uint32_t entry) noexcept;

}  // namespace zeph
