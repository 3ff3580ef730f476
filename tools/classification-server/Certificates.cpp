// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/Certificates.h"

#include <stdexcept>

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace zeph::server {

namespace {

constexpr long kDay = 86400;
constexpr int kAuthorityDays = 3650;
constexpr int kSerialBits = 127;

void Require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(std::string(what) + " failed");
}

Identity MakeCertificate(const std::string& name, const std::string& alternative, int validDays,
                         const Identity* issuer) {
  Identity made{KeyPtr(EVP_EC_gen("P-256")), CertificatePtr(X509_new())};
  X509* const certificate = made.certificate.get();
  Require(made.key != nullptr && certificate != nullptr, "making a key");
  X509_set_version(certificate, X509_VERSION_3);
  const std::unique_ptr<BIGNUM, FreeWith<BN_free>> serial(BN_new());
  Require(BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
              BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr,
          "making a serial number");
  X509_gmtime_adj(X509_getm_notBefore(certificate), -30 * kDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate), validDays * kDay);
  X509_set_pubkey(certificate, made.key.get());
  X509_NAME* const subject = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1,
                             0);
  const Identity& signer = issuer != nullptr ? *issuer : made;
  X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get()));
  const auto extend = [&](int kind, const std::string& value) {
    const std::unique_ptr<X509_EXTENSION, FreeWith<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str()));
    Require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, "extending a certificate");
  };
  extend(NID_basic_constraints, issuer == nullptr ? "critical,CA:TRUE" : "CA:FALSE");
  if (!alternative.empty()) extend(NID_subject_alt_name, alternative);
  Require(X509_sign(certificate, signer.key.get(), EVP_sha256()) > 0, "signing a certificate");
  return made;
}

template <class WriteTo>
std::string Pem(WriteTo&& write) {
  const std::unique_ptr<BIO, FreeWith<BIO_free>> memory(BIO_new(BIO_s_mem()));
  Require(memory != nullptr && write(memory.get()) == 1, "writing PEM");
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return std::string(text, static_cast<std::size_t>(length));
}

}  // namespace

Identity MakeAuthority(const std::string& name) { return MakeCertificate(name, "", kAuthorityDays, nullptr); }

Identity IssueCertificate(const Identity& authority, const std::string& host, int validDays) {
  const bool isAddress = host.find_first_not_of("0123456789.") == std::string::npos;
  return MakeCertificate(host, (isAddress ? "IP:" : "DNS:") + host, validDays, &authority);
}

std::string CertificatePem(const Identity& identity) {
  return Pem([&](BIO* memory) { return PEM_write_bio_X509(memory, identity.certificate.get()); });
}

std::string KeyPem(const Identity& identity) {
  return Pem([&](BIO* memory) {
    return PEM_write_bio_PrivateKey(memory, identity.key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  });
}

}  // namespace zeph::server
