// SPDX-License-Identifier: Apache-2.0
#include "gateways/proxy/CurrentJudge.h"

#include <array>
#include <chrono>
#include <utility>

#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/Files.h"
#include "judging/RuleTexts.h"

namespace zeph {

namespace {

/// FNV-1a: nobody gains by two packages that look alike here.
std::uint64_t Digest(std::string_view bytes) noexcept {
  std::uint64_t digest = 0xCBF29CE484222325U;
  for (const char c : bytes) digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  return digest;
}

std::string Hexadecimal(std::uint64_t number) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text(16, '0');
  for (std::size_t i = text.size(); i-- > 0; number >>= 4U) text[i] = kDigits[number & 15U];
  return text;
}

}  // namespace

std::shared_ptr<const CurrentJudge::Standing> CurrentJudge::Now() {
  ConfigurationMgr& manager = Process().configurationMgr;
  manager.Run();
  auto configuration = manager.Active();
  const std::lock_guard lock(mutex_);
  if (standing_ == nullptr || standing_->configuration != configuration) standing_ = Make(std::move(configuration));
  return standing_;
}

std::shared_ptr<const CurrentJudge::Standing> CurrentJudge::Make(
    std::shared_ptr<const ConfigurationPair> configuration) {
  constexpr std::size_t kPackageLimit = std::size_t{1} << 30;
  const std::string source = source_();
  JudgeOptions options;
  options.explains = true;
  if (!source.empty()) options.ruleTexts = LoadRuleTexts(source);
  const auto package = ReadWholeFile(source, kPackageLimit);
  // A folder of sources has no bytes of its own: then each start, and each change, is another version.
  const std::uint64_t version =
      package ? Digest(*package)
              : static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()) + made_;
  ++made_;
  return std::make_shared<const Standing>(Standing{std::move(configuration), Judge(std::move(options)), Hexadecimal(version)});
}

}  // namespace zeph
