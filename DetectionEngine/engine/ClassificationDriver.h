// SPDX-License-Identifier: Apache-2.0
// The road of a URL or a page from the call to the verdict. The driver keeps nothing: all that it builds lives in
// the call, so any number of calls run at once.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/EngineResults.h"
#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/engine/Results.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// What a classification worked with, for a caller that explains the verdict. Of a call that ran no rule it has a result
/// for each that is in force, all as they were made. Stays empty when an argument was null or nothing is loaded.
struct ClassificationTrace {
  std::shared_ptr<const ConfigurationPair> pair;
  std::vector<IndicatorResult> results;  ///< one for each indicator of the pair, as the call left them
  std::size_t nameRoom = kZephNameRoom;  ///< by the caller: characters that its siteName has room for
  bool wantsResults = true;              ///< false, by the caller: results stays empty, which spares copies of texts
  Settlement settlement;
};

/// The work of the exports of the same names; their arguments and results stand in DetectionEngine.h. trace may be
/// null.
std::int32_t ClassifyUrlTraced(const char16_t* url, std::int32_t* classification, char16_t* siteName, float* spooficity,
                               ClassificationTrace* trace);
std::int32_t ClassifySiteTraced(IHTMLDocument2* document, std::int32_t* classification, char16_t* siteName,
                                const char16_t* pageUrl, EngineResults** engineResults, float* spooficity,
                                ClassificationTrace* trace);

}  // namespace zeph
