// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/PageReading.h"

#include <array>
#include <new>
#include <utility>

#include "DetectionEngine/page/BodyCollector.h"
#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/FormCollector.h"
#include "DetectionEngine/page/FormTextScanner.h"
#include "DetectionEngine/page/ImageCollector.h"
#include "DetectionEngine/page/LinkCollector.h"
#include "DetectionEngine/page/ScriptCollector.h"
#include "DetectionEngine/page/StructureEncoder.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// Runs a collector into a record of its own, which becomes the page's only when the collector didn't fail.
template <class Data, class Collect>
Status CollectInto(Data& target, Collect&& collect) {
  Data collected;
  const Status status = collect(collected);
  if (status == 0) target = std::move(collected);
  return status;
}

/// The status of work, or what ran out.
template <class Work>
Status WithinBudget(Work&& work) {
  try {
    return work();
  } catch (const TooCostly&) {
    return kStatusTooCostly;
  } catch (const std::bad_alloc&) {
    return kStatusOutOfMemory;
  }
}

constexpr std::array kSteps = {
    // name                   bad status            document  step
    PageStep{"CollectFormData", BadStatus::kNonZero, true,
             [](PageReading& r) {
               return CollectInto(r.pageData.forms,
                                  [&](FormData& data) { return CollectFormData(r.document, r.pageData.url, data); });
             }},
    PageStep{"GetAllCollectionData", BadStatus::kNegative, true,
             [](PageReading& r) {
               const Status status = r.allParser.GetAllCollectionData(r.document);
               if (status >= 0) r.pageData.all = r.allParser.Data();
               return status;
             }},
    PageStep{"ParseAllCollection", BadStatus::kNegative, true,
             [](PageReading& r) {
               const Status status = r.allParser.ParseAllCollection(r.document);
               if (status >= 0) r.pageData.all = r.allParser.TakeData();
               return status;
             }},
    PageStep{"CollectLinkData", BadStatus::kNonZero, true,
             [](PageReading& r) {
               return CollectInto(r.pageData.links, [&](LinkData& data) { return CollectLinkData(r.document, data); });
             }},
    PageStep{"CollectImageData", BadStatus::kNonZero, true,
             [](PageReading& r) {
               return CollectInto(r.pageData.images,
                                  [&](ImageData& data) { return CollectImageData(r.document, r.pageData.url, data); });
             }},
    PageStep{"CollectBodyData", BadStatus::kNonZero, true,
             [](PageReading& r) {
               return CollectInto(r.pageData.body, [&](BodyData& data) { return CollectBodyData(r.document, data); });
             }},
    PageStep{"PageDump", BadStatus::kNone, true,
             [](PageReading& r) { return r.dump.Build(r.document, r.pageData.body.visibleText); },
             [](PageReading& r) { r.pageData.diagnosticText = r.dump.Text(); }},
    PageStep{"FormTextScanner", BadStatus::kNonZero, false, [](PageReading& r) { return ScanFormTexts(r.pageData); }},
    PageStep{"CollectScriptData", BadStatus::kNonZero, true,
             [](PageReading& r) {
               return CollectInto(r.pageData.scripts,
                                  [&](ScriptData& data) { return CollectScriptData(r.document, data); });
             }},
    PageStep{"StructureEncoder", BadStatus::kNone, false,
             [](PageReading& r) {
               return EncodeStructure(r.pageData.all.elementCount, r.pageData.body.html, r.pageData.structure);
             }},
};
static_assert(kSteps.size() == kStepStructure + 1);

}  // namespace

int DecodePageUrls(std::u16string_view documentUrl, const char16_t* pageUrl, const Configuration& configuration,
                   PageData& pageData, std::u16string& namedUrl) {
  UrlParser parser;
  int decoded = 0;
  if (pageUrl == nullptr) {
    decoded = parser.DecodeWithRedirectors(documentUrl, configuration.Redirectors);
  } else {
    UrlParser documentParser;
    documentParser.DecodeWithRedirectors(documentUrl, configuration.Redirectors);
    pageData.documentUrl = documentParser.TakeRecord();
    decoded = parser.DecodeUrl(pageUrl);
  }
  if (decoded != 0) return decoded;
  namedUrl = parser.Record().RawUrl;
  TakeJudgedRecord(parser, pageData.url);
  return 0;
}

void TakeJudgedRecord(UrlParser& parser, UrlRecord& record) {
  if (parser.Record().IsRedirector) {
    UrlParser target;
    if (target.DecodeUrl(parser.Record().RedirectTarget) == 0) {
      record = target.TakeRecord();
      return;
    }
  }
  record = parser.TakeRecord();
}

std::u16string TextOf(const TextAnswer& answer) {
  return answer.HasValue() ? std::u16string(*answer.value) : std::u16string();
}

Status PageStep::Run(PageReading& reading, PerfTimer* readTimer) const {
  PerfTimer* const timer = readsDocument ? readTimer : nullptr;
  if (timer != nullptr) timer->Start();
  Status status = WithinBudget([&] { return work(reading); });
  if (timer != nullptr) timer->Stop();
  const PageBudget* const budget = reading.document == nullptr ? nullptr : reading.document->Budget();
  if (budget != nullptr && budget->Failure() != 0) status = budget->Failure();
  if (finish == nullptr || IsUnjudged(status)) return status;
  return WithinBudget([&] {
    finish(reading);
    return status;
  });
}

std::span<const PageStep> PageSteps() noexcept { return kSteps; }

}  // namespace zeph
