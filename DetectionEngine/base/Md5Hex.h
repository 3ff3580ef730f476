// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace zeph {

/// The MD5 of the text's narrow form, as 32 lower-case hexadecimal digits. Empty when the system's crypto library is
/// set up to refuse MD5. Any thread.
[[nodiscard]] std::u16string Md5Hex(std::u16string_view text);

}  // namespace zeph
