// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/Results.h"

#include <algorithm>
#include <memory>
#include <string>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/engine/WarningMemory.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// Answers of the server that mean something here, beside the classifications.
enum ServerAnswer : std::int32_t {
  kServerTrustworthy = kZephTrustworthy,
  kServerSpoofing = kZephSpoofing,
  kServerUnclassified = kZephUnclassified,
  kServerWantsReport = 4,
  kServerConfirms = kZephSpoofingConfirmed,
};

/// Report code of a page that the server wants to hear more of.
constexpr std::int32_t kReportConfirmedPage = 3;

std::string EntryText(std::uint32_t entry) { return Narrow(StringEntry(entry)); }

/// A line under the label of results, with the page's URL as its source.
void LogResult(const char* label, const std::string& text, const PageData& page, int level, int code) {
  if (LogIsWanted(level)) DebugLog(label, text.c_str(), Narrow(page.url.RawUrl).c_str(), code, level);
}

void LogSpooficity(const char* label, float score, std::int32_t classification) {
  LogLine(
      label,
      [&] { return "spooficity=" + Narrow(RealText(score)) + ", classification=" + std::to_string(classification); },
      kLogDetail);
}

/// Asks as far as privacy allows. Unasked, the server counts as one that leaves the verdict as it is.
std::int32_t AskAbout(const PageData& page, std::int32_t privacy, Settlement& settlement) {
  std::int32_t server = kServerSpoofing;
  const std::u16string& url = privacy == kPartialUrl ? page.url.NormalizedUrl : page.url.RawUrl;
  ServerCall& call = settlement.calls.emplace_back(ServerCall{ServerCall::Kind::kCheck, url});
  if (privacy == kFullUrl || privacy == kPartialUrl) {
    LogLine("SetResults-Calling CheckURL", privacy == kFullUrl ? "FULL URL" : "partial URL", kLogDetail);
    server = AskServer(url, call.sent);
    settlement.serverAnswer = server;
  } else if (privacy == kNothing) {
    LogLine("SetResults-Calling CheckURL", "Skipping", kLogDetail);
  }
  LogLine(
      "SetResults", [&] { return "serverClassification=" + std::to_string(server); }, kLogDetail);
  return server;
}

/// Sites that imitate the brand may be reported. A brand that the configuration doesn't know may.
bool MayReport(const std::u16string& brand) {
  if (brand.empty()) return true;
  const auto pair = Process().configurationMgr.Active();
  const auto info = pair->configuration.TrustedDomainInfos.find(brand);
  return info == pair->configuration.TrustedDomainInfos.end() || info->second.NT;
}

void ReportPage(const PageData& page, std::int32_t server, const std::u16string& brand, std::int32_t privacy,
                Settlement& settlement) {
  if ((server != kServerWantsReport && server != kServerConfirms) || !MayReport(brand)) {
    LogLine("SetResults", "Guess isNotify was false", kLogDetail);
    return;
  }
  LogLine("SetResults", "Inside of code to report URL", kLogDetail);
  const char* const label = "SetResults calling ReportURL";
  ServerCall& call = settlement.calls.emplace_back(ServerCall{ServerCall::Kind::kReport, page.url.RawUrl});
  if (privacy == kFullUrl) {
    LogLine(label, "Full URL", kLogDetail);
    settlement.reported = TellServer(page.url.RawUrl.c_str(), kReportConfirmedPage, nullptr, call.sent) == 0;
  } else if (privacy == kPartialUrl) {
    LogLine(label, "Not calling Report - user opted out of community", kLogDetail);
  } else if (privacy == kNothing) {
    LogLine(label, "Not calling ReportURL", kLogDetail);
  }
}

