// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/EngineResults.h"
#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/engine/ServerCalls.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// What became of a verdict between the rules and the caller, for one who explains it.
struct Settlement {
  std::optional<std::int32_t> serverAnswer;  ///< 0: the exchange failed; nothing: the server wasn't asked
  std::optional<bool> reported;              ///< whether a report was taken; nothing: none was made
  bool heldBack = false;                     ///< by the warning memory: the page was held for spoofing
  std::vector<ServerCall> calls;             ///< in order, those among them that the privacy level kept back
};

/// Where ClassifySite writes its answer. classification is never null, the others may be.
struct ResultOutputs {
  std::int32_t* classification = nullptr;
  char16_t* siteName = nullptr;
  float* spooficity = nullptr;
  EngineResults** engineResults = nullptr;
  Settlement* settlement = nullptr;
  std::size_t nameRoom = kZephNameRoom;  ///< characters that siteName has room for
};

/// The last step of a page's classification: names the brand, asks the server about a page that the engine alone holds
/// for spoofing (as far as the privacy level allows, and not for a caller who wants the full report), reports it,
/// lets the warning memory hold the warning back, and makes the report. Blocks for the exchange; can't fail.
void SetResults(std::int32_t classification, float score, const PageData& pageData, const Indicators& indicators,
                std::span<const IndicatorResult> results, const ResultOutputs& outputs);

/// Copies the company name of a brand into the caller's buffer, with its terminator, as much of it as fits. A null
/// buffer, an empty brand or a brand without a name leave the buffer alone.
void WriteSiteName(const Configuration& configuration, std::u16string_view brand, char16_t* siteName, std::size_t room);

}  // namespace zeph
