// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::http_door {

/// The clients that may ask, each by a secret. Immutable; any thread.
class Tokens {
 public:
  /// A file of lines "NAME TOKEN"; empty lines and those that begin with "#" are passed over. Names are letters, digits,
  /// ".", "_" and "-"; tokens have 16 characters or more. Nothing, and one line that says where and what in error, when a
  /// line is no such, or others than the file's owner and group may read it, or others than its owner may write to it.
  [[nodiscard]] static std::optional<Tokens> Read(const std::string& path, std::string& error);

  /// The client whose token this is; empty when it is nobody's. Takes as long for any token of a length.
  [[nodiscard]] std::string_view NameOf(std::string_view token) const;

 private:
  using Digest = std::array<unsigned char, 32>;
  struct Client {
    std::string name;
    Digest digest;  ///< of the token: all are of one length, and a dump of the process holds none
  };
  static Digest DigestOf(std::string_view token);

  std::vector<Client> clients_;
};

}  // namespace zeph::http_door
