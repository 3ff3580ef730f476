// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/CodePage.h"

#include <cstddef>
#include <cstdint>

namespace zeph {

namespace {

constexpr char16_t kReplacement = u'\uFFFD';

/// Length of the valid UTF-8 sequence at the front, its code point in out; 0 when there is none.
std::size_t DecodeOne(std::string_view text, std::uint32_t& out) noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const auto continues = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0U) == 0x80U; };
  const std::uint32_t lead = byte(0);
  if (lead < 0x80U) {
    out = lead;
    return 1;
  }
  if (lead >= 0xC2U && lead <= 0xDFU && continues(1)) {
    out = ((lead & 0x1FU) << 6) | (byte(1) & 0x3FU);
    return 2;
  }
  if ((lead & 0xF0U) == 0xE0U && continues(1) && continues(2)) {
    out = ((lead & 0x0FU) << 12) | ((byte(1) & 0x3FU) << 6) | (byte(2) & 0x3FU);
    return out >= 0x800U && (out < 0xD800U || out > 0xDFFFU) ? 3 : 0;
  }
  if (lead >= 0xF0U && lead <= 0xF4U && continues(1) && continues(2) && continues(3)) {
    out = ((lead & 0x07U) << 18) | ((byte(1) & 0x3FU) << 12) | ((byte(2) & 0x3FU) << 6) | (byte(3) & 0x3FU);
    return out >= 0x10000U && out <= 0x10FFFFU ? 4 : 0;
  }
  return 0;
}

}  // namespace

std::u16string Widen(std::string_view narrow) {
  std::u16string wide;
  wide.reserve(narrow.size());
  while (!narrow.empty()) {
    std::uint32_t point = 0;
    const std::size_t length = DecodeOne(narrow, point);
    if (length == 0) {
      wide.push_back(kReplacement);
      narrow.remove_prefix(1);
      continue;
    }
    if (point < 0x10000U) {
      wide.push_back(static_cast<char16_t>(point));
    } else {
      wide.push_back(static_cast<char16_t>(0xD800U + ((point - 0x10000U) >> 10)));
      wide.push_back(static_cast<char16_t>(0xDC00U + ((point - 0x10000U) & 0x3FFU)));
    }
    narrow.remove_prefix(length);
  }
  return wide;
}

std::string Narrow(std::u16string_view wide) {
  std::string narrow;
  narrow.reserve(wide.size());
  const auto put = [&](std::uint32_t byte) { narrow.push_back(static_cast<char>(byte)); };
  for (std::size_t i = 0; i < wide.size(); ++i) {
    std::uint32_t point = wide[i];
    if (point >= 0xD800U && point <= 0xDFFFU) {
      const bool paired = point < 0xDC00U && i + 1 < wide.size() && (wide[i + 1] & 0xFC00U) == 0xDC00U;
      if (!paired) {
        put('?');
        continue;
      }
      point = 0x10000U + ((point - 0xD800U) << 10) + (wide[++i] - 0xDC00U);
    }
    if (point < 0x80U) {
      put(point);
    } else if (point < 0x800U) {
      put(0xC0U | (point >> 6));
      put(0x80U | (point & 0x3FU));
    } else if (point < 0x10000U) {
      put(0xE0U | (point >> 12));
      put(0x80U | ((point >> 6) & 0x3FU));
      put(0x80U | (point & 0x3FU));
    } else {
      put(0xF0U | (point >> 18));
      put(0x80U | ((point >> 12) & 0x3FU));
      put(0x80U | ((point >> 6) & 0x3FU));
      put(0x80U | (point & 0x3FU));
    }
  }
  return narrow;
}

}  // namespace zeph
