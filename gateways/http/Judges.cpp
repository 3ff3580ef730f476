// SPDX-License-Identifier: Apache-2.0
#include "gateways/http/Judges.h"

#include <array>
#include <utility>

#include <openssl/sha.h>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/Files.h"
#include "judging/RuleTexts.h"

namespace zeph::http_door {

namespace {

constexpr std::size_t kPackageLimit = std::size_t{1} << 30;
constexpr std::size_t kVersionBytes = 8;

std::string VersionOf(const std::string& path) {
  const auto bytes = ReadWholeFile(path, kPackageLimit);
  if (!bytes) return {};
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(bytes->data()), bytes->size(), digest.data());
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string version;
  for (std::size_t i = 0; i < kVersionBytes; ++i) {
    version += kDigits[digest[i] >> 4U];
    version += kDigits[digest[i] & 15U];
  }
  return version;
}

}  // namespace

std::shared_ptr<const Judges::Pair> Judges::Current() {
  auto configuration = Process().configurationMgr.Active();
  {
    const std::lock_guard lock(mutex_);
    if (current_ != nullptr && current_->configuration == configuration) return current_;
  }
  const std::lock_guard making(making_);
  {
    const std::lock_guard lock(mutex_);
    if (current_ != nullptr && current_->configuration == configuration) return current_;
  }
  auto made = Make(std::move(configuration));
  std::shared_ptr<const Pair> before = made;
  {
    const std::lock_guard lock(mutex_);
    current_.swap(before);
  }
  return made;
}

std::shared_ptr<const Judges::Pair> Judges::Make(std::shared_ptr<const ConfigurationPair> configuration) const {
  std::string source = source_();
  JudgeOptions explaining;
  explaining.explains = true;
  if (!source.empty()) explaining.ruleTexts = LoadRuleTexts(source);
  std::string version = source.empty() ? "" : VersionOf(source);
  const std::int64_t lastWrite = source.empty() ? 0 : LastWriteTime(source);
  return std::make_shared<const Pair>(Pair{std::move(configuration), Judge({}), Judge(std::move(explaining)),
                                           std::move(source), std::move(version), lastWrite});
}

void Judges::Look() {
  ConfigurationMgr& manager = Process().configurationMgr;
  havePackage_ = manager.Run();
  {
    const std::lock_guard making(making_);
    std::string failure = manager.LastFailure();
    if (!failure.empty() && failure != lastFailure_) ++loadFailures_;
    lastFailure_ = std::move(failure);
  }
  static_cast<void>(Current());
}

}  // namespace zeph::http_door
