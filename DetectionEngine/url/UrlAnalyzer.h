// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "DetectionEngine/configuration/TokenTable.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

enum UrlScoreClass : std::int32_t { kUrlScoreMiddle = 1, kUrlScoreHigh = 2, kUrlScoreLow = 3 };

struct UrlScore {
  std::int32_t scoreClass = kUrlScoreLow;
  double score = 0.0;
};

/// The score of a URL text, or of a record, through the process-wide cache that both share; the key is the URL
/// text. A text that can't be taken apart counts as one without tokens. Any thread.
UrlScore ScoreUrl(std::u16string_view url, const TokenTable& table, std::span<const std::u16string> words);
UrlScore ScoreRecord(const UrlRecord& record, const TokenTable& table, std::span<const std::u16string> words);

}  // namespace zeph
