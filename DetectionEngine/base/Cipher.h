// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zeph {

/// The RC4 stream cipher. It hides configuration files and server exchanges from a casual look and protects nothing:
/// the key lies in the library. One thread at a time.
class CI4 {
 public:
  CI4() noexcept;
  virtual ~CI4() = default;

  /// Enciphers or deciphers (the operation is the same) length bytes; destination may be source. A key of at least one
  /// byte, of which at most 256 count, sets the state up; without one (null or length 0) the permutation that the last
  /// call left goes on, from its beginning.
  void Crypt(void* destination, const void* source, std::size_t length, const void* key,
             std::size_t keyLength) noexcept;

 private:
  std::array<std::uint8_t, 256> state_;
};

/// Deciphers or enciphers in place with the key of configuration files and server exchanges, string table entry 0xAC.
/// Always true. *output, if given, becomes buffer.
bool DecryptData(void* buffer, std::size_t length) noexcept;
bool EncryptData(void* buffer, std::size_t length, void** output = nullptr) noexcept;

}  // namespace zeph
