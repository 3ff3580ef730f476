// SPDX-License-Identifier: Apache-2.0
// Any bytes as an image, and as a data: URL.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "documents/ImageSize.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A copy of its own, so that a read behind the end is seen.
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const auto found = zeph::ReadImageSize(bytes);
  if (found && (found->width < 1 || found->height < 1)) std::abort();
  // The same bytes within a data: URL give the same size.
  std::u16string url = u"data:image/x,";
  for (const char c : bytes) {
    constexpr char16_t kDigits[] = u"0123456789abcdef";
    url += u'%';
    url += kDigits[static_cast<unsigned char>(c) >> 4];
    url += kDigits[static_cast<unsigned char>(c) & 15];
  }
  if (size <= 65536 && zeph::ReadDataUrlImageSize(url) != found) std::abort();
  static_cast<void>(zeph::ReadDataUrlImageSize(u"data:;base64," + std::u16string(bytes.begin(), bytes.end())));
  return 0;
}