/// What becomes of a page that the engine alone holds for spoofing.
std::int32_t SettleWithServer(const PageData& page, const std::u16string& brand, float score, Settlement& settlement) {
  const std::int32_t privacy = Process().privacyLevel.load(std::memory_order_relaxed);
  const std::int32_t server = AskAbout(page, privacy, settlement);
  ReportPage(page, server, brand, privacy, settlement);

  const std::string label = EntryText(0xAE);
  if (server == kServerUnclassified || server == kServerTrustworthy) {
    LogResult(label.c_str(), EntryText(0xB1) + Narrow(page.url.RawUrl), page, kLogDetail, 9);
    return server;
  }
  if (Process().usesWarningMemory) {
    WarningMemory memory;
    const bool wasQuiet = memory.IsQuiet();
    if (wasQuiet || memory.Record(page.url.RawUrl, RealText(score)) == WarningMemory::Verdict::kHoldBack) {
      LogResult(label.c_str(), EntryText(0xC3), page, wasQuiet ? kLogWarning : kLogDetail, 10);
      settlement.heldBack = true;
      return kZephUnclassified;
    }
  }
  LogResult(label.c_str(), EntryText(0xB0) + Narrow(page.url.RawUrl), page, kLogInformation, 8);
  return server == kServerConfirms ? kZephSpoofingConfirmed : kZephSpoofing;
}

/// A rule as the report shows it: without what was made of its values.
Indicator AsWritten(const Indicator& indicator) {
  Indicator copy = indicator;
  for (IndicatorExpression& expression : copy.Rule.Expressions) {
    expression.ExpressionValue.Items.clear();
    expression.ExpressionValue.prepared = {};
  }
  return copy;
}

std::unique_ptr<EngineResults> MakeReport(const PageData& page, const Indicators& indicators,
                                          std::span<const IndicatorResult> results, const std::u16string& brand,
                                          float score) {
  auto report = std::make_unique<EngineResults>();
  report->indicators.reserve(indicators.Entries.size());
  std::ranges::transform(indicators.Entries, std::back_inserter(report->indicators), AsWritten);
  report->pageSource = page.all.pageSource;
  report->pageText = std::u16string(page.body.visibleText).append(1, u' ').append(page.all.inputValues);
  report->labelText = page.body.labelText;
  report->title = page.body.title;
  for (const FormRecord& form : page.forms.records) {
    if (!form.submitValue.empty()) report->submitValues.append(form.submitValue).append(1, u' ');
  }
  report->diagnosticText = page.diagnosticText;
  report->documentUrl = page.documentUrl.RawUrl;
  report->refreshSeconds = page.all.refreshSeconds;
  report->imageTextFound = page.imageTextFound;
  for (const IndicatorResult& result : results.first(std::min(results.size(), ResultCount(indicators)))) {
    report->indicatorResults.push_back(
        result.evaluated
            ? EngineIndicatorResult{result.on, std::u16string(result.fieldText), std::u16string(result.matchText)}
            : EngineIndicatorResult{});
  }
  report->brand = brand;
  report->spooficity = score;
  return report;
}

}  // namespace

EngineResults::~EngineResults() = default;

void WriteSiteName(const Configuration& configuration, std::u16string_view brand, char16_t* siteName,
                   std::size_t room) {
  if (siteName == nullptr || brand.empty() || room == 0) return;
  const std::u16string_view name = configuration.GetCompanyName(brand);
  if (name.empty()) return;
  *std::ranges::copy(name.substr(0, room - 1), siteName).out = u'\0';
}

void SetResults(std::int32_t classification, float score, const PageData& pageData, const Indicators& indicators,
                std::span<const IndicatorResult> results, const ResultOutputs& outputs) {
  *outputs.classification = classification;
  const std::u16string brand = TopBrand(indicators, results);
  WriteSiteName(Process().configurationMgr.Active()->configuration, brand, outputs.siteName,
                outputs.nameRoom);
  if (outputs.spooficity != nullptr) {
    *outputs.spooficity = score;
    LogSpooficity("SetResults before possible submission", score, classification);
  }

  if (classification != kZephSpoofing) {
    if (LogIsWanted(kLogDetail)) {
      LogResult(EntryText(0xAE).c_str(), "URL classified as legitimate. URL:" + Narrow(pageData.url.RawUrl), pageData,
                kLogDetail, 9);
    }
  } else if (outputs.engineResults == nullptr) {
    Settlement settlement;
    *outputs.classification = SettleWithServer(pageData, brand, score, settlement);
    if (outputs.settlement != nullptr) *outputs.settlement = settlement;
  }

  if (outputs.spooficity != nullptr) {
    *outputs.spooficity = score;
    LogSpooficity("SetResults after submission", score, *outputs.classification);
  }
  if (outputs.engineResults != nullptr) {
    *outputs.engineResults = MakeReport(pageData, indicators, results, brand, score).release();
  }
}

}  // namespace zeph
