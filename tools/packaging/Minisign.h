// SPDX-License-Identifier: Apache-2.0
// Signatures of files in the form of minisign: short texts beside the file, Ed25519 over a BLAKE2b digest, secret keys
// under a password. Any thread; nothing is kept.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

/// What a signature's file is called: that of the signed file and this.
inline constexpr std::string_view kSignatureEnding = ".minisig";
/// No key or signature is longer.
inline constexpr std::size_t kMaxSignatureFile = 16384;

struct PublicKey {
  std::array<unsigned char, 8> id{};
  std::array<unsigned char, 32> point{};

  friend bool operator==(const PublicKey&, const PublicKey&) = default;
};

/// Wiped when it goes.
struct SecretKey {
  std::array<unsigned char, 8> id{};
  std::array<unsigned char, 64> seedAndPoint{};

  SecretKey() = default;
  SecretKey(const SecretKey&) = default;
  SecretKey& operator=(const SecretKey&) = default;
  ~SecretKey();
};

struct FileSignature {
  std::array<unsigned char, 8> keyId{};
  std::array<unsigned char, 64> signature{};
  std::array<unsigned char, 64> ofComment{};  ///< over signature and trustedComment
  bool prehashed = true;                      ///< false: the old form, over the file itself
  std::string trustedComment;
};

/// How dear a password is to guess.
struct PasswordCost {
  std::uint64_t operations;
  std::uint64_t memory;  ///< bytes
};
/// What minisign takes: a GiB of memory, some seconds.
inline constexpr PasswordCost kUsualCost{33'554'432, 1'073'741'824};

struct KeyPair {
  PublicKey publicKey;
  SecretKey secretKey;
};
/// Throws std::runtime_error when the machine gives no random numbers.
[[nodiscard]] KeyPair MakeKeyPair();

/// A key's id as people are shown it: 16 hexadecimal digits.
[[nodiscard]] std::string KeyIdText(const std::array<unsigned char, 8>& id);

/// The file of a public key, and the key as one word, its last line.
[[nodiscard]] std::string WritePublicKey(const PublicKey& key);
[[nodiscard]] std::string PublicKeyWord(const PublicKey& key);
/// Of a file or of the word alone. Nothing: it is neither.
[[nodiscard]] std::optional<PublicKey> ReadPublicKey(std::string_view text);

/// The file of a secret key. Without password it lies open. Nothing when the memory for the password can't be had.
[[nodiscard]] std::optional<std::string> WriteSecretKey(const SecretKey& key, const std::optional<std::string>& password,
                                                        PasswordCost cost = kUsualCost);
/// True when the file is one of a secret key under a password.
[[nodiscard]] bool NeedsPassword(std::string_view file);
/// Nothing, with the reason in why: no such file, a wrong password, or one that costs more than kUsualCost to try.
[[nodiscard]] std::optional<SecretKey> ReadSecretKey(std::string_view file, std::string_view password, std::string& why);

/// trustedComment is one line.
[[nodiscard]] FileSignature Sign(const SecretKey& key, std::string_view bytes, std::string trustedComment);
[[nodiscard]] std::string WriteSignature(const FileSignature& signature);
/// Nothing, with the reason in why, for what isn't such a file.
[[nodiscard]] std::optional<FileSignature> ReadSignature(std::string_view file, std::string& why);
/// Empty, or why the signature isn't one of these bytes, and of its comment, by this key.
[[nodiscard]] std::string Mismatch(const FileSignature& signature, const PublicKey& key, std::string_view bytes);

/// The number behind the word "version:" of a trusted comment; nothing when there is none.
[[nodiscard]] std::optional<std::uint64_t> VersionIn(std::string_view trustedComment);

}  // namespace zeph
