// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zeph {

/// The MD5 of bytes. Nothing when the system's crypto library is set up to refuse MD5. Any thread.
[[nodiscard]] std::optional<std::array<std::uint8_t, 16>> Md5(std::string_view bytes) noexcept;

}  // namespace zeph
