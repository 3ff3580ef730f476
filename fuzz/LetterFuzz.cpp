// SPDX-License-Identifier: Apache-2.0
// Any bytes as a letter, whose links must be addresses and whose bounds must hold.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "judging/Letter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  (void)zeph::IsLetter(bytes, {}, {});
  std::string error;
  const auto letter = zeph::ReadLetter(bytes, error);
  if (!letter) {
    if (error.empty()) std::abort();
    return 0;
  }
  if (letter->links.size() > zeph::kMaxLetterLinks || letter->pages.size() > zeph::kMaxLetterParts) std::abort();
  for (const zeph::LetterLink& link : letter->links) {
    if (link.url.find("://") == std::string::npos || link.where.empty()) std::abort();
  }
  return 0;
}
