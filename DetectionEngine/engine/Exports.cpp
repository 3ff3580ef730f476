// SPDX-License-Identifier: Apache-2.0
// The exported functions. Each is short here; the work stands in the rooms.
#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/EngineResults.h"
#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/Pack.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/engine/ServerCalls.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/server/ExchangeRules.h"

namespace zeph {

namespace {

constexpr std::int32_t kHighestPrivacyLevel = 2;

/// The function of each ordinal. Numbers are fixed for ever; the gaps were never assigned.
const std::array<ZephFunction, 21> kOrdinals = {
    nullptr,
    reinterpret_cast<ZephFunction>(&CheckURL),
    reinterpret_cast<ZephFunction>(&GetEngineVersion),
    nullptr,
    reinterpret_cast<ZephFunction>(&ReportURL),
    nullptr,
    nullptr,
    reinterpret_cast<ZephFunction>(&SetServerCallbacks),
    reinterpret_cast<ZephFunction>(&GetServerName),
    reinterpret_cast<ZephFunction>(&ClassifyDocument),
    reinterpret_cast<ZephFunction>(&ClassifyURL),
    reinterpret_cast<ZephFunction>(&EngineReserved),
    reinterpret_cast<ZephFunction>(&SetPreferences),
    reinterpret_cast<ZephFunction>(&ReleaseEngineResults),
    reinterpret_cast<ZephFunction>(&ClassifySite),
    reinterpret_cast<ZephFunction>(&IsTRLMBrandID),
    reinterpret_cast<ZephFunction>(&BuildCabinet),
    reinterpret_cast<ZephFunction>(&PackFiles),
    reinterpret_cast<ZephFunction>(&SetConfigFileBaseName),
    reinterpret_cast<ZephFunction>(&SetPrivacy),
    reinterpret_cast<ZephFunction>(&GetPrivacy),
};

/// Runs an export's work; what can still be thrown is want of memory, which must not leave the library.
template <class Work, class Result>
Result Guarded(Work&& work, Result onFailure) noexcept {
  try {
    return work();
  } catch (...) {
    DebugLog("DetectionEngine", "out of memory", "", 0, kLogError);
    return onFailure;
  }
}

}  // namespace

}  // namespace zeph

using namespace zeph;

