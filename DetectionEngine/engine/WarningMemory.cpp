// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/engine/WarningMemory.h"

#include <string>

#include "DetectionEngine/base/Md5Hex.h"

namespace zeph {

namespace {

enum Slot : std::uint32_t { kQuietSince = 0, kLastFlaggedUrl = 8, kLastFlaggedScore = 9, kLastFlaggedTime = 10 };

/// A score that changes within this many seconds is the same visit.
constexpr std::int64_t kSameVisitSeconds = 5;

}  // namespace

bool WarningMemory::IsQuiet() {
  const std::int64_t age = store_.Age(kQuietSince);
  if (age == -1) return false;
  if (age <= quietSeconds_) return true;
  store_.Delete(kQuietSince);
  return false;
}

WarningMemory::Verdict WarningMemory::Record(std::u16string_view url, std::u16string_view scoreText) {
  const std::u16string urlHash = Md5Hex(url);
  const std::u16string scoreHash = Md5Hex(scoreText);
  std::u16string lastUrl;
  std::u16string lastScore;
  if (store_.Read(kLastFlaggedUrl, lastUrl) != 0 || store_.Read(kLastFlaggedScore, lastScore) != 0 ||
      lastUrl != urlHash) {
    if (store_.Write(kLastFlaggedUrl, urlHash) == 0 && store_.Write(kLastFlaggedScore, scoreHash) == 0) {
      store_.Write(kLastFlaggedTime, store_.Now());
    }
    return Verdict::kPass;
  }
  if (lastScore == scoreHash) return Verdict::kPass;

  const std::int64_t age = store_.Age(kLastFlaggedTime);
  if (age == -1) return Verdict::kPass;
  if (age > kSameVisitSeconds) {
    store_.Write(kQuietSince, store_.Now());
    return Verdict::kHoldBack;
  }
  if (store_.Write(kLastFlaggedScore, scoreHash) != 0 || store_.Write(kLastFlaggedTime, store_.Now()) != 0) {
    store_.Delete(kLastFlaggedUrl);
    store_.Delete(kLastFlaggedScore);
    store_.Delete(kLastFlaggedTime);
  }
  return Verdict::kPass;
}

}  // namespace zeph
