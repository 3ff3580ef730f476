// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::icap {

enum class Decoding : std::uint8_t {
  kWhole,
  kCut,      ///< the limit was reached; what came before it is there
  kBroken,   ///< the stream is damaged or ends early; what came before that is there, as browsers show it
  kUnknown,  ///< an encoding that isn't known; nothing is there
};

/// Undoes content encodings, the last one first: gzip, deflate (with zlib's frame or without), br, identity. bytes are
/// replaced by at most limit bytes of content. No more than four encodings on top of each other.
[[nodiscard]] Decoding Decode(const std::vector<std::string>& encodings, std::size_t limit, std::string& bytes);

}  // namespace zeph::icap
