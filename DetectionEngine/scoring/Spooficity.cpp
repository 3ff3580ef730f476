// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/scoring/Spooficity.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <string_view>

#include "DetectionEngine/base/DebugLog.h"

namespace zeph {
namespace {

constexpr std::int32_t kTrustworthy = 1;
constexpr std::int32_t kSpoofing = 2;
constexpr std::int32_t kUnclassified = 3;
constexpr std::int32_t kScriptAttack = 6;

/// Rules from the first one of this Category on stay out of the detailed report.
constexpr std::uint32_t kCategoryReportEnd = 4;

/// A weight that ends the walk: what the products become, and the answer.
struct Mark {
  float weight;
  float spoof;
  float ham;
  std::int32_t classification;
  const char* logText;
};

constexpr std::array<Mark, 4> kMarks = {{
    {kWeightScriptAttack, 0.9F, 0.1F, kScriptAttack, "CLASSIFICATIONID_XSSATTACK"},
    {kWeightSpoofing, 1.0F, 0.0F, kSpoofing, "CLASSIFICATIONID_WEBSPOOFINGSITE"},
    {kWeightUnclassified, 0.0F, 1.0F, kUnclassified, "WEIGHT_UNCLASSIFIEDSITE"},
    {kWeightTrustworthy, 0.0F, 1.0F, kTrustworthy, "WEIGHT_TRUSTWORTHYSITE"},
}};

}  // namespace

std::int32_t computeSpooficity(const Indicators& indicators, std::span<const IndicatorResult> results,
                               float& spooficity, bool& isFinal) {
  // What is kept from one rule to the next is a 32-bit float; what lies between is worked out at 64 bits, so that each
  // step rounds once and scores are the same on every machine.
  float spoof = 1.0F;
  float ham = 1.0F;
  const Mark* met = nullptr;
  const std::span<const Indicator> entries = indicators.Entries;
  for (std::size_t i = 0; i < entries.size() && met == nullptr; ++i) {
    if (!results[i].evaluated) continue;
    const Indicator& indicator = entries[i];
    const float weight = results[i].on ? indicator.OnWeight : indicator.OffWeight;
    if (weight == kNoWeight) continue;
    const auto mark = std::ranges::find(kMarks, weight, &Mark::weight);
    if (mark != kMarks.end()) {
      met = &*mark;
      spoof = met->spoof;
      ham = met->ham;
      LogLine("computeSpooficity", met->logText, kLogDetail);
    } else {
      spoof = spoof * weight;
      ham = static_cast<float>(static_cast<double>(ham) * (1.0 - static_cast<double>(weight)));
    }
  }
  const double product = spoof;
  spooficity = static_cast<float>(product / (static_cast<double>(ham) + product));
  isFinal = met != nullptr;
  if (met != nullptr) return met->classification;
  return spooficity > kSpoofingThreshold ? kSpoofing : kUnclassified;  // also for what isn't a number
}

std::u16string TopBrand(const Indicators& indicators, std::span<const IndicatorResult> results) {
  std::map<std::u16string_view, std::int32_t> tally;
  std::u16string_view lowestBrand;
  std::uint32_t lowestPriority = std::numeric_limits<std::int32_t>::max();
  for (std::size_t i = 0; i < indicators.Entries.size(); ++i) {
    const IndicatorResult& result = results[i];
    const std::uint32_t priority = indicators.Entries[i].Rule.TDPriority;
    if (!result.on || priority == 0 || result.matchText.empty()) continue;
    ++tally[result.matchText];
    if (priority < lowestPriority) {
      lowestBrand = result.matchText;
      lowestPriority = priority;
    }
  }
  std::u16string_view best;
  std::int32_t bestCount = 0;
  for (const auto& [brand, count] : tally) {
    if (count > bestCount || (count == bestCount && brand == lowestBrand)) {
      best = brand;
      bestCount = count;
    }
  }
  return std::u16string(best);
}

bool IndicatorIsOn(const Indicators& indicators, std::span<const IndicatorResult> results, std::size_t index) noexcept {
  return index < indicators.Entries.size() && results[index].on;
}

std::size_t ResultCount(const Indicators& indicators) noexcept {
  const auto end = std::ranges::find(indicators.Entries, kCategoryReportEnd,
                                     [](const Indicator& indicator) { return indicator.Rule.Category; });
  return std::max<std::size_t>(1, static_cast<std::size_t>(end - indicators.Entries.begin()));
}

}  // namespace zeph
