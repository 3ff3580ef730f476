// SPDX-License-Identifier: Apache-2.0
// The laws that the sources of the starter package keep to, and verdicts that it has to give. The sources have no error
// reporting of their own: a line that doesn't fit is passed over, so what is misspelled there is missed only here.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/configuration/TextSources.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/FieldValue.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Method.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlParser.h"
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

// ---- the files ----

TEST_F(StarterPackage, EveryLineIsReadAndSaysSomething) {
  const std::set<std::string, std::less<>> marks = {
      "<Trusted.Domain>", "</Trusted.Domain>", "<Exception.Domains>", "</Exception.Domains>", "<Indicator>",
      "</Indicator>",     "<Expression>",      "</Expression>",       "<ProxyPattern>",       "</ProxyPattern>"};
  const std::map<std::string, std::set<std::string, std::less<>>> values = {
      {"TrustedDomains.xml", {"<Domain>", "<CN>", "<UT>", "<TT>", "<CT>", "<DT>", "<NT>"}},
      {"SafeList", {"<Domain>"}},
      {"Identifiers.xml", {"<Domain>", "<URL>", "<Hostname>", "<TD>"}},
      {"PopularSites.xml", {"<Domain>"}},
      {"SearchServices.xml", {"<Domain>", "<Hostname>"}},
      {"WebHostingSites.xml", {"<Domain>"}},
      {"Redirectors.xml", {"<StartsWith>", "<UrlIsValueOfKey>", "<SkipNumericOptions>", "<CompleteScheme>"}},
      {"URLAnalysis.xml", {"<k>", "<p>", "<w>"}},
      {"Resources.xml",
       {"<Server>", "<ConfigFile>", "<DownloadFrequency>", "<Group>", "<TRLMBrands>", "<TRLMBrandIDs>"}},
      {"Indicators.xml",
       {"<Name>", "<Sentence>", "<Category>", "<OnWeight>", "<OffWeight>", "<TDPriority>", "<OperatorID>", "<FieldID>", "<MethodID>",
        "<ValueType>", "<Value>"}}};
  for (const auto& [name, tags] : values) {
    std::ifstream file(fs::path(kSources) / name, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    const std::string text = content.str();
    ASSERT_FALSE(text.empty()) << name;
    std::string_view rest = text;
    int number = 0;
    while (const std::optional<SourceLine> line = NextLine(rest)) {
      ++number;
      const bool isText = std::ranges::all_of(line->line, [](char c) { return c >= ' ' && c <= '~'; });
      EXPECT_TRUE(isText) << name << ":" << number << ": " << line->line;
      if (line->tag.starts_with("<!--")) {
        EXPECT_TRUE(line->tag.ends_with("-->")) << name << ":" << number << ": " << line->line;
      } else if (line->tag.starts_with("<Trusted.Domain D=\"")) {
        EXPECT_EQ(name, "SafeList");
      } else if (!marks.contains(line->tag)) {
        EXPECT_TRUE(tags.contains(line->tag)) << name << ":" << number << ": " << line->line;
        EXPECT_FALSE(line->tagValue.empty()) << name << ":" << number << ": " << line->line;
      }
    }
    EXPECT_TRUE(rest.empty()) << name << " is read up to line " << number << " only";
  }
}

// ---- the lists ----

TEST_F(StarterPackage, ListsHoldPlainHostsEachOnce) {
  const std::vector<std::pair<std::string, const NetLocationList*>> lists = {
      {"TrustedDomains", &Known().TrustedDomains},     {"SafeList.Others", &Known().SafeList.Others},
      {"ExceptionDomains", &Known().ExceptionDomains}, {"PopularSites", &Known().PopularSites},
      {"SearchServices", &Known().SearchServices},     {"WebHostingSites", &Known().WebHostingSites}};
  const auto look = [](const std::string& list, const std::vector<NetLocation>& entries) {
    std::set<std::u16string> seen;
    for (const NetLocation& entry : entries) {
      // A network would have every host that has a name looked up in the DNS.
      EXPECT_NE(entry.Type, kNetwork) << list;
      EXPECT_TRUE(seen.insert(entry.Name).second) << list << " holds twice: " << Narrow(entry.Name);
      EXPECT_NE(entry.Name.find(u'.'), std::u16string::npos) << list << ": " << Narrow(entry.Name);
      EXPECT_EQ(Narrow(entry.Name).find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-"), std::string::npos)
          << list << ": " << Narrow(entry.Name);
    }
  };
  for (const auto& [name, list] : lists) look(name, list->Entries);
  look("SafeList.Domains", Known().SafeList.Domains);
}

TEST_F(StarterPackage, BrandsAreWhole) {
  EXPECT_GE(Known().TrustedDomainInfos.size(), 1000U);
  EXPECT_EQ(Known().TrustedDomainInfos.size(), Known().TrustedDomains.Entries.size()) << "a brand stands there twice";
  std::map<std::u16string, std::u16string> owners;
  for (const auto& [key, info] : Known().TrustedDomainInfos) {
    SCOPED_TRACE(Narrow(key));
    EXPECT_FALSE(info.CN.empty());
    EXPECT_LT(info.CN.size(), std::size_t{kZephNameRoom});
    ASSERT_FALSE(info.DT.empty());
    EXPECT_EQ(info.DT.front(), key);
    for (const std::u16string& domain : info.DT) {
      const auto [owner, isNew] = owners.emplace(domain, key);
      EXPECT_TRUE(isNew) << Narrow(domain) << " is also a domain of " << Narrow(owner->second);
      EXPECT_TRUE(domain == key || Known().SafeList.Contains(domain)) << Narrow(domain) << " isn't in the safe list";
    }
    for (const auto* tags : {&info.UT, &info.TT, &info.CT}) {
      for (const std::u16string& tag : *tags) EXPECT_EQ(tag, ToLower(tag));
    }
    for (const std::u16string& tag : info.UT) EXPECT_GE(tag.size(), 4U) << Narrow(tag) << " is part of too many words";
  }
}

// The search for a tag probes a sorted list: a brand's tag that is the beginning of another's can hide it.
TEST_F(StarterPackage, NoBrandsTagIsTheBeginningOfAnothers) {
  for (const auto list : {&TrustedDomainInfo::UT, &TrustedDomainInfo::TT}) {
    std::map<std::u16string, std::u16string> owners;
    for (const auto& [key, info] : Known().TrustedDomainInfos) {
      for (const std::u16string& tag : info.*list) owners.emplace(tag, key);
    }
    const std::pair<const std::u16string, std::u16string>* before = nullptr;
    for (const auto& entry : owners) {
      // In titles words are whole: a longer word is another.
      const bool begins = before != nullptr && entry.first.starts_with(before->first) &&
                          (list == &TrustedDomainInfo::UT || !std::isalpha(entry.first[before->first.size()]));
      if (!begins) {
        before = &entry;
      } else {
        EXPECT_EQ(entry.second, before->second) << Narrow(before->first) << " hides " << Narrow(entry.first);
      }
    }
  }
}

TEST_F(StarterPackage, ListsDoNotContradictEachOther) {
  for (const NetLocation& popular : Known().PopularSites.Entries) {
    SCOPED_TRACE(Narrow(popular.Name));
    EXPECT_FALSE(IsBelow(popular.Name, Known().WebHostingSites)) << "a popular site hosts users' pages";
    for (const auto& [key, info] : Known().TrustedDomainInfos) {
      for (const std::u16string& domain : info.DT) {
        EXPECT_FALSE(HostMatchesDomain(domain, popular.Name)) << "hides a domain of " << Narrow(key);
      }
    }
  }
  for (const NetLocation& search : Known().SearchServices.Entries) {
    EXPECT_FALSE(IsBelow(search.Name, Known().WebHostingSites)) << Narrow(search.Name);
  }
  for (const NetLocation& exception : Known().ExceptionDomains.Entries) {
    EXPECT_TRUE(IsBelow(exception.Name, Known().TrustedDomains) || Known().SafeList.Contains(exception.Name))
        << Narrow(exception.Name) << " is an exception to nothing";
  }
}

TEST_F(StarterPackage, EachRedirectorFindsItsTarget) {
  for (const Redirector& redirector : Known().Redirectors) {
    std::u16string url = redirector.StartsWith;
    if (!redirector.UrlIsValueOfKey.empty()) {
      url += (url.ends_with(u'?') ? u"" : u"?") + redirector.UrlIsValueOfKey + u"=";
    } else if (redirector.SkipNumericOptions) {
      url += u"20200101000000/";
    }
    url += redirector.CompleteScheme ? u"target.example/" : u"http://target.example/";
    UrlParser parser;
    ASSERT_EQ(parser.DecodeWithRedirectors(url, Known().Redirectors), 0) << Narrow(url);
    EXPECT_TRUE(parser.Record().IsRedirector) << Narrow(url);
    EXPECT_EQ(Narrow(parser.Record().RedirectTarget), "http://target.example/") << Narrow(url);
  }
}

// ---- the tokens ----

TEST_F(StarterPackage, TokensAreProbabilitiesAndWordsAreFound) {
  EXPECT_GE(Known().UrlAnalysisTable.size(), 150U);
  for (const auto& [token, probability] : Known().UrlAnalysisTable.Sorted()) {
    EXPECT_TRUE(probability > 0.0 && probability < 1.0) << Narrow(token);
  }
  // How a list of addresses was collected is no evidence.
  for (const char16_t* const token : {u"BD*http", u"BD*https", u"BE*-1", u"AE*www", u"BE*80", u"BE*443"}) {
    const double* const probability = Known().UrlAnalysisTable.Find(token);
    ASSERT_NE(probability, nullptr) << Narrow(token);
    EXPECT_EQ(*probability, 0.5) << Narrow(token);
  }
  const std::vector<std::u16string>& words = Known().UrlAnalysisWords;
  // The longest first: none takes a later one away.
  for (std::size_t i = 0; i < words.size(); ++i) {
    EXPECT_EQ(words[i], ToLower(words[i]));
    EXPECT_TRUE(i == 0 || words[i].size() <= words[i - 1].size()) << Narrow(words[i]);
  }
  EXPECT_EQ(std::set<std::u16string>(words.begin(), words.end()).size(), words.size());
}

// ---- the rules ----

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

TEST_F(StarterPackage, RulesNameWhatExists) {
  enum MethodNumber : std::uint32_t {
    kAbove = 0,
    kBrandTag = 3,
    kSiteList = 8,
    kNotFired = 19,
    kRedirectField = 24,
    kFired = 26,
    kTiles = 43,
    kImages = 57
  };
  const std::set<std::uint32_t> stages = {0, 1, 2, 3, 7};
  const std::set<float> marks = {2.0F, 1.2F, 1.0F, 0.0F};
  for (std::size_t i = 0; i < Rules().Entries.size(); ++i) {
    const Indicator& indicator = Rules().Entries[i];
    SCOPED_TRACE("rule " + std::to_string(i));
    EXPECT_TRUE(stages.contains(indicator.Rule.Category));
    EXPECT_LT(indicator.Rule.OperatorID, Operators().size());
    for (const float weight : {indicator.OnWeight, indicator.OffWeight}) {
      EXPECT_TRUE(marks.contains(weight) || (weight > 0.0F && weight < 1.0F)) << weight;
    }
    ASSERT_FALSE(indicator.Rule.Expressions.empty());
    for (const IndicatorExpression& expression : indicator.Rule.Expressions) {
      const Method* const method = FindMethod(expression.MethodID);
      ASSERT_NE(method, nullptr) << expression.MethodID;
      EXPECT_TRUE(!method->ReadsField() || FindField(expression.FieldID) != nullptr) << expression.FieldID;
      const bool namesOne = expression.MethodID == kNotFired || expression.MethodID == kFired;
      std::vector<std::int32_t> named;
      if (namesOne) named = {expression.ExpressionValue.prepared.number};
      if (expression.MethodID == kTiles || expression.MethodID == kImages) {
        named = expression.ExpressionValue.prepared.itemNumbers;
      }
      for (const std::int32_t other : named) {
        EXPECT_LT(std::abs(other), static_cast<std::int32_t>(i)) << "a rule sees those before it only";
      }
    }
    if (indicator.Rule.TDPriority > 0) {
      const std::uint32_t first = indicator.Rule.Expressions.front().MethodID;
      EXPECT_TRUE(first == kBrandTag || first == kSiteList || first == kRedirectField || first == kAbove)
          << "the first expression finds no brand";
    }
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
