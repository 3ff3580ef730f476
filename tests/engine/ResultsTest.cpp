// SPDX-License-Identifier: Apache-2.0
// The last step of a page: the server, the warning memory, the names and the report.
#include <chrono>
#include <ctime>
#include <limits>
#include <optional>

#include "DetectionEngine/base/Md5Hex.h"
#include "DetectionEngine/base/TimeStamp.h"
#include "DetectionEngine/engine/Results.h"
#include "DetectionEngine/engine/WarningMemory.h"
#include "DetectionEngine/url/UrlParser.h"
#include "tests/engine/EngineFixture.h"

namespace zeph {
namespace {

using test::fakeServer;

constexpr const char16_t* kUrl = u"http://www.bad.example/login?user=1";
constexpr const char* kFullUrl = "http://www.bad.example/login?user=1";
constexpr const char* kPartialUrl = "http://bad.example/login";

PageData Page(const char16_t* url = kUrl) {
  UrlParser parser;
  EXPECT_EQ(parser.DecodeUrl(url), 0);
  PageData page;
  page.url = parser.TakeRecord();
  return page;
}

/// One rule that has fired, naming a brand.
struct Fired {
  explicit Fired(std::u16string brand) {
    Indicator indicator;
    indicator.Rule.TDPriority = 1;
    indicators.Entries.push_back(indicator);
    results.push_back({true, true, {}, std::move(brand), 0.0});
  }
  Indicators indicators;
  std::vector<IndicatorResult> results;
};

class ResultsTest : public test::EngineTest {
 protected:
  ResultsTest() {
    Publish({});
    EXPECT_EQ(SetEngineOption(kZephRemember, 1), 0);
  }

  /// What a page that the engine holds for spoofing comes to.
  static std::int32_t Settle(float score, const char16_t* url = kUrl, const std::u16string& brand = u"",
                             Settlement* settlement = nullptr) {
    const Fired fired(brand);
    std::int32_t classification = 0;
    SetResults(kZephSpoofing, score, Page(url), fired.indicators, fired.results,
               {&classification, nullptr, nullptr, nullptr, settlement});
    return classification;
  }

  static std::string Slot(std::uint32_t slot) {
    std::u16string text;
    return SettingsStore().Read(slot, text) == 0 ? Narrow(text) : "none";
  }

