// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

#include "documents/html/GrowArray.h"

namespace zeph::html {

/// Bytes behind this many aren't read: places in a text are 32-bit numbers, also in a page's markup written anew, in
/// which a character may take six.
inline constexpr std::size_t kMaxMarkup = std::size_t{1} << 28;

struct DecodedMarkup {
  /// "\n" as the only line end, kScanPadding zeros behind the end.
  GrowArray<char16_t> text;
  std::string_view encoding;  ///< by its standard name, "UTF-8" for one
};

/// A page's bytes to text. The encoding is that of a byte order mark, else of charset (a label, as the transport named
/// it; may be empty), else UTF-16 if every second byte at the start is zero, else that of a META (one within the first
/// 1024 bytes before a later one), else UTF-8 if all bytes are valid so, else windows-1252. What is no character of the
/// encoding becomes U+FFFD, as the encoding standard has it. O(length).
[[nodiscard]] DecodedMarkup DecodeMarkup(std::string_view bytes, std::string_view charset = {});

/// Whether a label names an encoding that DecodeMarkup reads.
[[nodiscard]] bool IsEncoding(std::string_view label);

}  // namespace zeph::html
