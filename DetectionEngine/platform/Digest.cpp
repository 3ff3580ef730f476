// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

namespace zeph {

namespace {

/// The library would take itself apart at the end of the process, under threads that are still at work. Whoever calls it
/// first has the say.
[[gnu::constructor]] void KeepToTheEnd() { OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr); }

}  // namespace

std::optional<std::array<std::uint8_t, 16>> Md5(std::string_view bytes) noexcept {
  std::array<std::uint8_t, 16> digest;
  std::size_t length = digest.size();
  // "-fips": a name for pages, not a protection, so a machine that prefers stronger digests may still give it.
  if (EVP_Q_digest(nullptr, "MD5", "-fips", bytes.data(), bytes.size(), digest.data(), &length) != 1) return {};
  return digest;
}

}  // namespace zeph
