// SPDX-License-Identifier: Apache-2.0
// Internationalised hosts, converted as browsers convert them: by UTS 46 without its transitional mappings, with
// hyphens anywhere, and with symbols that no registry gives out but that name hosts all the same.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zeph {

/// Longest ASCII form of a host, and longest host that IdnToAscii looks at.
inline constexpr std::size_t kMaxAsciiHost = 255;

/// The ASCII form of an internationalised host ("bücher.example" gives "xn--bcher-kva.example"); an ASCII host comes
/// back as it is. Case is folded, compatibility characters are replaced, "ß" is kept.
/// Empty on failure: a character that no host may have, a label of more than 63 characters, a form of more than
/// kMaxAsciiHost characters, or one that holds a delimiter of URLs, which full-width look-alikes of "/", "@" and "?"
/// would slip in.
[[nodiscard]] std::u16string IdnToAscii(std::u16string_view host);

/// The domain that a browser makes of a host: as IdnToAscii, but in lower case, with labels of any length, and with
/// Punycode that was there before looked at too. It may hold delimiters. Empty on failure and for a host beyond ASCII
/// of more than 1,024 characters.
[[nodiscard]] std::u16string DomainToAscii(std::u16string_view host);

}  // namespace zeph
