// SPDX-License-Identifier: Apache-2.0
// Gives a URL a probability from its tokens: the strongest of them, by the table of probabilities, are combined by
// Bayes' rule.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/configuration/TokenTable.h"
#include "DetectionEngine/url/UrlRecord.h"
#include "DetectionEngine/url/UrlTokenizer.h"
#include "DetectionEngine/url/WordSet.h"

namespace zeph {

enum UrlScoreClass : std::int32_t {
  kUrlScoreMiddle = 1,  ///< also of a score that isn't a number
  kUrlScoreHigh = 2,    ///< above 0.85
  kUrlScoreLow = 3,     ///< at most 0.15
};

struct UrlScore {
  std::int32_t scoreClass = kUrlScoreLow;
  double score = 0.0;
};

/// Scores one URL by its strongest tokens, those whose probability lies furthest from a half. Once there are
/// kMostTokens of them, a token comes in by pushing out the weakest, if that is weaker than itself; one that is in
/// already does so too, and then takes its own place again.
class UrlAnalyzer final : private TokenSink {
 public:
  static constexpr std::size_t kMostTokens = 25;

  /// Table and words outlive the analyser.
  UrlAnalyzer(const TokenTable& table, const WordSet& words);

  /// The class of the URL. A text that can't be taken apart counts as one without tokens.
  std::int32_t Classify(std::u16string_view url);
  std::int32_t Classify(const UrlRecord& record);

  /// The last score: s / (s + t), s the product of the tokens' probabilities in key order and t that of their
  /// complements; 0 without tokens. -1 until there is one.
  [[nodiscard]] double Score() const noexcept { return score_; }
  /// The tokens that made it, with their probabilities.
  [[nodiscard]] std::map<std::u16string, double> ChosenTokens() const;

 private:
  /// A token, with its beginning as a number that orders as the text does.
  struct Entry {
    std::array<std::uint64_t, 2> beginning;
    std::uint32_t begin;  ///< into texts_
    std::uint32_t length;
    double probability;
    double distance;  ///< from a half
  };

  void Take(std::u16string_view token) override;
  void Write(std::u16string_view token, double probability, double distance);
  template <class Url>
  std::int32_t ClassifyAny(const Url& url);
  [[nodiscard]] std::u16string_view TextOf(const Entry& entry) const noexcept {
    return std::u16string_view(texts_).substr(entry.begin, entry.length);
  }

  const TokenTable& table_;
  const WordSet& words_;
  double score_ = -1.0;
  std::array<Entry, kMostTokens> entries_;  ///< the first count_, in key order
  std::size_t count_ = 0;
  std::u16string texts_;
};

/// The scores of the last URLs. Any thread.
class UrlScoreCache {
 public:
  static constexpr std::size_t kMostEntries = 25;

  /// The oldest entry for exactly this URL.
  [[nodiscard]] std::optional<UrlScore> Find(std::u16string_view url) const;
  /// Pushes out the oldest entry when there are more than kMostEntries.
  void Add(std::u16string_view url, const UrlScore& score);

 private:
  struct Entry {
    std::u16string url;
    UrlScore score;
  };

  mutable std::mutex mutex_;
  std::array<Entry, kMostEntries> entries_;
  std::size_t count_ = 0;
  std::size_t oldest_ = 0;  ///< the next to be overwritten, once all are in use
};

/// The score of a URL text, or of a record, through the process-wide cache that both share, whatever configuration
/// filled it; the key is the URL text, for a record its RawUrl. Any thread.
UrlScore ScoreUrl(std::u16string_view url, const TokenTable& table, const WordSet& words);
UrlScore ScoreRecord(const UrlRecord& record, const TokenTable& table, const WordSet& words);

}  // namespace zeph
