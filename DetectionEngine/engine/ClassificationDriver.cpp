// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/ClassificationDriver.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/PerfTimer.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/engine/PageReading.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/engine/Results.h"
#include "DetectionEngine/engine/ServerCalls.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/scoring/IndicatorRunner.h"
#include "DetectionEngine/scoring/Spooficity.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// The stages of rules, by what they can see.
enum Stage : std::uint32_t {
  kStageUrl = 0,        ///< the URL alone
  kStageForms = 1,      ///< forms and counters of elements
  kStageFormsMore = 2,  ///< the same, and the answers of stage 1
  kStagePage = 3,       ///< everything
  kStageUrlClient = 7,  ///< the URL, and the answers of stage 0
};

/// The name that stands for pages which the engine doesn't look at.
constexpr std::u16string_view kUnwatchedSiteName = u"Microsoft";

/// A timer's name is cut to this many characters.
constexpr std::size_t kTimerNameLimit = 4096;

bool IsWatchedScheme(std::u16string_view url) {
  constexpr std::array<std::u16string_view, 3> kSchemes = {u"http:", u"https:", u"ftp:"};
  return std::ranges::any_of(kSchemes, [&](std::u16string_view scheme) { return StartsWithNoCase(url, scheme); });
}

/// The verdict on a URL of another scheme: trustworthy, without a look.
void WriteUnwatched(std::int32_t* classification, char16_t* siteName, float* spooficity) {
  *classification = kZephTrustworthy;
  if (spooficity != nullptr) *spooficity = 0.0F;
  if (siteName != nullptr) *std::ranges::copy(kUnwatchedSiteName, siteName).out = u'\0';
}

struct Score {
  std::int32_t classification = kZephUnclassified;
  float spooficity = 0.0F;
  bool isFinal = false;
};

/// The working objects of one call.
struct Classification {
  explicit Classification(std::shared_ptr<const ConfigurationPair> activePair)
      : pair(std::move(activePair)), results(pair->indicators.Entries.size()) {
    pageData.configuration = &pair->configuration;
  }

  /// To be called before the page's data change again: the rules that have run show texts of theirs.
  void KeepTexts() {
    for (IndicatorResult& result : results) {
      result.fieldText.Keep();
      result.matchText.Keep();
    }
  }

  void RunStage(Stage stage) { zeph::RunStage(pair->indicators, pair->configuration, pageData, stage, results); }

  [[nodiscard]] Score ComputeScore() const {
    Score score;
    score.classification = computeSpooficity(pair->indicators, results, score.spooficity, score.isFinal);
    return score;
  }

  /// The configuration stays the same for the whole call, whatever is loaded meanwhile.
  std::shared_ptr<const ConfigurationPair> pair;
  PageData pageData;
  std::vector<IndicatorResult> results;
};

void KeepTrace(ClassificationTrace* trace, const Classification& work) {
  if (trace == nullptr) return;
  trace->pair = work.pair;
  if (trace->wantsResults) trace->results = work.results;
}

void LogUrl(const char* label, const std::u16string& url) {
  LogLine(
      label, [&] { return Narrow(url); }, kLogDetail);
}

/// One page's road, between the decoded URL and the verdict.
class SiteClassification {
 public:
  SiteClassification(IHTMLDocument2& document, Classification& work, ScopedPerfTimer& readTimer,
                     const ResultOutputs& outputs)
      : work_(work), reading_{&document, work.pageData, {}}, readTimer_(readTimer), outputs_(outputs) {}

