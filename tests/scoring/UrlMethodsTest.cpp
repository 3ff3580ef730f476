// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "DetectionEngine/scoring/UrlMethods.h"
#include "tests/scoring/ScoringFixture.h"

namespace zeph::test {
namespace {

TEST(BrandTagFound, SearchesTheIndexThatValueNames) {
  Configuration configuration;
  TrustedDomainInfo& bank = configuration.TrustedDomainInfos[u"bank.test"];
  bank.UT = {u"bankurl"};
  bank.TT = {u"Bank Title"};
  bank.CT = {u"bank content"};
  configuration.TrustedDomainInfos[u"shop.test"].UT = {u"shopurl"};
  configuration.BuildTagIndexes();

  struct Row {
    const char16_t* value;
    FieldValue field;
    const char16_t* fieldText;
    const char16_t* brand;  // empty: off
  };
  const std::vector<Row> rows = {
      {u"8", TextField(u"http://x-BankUrls.test"), u"http://x-BankUrls.test", u"bank.test"},
      {u"9", TextField(u"My bank title"), u"My bank title", u"bank.test"},
      {u"9", TextField(u"My bank titles"), u"My bank titles", u""},
      {u"9", TextField(u"bankurl"), u"bankurl", u""},
      {u"11", TextField(u"bank content"), u"bank content", u"bank.test"},
      {u"7", TextField(u"bank title"), u"bank title", u"bank.test"},
      {u"11", TextField(u""), u"", u""},
      {u"8", ListField({u"a", u"shopurl", u"bankurl"}), u"a", u"shop.test"},
      {u"8", ListField({u"a", u"b"}), u"a", u""},
      {u"8", ListField({}), u"", u""},
      {u"8", NumberField(1), u"", u""},
  };
  for (const Row& row : rows) {
    const IndicatorResult result = BrandTagFound(row.field, Prepared(kValueText, row.value), configuration);
    const std::string trace = Narrow(row.value) + " in " + Narrow(row.fieldText);
    EXPECT_EQ(result.on, result.matchText == row.brand && !result.matchText.empty()) << trace;
    EXPECT_EQ(Narrow(result.matchText), Narrow(row.brand)) << trace;
    EXPECT_EQ(Narrow(result.fieldText), Narrow(row.fieldText)) << trace;
  }
}

TEST(RedirectsToTrusted, TakesTheLastHiddenFieldThatNamesATrustedHost) {
  NetLocationList trusted;
  trusted.Entries = {{kDomain, u"bank.test", {}, 0, u""}, {kDomain, u"shop.test", {}, 0, u""}};
  trusted.BuildIndex();
  struct Row {
    std::vector<std::pair<const char16_t*, const char16_t*>> hidden;  // the first of two forms takes half of them
    const char16_t* name;
  };
  const std::vector<Row> rows = {
      {{}, u""},
      {{{u"my_Redirect_url", u"https://www.bank.test/x"}}, u"bank.test"},
      {{{u"next", u"https://www.bank.test/x"}}, u""},
      {{{u"redirect", u"HTTPS://www.bank.test/"}}, u""},
      {{{u"redirect", u"/www.bank.test"}}, u""},
      {{{u"redirect", u"http://other.test/bank.test"}}, u""},
      {{{u"redirect", u"http://bank.test"}, {u"redirect2", u"http://a.shop.test/"}}, u"shop.test"},
      {{{u"redirect", u"http://bank.test"}, {u"redirect2", u"http://other.test/"}}, u"bank.test"},
  };
  for (const Row& row : rows) {
    std::vector<FormRecord> forms(2);
    for (std::size_t i = 0; i < row.hidden.size(); ++i) {
      FormRecord& form = forms[i < row.hidden.size() / 2 ? 0 : 1];
      form.hiddenNames.emplace_back(row.hidden[i].first);
      form.hiddenValues.emplace_back(row.hidden[i].second);
    }
    const IndicatorResult result = RedirectsToTrusted(forms, trusted);
    EXPECT_EQ(Narrow(result.matchText), Narrow(row.name));
    EXPECT_EQ(result.on, !result.matchText.empty()) << Narrow(row.name);
  }
}

TEST(UrlScore, StaysOffWithoutATableOrWords) {
  UrlRecord url;
  url.RawUrl = u"http://scored.test/signin";
  for (const bool hasTable : {false, true}) {
    for (const bool hasWords : {false, true}) {
      Configuration configuration;
      // What the tokens of a URL are doesn't matter: an unknown one speaks for a low score.
      if (hasTable) configuration.UrlAnalysisTable.insert_or_assign(u"nowhere", 0.99);
      if (hasWords) configuration.UrlAnalysisWords = {u"signin"};
      configuration.BuildIndexes();
      const IndicatorResult low = LowUrlScore(url, configuration);
      EXPECT_EQ(low.on, hasTable && hasWords);
      EXPECT_EQ(low.fieldText, url.RawUrl);
      const IndicatorResult high = HighUrlScore(url, configuration);
      EXPECT_FALSE(high.on);
      EXPECT_EQ(high.fieldText, url.RawUrl);
    }
  }
}

TEST(ScriptInUrl, DecodesOnceAndFoldsCase) {
  struct Row {
    const char16_t* url;
    bool on;
  };
  const std::vector<Row> rows = {
      {u"http://a.test/?q=<script>", true},
      {u"http://a.test/?q=%3cScRiPt", true},
      {u"http://a.test/?q=%3Cscr%09ipt", true},
      {u"http://a.test/?q=<scr\tipt", true},
      {u"http://a.test/?q=<scr%0aipt", false},
      {u"http://a.test/?q=%253cscript", false},
      {u"http://a.test/?q=< script", false},
      {u"http://a.test/?q=<<script", true},
      {u"http://a.test/?q=javajavascript:", true},
      {u"http://a.test/?q=JAVA%73cript%3A", true},
      {u"http://a.test/?q=javascript", false},
      {u"http://a.test/?q=java%zzscript:", true},   // no escape: all three are gone
      {u"http://a.test/?q=java%%73cript:", false},  // it takes "%7" along
      {u"http://a.test/?q=<scrip%7", false},
      {u"http://a.test/?q=<scrip%", false},
      {u"http://a.test/?q=<script%", true},
      {u"http://a.test/?q=java\u017fcript:", false},
      {u"http://a.test/?q=%bcscript", false},  // a byte above 0x7F is no "<" with a high bit
  };
  UrlRecord url;
  url.HostName = u"www.a.test";
  for (const Row& row : rows) {
    url.RawUrl = row.url;
    const IndicatorResult result = ScriptInUrl(url, Prepared(kValueList, u"exempt.test"), true);
    EXPECT_EQ(result.on, row.on) << Narrow(row.url);
    EXPECT_TRUE(result.fieldText.empty() && result.matchText.empty()) << Narrow(row.url);
  }
  url.RawUrl = u"http://www.a.test/?q=<script";
  EXPECT_FALSE(ScriptInUrl(url, Prepared(kValueList, u"b.test,a.test"), true).on);
  EXPECT_TRUE(ScriptInUrl(url, Prepared(kValueList, u""), true).on);
  EXPECT_FALSE(ScriptInUrl(url, Prepared(kValueList, u""), false).on);
}

TEST(InSafeList, WantsTheNumberOfTheSafeList) {
  World world;
  world.configuration.SafeList.Add({kDomain, u"safe.test", {}, 0, u""});
  world.configuration.SafeList.Sort();
  struct Row {
    FieldValue field;
    std::uint32_t valueType;
    const char16_t* value;
    bool on;
  };
  const std::vector<Row> rows = {
      {TextField(u"www.safe.test"), kValueSiteList, u"4", true},
      {TextField(u"www.safe.test"), kValueText, u"4", false},
      {TextField(u"www.safe.test"), kValueSiteList, u"3", false},
      {TextField(u"www.other.test"), kValueSiteList, u"4", false},
      {ListField({u"www.safe.test"}), kValueSiteList, u"4", false},
  };
  for (const Row& row : rows) {
    const IndicatorResult result = world.Run(60, row.field, Prepared(row.valueType, row.value));
    EXPECT_EQ(result.on, row.on) << Narrow(row.value) << " of type " << row.valueType;
    EXPECT_EQ(result.fieldText, row.on ? row.field.text : u"");
    EXPECT_EQ(result.matchText, u"");
  }
}

TEST(SiteNameInTitle, IgnoresPunctuationButNotTheNamesCase) {
  struct Row {
    std::u16string domain;
    std::u16string title;
    bool on;
  };
  const std::u16string longTitle(3000, u'x');
  const std::vector<Row> rows = {
      {u"bankofexample", u"Bank-Of Example", true},
      {u"bank-of-example", u"Bank of example: sign in", true},
      {u"Bank", u"Bank", false},
      {u"bank", u"ban k", true},
      {u"bank", u"brand", false},
      {u"", u"bank", false},
      {u"bank", u"", false},
      {u"---", u"bank", true},                 // nothing is left of the name
      {u"bank", longTitle + u"b-ank", false},  // a title so long isn't cleaned
      {u"bank", longTitle + u"Bank", true},
  };
  for (const Row& row : rows) {
    const IndicatorResult result = SiteNameInTitle(row.domain, row.title);
    EXPECT_EQ(result.on, row.on) << Narrow(row.domain) << " in " << Narrow(row.title).substr(0, 40);
    EXPECT_EQ(result.matchText, row.domain);
  }
}

}  // namespace
}  // namespace zeph::test
