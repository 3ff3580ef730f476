// SPDX-License-Identifier: Apache-2.0
// The reading of a page, step by step: the one order in which collectors and scanners run, for the driver and for
// whoever wants to see what they find.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/base/PerfTimer.h"
#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/page/AllCollectionParser.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/page/PageDump.h"

namespace zeph {

class UrlParser;

/// Decodes the URLs of a page into pageData.url (the URL to judge by, which is a redirector's target when that decodes)
/// and, if the caller gave a pageUrl, pageData.documentUrl. namedUrl receives the URL that logs call the page by. Not
/// 0: the URL to judge by can't be decoded.
int DecodePageUrls(std::u16string_view documentUrl, const char16_t* pageUrl, const Configuration& configuration,
                   PageData& pageData, std::u16string& namedUrl);

/// Takes the record to judge a URL by from the parser that decoded it: that of a redirector's target when this decodes,
/// else its own.
void TakeJudgedRecord(UrlParser& parser, UrlRecord& record);

/// The text of an answer; empty when it failed or there is none.
[[nodiscard]] std::u16string TextOf(const TextAnswer& answer);

/// A reading in progress. Each step leaves its record in pageData, and only a step that didn't fail does.
struct PageReading {
  IHTMLDocument2* document = nullptr;
  PageData& pageData;
  AllCollectionParser allParser;  ///< its second pass builds on what its first found
  PageDump dump = {};
};

/// Which statuses of a step end the reading.
enum class BadStatus : std::uint8_t { kNonZero, kNegative, kNone };

struct PageStep {
  std::string_view name;
  BadStatus bad;
  bool readsDocument;  ///< false: works on texts that were read before
  Status (*work)(PageReading&);
  void (*finish)(PageReading&) = nullptr;  ///< what is left to do without the document

  /// The step whole. Gives kStatusTooCostly or kStatusOutOfMemory, which are bad for every step, when the page's budget
  /// or the memory has run out, be it in an operation of the document whose failure was passed over. readTimer, if given, runs while the document is read.
  Status Run(PageReading& reading, PerfTimer* readTimer = nullptr) const;
  [[nodiscard]] bool IsBad(Status status) const noexcept {
    if (IsUnjudged(status)) return true;
    return bad == BadStatus::kNonZero ? status != 0 : bad == BadStatus::kNegative && status < 0;
  }
};

/// Positions in PageSteps, in the order of running.
enum PageStepIndex : std::uint8_t {
  kStepForms,
  kStepAllFirstPass,
  kStepAllSecondPass,
  kStepLinks,
  kStepImages,
  kStepBody,
  kStepPageDump,  ///< on server installations only
  kStepFormTexts,
  kStepScripts,
  kStepStructure,
};

[[nodiscard]] std::span<const PageStep> PageSteps() noexcept;

}  // namespace zeph
