// SPDX-License-Identifier: Apache-2.0
// What the starter package knows, and verdicts that it has to give. The laws of its sources are those of zeph package
// lint, which the tests of the authoring room hold it to.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/platform/CodePage.h"
#include "TestPaths.h"
#include "judging/Pages.h"
#include "tools/zeph/Common.h"
#include "judging/RuleTexts.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;

const std::string kSources = ZEPH_SOURCE_DIR "/package";

class StarterPackage : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ConfigurationChoice choice;
    choice.sources = kSources;
    UseConfiguration(choice);
    pair_ = ActiveConfiguration();
  }
  static void TearDownTestSuite() { pair_.reset(); }

  [[nodiscard]] static const Configuration& Known() { return pair_->configuration; }
  [[nodiscard]] static const Indicators& Rules() { return pair_->indicators; }

  static inline std::shared_ptr<const ConfigurationPair> pair_;
};

struct Verdict {
  std::int32_t classification = 0;
  std::string siteName;
};

Verdict CheckUrl(std::string_view url) {
  Verdict verdict;
  char16_t siteName[kZephNameRoom] = {};
  float spooficity = 0.0F;
  EXPECT_EQ(ClassifyUrlTraced(Widen(url).c_str(), &verdict.classification, siteName, &spooficity, nullptr), 0) << url;
  verdict.siteName = Narrow(siteName);
  return verdict;
}

bool IsBelow(std::u16string_view host, const NetLocationList& list) {
  return std::ranges::any_of(list.Entries,
                             [&](const NetLocation& entry) { return HostMatchesDomain(host, entry.Name); });
}

// ---- the lists ----

TEST_F(StarterPackage, KnowsTheWorld) {
  EXPECT_GE(Known().PopularSites.Entries.size(), 50U);
  EXPECT_GE(Known().TrustedDomainInfos.size(), 10000U);
  EXPECT_EQ(Known().TrustedDomainInfos.size(), Known().TrustedDomains.Entries.size()) << "a brand stands there twice";
  EXPECT_GE(Known().UrlAnalysisTable.size(), 10000U);
}

// ---- the tokens ----

TEST_F(StarterPackage, HowAddressesWereCollectedIsNoEvidence) {
  for (const char16_t* const token : {u"BD*http", u"BD*https", u"BE*-1", u"AE*www", u"BE*80", u"BE*443"}) {
    const double* const probability = Known().UrlAnalysisTable.Find(token);
    ASSERT_NE(probability, nullptr) << Narrow(token);
    EXPECT_EQ(*probability, 0.5) << Narrow(token);
  }
}

TEST_F(StarterPackage, EveryRuleThatCountsSaysWhy) {
  std::ifstream file(fs::path(kSources) / "Indicators.xml", std::ios::binary);
  std::stringstream content;
  content << file.rdbuf();
  const std::vector<RuleText> texts = ReadRuleTexts(content.str());
  ASSERT_EQ(texts.size(), Rules().Entries.size());
  std::set<std::string> names;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_TRUE(names.insert(texts[i].name).second && !texts[i].name.empty()) << "rule " << i << ": " << texts[i].name;
    EXPECT_TRUE(Rules().Entries[i].OnWeight == kNoWeight || !texts[i].sentence.empty()) << texts[i].name;
  }
}

// ---- verdicts ----

TEST_F(StarterPackage, NoBrandIsHeldForItsOwnPages) {
  std::set<std::u16string> domains;
  for (const auto& [key, info] : Known().TrustedDomainInfos) domains.insert(info.DT.begin(), info.DT.end());
  for (const NetLocation& safe : Known().SafeList.Domains) domains.insert(safe.Name);
  for (const NetLocation& safe : Known().SafeList.Others.Entries) domains.insert(safe.Name);
  for (const std::u16string& domain : domains) {
    const std::string site = "https://www." + Narrow(domain);
    if (IsBelow(domain, Known().ExceptionDomains)) {
      EXPECT_EQ(CheckUrl(site + "/").classification, kZephUnclassified) << site;
      continue;
    }
    for (const char* const path : {"/", "/signin?verify=account", "/wp-content/themes/x/login.php"}) {
      EXPECT_EQ(CheckUrl(site + path).classification, kZephTrustworthy) << site << path;
    }
  }
}

