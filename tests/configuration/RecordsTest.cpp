// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {
namespace {

NetLocation Domain(std::u16string name) { return {kDomain, std::move(name), {}, 0, u""}; }

/// A record with something in every member that a load or the module fills.
Configuration FullConfiguration() {
  Configuration full;
  full.Resources.Server = u"server.example";
  full.SafeList.Add(Domain(u"safe.example"));
  full.SafeList.Add(Domain(u"one.safe.example"));
  for (NetLocationList* list : {&full.BlockList, &full.SearchServices, &full.PopularSites, &full.WebHostingSites,
                                &full.ExceptionDomains, &full.TrustedDomains}) {
    list->Entries.push_back(Domain(u"listed.example"));
  }
  full.Redirectors.emplace_back().StartsWith = u"http://r.example/";
  full.UrlAnalysisTable.insert_or_assign(u"token", 0.5);
  full.UrlAnalysisWords = {u"word"};
  TrustedDomainInfo& bank = full.TrustedDomainInfos[u"bank.example"];
  bank.CN = u"Bank";
  bank.UT = {u"Url"};
  bank.TT = {u"Title"};
  bank.CT = {u"Content"};
  full.BlockedToTrusted[u"spoof.example"] = u"bank.example";
  full.ModulePath = u"/opt/module";
  full.KeepOriginalFile = true;
  full.IsClient = false;
  full.BuildIndexes();
  return full;
}

TEST(Configuration, ClearLeavesWhatOutlivesALoad) {
  Configuration cleared = FullConfiguration();
  cleared.Clear();
  for (const NetLocationList* list :
       {&cleared.SafeList.Others, &cleared.BlockList, &cleared.SearchServices, &cleared.PopularSites,
        &cleared.WebHostingSites, &cleared.ExceptionDomains, &cleared.TrustedDomains}) {
    EXPECT_TRUE(list->Entries.empty());
    EXPECT_FALSE(list->Index.IsBuilt());
  }
  EXPECT_TRUE(cleared.SafeList.Domains.empty());
  EXPECT_TRUE(cleared.Redirectors.empty());
  EXPECT_TRUE(cleared.UrlAnalysisTable.empty());
  EXPECT_TRUE(cleared.UrlAnalysisWords.empty());
  EXPECT_TRUE(cleared.TrustedDomainInfos.empty());

  EXPECT_EQ(cleared.Resources.Server, u"server.example");
  EXPECT_EQ(cleared.BlockedToTrusted.size(), 1U);
  EXPECT_EQ(cleared.TitleTagIndex.Entries().size(), 1U);
  EXPECT_EQ(cleared.UrlTagIndex.Entries().size(), 1U);
  EXPECT_EQ(cleared.ContentTagIndex.Entries().size(), 1U);
  EXPECT_EQ(cleared.ModulePath, u"/opt/module");
  EXPECT_TRUE(cleared.KeepOriginalFile);
  EXPECT_FALSE(cleared.IsClient);
}

TEST(Configuration, BuildIndexesServesEveryList) {
  Configuration full = FullConfiguration();
  for (const NetLocationList* list : {&full.SafeList.Others, &full.BlockList, &full.SearchServices, &full.PopularSites,
                                      &full.WebHostingSites, &full.ExceptionDomains, &full.TrustedDomains}) {
    EXPECT_TRUE(list->Index.IsBuilt());
  }
  using Entries = std::vector<TagIndexEntry>;
  full.TrustedDomainInfos[u"a.example"].UT = {u"zeta", u"\u00c9TA"};
  full.TrustedDomainInfos[u"a.example"].TT = {u"title"};
  full.BuildTagIndexes();
  EXPECT_EQ(full.UrlTagIndex.Entries(),
            (Entries{{u"url", u"bank.example"}, {u"zeta", u"a.example"}, {u"\u00e9ta", u"a.example"}}));
  EXPECT_EQ(full.TitleTagIndex.Entries(), (Entries{{u"title", u"a.example"}, {u"title", u"bank.example"}}));
  EXPECT_EQ(full.ContentTagIndex.Entries(), (Entries{{u"content", u"bank.example"}}));

  EXPECT_EQ(full.GetCompanyName(u"bank.example"), u"Bank");
  EXPECT_EQ(full.GetCompanyName(u"Bank.example"), u"");
}

TEST(SafeList, FindsByTheLastTwoLabelsOrByTheWalk) {
  SafeList safe;
  safe.Add(Domain(u"shop.example"));
  safe.Add(Domain(u"bank.example"));
  safe.Add(Domain(u"deep.er.example"));
  safe.Add(Domain(u"intranet"));
  safe.Add({kHostname, u"host.example", {}, 0, u""});
  safe.Sort();
  ASSERT_EQ(safe.Domains.size(), 2U);
  EXPECT_EQ(safe.Domains[0].Name, u"bank.example");
  EXPECT_EQ(safe.Others.Entries.size(), 3U);
  for (int indexed = 0; indexed < 2; ++indexed) {
    for (const std::u16string_view host : {u"bank.example", u"www.shop.example", u"x.deep.er.example", u"intranet",
                                           u"x.intranet", u"host.example", u".bank.example"}) {
      EXPECT_TRUE(safe.Contains(host)) << Narrow(host);
    }
    for (const std::u16string_view host :
         {u"", u".", u"Bank.example", u"bank", u"example", u"er.example", u"www.host.example", u"bank.example."}) {
      EXPECT_FALSE(safe.Contains(host)) << Narrow(host);
    }
    safe.Others.BuildIndex();
    safe.DomainIndex.Build(safe.Domains);
  }
}

TEST(Indicators, PrepareSplitsAndReadsEveryValue) {
  struct {
    std::u16string_view value;
    std::vector<std::u16string> items, lowerItems;
    std::vector<std::int32_t> numbers;
    std::int32_t number;
    double real;
  } const rows[] = {
      {u"", {}, {}, {}, 0, 0.0},
      {u"12.5,,Ab 3,", {u"12.5", u"Ab 3"}, {u"12.5", u"ab 3"}, {12, 0}, 12, 12.5},
      {u" -7", {u" -7"}, {u" -7"}, {-7}, -7, -7.0},
  };
  for (const auto& row : rows) {
    Indicators rules;
    rules.Entries.resize(2);
    rules.Entries[1].Rule.Expressions.resize(2);
    ExpressionValue& value = rules.Entries[1].Rule.Expressions[1].ExpressionValue;
    value.Value = u"earlier,value";
    rules.Prepare();
    value.Value = row.value;
    rules.Prepare();
    EXPECT_EQ(value.GetItems(), row.items) << Narrow(row.value);
    EXPECT_EQ(value.prepared.lowerItems, row.lowerItems) << Narrow(row.value);
    EXPECT_EQ(value.prepared.itemNumbers, row.numbers) << Narrow(row.value);
    EXPECT_EQ(value.prepared.number, row.number) << Narrow(row.value);
    EXPECT_EQ(value.prepared.real, row.real) << Narrow(row.value);
  }
}

}  // namespace
}  // namespace zeph
