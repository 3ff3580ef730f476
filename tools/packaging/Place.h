// SPDX-License-Identifier: Apache-2.0
// The place where a package is in force, with the earlier ones beside it:
//
//     NAME.zip                  in force; engines look at nothing else
//     NAME.zip.minisig          its signature, if it has one
//     NAME.zip.earlier/000007/  an earlier one: package.zip and package.zip.minisig
//
// Every step that others see is one rename of what is whole on the disk, so whoever is stopped at any point, by a kill or a
// full disk, leaves a package that works; what he left half done is made good by the next change.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zeph {

inline constexpr std::size_t kEarlierPackages = 3;

struct SignedPackage {
  std::string bytes;
  std::string signature;  ///< the text of its .minisig; empty: none
};

class PackagePlace {
 public:
  /// path: of NAME.zip. step, if given, is called with what has just been done, for tests.
  explicit PackagePlace(std::string path, std::function<void(const char* done)> step = nullptr);

  /// Puts a package in force, at a file time later than that of the one before, which is kept. instead: what is kept as
  /// the earlier one where none is in force. Empty, or what failed and where; the package before is then still in force.
  [[nodiscard]] std::string Install(const SignedPackage& package, const std::optional<SignedPackage>& instead = {});

  /// Puts the last earlier one back, at a file time later still. Empty, or why not.
  [[nodiscard]] std::string Rollback();

  /// What is in force; nothing, with the reason in why, when it can't be read.
  [[nodiscard]] std::optional<SignedPackage> Current(std::string& why) const;
  [[nodiscard]] const std::string& Path() const noexcept { return path_; }

 private:
  [[nodiscard]] std::string Put(const SignedPackage& package, bool signatureFirst);
  [[nodiscard]] std::string PutSignature(const std::string& text);
  [[nodiscard]] std::string Keep(const SignedPackage& package);
  void Done(const char* step) const;

  std::string path_;
  std::string earlier_;
  std::function<void(const char*)> step_;
};

/// A package and the signature beside it, if there is one.
[[nodiscard]] std::optional<SignedPackage> ReadSignedPackage(const std::string& path, std::string& why);

}  // namespace zeph