TEST_F(StarterPackage, GivesTheVerdictsOfAddresses) {
  struct Case {
    std::int32_t classification;
    const char* brand;  // of what is held
    const char* url;
  };
  constexpr Case kCases[] = {
      {kZephSpoofingConfirmed, "PayPal", "http://paypal.com.account-verify.example.net/webscr?cmd=_login-run"},
      {kZephSpoofingConfirmed, "PayPal", "http://www.paypal.com@evil.example/login"},
      {kZephSpoofingConfirmed, "PayPal", "https://sites.google.com/view/paypal-login-help/home"},
      {kZephSpoofingConfirmed, "PayPal", "https://www.google.com/url?q=http://paypal.com.example.net/login&sa=D"},
      {kZephSpoofingConfirmed, "PayPal", "http://garden.example/wp-content/plugins/paypal/index.html"},
      {kZephSpoofingConfirmed, "PayPal", "http://blocked.zeph.example/"},
      {kZephSpoofingConfirmed, "Steam", "https://steamcommunlty.com/login/home/"},
      {kZephSpoofingConfirmed, "USPS", "https://usps.com-tracking.top/us"},
      {kZephSpoofingConfirmed, "Microsoft", "https://office365-signin.pages.dev/"},
      {kZephTrustworthy, "", "https://en.wikipedia.org/wiki/Phishing"},
      {kZephTrustworthy, "", "https://www.paypal.com/signin"},
      {kZephTrustworthy, "", "https://accounts.google.com/ServiceLogin?continue=https%3A%2F%2Fmail.google.com"},
      {kZephTrustworthy, "", "https://login.microsoftonline.com/common/oauth2/authorize"},
      {kZephTrustworthy, "", "https://www.bbc.co.uk/news/technology-paypal-login-accounts-hacked"},
      {kZephTrustworthy, "", "https://www.nytimes.com/2026/paypal/login.html"},
      {kZephTrustworthy, "", "https://duckduckgo.com/?q=paypal+login+verify+account"},
      {kZephUnclassified, "", "https://docs.google.com/forms/d/e/1FAIpQLSd/viewform"},
      {kZephUnclassified, "", "https://WWW.PayPal.com/signin"},
      {kZephUnclassified, "", "https://www.google.com/url?q=https%3A%2F%2Fpaypal.com.example.net%2Flogin"},
      {kZephUnclassified, "", "http://192.168.1.1/login.html"},
      {kZephUnclassified, "", "https://someone.github.io/garden-tools/login.html"},
      {kZephUnclassified, "", "https://recording.de/login"},
      {kZephScriptAttack, "", "https://example.org/search?q=%3Cscript%3Ealert(1)%3C/script%3E"},
  };
  for (const Case& one : kCases) {
    const Verdict verdict = CheckUrl(one.url);
    EXPECT_EQ(verdict.classification, one.classification) << one.url;
    EXPECT_EQ(verdict.siteName, one.brand) << one.url;
  }
}

TEST_F(StarterPackage, GivesTheVerdictsOfPages) {
  const std::string login =
      "<title>Log in to your PayPal account</title><form action=login.php><p>Email <input name=e><p>Password "
      "<input type=password name=p><input type=submit value='Log in'></form><a "
      "href=https://www.paypal.com/help>Help</a>";
  std::string article =
      "<title>How PayPal lost its way - The Garden Post</title>"
      "<form action=https://www.gardenpost.example/login>Name <input name=n> Password <input type=password></form>";
  for (int i = 0; i < 60; ++i) {
    article +=
        "<p>Word after word stands here, as in any article of a paper that people like to read.</p><a href=/story" +
        std::to_string(i) + ">More</a>";
  }
  const std::string contact =
      "<title>Contact</title><form action=send.php>Name <input name=n> Mail <input name=m>"
      "<textarea name=t></textarea><input type=submit></form><p>\xC2\xA9 2026 Garden Post";
  struct Case {
    std::int32_t classification;
    const char* brand;
    const char* url;
    const std::string& html;
  };
  const Case cases[] = {
      {kZephSpoofing, "PayPal", "http://www.quarrelsome-otter.example/area/page.html", login},
      {kZephTrustworthy, "PayPal", "https://www.paypal.com/signin", login},
      {kZephUnclassified, "PayPal", "https://www.gardenpost.example/2026/paypal", article},
      {kZephUnclassified, "", "https://www.gardenpost.example/contact", contact},
  };
  const fs::path file = fs::path(testing::TempDir()) / "starter-package-page.html";
  for (const Case& one : cases) {
    std::ofstream(file, std::ios::binary) << "<!DOCTYPE html><meta charset=utf-8>" << one.html;
    std::string error;
    std::optional<PageSource> source = ReadPageFile(file.string(), error);
    ASSERT_TRUE(source) << error;
    const std::u16string url = Widen(one.url);
    const std::unique_ptr<LoadedPage> page = OpenPage(*std::move(source), url, url);
    std::int32_t classification = 0;
    float spooficity = 0.0F;
    EngineResults* report = nullptr;  // given, so that no server is asked
    char16_t siteName[kZephNameRoom] = {};
    EXPECT_EQ(ClassifySiteTraced(&page->Document(), &classification, siteName, nullptr, &report, &spooficity, nullptr),
              0);
    ReleaseEngineResults(report);
    EXPECT_EQ(classification, one.classification) << one.url << ", spooficity " << spooficity;
    EXPECT_EQ(Narrow(siteName), one.brand) << one.url;
  }
  fs::remove(file);
}

}  // namespace
}  // namespace zeph
