// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/Cipher.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "DetectionEngine/base/StringTable.h"

namespace zeph {

namespace {

constexpr std::uint32_t kConfigurationKeyEntry = 0xAC;

void CryptWithConfigurationKey(void* buffer, std::size_t length) noexcept {
  const std::u16string_view text = StringEntry(kConfigurationKeyEntry);
  // The characters as they lie in memory on the machines that packages come from: low byte first.
  std::array<std::uint8_t, 256> key;
  const std::size_t characters = std::min(text.size(), key.size() / 2);
  for (std::size_t i = 0; i < characters; ++i) {
    key[2 * i] = static_cast<std::uint8_t>(text[i] & 0xFF);
    key[2 * i + 1] = static_cast<std::uint8_t>(text[i] >> 8);
  }
  CI4().Crypt(buffer, buffer, length, key.data(), 2 * characters);
}

}  // namespace

CI4::CI4() noexcept { std::iota(state_.begin(), state_.end(), std::uint8_t{0}); }

void CI4::Crypt(void* destination, const void* source, std::size_t length, const void* key,
                std::size_t keyLength) noexcept {
  if (key != nullptr && keyLength != 0) {
    const auto* keyBytes = static_cast<const std::uint8_t*>(key);
    std::iota(state_.begin(), state_.end(), std::uint8_t{0});
    std::uint8_t j = 0;
    for (std::size_t i = 0; i < state_.size(); ++i) {
      j = static_cast<std::uint8_t>(j + state_[i] + keyBytes[i % keyLength]);
      std::swap(state_[i], state_[j]);
    }
  }
  auto* to = static_cast<std::uint8_t*>(destination);
  const auto* from = static_cast<const std::uint8_t*>(source);
  std::uint8_t i = 0;
  std::uint8_t j = 0;
  for (std::size_t n = 0; n < length; ++n) {
    i = static_cast<std::uint8_t>(i + 1);
    j = static_cast<std::uint8_t>(j + state_[i]);
    std::swap(state_[i], state_[j]);
    to[n] = static_cast<std::uint8_t>(from[n] ^ state_[static_cast<std::uint8_t>(state_[i] + state_[j])]);
  }
}

bool DecryptData(void* buffer, std::size_t length) noexcept {
  CryptWithConfigurationKey(buffer, length);
  return true;
}

bool EncryptData(void* buffer, std::size_t length, void** output) noexcept {
  CryptWithConfigurationKey(buffer, length);
  if (output != nullptr) *output = buffer;
  return true;
}

}  // namespace zeph
