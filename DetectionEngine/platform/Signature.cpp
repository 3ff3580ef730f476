// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Signature.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <time.h>

namespace zeph {

namespace {

// A signed cabinet: a header with a reserved area of 20 bytes, folders, files, data; then the signature. Offsets:
constexpr std::size_t kReserved1At = 4;
constexpr std::size_t kLengthAt = 8;
constexpr std::size_t kFlagsAt = 30;
constexpr std::size_t kNumberInSetAt = 34;
constexpr std::size_t kReserveSizesAt = 36;
constexpr std::size_t kSignatureAtAt = 44;
constexpr std::size_t kSignatureLengthAt = 48;
constexpr std::size_t kReserved2At = 52;
constexpr std::size_t kCoveredFrom = 56;  ///< from here on everything is digested
constexpr std::size_t kHeaderEnd = 60;
constexpr std::uint32_t kHasReserve = 0x0004;
/// 20 bytes reserved in the header, none elsewhere; then the area's own beginning.
constexpr std::string_view kReserveSizes("\x14\0\0\0\0\0\x10\0", 8);
constexpr std::size_t kPadding = 8;  ///< the signature's length is rounded up to it, with zeros

constexpr char kIndirectData[] = "1.3.6.1.4.1.311.2.1.4";
constexpr char kCabinetData[] = "1.3.6.1.4.1.311.2.1.25";
constexpr char kTimeStampToken[] = "1.3.6.1.4.1.311.3.3.1";

constexpr int kAuthLevel = 2;  ///< 112 bits

template <class T, void (*release)(T*)>
struct Release {
  void operator()(T* object) const noexcept { release(object); }
};
template <class T, void (*release)(T*)>
using Owned = std::unique_ptr<T, Release<T, release>>;
void FreeBio(BIO* bio) { BIO_free_all(bio); }
void FreeSigners(STACK_OF(X509) * signers) { sk_X509_free(signers); }
using OwnedBio = Owned<BIO, FreeBio>;
using OwnedPkcs7 = Owned<PKCS7, PKCS7_free>;
using OwnedStore = Owned<X509_STORE, X509_STORE_free>;
using OwnedObject = Owned<ASN1_OBJECT, ASN1_OBJECT_free>;

/// Why a signature isn't good; stays in this file.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void Require(bool holds, const char* refusal) {
  if (!holds) throw Refusal(refusal);
}

/// The library's errors of this scope don't stay behind for the host's next call of it.
class ErrorScope {
 public:
  ErrorScope() noexcept { ERR_set_mark(); }
  ~ErrorScope() { ERR_pop_to_mark(); }
  ErrorScope(const ErrorScope&) = delete;
  ErrorScope& operator=(const ErrorScope&) = delete;
};

const unsigned char* BytesOf(std::string_view text) noexcept {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::uint32_t NumberAt(std::string_view bytes, std::size_t at, std::size_t size = 4) noexcept {
  std::uint32_t number = 0;
  for (std::size_t i = size; i-- > 0;) number = number << 8 | static_cast<std::uint8_t>(bytes[at + i]);
  return number;
}

bool IsType(const ASN1_OBJECT* object, const char* dotted) {
  const OwnedObject wanted(OBJ_txt2obj(dotted, 1));
  return object != nullptr && wanted != nullptr && OBJ_cmp(object, wanted.get()) == 0;
}

OwnedBio MemoryBio(std::string_view bytes) {
  Require(bytes.size() <= INT_MAX, "the signature is too long");
  return OwnedBio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

/// Splits a signed cabinet into what is signed and the signature.
struct SignedCabinet {
  explicit SignedCabinet(std::string_view file) : bytes(file) {
    constexpr char kNotSigned[] = "the package isn't signed";
    Require(file.size() >= kHeaderEnd && NumberAt(file, kFlagsAt, 2) == kHasReserve, kNotSigned);
    Require(file.substr(kReserveSizesAt, kReserveSizes.size()) == kReserveSizes, kNotSigned);
    const std::size_t signatureAt = NumberAt(file, kSignatureAtAt);
    const std::size_t signatureLength = NumberAt(file, kSignatureLengthAt);
    Require(signatureAt != 0 && signatureLength != 0, kNotSigned);
    Require(NumberAt(file, kReserved1At) == 0 && NumberAt(file, kReserved2At) == 0 && signatureAt >= kHeaderEnd &&
                NumberAt(file, kLengthAt) == signatureAt && signatureAt <= file.size() &&
                signatureLength == file.size() - signatureAt,
            "the package isn't a cabinet with a signature at its end");
    content = file.substr(0, signatureAt);
    signature = file.substr(signatureAt);
  }

  [[nodiscard]] std::string Digest(const EVP_MD* algorithm) const {
    const Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned length = 0;
    bool done = context != nullptr && EVP_DigestInit_ex(context.get(), algorithm, nullptr) == 1;
    for (const std::string_view part :
         {content.substr(0, kReserved1At), content.substr(kLengthAt, kNumberInSetAt - kLengthAt),
          content.substr(kCoveredFrom)}) {
      done = done && EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1;
    }
    done = done && EVP_DigestFinal_ex(context.get(), digest.data(), &length) == 1;
    return done ? std::string(digest.begin(), digest.begin() + length) : std::string();
  }

  std::string_view bytes;
  std::string_view content;
  std::string_view signature;
};

OwnedPkcs7 ReadPkcs7(std::string_view der) {
  const unsigned char* at = BytesOf(der);
  OwnedPkcs7 message(d2i_PKCS7(nullptr, &at, static_cast<long>(der.size())));
  Require(message != nullptr && PKCS7_type_is_signed(message.get()) && message->d.sign != nullptr &&
              message->d.sign->contents != nullptr,
          "the signature can't be read");
  const std::string_view rest = der.substr(static_cast<std::size_t>(at - BytesOf(der)));
  Require(rest.size() < kPadding && rest.find_first_not_of('\0') == std::string_view::npos,
          "something follows the signature");
  return message;
}

/// What follows the tag and length of a sequence; rest becomes what follows the sequence.
std::string_view SequenceContent(std::string_view der, std::string_view& rest) {
  const unsigned char* at = BytesOf(der);
  long length = 0;
  int tag = 0;
  int tagClass = 0;
  const int result = ASN1_get_object(&at, &length, &tag, &tagClass, static_cast<long>(der.size()));
  Require((result & 0x81) == 0 && tag == V_ASN1_SEQUENCE && tagClass == V_ASN1_UNIVERSAL,
          "the signature can't be read");
  const auto begin = static_cast<std::size_t>(at - BytesOf(der));
  const std::string_view content = der.substr(begin, static_cast<std::size_t>(length));
  rest = der.substr(begin + content.size());
  return content;
}

/// The content that is signed: it says what kind of file has which digest.
std::string_view IndirectData(const PKCS7& message) {
  const PKCS7* const contents = message.d.sign->contents;
  Require(IsType(contents->type, kIndirectData) && contents->d.other != nullptr &&
              contents->d.other->type == V_ASN1_SEQUENCE,
          "the signature isn't one of a file");
  const ASN1_STRING* const sequence = contents->d.other->value.sequence;
  const std::string_view der(reinterpret_cast<const char*>(ASN1_STRING_get0_data(sequence)),
                             static_cast<std::size_t>(ASN1_STRING_length(sequence)));
  std::string_view rest;
  return SequenceContent(der, rest);
}

void CheckDigest(const SignedCabinet& cabinet, std::string_view indirectData) {
  std::string_view digestInfo;
  const std::string_view kind = SequenceContent(indirectData, digestInfo);
  const unsigned char* at = BytesOf(kind);
  const OwnedObject type(d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(kind.size())));
  Require(IsType(type.get(), kCabinetData), "the signature isn't one of a cabinet");

  at = BytesOf(digestInfo);
  const Owned<X509_SIG, X509_SIG_free> info(d2i_X509_SIG(nullptr, &at, static_cast<long>(digestInfo.size())));
  Require(info != nullptr && at == BytesOf(digestInfo) + digestInfo.size(), "the signature can't be read");
  const X509_ALGOR* algorithm = nullptr;
  const ASN1_OCTET_STRING* wanted = nullptr;
  X509_SIG_get0(info.get(), &algorithm, &wanted);
  const int method = OBJ_obj2nid(algorithm->algorithm);
  Require(method == NID_sha256 || method == NID_sha384 || method == NID_sha512, "the signature's digest is too weak");
  const std::string digest = cabinet.Digest(EVP_get_digestbynid(method));
  Require(!digest.empty() && ASN1_STRING_length(wanted) == static_cast<int>(digest.size()) &&
              std::memcmp(ASN1_STRING_get0_data(wanted), digest.data(), digest.size()) == 0,
          "the package isn't the one that was signed");
}

/// The signer's certificate, which the message owns, of a message whose signature holds.
X509* CheckSigner(PKCS7& message, std::string_view indirectData) {
  constexpr char kDoesNotHold[] = "the signature doesn't hold";
  STACK_OF(PKCS7_SIGNER_INFO)* const infos = PKCS7_get_signer_info(&message);
  Require(infos != nullptr && sk_PKCS7_SIGNER_INFO_num(infos) == 1, "the signature hasn't exactly one signer");
  PKCS7_SIGNER_INFO* const info = sk_PKCS7_SIGNER_INFO_value(infos, 0);
  const ASN1_TYPE* const contentType = PKCS7_get_signed_attribute(info, NID_pkcs9_contentType);
  Require(
      contentType != nullptr && contentType->type == V_ASN1_OBJECT && IsType(contentType->value.object, kIndirectData),
      "the signature isn't one of a file");
  const Owned<STACK_OF(X509), FreeSigners> signers(PKCS7_get0_signers(&message, nullptr, 0));
  Require(signers != nullptr && sk_X509_num(signers.get()) == 1, "the signer's certificate is missing");
  X509* const signer = sk_X509_value(signers.get(), 0);
  // Not PKCS7_verify, which loses memory when the message names a digest that it doesn't know.
  OwnedBio content = MemoryBio(indirectData);
  const OwnedBio digesting(PKCS7_dataInit(&message, content.get()));
  Require(digesting != nullptr, kDoesNotHold);
  (void)content.release();  // it is the end of the other one
  std::array<char, 1024> room;
  while (BIO_read(digesting.get(), room.data(), static_cast<int>(room.size())) > 0) continue;
  Require(PKCS7_signatureVerify(digesting.get(), &message, info, signer) == 1, kDoesNotHold);
  return signer;
}

OwnedStore TrustedStore(const std::string& authorities) {
  OwnedStore store(X509_STORE_new());
  const bool loaded =
      store != nullptr && (authorities.empty() ? X509_STORE_set_default_paths(store.get()) == 1
                                               : X509_STORE_load_file(store.get(), authorities.c_str()) == 1);
  Require(loaded, "the trusted authorities can't be read");
  X509_VERIFY_PARAM_set_auth_level(X509_STORE_get0_param(store.get()), kAuthLevel);
  return store;
}

/// When the signature was made, by a time stamp on it that holds; nothing without one.
std::optional<time_t> StampedTime(PKCS7& message, const std::string& authorities) {
  PKCS7_SIGNER_INFO* const info = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(&message), 0);
  const OwnedObject tokenType(OBJ_txt2obj(kTimeStampToken, 1));
  const int at = X509at_get_attr_by_OBJ(info->unauth_attr, tokenType.get(), -1);
  if (at < 0) return std::nullopt;
  const ASN1_TYPE* const value = X509_ATTRIBUTE_get0_type(X509at_get_attr(info->unauth_attr, at), 0);
  if (value == nullptr || value->type != V_ASN1_SEQUENCE) return std::nullopt;
  const unsigned char* der = ASN1_STRING_get0_data(value->value.sequence);
  const OwnedPkcs7 token(d2i_PKCS7(nullptr, &der, ASN1_STRING_length(value->value.sequence)));
  const Owned<TS_VERIFY_CTX, TS_VERIFY_CTX_free> context(TS_VERIFY_CTX_new());
  if (token == nullptr || context == nullptr) return std::nullopt;
  OwnedBio signature = MemoryBio({reinterpret_cast<const char*>(ASN1_STRING_get0_data(info->enc_digest)),
                                  static_cast<std::size_t>(ASN1_STRING_length(info->enc_digest))});
  TS_VERIFY_CTX_set_flags(context.get(), TS_VFY_VERSION | TS_VFY_SIGNATURE | TS_VFY_DATA);
  TS_VERIFY_CTX_set_data(context.get(), signature.release());
  TS_VERIFY_CTX_set_store(context.get(), TrustedStore(authorities).release());
  if (TS_RESP_verify_token(context.get(), token.get()) != 1) return std::nullopt;
  const Owned<TS_TST_INFO, TS_TST_INFO_free> stamp(PKCS7_to_TS_TST_INFO(token.get()));
  tm when{};
  if (stamp == nullptr || ASN1_TIME_to_tm(TS_TST_INFO_get_time(stamp.get()), &when) != 1) return std::nullopt;
  return timegm(&when);
}

/// A certificate that says what it is for says code signing; the signer's must say so.
bool IsForCodeSigning(X509* certificate, bool isSigner) {
  const bool says = (X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0;
  const std::uint32_t uses = X509_get_extended_key_usage(certificate);
  if (!isSigner) return !says || (uses & (XKU_CODE_SIGN | XKU_ANYEKU)) != 0;
  return says && (uses & XKU_CODE_SIGN) != 0 && (X509_get_key_usage(certificate) & KU_DIGITAL_SIGNATURE) != 0;
}

void CheckChain(X509* signer, PKCS7& message, const std::string& authorities) {
  const OwnedStore store = TrustedStore(authorities);
  const Owned<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
  Require(context != nullptr && X509_STORE_CTX_init(context.get(), store.get(), signer, message.d.sign->cert) == 1,
          "out of memory");
  if (const auto when = StampedTime(message, authorities)) X509_STORE_CTX_set_time(context.get(), 0, *when);
  if (X509_verify_cert(context.get()) != 1) {
    const int code = X509_STORE_CTX_get_error(context.get());
    throw Refusal("the signer's certificate isn't trusted: " + std::string(X509_verify_cert_error_string(code)));
  }
  const STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(context.get());
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    Require(IsForCodeSigning(sk_X509_value(chain, i), i == 0), "the signer's certificate isn't for code signing");
  }
}

std::string DisplayName(X509* certificate) {
  const X509_NAME* const subject = X509_get_subject_name(certificate);
  for (const int kind : {NID_commonName, NID_organizationalUnitName, NID_organizationName, NID_pkcs9_emailAddress}) {
    const int at = X509_NAME_get_index_by_NID(subject, kind, -1);
    if (at < 0) continue;
    unsigned char* text = nullptr;
    const int length = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
    if (length < 0) continue;
    std::string name(reinterpret_cast<char*>(text), static_cast<std::size_t>(length));
    OPENSSL_free(text);
    return name;
  }
  return {};
}

}  // namespace

CabinetSignature VerifyCabinetSignature(std::string_view cabinet, const std::string& authorities) {
  const ErrorScope errors;
  try {
    const SignedCabinet parts(cabinet);
    const OwnedPkcs7 message = ReadPkcs7(parts.signature);
    const std::string_view indirectData = IndirectData(*message);
    CheckDigest(parts, indirectData);
    X509* const signer = CheckSigner(*message, indirectData);
    CheckChain(signer, *message, authorities);
    return {DisplayName(signer), {}};
  } catch (const Refusal& refusal) {
    return {{}, refusal.what()};
  }
}

}  // namespace zeph
