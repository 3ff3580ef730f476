// SPDX-License-Identifier: Apache-2.0
#include "tools/packaging/Trust.h"

#include <algorithm>
#include <sstream>
#include <variant>

#include "DetectionEngine/platform/SettingsHive.h"

namespace zeph {

std::optional<std::vector<PublicKey>> ReadTrustedKeys(std::string_view words, std::string& why) {
  std::vector<PublicKey> keys;
  std::istringstream text{std::string(words)};
  for (std::string word; text >> word;) {
    const std::optional<PublicKey> key = ReadPublicKey(word);
    if (!key) {
      why = "\"" + word + "\" is no public key; the last line of the key's file is one";
      return std::nullopt;
    }
    keys.push_back(*key);
  }
  return keys;
}

PackageTrust MachinesTrust() {
  PackageTrust trust;
  const SettingsHive hive(HiveOwner::kMachine);
  const SettingValues values = hive.ReadKey(kPackageSettingsKey).value_or(SettingValues{});
  if (const auto found = values.find(kTrustedKeysSetting); found != values.end()) {
    const auto* const words = std::get_if<std::string>(&found->second);
    std::string why = "it is no text";
    auto keys = words != nullptr ? ReadTrustedKeys(*words, why) : std::nullopt;
    if (keys) {
      trust.keys = *std::move(keys);
    } else {
      trust.refusal = "setting " + std::string(kTrustedKeysSetting) + ": " + why;
    }
  }
  if (const auto found = values.find(kUnsignedSetting); found != values.end()) {
    const auto* const number = std::get_if<std::uint32_t>(&found->second);
    trust.takesUnsigned = number != nullptr && *number == 1;
  }
  return trust;
}

SignatureFinding LookAtSignature(const SignedPackage& package, const PackageTrust& trust) {
  SignatureFinding finding;
  if (package.signature.empty()) {
    finding.words = "not signed";
    return finding;
  }
  std::string why;
  const std::optional<FileSignature> signature = ReadSignature(package.signature, why);
  if (!signature) {
    finding.isBroken = true;
    finding.words = "the signature can't be read: " + why;
    return finding;
  }
  finding.version = VersionIn(signature->trustedComment);
  const auto key = std::ranges::find(trust.keys, signature->keyId, &PublicKey::id);
  if (key == trust.keys.end()) {
    finding.words = "signed by key " + KeyIdText(signature->keyId) + ", which isn't trusted here";
    return finding;
  }
  why = Mismatch(*signature, *key, package.bytes);
  finding.isBroken = !why.empty();
  finding.isTrusted = why.empty();
  std::string comment = signature->trustedComment;
  std::ranges::replace(comment, '\t', ' ');
  finding.words = why.empty() ? "signed by trusted key " + KeyIdText(key->id) + ": " + comment : why;
  return finding;
}

}  // namespace zeph
