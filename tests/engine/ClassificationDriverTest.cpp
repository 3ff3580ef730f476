// SPDX-License-Identifier: Apache-2.0
// The road of a page and of a URL: which stages and collectors run, and what ends a call early.
#include <algorithm>
#include <ostream>

#include "DetectionEngine/EngineResults.h"
#include "DetectionEngine/engine/ClassificationDriver.h"
#include "documents/Recording.h"
#include "documents/html/HtmlDocument.h"
#include "tests/engine/EngineFixture.h"

namespace zeph {
namespace {

using test::AlwaysWeighs;
using test::fakeServer;

constexpr const char* kUrl = "http://www.bad.example/login";
constexpr std::int32_t kFailure = -2147467259;
constexpr float kUnwritten = -1.0F;

/// A page of one element, the body. Each of these operations fails instead, if it is named.
std::string Recording(const std::string& url, const std::vector<std::string>& failing = {}) {
  std::string document = "\"get_URL\":\"" + url + "\"";
  const std::pair<const char*, const char*> answers[] = {
      {"get_body", "0"},   {"get_title", "\"Sign in\""}, {"get_all", "[0]"},   {"get_images", "[]"},
      {"get_links", "[]"}, {"get_forms", "[]"},          {"get_scripts", "[]"}};
  for (const auto& [operation, answer] : answers) {
    const bool fails = std::ranges::find(failing, operation) != failing.end();
    document += std::string(",\"") + operation + "\":" + (fails ? "{\"status\":-2147467259}" : answer);
  }
  return "{\"recording\":1,\"document\":{" + document +
         "},\"elements\":[{\"IHTMLElement\":{\"get_tagName\":\"BODY\",\"get_innerText\":\"Sign in\","
         "\"get_innerHTML\":\"Sign in\"}}]}";
}

struct Outcome {
  std::int32_t result = 0;
  std::int32_t classification = 0;
  float spooficity = kUnwritten;
  std::string siteName = "unwritten";
  friend bool operator==(const Outcome&, const Outcome&) = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "result " << outcome.result << ", classification " << outcome.classification << ", spooficity "
             << outcome.spooficity << ", name " << outcome.siteName;
}

template <class Call>
Outcome OutcomeOf(Call call) {
  Outcome outcome;
  std::u16string siteName(kZephNameRoom, u'\0');
  siteName.replace(0, 9, u"unwritten");
  outcome.result = call(&outcome.classification, siteName.data(), &outcome.spooficity);
  outcome.siteName = Narrow(siteName.c_str());
  return outcome;
}

class DriverTest : public test::EngineTest {
 protected:
  static Outcome ClassifyRecording(const std::string& json, const char16_t* pageUrl = nullptr,
                                   EngineResults** report = nullptr) {
    std::string error;
    const auto document = RecordedDocument::Parse(json, error);
    EXPECT_NE(document, nullptr) << error;
    return OutcomeOf([&](std::int32_t* classification, char16_t* siteName, float* spooficity) {
      return ClassifySite(document.get(), classification, siteName, pageUrl, report, spooficity);
    });
  }

