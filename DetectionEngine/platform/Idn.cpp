// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Idn.h"

#include <algorithm>
#include <cstdint>
#include <memory>

#include <idn2.h>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

bool IsAscii(std::u16string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; });
}

struct FreeAnswer {
  void operator()(std::uint8_t* answer) const noexcept { idn2_free(answer); }
};

}  // namespace

std::u16string IdnToAscii(std::u16string_view host) {
  if (host.size() > kMaxAsciiHost) return {};
  if (IsAscii(host)) return std::u16string(host);
  const std::string narrow = Narrow(host);
  std::uint8_t* raw = nullptr;
  const int status = idn2_lookup_u8(reinterpret_cast<const std::uint8_t*>(narrow.c_str()), &raw,
                                    IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
  const std::unique_ptr<std::uint8_t, FreeAnswer> answer(raw);
  if (status != IDN2_OK || answer == nullptr) return {};
  const std::string_view ascii(reinterpret_cast<const char*>(answer.get()));
  constexpr std::string_view kDelimiters = "/\\?#@:[]%";
  const bool isHost = ascii.size() <= kMaxAsciiHost && std::all_of(ascii.begin(), ascii.end(), [&](char c) {
                        return c > ' ' && c < 0x7F && kDelimiters.find(c) == std::string_view::npos;
                      });
  return isHost ? std::u16string(ascii.begin(), ascii.end()) : std::u16string();
}

}  // namespace zeph
