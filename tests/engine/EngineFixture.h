// SPDX-License-Identifier: Apache-2.0
// What the tests of the engine share: a machine of their own, a configuration in force, and callbacks that stand for
// the server.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/SettingsStore.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tests/platform/TestFolders.h"

namespace zeph::test {

/// What the server was asked and told, and what it answers.
struct FakeServer {
  std::int32_t answer = kZephSpoofing;
  std::vector<std::string> checked;
  std::vector<std::string> reported;
};
inline FakeServer fakeServer;

/// A rule that runs in a stage, never holds, and weighs this much all the same.
inline Indicator AlwaysWeighs(std::uint32_t stage, float weight) {
  constexpr std::uint32_t kNever = 55;
  Indicator indicator;
  indicator.OffWeight = weight;
  indicator.Rule.Category = stage;
  indicator.Rule.Expressions.push_back({0, kNever, {}});
  return indicator;
}

class EngineTest : public FoldersTest {
 protected:
  EngineTest() {
    SetSettingsKeyPath("Vendor", "Module");
    SetPrivacy(0);
    fakeServer = {};
    SetServerCallbacks(
        [](const char16_t* url, const char16_t*) {
          fakeServer.checked.push_back(Narrow(url));
          return fakeServer.answer;
        },
        [](const char16_t* url, const char16_t*) {
          fakeServer.reported.push_back(Narrow(url));
          return std::int32_t{1};
        });
  }
  ~EngineTest() override { SetServerCallbacks(nullptr, nullptr); }

  /// Puts rules and brands in force.
  static std::shared_ptr<const ConfigurationPair> Publish(std::vector<Indicator> rules, bool isClient = true) {
    auto pair = std::make_shared<ConfigurationPair>();
    pair->configuration.Resources.Server = u"check.example.test";
    pair->configuration.IsClient = isClient;
    pair->configuration.TrustedDomainInfos[u"bank.example"].CN = u"Corvus Bank";
    pair->configuration.TrustedDomainInfos[u"quiet.example"].NT = false;
    pair->configuration.Redirectors.push_back({u"http://away.example/?", u"", false, false});
    pair->configuration.BuildIndexes();
    pair->indicators.Entries = std::move(rules);
    pair->indicators.Prepare();
    Process().configurationMgr.Publish(pair);
    return pair;
  }
};

}  // namespace zeph::test
