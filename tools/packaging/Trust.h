// SPDX-License-Identifier: Apache-2.0
// Whose signatures of packages this machine believes, as its administrator has set it. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/packaging/Minisign.h"
#include "tools/packaging/Place.h"

namespace zeph {

/// Where the machine's settings hold it.
inline constexpr std::string_view kPackageSettingsKey = "Software\\Corvanta\\Shared Agent\\Packages";
inline constexpr std::string_view kTrustedKeysSetting = "TrustedPackageKeys";
inline constexpr std::string_view kUnsignedSetting = "UnsignedPackages";

struct PackageTrust {
  std::vector<PublicKey> keys;
  bool takesUnsigned = true;
  std::string refusal;  ///< not empty: what is set can't be read, so that nothing is to be believed
};

/// Public keys, each one word, blanks between. Nothing, with the reason in why, when a word is no key.
[[nodiscard]] std::optional<std::vector<PublicKey>> ReadTrustedKeys(std::string_view words, std::string& why);
[[nodiscard]] PackageTrust MachinesTrust();

/// What a package's signature is worth.
struct SignatureFinding {
  bool isTrusted = false;  ///< by a trusted key, and whole
  bool isBroken = false;   ///< unreadable, or not what the trusted key it names has signed
  std::string words;       ///< for people
  std::optional<std::uint64_t> version;  ///< by the trusted comment
};
[[nodiscard]] SignatureFinding LookAtSignature(const SignedPackage& package, const PackageTrust& trust);

}  // namespace zeph