  static Outcome Classify(const char16_t* url) {
    return OutcomeOf([&](std::int32_t* classification, char16_t* siteName, float* spooficity) {
      return ClassifyURL(url, classification, siteName, spooficity);
    });
  }
};

TEST_F(DriverTest, LooksOnlyAtTheSchemesOfTheWeb) {
  Publish({AlwaysWeighs(0, 0.7F)});
  const Outcome unwatched = {0, 1, 0.0F, "Microsoft"};
  const Outcome watched = {0, 3, 0.7F, "unwritten"};
  struct Row {
    std::string documentUrl;
    const char16_t* pageUrl;
    Outcome expected;
  };
  const std::vector<Row> rows = {
      {kUrl, nullptr, watched},
      {"HTTPS://www.bad.example/", nullptr, watched},
      {"Ftp://www.bad.example/", nullptr, watched},
      {"about:blank", nullptr, unwatched},
      {"file:///etc/http:", nullptr, unwatched},
      {"", nullptr, unwatched},
      {" http://www.bad.example/", nullptr, unwatched},
      {"about:blank", u"http://www.bad.example/", watched},
      {"http://", u"http://www.bad.example/", watched},  // that it can't be decoded doesn't matter
      {kUrl, u"javascript:1", unwatched},
      {kUrl, u"", unwatched},
      {kUrl, u"http://", {-1, 3, kUnwritten, "unwritten"}},
      {"http://", nullptr, {-1, 3, kUnwritten, "unwritten"}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ClassifyRecording(Recording(row.documentUrl), row.pageUrl), row.expected)
        << row.documentUrl << " and " << (row.pageUrl != nullptr ? Narrow(row.pageUrl) : "no page URL");
    if (row.pageUrl == nullptr) {
      EXPECT_EQ(Classify(Widen(row.documentUrl).c_str()), row.expected) << row.documentUrl;
    }
  }
}

TEST_F(DriverTest, RefusesWhatIsNull) {
  Publish({});
  std::int32_t classification = 77;
  std::string error;
  const auto document = RecordedDocument::Parse(Recording(kUrl), error);
  EXPECT_EQ(ClassifySite(nullptr, &classification, nullptr, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(ClassifySite(document.get(), nullptr, nullptr, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(ClassifyURL(u"http://a.example/", nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(ClassifyURL(nullptr, &classification, nullptr, nullptr), 1);
  EXPECT_EQ(classification, 77);
  EXPECT_EQ(ClassifySite(document.get(), &classification, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(classification, 3);
}

TEST_F(DriverTest, StopsAsSoonAsAScoreIsFinal) {
  struct Row {
    const char* what;
    std::vector<Indicator> rules;
    std::vector<std::string> failing;
    Outcome expected;
    std::size_t reports = 0;
    bool isClient = true;
  };
  const Outcome failed = {kFailure, 3, kUnwritten, "unwritten"};
  const std::vector<Row> rows = {
      {"no rules", {}, {}, {0, 3, 0.5F, "unwritten"}},
      {"no rules, all is read", {}, {"get_scripts"}, failed},
      {"trustworthy by its URL", {AlwaysWeighs(0, 0.0F)}, {"get_forms"}, {0, 1, 0.0F, "unwritten"}},
      {"unclassified by its URL", {AlwaysWeighs(7, -1.0F)}, {"get_forms"}, {0, 3, 0.0F, "unwritten"}},
      {"script attack in its URL", {AlwaysWeighs(0, 1.2F)}, {"get_forms"}, {0, 6, 0.9F, "unwritten"}, 1},
      {"spoofing by its URL goes on to forms", {AlwaysWeighs(0, 1.0F)}, {"get_forms"}, failed},
      {"and to elements", {AlwaysWeighs(0, 1.0F)}, {"get_all"}, failed},
      {"and no further", {AlwaysWeighs(0, 1.0F)}, {"get_links"}, {0, 2, 1.0F, "unwritten"}},
      {"final in stage 1", {AlwaysWeighs(1, 0.0F)}, {"get_links"}, {0, 1, 0.0F, "unwritten"}},
      {"final in stage 2", {AlwaysWeighs(2, -1.0F)}, {"get_links"}, {0, 3, 0.0F, "unwritten"}},
      {"script attack in stage 2", {AlwaysWeighs(2, 1.2F)}, {"get_links"}, {0, 6, 0.9F, "unwritten"}},
      {"script attack in stage 3", {AlwaysWeighs(3, 1.2F)}, {}, {0, 6, 0.9F, "unwritten"}},
      {"a high score isn't final", {AlwaysWeighs(1, 0.99F)}, {"get_links"}, failed},
      {"stage 3 waits for links", {AlwaysWeighs(3, 0.0F)}, {"get_links"}, failed},
      {"and images", {AlwaysWeighs(3, 0.0F)}, {"get_images"}, failed},
      {"and the title", {AlwaysWeighs(3, 0.0F)}, {"get_title"}, failed},
      {"and scripts", {AlwaysWeighs(3, 0.0F)}, {"get_scripts"}, failed},
      {"stage 3", {AlwaysWeighs(3, 0.95F)}, {}, {0, 2, 0.95F, "unwritten"}},
      {"stages that don't exist", {AlwaysWeighs(4, 0.0F), AlwaysWeighs(8, 0.0F)}, {}, {0, 3, 0.5F, "unwritten"}},
      {"a server has no stage 7 for pages", {AlwaysWeighs(7, 0.0F)}, {}, {0, 3, 0.5F, "unwritten"}, 0, false},
  };
  for (const Row& row : rows) {
    Publish(row.rules, row.isClient);
    fakeServer = {};
    EXPECT_EQ(ClassifyRecording(Recording(kUrl, row.failing)), row.expected) << row.what;
    EXPECT_EQ(fakeServer.reported.size(), row.reports) << row.what;
    EXPECT_EQ(fakeServer.checked.size(), row.expected.classification == 2 ? 1U : 0U) << row.what;
  }
}

TEST_F(DriverTest, JudgesAUrlByTheRulesOfUrls) {
  struct Row {
    const char* what;
    std::vector<Indicator> rules;
    Outcome expected;
    std::size_t reports = 0;
    bool isClient = true;
  };
  const std::vector<Row> rows = {
      {"no rules", {}, {0, 3, 0.5F, "unwritten"}},
      {"trustworthy", {AlwaysWeighs(0, 0.0F)}, {0, 1, 0.0F, "unwritten"}},
      {"spoofing is confirmed", {AlwaysWeighs(0, 1.0F)}, {0, 5, 1.0F, "unwritten"}},
      {"a high score too", {AlwaysWeighs(0, 0.95F)}, {0, 5, 0.95F, "unwritten"}},
      {"script attack", {AlwaysWeighs(0, 1.2F)}, {0, 6, 0.9F, "unwritten"}, 1},
      {"stage 7 on a server too", {AlwaysWeighs(7, 0.0F)}, {0, 1, 0.0F, "unwritten"}, 0, false},
      {"no stage of pages",
       {AlwaysWeighs(1, 0.0F), AlwaysWeighs(2, 0.0F), AlwaysWeighs(3, 0.0F)},
       {0, 3, 0.5F, "unwritten"}},
  };
  for (const Row& row : rows) {
    Publish(row.rules, row.isClient);
    fakeServer = {};
    EXPECT_EQ(Classify(u"http://www.bad.example/login"), row.expected) << row.what;
    EXPECT_EQ(fakeServer.reported.size(), row.reports) << row.what;
    EXPECT_TRUE(fakeServer.checked.empty()) << row.what;
  }
}

TEST_F(DriverTest, TellsOfAScriptAttackWhatPrivacyAllows) {
  constexpr const char* kFull = "http://www.bad.example/login?q=script";
  constexpr const char* kPartial = "http://bad.example/login";
  struct Row {
    std::int32_t privacy;
    const char* url;
    bool sent;
  };
  Publish({AlwaysWeighs(0, 1.2F)});
  for (const Row& row : {Row{0, kFull, true}, Row{1, kPartial, true}, Row{2, kFull, false}, Row{3, kFull, false},
                         Row{-1, kFull, false}}) {
    SetPreferences(0, row.privacy, -1, nullptr, 0, nullptr);
    std::string error;
    const auto document = RecordedDocument::Parse(Recording(kFull), error);
    for (const bool isPage : {false, true}) {
      fakeServer = {};
      std::int32_t classification = 0;
      ClassificationTrace trace;
      if (isPage) {
        ClassifySiteTraced(document.get(), &classification, nullptr, nullptr, nullptr, nullptr, &trace);
      } else {
        ClassifyUrlTraced(Widen(kFull).c_str(), &classification, nullptr, nullptr, &trace);
      }
      EXPECT_EQ(classification, 6);
      const std::vector<std::string> told = row.sent ? std::vector<std::string>{row.url} : std::vector<std::string>{};
      EXPECT_EQ(fakeServer.reported, told) << row.privacy << isPage;
      ASSERT_EQ(trace.settlement.calls.size(), 1U);
      EXPECT_EQ(Narrow(trace.settlement.calls[0].url), row.url) << row.privacy;
      EXPECT_EQ(trace.settlement.calls[0].sent, row.sent) << row.privacy;
    }
  }
}

TEST_F(DriverTest, TracesEveryRuleAlsoOfACallThatRanNone) {
  Publish({AlwaysWeighs(0, 0.7F), AlwaysWeighs(3, 0.7F)});
  for (const char* url : {kUrl, "about:blank", "http://"}) {
    std::string error;
    const auto document = RecordedDocument::Parse(Recording(url, {"get_forms"}), error);
    std::int32_t classification = 0;
    ClassificationTrace ofUrl;
    ClassificationTrace ofPage;
    ClassifyUrlTraced(Widen(url).c_str(), &classification, nullptr, nullptr, &ofUrl);
    ClassifySiteTraced(document.get(), &classification, nullptr, nullptr, nullptr, nullptr, &ofPage);
    for (const ClassificationTrace* trace : {&ofUrl, &ofPage}) {
      ASSERT_EQ(trace->results.size(), 2U) << url;
      EXPECT_EQ(trace->results[0].evaluated, url == std::string_view(kUrl)) << url;
      EXPECT_FALSE(trace->results[1].evaluated) << url;
    }
  }
}

TEST_F(DriverTest, JudgesARedirectorByItsTarget) {
  Publish({AlwaysWeighs(3, 0.95F)});
  struct Row {
    const char* url;
    const char* judged;
  };
  for (const Row& row : {Row{"http://away.example/?http://target.example/x", "http://target.example/x"},
                         Row{"http://away.example/?http://", "http://away.example/?http://"}}) {
    fakeServer = {};
    EXPECT_EQ(ClassifyRecording(Recording(row.url)).classification, 2) << row.url;
    EXPECT_EQ(fakeServer.checked, std::vector<std::string>{row.judged}) << row.url;
  }
}

TEST_F(DriverTest, JudgesNoPageThatCostsTooMuch) {
  Publish({});
  std::string page = "<base href='http://www.example.test/" + std::string(1990, '&') + "/'>";
  for (int i = 0; i < 10'000; ++i) page += "<a href=x>";
  HtmlDocument document(page, {u"http://www.example.test/", {}, {}, nullptr});
  std::int32_t classification = 0;
  EXPECT_EQ(ClassifySite(&document, &classification, nullptr, nullptr, nullptr, nullptr), kZephTooCostly);
  EXPECT_EQ(classification, kZephUnclassified);
  EXPECT_TRUE(IsUnjudged(kZephTooCostly) && IsUnjudged(kZephOutOfMemory));
}

TEST_F(DriverTest, DumpsThePageOnServersOnly) {
  for (const bool isClient : {true, false}) {
    Publish({AlwaysWeighs(3, 0.95F)}, isClient);
    EngineResults* report = nullptr;
    EXPECT_EQ(ClassifyRecording(Recording(kUrl), nullptr, &report).classification, 2);
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->diagnosticText.empty(), isClient);
    EXPECT_EQ(report->indicatorResults.size(), 1U);
    ReleaseEngineResults(report);
    EXPECT_TRUE(fakeServer.checked.empty());
  }
}

}  // namespace
}  // namespace zeph
