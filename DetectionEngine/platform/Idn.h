// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zeph {

/// Longest ASCII form of a host, and longest host that is looked at.
inline constexpr std::size_t kMaxAsciiHost = 255;

/// The ASCII form of an internationalised host ("bücher.example" gives "xn--bcher-kva.example"); an ASCII host comes
/// back as it is. Mapped as today's browsers map it: case folded, compatibility characters replaced, "ß" kept.
/// Empty on failure: a label that no registry accepts, a form of more than kMaxAsciiHost characters, or one that holds
/// a delimiter of URLs, which full-width look-alikes of "/", "@" and "?" would slip in.
[[nodiscard]] std::u16string IdnToAscii(std::u16string_view host);

}  // namespace zeph
