// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/Md5Hex.h"

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Digest.h"

namespace zeph {

std::u16string Md5Hex(std::u16string_view text) {
  constexpr char16_t kDigits[] = u"0123456789abcdef";
  std::u16string hex;
  if (const auto digest = Md5(Narrow(text))) {
    for (const std::uint8_t byte : *digest) hex += {kDigits[byte >> 4], kDigits[byte & 0xF]};
  }
  return hex;
}

}  // namespace zeph
