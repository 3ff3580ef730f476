// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/Tokens.h"

#include <algorithm>

#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <sys/stat.h>

#include "DetectionEngine/platform/Files.h"

namespace zeph::http_door {

namespace {

constexpr std::size_t kFileLimit = std::size_t{1} << 20;
constexpr std::size_t kNameLimit = 64;
constexpr std::size_t kTokenLeast = 16;
constexpr std::size_t kTokenLimit = 256;

bool IsName(std::string_view name) {
  constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  return name.size() <= kNameLimit && name.find_first_not_of(kLetters) == std::string_view::npos;
}

std::string_view TakeWord(std::string_view& line) {
  constexpr std::string_view kBlanks = " \t\r";
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
  line.remove_prefix(word.size());
  return word;
}

}  // namespace

Tokens::Digest Tokens::DigestOf(std::string_view token) {
  Digest digest{};
  SHA256(reinterpret_cast<const unsigned char*>(token.data()), token.size(), digest.data());
  return digest;
}

std::optional<Tokens> Tokens::Read(const std::string& path, std::string& error) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IRWXO | S_IWGRP)) != 0) {
    error = path + ": others than its owner and group may read it, or others than its owner write to it (chmod 640)";
    return std::nullopt;
  }
  std::error_code code;
  const auto text = ReadWholeFile(path, kFileLimit, &code);
  if (!text) {
    error = path + ": " + (code ? code.message() : "can't be read");
    return std::nullopt;
  }
  Tokens tokens;
  std::size_t number = 0;
  for (std::string_view rest = *text; !rest.empty();) {
    ++number;
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const std::string_view name = TakeWord(line);
    if (name.empty() || name.starts_with('#')) continue;
    const std::string_view token = TakeWord(line);
    // No part of a secret goes into a log.
    const char* what = nullptr;
    if (!IsName(name)) what = "no name of a client";
    else if (token.size() < kTokenLeast || token.size() > kTokenLimit) what = "a token has 16 to 256 characters";
    else if (!TakeWord(line).empty()) what = "more than a name and a token";
    const Digest digest = DigestOf(token);
    for (const Client& client : tokens.clients_) {
      if (client.name == name) what = "a name that stands above";
      if (client.digest == digest) what = "a token that stands above";
    }
    if (what != nullptr) {
      error = path + ":" + std::to_string(number) + ": " + what;
      return std::nullopt;
    }
    tokens.clients_.push_back({std::string(name), digest});
  }
  if (tokens.clients_.empty()) {
    error = path + ": holds no token";
    return std::nullopt;
  }
  return tokens;
}

std::string_view Tokens::NameOf(std::string_view token) const {
  const Digest digest = DigestOf(token);
  std::string_view name;
  for (const Client& client : clients_) {
    if (CRYPTO_memcmp(client.digest.data(), digest.data(), digest.size()) == 0) name = client.name;
  }
  return name;
}

}  // namespace zeph::http_door
