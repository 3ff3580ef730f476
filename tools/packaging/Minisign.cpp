// SPDX-License-Identifier: Apache-2.0
#include "tools/packaging/Minisign.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <sodium.h>

namespace zeph {

namespace {

constexpr std::string_view kUntrusted = "untrusted comment: ";
constexpr std::string_view kTrusted = "trusted comment: ";
constexpr std::string_view kPlainMark = "Ed";      ///< keys, and signatures over the file itself
constexpr std::string_view kHashedMark = "ED";     ///< signatures over the file's digest
constexpr std::string_view kPasswordMark = "Sc";   ///< scrypt
constexpr std::string_view kOpenMark("\0\0", 2);   ///< no password
constexpr std::string_view kChecksumMark = "B2";

// A secret key: three marks, salt, cost, then what the password covers.
constexpr std::size_t kSalt = 6;
constexpr std::size_t kOperations = kSalt + 32;
constexpr std::size_t kMemory = kOperations + 8;
constexpr std::size_t kCovered = kMemory + 8;
constexpr std::size_t kSecretPart = 8 + 64;
constexpr std::size_t kCoveredSize = kSecretPart + 32;
constexpr std::size_t kSecretFile = kCovered + kCoveredSize;

using Bytes = std::vector<unsigned char>;

void Start() {
  if (sodium_init() < 0) throw std::runtime_error("the library for signatures can't be set up");
}

const unsigned char* Raw(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }

template <class Container>
void Append(Bytes& bytes, const Container& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

std::string Encode(const Bytes& bytes) {
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(), sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();  // the zero
  return text;
}

/// Nothing unless it is exactly so many bytes.
std::optional<Bytes> Decode(std::string_view text, std::size_t size) {
  Bytes bytes(size);
  std::size_t length = 0;
  const char* end = nullptr;
  if (sodium_base642bin(bytes.data(), size, text.data(), text.size(), nullptr, &length, &end,
                        sodium_base64_VARIANT_ORIGINAL) != 0 ||
      length != size || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return bytes;
}

std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

bool HasMark(const Bytes& bytes, std::size_t at, std::string_view mark) {
  return std::memcmp(bytes.data() + at, mark.data(), mark.size()) == 0;
}

std::uint64_t Number(const Bytes& bytes, std::size_t at) {
  std::uint64_t number = 0;
  for (std::size_t i = 8; i-- > 0;) number = number << 8 | bytes[at + i];
  return number;
}

void AppendNumber(Bytes& bytes, std::uint64_t number) {
  for (int i = 0; i < 8; ++i, number >>= 8) bytes.push_back(static_cast<unsigned char>(number & 0xFF));
}

std::array<unsigned char, 32> Checksum(const unsigned char* secretPart) {
  std::array<unsigned char, 32> sum;
  crypto_generichash_state state;
  crypto_generichash_init(&state, nullptr, 0, sum.size());
  crypto_generichash_update(&state, Raw(kPlainMark), kPlainMark.size());
  crypto_generichash_update(&state, secretPart, kSecretPart);
  crypto_generichash_final(&state, sum.data(), sum.size());
  return sum;
}

/// Covers or uncovers. False when the memory can't be had.
bool Cover(unsigned char* covered, std::string_view password, const unsigned char* salt, PasswordCost cost) {
  std::array<unsigned char, kCoveredSize> stream;
  if (crypto_pwhash_scryptsalsa208sha256(stream.data(), stream.size(), password.data(), password.size(), salt,
                                         cost.operations, static_cast<std::size_t>(cost.memory)) != 0) {
    return false;
  }
  for (std::size_t i = 0; i < kCoveredSize; ++i) covered[i] = static_cast<unsigned char>(covered[i] ^ stream[i]);
  sodium_memzero(stream.data(), stream.size());
  return true;
}

std::optional<Bytes> SecretBytes(std::string_view file) {
  if (file.size() > kMaxSignatureFile || !TakeLine(file).starts_with(kUntrusted)) return std::nullopt;
  std::optional<Bytes> bytes = Decode(TakeLine(file), kSecretFile);
  if (!bytes || !HasMark(*bytes, 0, kPlainMark) || !HasMark(*bytes, 4, kChecksumMark) ||
      !(HasMark(*bytes, 2, kPasswordMark) || HasMark(*bytes, 2, kOpenMark))) {
    return std::nullopt;
  }
  return bytes;
}

std::array<unsigned char, 64> Digest(std::string_view bytes) {
  std::array<unsigned char, 64> digest;
  crypto_generichash(digest.data(), digest.size(), Raw(bytes), bytes.size(), nullptr, 0);
  return digest;
}

Bytes SignedComment(const FileSignature& signature) {
  Bytes bytes;
  Append(bytes, signature.signature);
  Append(bytes, signature.trustedComment);
  return bytes;
}

}  // namespace

SecretKey::~SecretKey() { sodium_memzero(seedAndPoint.data(), seedAndPoint.size()); }

KeyPair MakeKeyPair() {
  Start();
  KeyPair pair;
  randombytes_buf(pair.publicKey.id.data(), pair.publicKey.id.size());
  pair.secretKey.id = pair.publicKey.id;
  crypto_sign_keypair(pair.publicKey.point.data(), pair.secretKey.seedAndPoint.data());
  return pair;
}

std::string KeyIdText(const std::array<unsigned char, 8>& id) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = id.size(); i-- > 0;) {
    text += kDigits[id[i] >> 4];
    text += kDigits[id[i] & 0xF];
  }
  return text;
}

std::string PublicKeyWord(const PublicKey& key) {
  Bytes bytes;
  Append(bytes, kPlainMark);
  Append(bytes, key.id);
  Append(bytes, key.point);
  return Encode(bytes);
}

std::string WritePublicKey(const PublicKey& key) {
  return std::string(kUntrusted) + "minisign public key " + KeyIdText(key.id) + "\n" + PublicKeyWord(key) + "\n";
}

std::optional<PublicKey> ReadPublicKey(std::string_view text) {
  if (text.size() > kMaxSignatureFile) return std::nullopt;
  std::string_view line = TakeLine(text);
  if (line.starts_with(kUntrusted)) line = TakeLine(text);
  const std::optional<Bytes> bytes = Decode(line, 42);
  if (!bytes || !HasMark(*bytes, 0, kPlainMark)) return std::nullopt;
  PublicKey key;
  std::copy_n(bytes->begin() + 2, key.id.size(), key.id.begin());
  std::copy_n(bytes->begin() + 10, key.point.size(), key.point.begin());
  return key;
}

std::optional<std::string> WriteSecretKey(const SecretKey& key, const std::optional<std::string>& password,
                                          PasswordCost cost) {
  Start();
  Bytes covered;
  Append(covered, key.id);
  Append(covered, key.seedAndPoint);
  Append(covered, Checksum(covered.data()));
  std::array<unsigned char, 32> salt{};
  if (password) {
    randombytes_buf(salt.data(), salt.size());
    if (!Cover(covered.data(), *password, salt.data(), cost)) return std::nullopt;
  } else {
    cost = {0, 0};
  }
  Bytes bytes;
  Append(bytes, kPlainMark);
  Append(bytes, password ? kPasswordMark : kOpenMark);
  Append(bytes, kChecksumMark);
  Append(bytes, salt);
  AppendNumber(bytes, cost.operations);
  AppendNumber(bytes, cost.memory);
  Append(bytes, covered);
  std::string file = std::string(kUntrusted) + "minisign " + (password ? "encrypted" : "unencrypted") + " secret key\n" + Encode(bytes) + "\n";
  sodium_memzero(covered.data(), covered.size());
  sodium_memzero(bytes.data(), bytes.size());
  return file;
}

bool NeedsPassword(std::string_view file) {
  const std::optional<Bytes> bytes = SecretBytes(file);
  return bytes && HasMark(*bytes, 2, kPasswordMark);
}

std::optional<SecretKey> ReadSecretKey(std::string_view file, std::string_view password, std::string& why) {
  Start();
  std::optional<Bytes> bytes = SecretBytes(file);
  if (!bytes) {
    why = "no secret key";
    return std::nullopt;
  }
  unsigned char* const covered = bytes->data() + kCovered;
  const bool isCovered = HasMark(*bytes, 2, kPasswordMark);
  if (isCovered) {
    const PasswordCost cost{Number(*bytes, kOperations), Number(*bytes, kMemory)};
    if (cost.operations > kUsualCost.operations || cost.memory > kUsualCost.memory) {
      why = "asks for more than a GiB of memory, or for more time than keys do";
      return std::nullopt;
    }
    if (!Cover(covered, password, bytes->data() + kSalt, cost)) {
      why = "the memory that its password needs can't be had";
      return std::nullopt;
    }
  }
  if (sodium_memcmp(Checksum(covered).data(), covered + kSecretPart, 32) != 0) {
    why = isCovered ? "wrong password" : "a damaged secret key";
    return std::nullopt;
  }
  SecretKey key;
  std::copy_n(covered, key.id.size(), key.id.begin());
  std::copy_n(covered + key.id.size(), key.seedAndPoint.size(), key.seedAndPoint.begin());
  sodium_memzero(bytes->data(), bytes->size());
  return key;
}

FileSignature Sign(const SecretKey& key, std::string_view bytes, std::string trustedComment) {
  Start();
  FileSignature signature;
  signature.keyId = key.id;
  signature.trustedComment = std::move(trustedComment);
  const auto digest = Digest(bytes);
  crypto_sign_detached(signature.signature.data(), nullptr, digest.data(), digest.size(), key.seedAndPoint.data());
  const Bytes comment = SignedComment(signature);
  crypto_sign_detached(signature.ofComment.data(), nullptr, comment.data(), comment.size(), key.seedAndPoint.data());
  return signature;
}

std::string WriteSignature(const FileSignature& signature) {
  Bytes bytes;
  Append(bytes, signature.prehashed ? kHashedMark : kPlainMark);
  Append(bytes, signature.keyId);
  Append(bytes, signature.signature);
  const Bytes global(signature.ofComment.begin(), signature.ofComment.end());
  return std::string(kUntrusted) + "signature from minisign secret key\n" + Encode(bytes) + "\n" + std::string(kTrusted) +
         signature.trustedComment + "\n" + Encode(global) + "\n";
}

std::optional<FileSignature> ReadSignature(std::string_view file, std::string& why) {
  const auto refuse = [&why](const char* reason) {
    why = reason;
    return std::nullopt;
  };
  if (file.size() > kMaxSignatureFile) return refuse("too long for a signature");
  if (!TakeLine(file).starts_with(kUntrusted)) return refuse("line 1 isn't an untrusted comment");
  const std::optional<Bytes> bytes = Decode(TakeLine(file), 74);
  if (!bytes || !(HasMark(*bytes, 0, kHashedMark) || HasMark(*bytes, 0, kPlainMark))) {
    return refuse("line 2 isn't a signature");
  }
  std::string_view comment = TakeLine(file);
  if (!comment.starts_with(kTrusted)) return refuse("line 3 isn't a trusted comment");
  comment.remove_prefix(kTrusted.size());
  const std::optional<Bytes> global = Decode(TakeLine(file), 64);
  if (!global) return refuse("line 4 isn't the trusted comment's signature");
  FileSignature signature;
  signature.prehashed = HasMark(*bytes, 0, kHashedMark);
  std::copy_n(bytes->begin() + 2, 8, signature.keyId.begin());
  std::copy_n(bytes->begin() + 10, 64, signature.signature.begin());
  std::copy_n(global->begin(), 64, signature.ofComment.begin());
  signature.trustedComment = comment;
  return signature;
}

std::string Mismatch(const FileSignature& signature, const PublicKey& key, std::string_view bytes) {
  Start();
  if (signature.keyId != key.id) {
    return "signed by key " + KeyIdText(signature.keyId) + ", not by " + KeyIdText(key.id);
  }
  const auto digest = signature.prehashed ? Digest(bytes) : std::array<unsigned char, 64>{};
  const unsigned char* const said = signature.prehashed ? digest.data() : Raw(bytes);
  const std::size_t length = signature.prehashed ? digest.size() : bytes.size();
  if (crypto_sign_verify_detached(signature.signature.data(), said, length, key.point.data()) != 0) {
    return "the signature isn't one of this file by key " + KeyIdText(key.id);
  }
  const Bytes comment = SignedComment(signature);
  if (crypto_sign_verify_detached(signature.ofComment.data(), comment.data(), comment.size(), key.point.data()) != 0) {
    return "the trusted comment isn't the signer's";
  }
  return {};
}

std::optional<std::uint64_t> VersionIn(std::string_view trustedComment) {
  constexpr std::string_view kWord = "version:";
  for (std::size_t at = trustedComment.find(kWord); at != std::string_view::npos; at = trustedComment.find(kWord, at + 1)) {
    const bool begins = at == 0 || trustedComment[at - 1] == ' ' || trustedComment[at - 1] == '\t';
    const std::string_view rest = trustedComment.substr(at + kWord.size());
    std::uint64_t version = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), version);
    const bool ends = end == rest.data() + rest.size() || *end == ' ' || *end == '\t';
    if (begins && error == std::errc{} && ends) return version;
  }
  return std::nullopt;
}

}  // namespace zeph