  /// The time this many seconds from now.
  static std::u16string Stamp(std::int64_t secondsFromNow) {
    const std::time_t time =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() + std::chrono::seconds(secondsFromNow));
    std::tm parts{};
    gmtime_r(&time, &parts);
    return EncodeTimeStamp(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                           parts.tm_sec);
  }
};

TEST_F(ResultsTest, FollowsTheServerAsFarAsPrivacyAllows) {
  struct Row {
    const char* what;
    std::int32_t privacy;
    std::int32_t answer;
    const char16_t* brand;
    std::int32_t classification;
    std::vector<std::string> checked;
    std::vector<std::string> reported;
    std::vector<std::string> keptBack = {};
  };
  const std::vector<Row> rows = {
      {"full URL, confirmed", 0, 5, u"bank.example", 5, {kFullUrl}, {kFullUrl}},
      {"full URL, a report is wanted", 0, 4, u"bank.example", 2, {kFullUrl}, {kFullUrl}},
      {"full URL, no brand", 0, 5, u"", 5, {kFullUrl}, {kFullUrl}},
      {"full URL, an unknown brand", 0, 4, u"new.example", 2, {kFullUrl}, {kFullUrl}},
      {"full URL, a brand that isn't reported", 0, 5, u"quiet.example", 5, {kFullUrl}, {}},
      {"full URL, cleared", 0, 1, u"bank.example", 1, {kFullUrl}, {}},
      {"full URL, unclassified", 0, 3, u"bank.example", 3, {kFullUrl}, {}},
      {"full URL, spoofing", 0, 2, u"bank.example", 2, {kFullUrl}, {}},
      {"full URL, no answer", 0, 0, u"bank.example", 2, {kFullUrl}, {}},
      {"full URL, an answer from the future", 0, 77, u"bank.example", 2, {kFullUrl}, {}},
      {"partial URL, confirmed", 1, 5, u"bank.example", 5, {kPartialUrl}, {}, {kFullUrl}},
      {"partial URL, cleared", 1, 1, u"bank.example", 1, {kPartialUrl}, {}},
      {"nothing is sent", 2, 5, u"bank.example", 2, {}, {}, {kFullUrl}},
  };
  for (const Row& row : rows) {
    SetPrivacy(static_cast<std::uint32_t>(row.privacy));
    fakeServer = {row.answer, {}, {}};
    Settlement settlement;
    EXPECT_EQ(Settle(0.95F, kUrl, row.brand, &settlement), row.classification) << row.what;
    EXPECT_EQ(fakeServer.checked, row.checked) << row.what;
    EXPECT_EQ(fakeServer.reported, row.reported) << row.what;
    EXPECT_EQ(settlement.serverAnswer, row.checked.empty() ? std::nullopt : std::optional(row.answer)) << row.what;
    EXPECT_EQ(settlement.reported, row.reported.empty() ? std::nullopt : std::optional(true)) << row.what;
    EXPECT_FALSE(settlement.heldBack) << row.what;
    std::vector<std::string> calls[2];
    for (const ServerCall& call : settlement.calls) calls[call.sent ? 1 : 0].push_back(Narrow(call.url));
    std::vector<std::string> sent = row.checked;
    sent.insert(sent.end(), row.reported.begin(), row.reported.end());
    EXPECT_EQ(calls[1], sent) << row.what;
    EXPECT_EQ(calls[0], row.keptBack) << row.what;
  }
}

TEST_F(ResultsTest, AsksNobodyAboutWhatIsNotHeld) {
  const Fired fired(u"bank.example");
  for (const std::int32_t in : {1, 3, 6}) {
    std::int32_t classification = 0;
    SetResults(in, 0.5F, Page(), fired.indicators, fired.results, {&classification, nullptr, nullptr, nullptr});
    EXPECT_EQ(classification, in);
  }
  EXPECT_TRUE(fakeServer.checked.empty());
  EXPECT_EQ(Slot(8), "none");
}

TEST_F(ResultsTest, WritesTheNameOfTheBrandAndTheScore) {
  struct Row {
    const char16_t* brand;
    std::u16string siteName;
  };
  for (const Row& row : {Row{u"bank.example", u"Corvus Bank"}, Row{u"quiet.example", u"kept"},
                         Row{u"new.example", u"kept"}, Row{u"", u"kept"}}) {
    const Fired fired(row.brand);
    std::u16string siteName(64, u'\0');
    siteName.replace(0, 4, u"kept");
    float spooficity = std::numeric_limits<float>::quiet_NaN();
    std::int32_t classification = 0;
    SetResults(3, 0.25F, Page(), fired.indicators, fired.results,
               {&classification, siteName.data(), &spooficity, nullptr});
    EXPECT_EQ(Narrow(siteName.c_str()), Narrow(row.siteName)) << Narrow(row.brand);
    EXPECT_EQ(spooficity, 0.25F);
  }
}

TEST_F(ResultsTest, HoldsAWarningBackWhoseScoreChanges) {
  constexpr const char16_t* kOther = u"http://other.example/";
  struct Visit {
    const char16_t* url;
    float score;
    std::optional<std::int64_t> lastFlagged;  ///< seconds from now that the last record is moved to
    std::int32_t classification;
  };
  struct Row {
    const char* what;
    std::vector<Visit> visits;
    bool quiet;
  };
  // A time to come lies ever nearer and one gone by ever farther, so that these rows don't depend on the clock.
  const std::vector<Row> rows = {
      {"the same score, far apart", {{kUrl, 0.95F, {}, 2}, {kUrl, 0.95F, -9000, 2}}, false},
      {"another score within 5 seconds", {{kUrl, 0.95F, {}, 2}, {kUrl, 0.96F, 5, 2}}, false},
      {"another score after 6 seconds", {{kUrl, 0.95F, {}, 2}, {kUrl, 0.96F, -6, 3}}, true},
      {"a score that differs behind six digits", {{kUrl, 0.95F, {}, 2}, {kUrl, 0.9500001F, -6, 2}}, false},
      {"the new score is the one to compare with",
       {{kUrl, 0.95F, {}, 2}, {kUrl, 0.96F, 5, 2}, {kUrl, 0.96F, -6, 2}},
       false},
      {"another URL in between", {{kUrl, 0.95F, {}, 2}, {kOther, 0.97F, {}, 2}, {kUrl, 0.96F, -6, 2}}, false},
      {"from then on any URL", {{kUrl, 0.95F, {}, 2}, {kUrl, 0.96F, -6, 3}, {kOther, 0.99F, {}, 3}}, true},
  };
  for (const Row& row : rows) {
    SettingsStore store;
    for (const std::uint32_t slot : {0U, 8U, 9U, 10U}) store.Delete(slot);
    for (std::size_t i = 0; i < row.visits.size(); ++i) {
      const Visit& visit = row.visits[i];
      if (visit.lastFlagged) store.Write(10, Stamp(*visit.lastFlagged));
      Settlement settlement;
      EXPECT_EQ(Settle(visit.score, visit.url, u"", &settlement), visit.classification) << row.what << ", visit " << i;
      EXPECT_EQ(settlement.heldBack, visit.classification == 3) << row.what << ", visit " << i;
    }
    EXPECT_EQ(Slot(0) != "none", row.quiet) << row.what;
  }
  EXPECT_EQ(Slot(8), Narrow(Md5Hex(kUrl)));
  EXPECT_EQ(Slot(9), Narrow(Md5Hex(u"0.950000")));
}

TEST_F(ResultsTest, KeepsQuietForADay) {
  struct Row {
    const char* what;
    std::u16string since;
    bool quiet;
  };
  for (const Row& row : {Row{"just now", Stamp(0), true}, Row{"a day", Stamp(86400), true},
                         Row{"a second more", Stamp(-86401), false}, Row{"a text that is no time", u"x", true}}) {
    SettingsStore store;
    store.Write(0, row.since);
    EXPECT_EQ(WarningMemory().IsQuiet(), row.quiet) << row.what;
    EXPECT_EQ(Slot(0) != "none", row.quiet) << row.what;
  }

  // The server's word goes past the memory only when it clears a page.
  SettingsStore().Write(0, Stamp(0));
  for (const auto& [answer, classification] : {std::pair{1, 1}, std::pair{3, 3}, std::pair{5, 3}, std::pair{2, 3}}) {
    fakeServer = {answer, {}, {}};
    EXPECT_EQ(Settle(0.95F), classification) << answer;
    EXPECT_EQ(fakeServer.reported.size(), answer == 5 ? 1U : 0U) << answer;
  }
  EXPECT_EQ(Slot(8), "none");

  // A program that judges for many does without.
  fakeServer = {};
  EXPECT_EQ(SetEngineOption(kZephWarningMemory, 0), 0);
  Settlement settlement;
  EXPECT_EQ(Settle(0.95F, kUrl, u"", &settlement), 2);
  EXPECT_EQ(SetEngineOption(kZephWarningMemory, 1), 0);
  EXPECT_FALSE(settlement.heldBack);
  EXPECT_EQ(Slot(8), "none");
}

TEST_F(ResultsTest, RefusesOptionsThatThereAreNot) {
  for (const auto& [option, value] : {std::pair{0, 1}, std::pair{5, 1}, std::pair<int, int>{kZephWarningMemory, 2},
                                      std::pair<int, int>{kZephRemember, 0}, std::pair<int, int>{kZephServerRest, -1},
                                      std::pair<int, int>{kZephStrictServer, -1}}) {
    EXPECT_EQ(SetEngineOption(option, value), 1) << option << " " << value;
  }
}

TEST_F(ResultsTest, RemembersAcrossProcesses) {
  Child first([] { return Settle(0.95F) == 2; });
  ASSERT_TRUE(first.Join());
  SettingsStore().Write(10, Stamp(-6));
  EXPECT_EQ(Settle(0.96F), 3);
  Child last([] { return Settle(0.97F, u"http://other.example/") == 3; });
  EXPECT_TRUE(last.Join());
}

TEST_F(ResultsTest, PassesTheWarningWhileNothingCanBeRemembered) {
  SetSettingsKeyPath("Vendor", "Module without a key");
  EXPECT_EQ(Settle(0.95F), 2);
  EXPECT_EQ(Settle(0.96F), 2);
  EXPECT_EQ(Slot(8), "none");
}

TEST_F(ResultsTest, ReportsWhatEveryRuleFound) {
  PageData page = Page();
  page.all.pageSource = u"<HTML>";
  page.all.inputValues = u"typed";
  page.all.refreshSeconds = 7;
  page.body.visibleText = u"seen";
  page.body.labelText = u"Password:";
  page.body.title = u"Sign in";
  page.imageTextFound = true;
  page.diagnosticText = u"dump";
  page.documentUrl.RawUrl = u"http://frame.example/";
  for (const char16_t* value : {u"Go", u"", u"Send"}) {
    page.forms.records.emplace_back().submitValue = value;
  }
  Fired fired(u"bank.example");
  Indicator& first = fired.indicators.Entries.front();
  first.OnWeight = 0.9F;
  first.Rule.Expressions.push_back({3, 2, {kValueList, u"a,b", {}, {}}});
  fired.indicators.Entries.push_back(test::AlwaysWeighs(3, 0.5F));
  fired.results.push_back({false, true, std::u16string(u"stale"), std::u16string(u"stale"), 0.0});
  fired.indicators.Entries.push_back(test::AlwaysWeighs(4, 0.5F));
  fired.results.push_back({true, true, {}, {}, 0.0});
  fired.indicators.Prepare();

  std::int32_t classification = 0;
  EngineResults* made = nullptr;
  SetResults(kZephSpoofing, 0.95F, page, fired.indicators, fired.results, {&classification, nullptr, nullptr, &made});
  ASSERT_NE(made, nullptr);
  const std::unique_ptr<EngineResults> report(made);
  EXPECT_EQ(classification, 2);
  EXPECT_TRUE(fakeServer.checked.empty());
  EXPECT_EQ(Slot(8), "none");

  EXPECT_EQ(report->indicators, fired.indicators.Entries);
  EXPECT_TRUE(report->indicators.front().Rule.Expressions.front().ExpressionValue.Items.empty());
  EXPECT_EQ(report->pageSource, u"<HTML>");
  EXPECT_EQ(report->pageText, u"seen typed");
  EXPECT_EQ(report->labelText, u"Password:");
  EXPECT_EQ(report->title, u"Sign in");
  EXPECT_EQ(report->submitValues, u"Go Send ");
  EXPECT_EQ(report->reservedText, u"");
  EXPECT_EQ(report->diagnosticText, u"dump");
  EXPECT_EQ(report->documentUrl, u"http://frame.example/");
  EXPECT_EQ(report->refreshSeconds, 7);
  EXPECT_TRUE(report->imageTextFound);
  EXPECT_EQ(report->brand, u"bank.example");
  EXPECT_EQ(report->spooficity, 0.95F);
  ASSERT_EQ(report->indicatorResults.size(), 2U);
  EXPECT_TRUE(report->indicatorResults[0].on);
  EXPECT_EQ(report->indicatorResults[0].matchText, u"bank.example");
  EXPECT_FALSE(report->indicatorResults[1].on);
  EXPECT_EQ(report->indicatorResults[1].fieldText, u"");
}

}  // namespace
}  // namespace zeph
