// SPDX-License-Identifier: Apache-2.0
// Keys and certificates for a server without ones of its own.
#pragma once

#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace zeph::server {

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* object) const noexcept {
    Free(object);
  }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, FreeWith<X509_free>>;

/// A P-256 key and a certificate for it.
struct Identity {
  KeyPtr key;
  CertificatePtr certificate;
};

/// An authority that signs itself, valid for ten years. Throws std::runtime_error, as all here.
[[nodiscard]] Identity MakeAuthority(const std::string& name);
/// A server certificate for one host name or IPv4 address, valid from a month ago for validDays from now (negative: it
/// has run out).
[[nodiscard]] Identity IssueCertificate(const Identity& authority, const std::string& host, int validDays);

[[nodiscard]] std::string CertificatePem(const Identity& identity);
[[nodiscard]] std::string KeyPem(const Identity& identity);

}  // namespace zeph::server
