// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/TimeStamp.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>

#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

constexpr std::uint32_t kTimePartBase = 0xFFFF;

/// Value of a hexadecimal digit; 16 for any other character.
std::uint32_t DigitValue(char16_t c) noexcept {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10U;
  if (c >= u'a' && c <= u'f') return c - u'a' + 10U;
  return 16;
}

/// Reads digits up to the first other character, after a leading 0x.
std::uint32_t ReadHex(std::u16string_view text) noexcept {
  if (text.starts_with(u"0X") || text.starts_with(u"0x")) text.remove_prefix(2);
  std::uint32_t number = 0;
  for (const char16_t c : text) {
    const std::uint32_t digit = DigitValue(c);
    if (digit == 16) break;
    number = number * 16 + digit;
  }
  return number;
}

/// Twelve digits that make two stamps of the same second differ.
std::uint64_t RandomDigits() noexcept {
  std::uint64_t digits = 0;
  for (int i = 0; i < 12; ++i) {
    std::minstd_rand generator(static_cast<std::uint32_t>(PerformanceCounter()));
    digits = digits * 16 + (generator() >> 8) % 16;
  }
  return digits;
}

}  // namespace

std::u16string EncodeTimeStamp(int year, int month, int day, int hour, int minute, int second) {
  const auto date = static_cast<std::uint32_t>(year * 10000 + month * 100 + day);
  const auto part = [](int value) { return (kTimePartBase - static_cast<std::uint32_t>(value)) & kTimePartBase; };
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "%08X-%04X-%04X-%04X-%012llX", date, part(hour), part(minute), part(second),
                static_cast<unsigned long long>(RandomDigits()));
  return Widen(text.data());
}

std::u16string DecodeTimeStamp(std::u16string_view text) {
  const auto group = [text](std::size_t start, std::size_t length) {
    return start < text.size() ? ReadHex(text.substr(start, length)) : 0;
  };
  std::array<char, 16> date;
  std::snprintf(date.data(), date.size(), "%08u", group(0, 8));
  std::array<char, 48> result;
  std::snprintf(result.data(), result.size(), "%.4s-%.2s-%.2s %02u:%02u:%02u", date.data(), date.data() + 4,
                date.data() + 6, kTimePartBase - group(9, 4), kTimePartBase - group(14, 4),
                kTimePartBase - group(19, 4));
  return Widen(result.data());
}

}  // namespace zeph