  /// Stages, collectors and scores until a score is final or everything was read.
  Status Run() {
    const bool isClient = work_.pair->configuration.IsClient;
    work_.RunStage(kStageUrl);
    if (isClient) work_.RunStage(kStageUrlClient);
    if (const Score score = work_.ComputeScore(); score.isFinal && score.classification != kZephSpoofing) {
      if (score.classification == kZephScriptAttack) {
        Settlement unused;
        Settlement& settlement = outputs_.settlement != nullptr ? *outputs_.settlement : unused;
        settlement.reported = ReportScriptAttack(work_.pageData.url, &settlement.calls);
      }
      Finish(score);
      return 0;
    }

    work_.KeepTexts();
    if (!Read(kStepForms)) return status_;
    LogForms();
    if (!Read(kStepAllFirstPass)) {
      LogLine("allParser.GetAllCollectionData", "returned failure code", kLogInformation);
      return status_;
    }
    const Status firstPassStatus = status_;
    work_.RunStage(kStageForms);
    work_.RunStage(kStageFormsMore);
    if (const Score score = work_.ComputeScore(); score.isFinal) {
      Finish(score);
      return firstPassStatus;
    }

    work_.KeepTexts();
    for (const PageStepIndex step : {kStepAllSecondPass, kStepLinks, kStepImages, kStepBody}) {
      if (!Read(step)) return status_;
    }
    if (!isClient) {
      LogLine("isRunOnServer", "TRUE!!!", kLogInformation);
      Read(kStepPageDump);
    }
    for (const PageStepIndex step : {kStepFormTexts, kStepScripts, kStepStructure}) {
      if (!Read(step)) return status_;
    }
    work_.RunStage(kStagePage);
    Finish(work_.ComputeScore());
    finished_ = true;
    return 0;
  }

  /// The page was read to its end.
  [[nodiscard]] bool ReadToEnd() const noexcept { return finished_; }

 private:
  /// False when the step's status ends the call.
  bool Read(PageStepIndex index) {
    const PageStep& step = PageSteps()[index];
    status_ = step.Run(reading_, &readTimer_);
    return !step.IsBad(status_);
  }

  void Finish(const Score& score) {
    SetResults(score.classification, score.spooficity, work_.pageData, work_.pair->indicators, work_.results, outputs_);
  }

  void LogForms() const {
    LogLine(
        "FORM information",
        [&] {
          const FormData& forms = work_.pageData.forms;
          return "formData numForms=" + std::to_string(forms.numForms) +
                 ", numVisibleForms=" + std::to_string(forms.numVisibleForms) +
                 ", numFormElements=" + std::to_string(forms.records.size());
        },
        kLogInformation);
  }

  Classification& work_;
  PageReading reading_;
  ScopedPerfTimer& readTimer_;
  ResultOutputs outputs_;
  Status status_ = 0;
  bool finished_ = false;
};

std::int32_t JudgeUrl(const char16_t* url, std::int32_t* classification, char16_t* siteName, float* spooficity,
                      ClassificationTrace* trace) {
  if (classification == nullptr || url == nullptr) return 1;
  const std::u16string_view urlText(url);
  if (!IsWatchedScheme(urlText)) {
    WriteUnwatched(classification, siteName, spooficity);
    if (trace != nullptr) {
      const Classification untouched(Process().configurationMgr.Active());
      KeepTrace(trace, untouched);
    }
    return 0;
  }
  *classification = kZephUnclassified;
  std::optional<LogBatch> batch(std::in_place);
  ConfigurationMgr& manager = Process().configurationMgr;
  if (!manager.Run()) return 1;

  Classification work(manager.Active());
  const ScopedPerfTimer timer([&] { return ("ClassifyURL for " + Narrow(urlText)).substr(0, kTimerNameLimit); });
  UrlParser parser;
  if (const int result = parser.DecodeWithRedirectors(urlText, work.pair->configuration.Redirectors); result != 0) {
    KeepTrace(trace, work);
    return result;
  }
  TakeJudgedRecord(parser, work.pageData.url);
  work.RunStage(kStageUrl);
  work.RunStage(kStageUrlClient);
  const Score score = work.ComputeScore();
  *classification = score.classification;
  KeepTrace(trace, work);

  const std::u16string& rawUrl = work.pageData.url.RawUrl;
  if (score.classification == kZephSpoofing) {
    *classification = kZephSpoofingConfirmed;
    WriteSiteName(work.pair->configuration, TopBrand(work.pair->indicators, work.results), siteName,
                  trace != nullptr ? trace->nameRoom : std::size_t{kZephNameRoom});
    if (LogIsWanted(kLogInformation)) {
      LogLine(Narrow(StringEntry(0xAD)).c_str(), Narrow(StringEntry(0xB0)) + Narrow(rawUrl), kLogInformation);
    }
  } else if (score.classification == kZephScriptAttack) {
    batch.reset();  // the exchange may take its time
    Settlement unused;
    Settlement& settlement = trace != nullptr ? trace->settlement : unused;
    settlement.reported = ReportScriptAttack(work.pageData.url, &settlement.calls);
  } else if (LogIsWanted(kLogDetail)) {
    LogLine(Narrow(StringEntry(0xAD)).c_str(), "URL classified as legitimate. URL:" + Narrow(rawUrl), kLogDetail);
  }
  if (spooficity != nullptr) *spooficity = score.spooficity;
  return 0;
}