extern "C" {

std::int32_t CheckURL(ZephWideString url, std::int32_t* classification) {
  return Guarded(
      [&] {
        if (classification == nullptr) return 0;
        bool sent = false;
        *classification =
            AskServer(url.text != nullptr ? std::u16string(url.text, url.length) : std::u16string(), sent);
        return 0;
      },
      0);
}

std::int32_t GetEngineVersion(std::int32_t* version) {
  if (version == nullptr) return 1;
  return Guarded(
      [&] {
        const auto pair = Process().configurationMgr.Active();
        const auto found = ReadVersionResource(Narrow(pair->configuration.ModulePath));
        if (!found) return 1;
        // The last number tells 32-bit Windows (1) from everything else.
        const std::array<std::int32_t, 5> numbers = {0, (*found)[0], (*found)[1], (*found)[2], 2};
        std::ranges::copy(numbers, version);
        return 0;
      },
      1);
}

std::int32_t ReportURL(const char16_t* url, std::int32_t reportCode, const char16_t* context) {
  bool sent = false;
  return Guarded([&] { return TellServer(url, reportCode, context, sent); }, 1);
}

std::int32_t SetServerCallbacks(ZephCheckCallback checkCallback, ZephReportCallback reportCallback) {
  Process().checkUrlCallback = checkCallback;
  Process().reportUrlCallback = reportCallback;
  return 0;
}

std::int32_t GetServerName(char16_t* serverName) {
  if (serverName == nullptr) return 1;
  return Guarded(
      [&] {
        if (!Process().configurationMgr.Run()) return 1;
        const auto pair = Process().configurationMgr.Active();
        const std::u16string& server = pair->configuration.Resources.Server;
        *std::ranges::copy(server.substr(0, kZephNameRoom - 1), serverName).out = u'\0';
        return server.empty() ? 1 : 0;
      },
      1);
}

std::int32_t ClassifyDocument(ZephDocument* document, std::int32_t* classification, char16_t* siteName,
                              float* spooficity) {
  return ClassifySite(document, classification, siteName, nullptr, nullptr, spooficity);
}

std::int32_t ClassifyURL(const char16_t* url, std::int32_t* classification, char16_t* siteName, float* spooficity) {
  return Guarded([&] { return ClassifyUrlTraced(url, classification, siteName, spooficity, nullptr); },
                 std::int32_t{kZephOutOfMemory});
}

void EngineReserved(std::int32_t, std::int32_t, std::int32_t) {}

std::int32_t SetPreferences(std::int32_t, std::int32_t privacy, std::int32_t logLevel, const char* vendorName,
                            std::uint8_t verifySignature, const char* moduleName) {
  return Guarded(
      [&] {
        const std::string module = moduleName != nullptr ? moduleName : "";
        Process().privacyLevel = privacy;
        Process().configurationMgr.SetVerifyPackageSignature(verifySignature != 0);
        if (vendorName != nullptr && !SetVendorName(vendorName)) {
          LogLine("SetPreferences VendorName", "it can't name a folder, and is left as it was", kLogWarning);
        }
        SetSettingsKeyPath(VendorName(), module);
        SetLogLevel(logLevel);
        LogLine("SetPreferences ModuleName", module, kLogInformation);
        LogLine("SetPreferences VendorName", VendorName(), kLogInformation);
        return 0;
      },
      0);
}

void ReleaseEngineResults(ZephEngineResults* results) { delete results; }

std::int32_t ClassifySite(ZephDocument* document, std::int32_t* classification, char16_t* siteName,
                          const char16_t* pageUrl, ZephEngineResults** engineResults, float* spooficity) {
  return Guarded(
      [&] {
        return ClassifySiteTraced(document, classification, siteName, pageUrl, engineResults, spooficity, nullptr);
      },
      std::int32_t{kZephOutOfMemory});
}

std::int32_t IsTRLMBrandID(const char16_t* brandId, std::uint8_t* found) {
  if (brandId == nullptr || found == nullptr) return 1;
  *found = 0;
  return Guarded(
      [&] {
        const auto pair = Process().configurationMgr.Active();
        const auto& ids = pair->configuration.Resources.TRLMBrandIDs;
        *found = std::ranges::find(ids, std::u16string_view(brandId)) != ids.end() ? 1 : 0;
        return 0;
      },
      1);
}

std::int32_t BuildCabinet(const char* const* files, std::int32_t count, const char* cabName, const char* cabPath) {
  return Guarded([&] { return MakeCabinet(files, count, cabName, cabPath) ? 1 : 0; }, 0);
}

std::int32_t PackFiles(const char* const* files, std::int32_t count, const char* outputFile) {
  return Guarded([&] { return MakePack(files, count, outputFile) ? 1 : 0; }, 0);
}

void SetConfigFileBaseName(const char* baseName) {
  if (baseName == nullptr) return;
  Guarded(
      [&] {
        Process().configurationMgr.SetConfigFileBaseName(baseName);
        return 0;
      },
      0);
}

std::size_t GetLoadFailure(char* text, std::size_t room) {
  return Guarded(
      [&] {
        const std::string failure = Process().configurationMgr.LastFailure();
        if (text != nullptr && room != 0) text[failure.copy(text, room - 1)] = '\0';
        return failure.size();
      },
      std::size_t{0});
}

std::int32_t SetPrivacy(std::uint32_t level) {
  return Guarded(
      [&] {
        LogLine(
            "SetResults", [&] { return "SetPrivacy(" + std::to_string(static_cast<std::int32_t>(level)) + ")"; },
            kLogDetail);
        if (level > kHighestPrivacyLevel) return -1;
        return Process().privacyLevel.exchange(static_cast<std::int32_t>(level));
      },
      -1);
}

std::int32_t GetPrivacy(void) { return Process().privacyLevel; }

std::int32_t SetEngineOption(std::int32_t option, std::int32_t value) {
  return Guarded(
      [&] {
        const bool isSwitch = value == 0 || value == 1;
        switch (option) {
          case kZephRemember:
            return value == 1 && SettingsStore().EnsureKey() ? 0 : 1;
          case kZephWarningMemory:
            if (isSwitch) Process().usesWarningMemory = value == 1;
            return isSwitch ? 0 : 1;
          case kZephStrictServer:
            if (isSwitch) SetStrictServer(value == 1);
            return isSwitch ? 0 : 1;
          case kZephServerRest:
            if (value >= 0) SetServerRest(std::chrono::seconds(value));
            return value >= 0 ? 0 : 1;
          default:
            return 1;
        }
      },
      1);
}

ZephFunction DetectionEngineOrdinal(std::uint32_t number) {
  return number < kOrdinals.size() ? kOrdinals[number] : nullptr;
}

}  // extern "C"
