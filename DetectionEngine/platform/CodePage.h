// SPDX-License-Identifier: Apache-2.0
// The process's narrow code page, which is UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// Narrow to wide; each byte that is no part of valid UTF-8 becomes U+FFFD. O(length).
[[nodiscard]] std::u16string Widen(std::string_view narrow);

/// Wide to narrow; a surrogate without its other half becomes "?". O(length).
[[nodiscard]] std::string Narrow(std::u16string_view wide);

}  // namespace zeph