std::int32_t JudgeSite(IHTMLDocument2* document, std::int32_t* classification, char16_t* siteName,
                       const char16_t* pageUrl, EngineResults** engineResults, float* spooficity,
                       ClassificationTrace* trace) {
  if (document == nullptr || classification == nullptr) return 1;
  LogLine("ClassifySite URL", "Enter", kLogDetail);
  const ScopedPerfTimer classifyTimer("ClassifySite");
  ScopedPerfTimer readTimer("Reading Data from IHTMLDocument2 interface");
  readTimer.Stop();
  *classification = kZephUnclassified;
  ConfigurationMgr& manager = Process().configurationMgr;
  if (!manager.Run()) return 1;

  Classification work(manager.Active());
  readTimer.Start();
  const std::u16string documentUrl = TextOf(document->get_URL());
  readTimer.Stop();
  if (!IsWatchedScheme(pageUrl != nullptr ? std::u16string_view(pageUrl) : documentUrl)) {
    WriteUnwatched(classification, siteName, spooficity);
    KeepTrace(trace, work);
    return 0;
  }
  std::u16string namedUrl;
  if (const int result = DecodePageUrls(documentUrl, pageUrl, work.pair->configuration, work.pageData, namedUrl);
      result != 0) {
    KeepTrace(trace, work);
    return result;
  }
  LogUrl("ClassifySite URL", namedUrl);
  readTimer.Start();
  work.pageData.referrer = TextOf(document->get_referrer());
  readTimer.Stop();

  Settlement* const settlement = trace != nullptr ? &trace->settlement : nullptr;
  SiteClassification site(*document, work, readTimer,
                          {classification, siteName, spooficity, engineResults, settlement,
                           trace != nullptr ? trace->nameRoom : std::size_t{kZephNameRoom}});
  const Status status = site.Run();
  KeepTrace(trace, work);
  if (site.ReadToEnd()) LogUrl("ClassifySite END", namedUrl);
  return status;
}

/// Runs a call's work. Want of memory is no verdict, however far the work has come.
template <class Work>
std::int32_t WithinMemory(std::int32_t* classification, Work&& work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    *classification = kZephUnclassified;
    return kStatusOutOfMemory;
  }
}

}  // namespace

std::int32_t ClassifyUrlTraced(const char16_t* url, std::int32_t* classification, char16_t* siteName, float* spooficity,
                               ClassificationTrace* trace) {
  return WithinMemory(classification, [&] { return JudgeUrl(url, classification, siteName, spooficity, trace); });
}

std::int32_t ClassifySiteTraced(IHTMLDocument2* document, std::int32_t* classification, char16_t* siteName,
                                const char16_t* pageUrl, EngineResults** engineResults, float* spooficity,
                                ClassificationTrace* trace) {
  return WithinMemory(classification, [&] {
    return JudgeSite(document, classification, siteName, pageUrl, engineResults, spooficity, trace);
  });
}

}  // namespace zeph
