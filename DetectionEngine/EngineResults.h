// SPDX-License-Identifier: Apache-2.0
// The full report of one classification, for callers in C++.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "DetectionEngine/configuration/Indicators.h"

namespace zeph {

/// The answer of one indicator; false and empty when it didn't run.
struct EngineIndicatorResult {
  bool on = false;
  std::u16string fieldText;  ///< what was looked at
  std::u16string matchText;  ///< what it matched
};

/// Made by ClassifySite, given back through ReleaseEngineResults.
struct EngineResults {
  virtual ~EngineResults();

  std::vector<Indicator> indicators;  ///< every rule in use, in list order, without split items
  std::u16string pageSource;
  std::u16string pageText;            ///< visible text, one blank, values of text fields
  std::u16string labelText;
  std::u16string title;
  std::u16string submitValues;        ///< each submit value with one blank behind it
  std::u16string reservedText;
  std::u16string diagnosticText;      ///< the page dump; only from a server installation
  std::u16string documentUrl;
  std::int32_t refreshSeconds = -1;
  bool imageTextFound = false;
  std::vector<EngineIndicatorResult> indicatorResults;  ///< up to the first indicator of category 4
  std::u16string brand;               ///< key of the imitated brand
  float spooficity = 0.0F;
};

}  // namespace zeph
