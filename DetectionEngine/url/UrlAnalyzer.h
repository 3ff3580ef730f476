// SPDX-License-Identifier: Apache-2.0
// Gives a URL a probability from its tokens: the strongest of them, by the table of probabilities, are combined by
// Bayes' rule.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/configuration/TokenTable.h"
#include "DetectionEngine/text/WordSet.h"
#include "DetectionEngine/url/UrlRecord.h"
#include "DetectionEngine/url/UrlTokenizer.h"

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

  /// Table and words outlive the analyser. Keys that the table has pinned are the fixed tokens, and those of words
  /// are kWordCodes with these words.
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
  using Positions = std::array<std::uint8_t, kMostTokens>;
  struct Chosen {
    double probability;
    std::uint32_t begin;   ///< of the token, in texts_; of a fixed one, its number
    std::uint32_t length;  ///< 0 for a fixed one
  };
  /// Tells words' tokens apart: number and code of the word. All other tokens have kNoWord.
  using WordId = std::uint64_t;
  static constexpr WordId kNoWord = ~WordId{0};

  void Take(std::u16string_view token) override;
  void TakeFixed(FixedToken token) override;
  void TakeWord(WordCode code, std::uint32_t number, std::u16string_view word) override;
  /// The probability of a token that the table doesn't know; none for one that doesn't count.
  [[nodiscard]] static std::optional<double> ProbabilityOfUnknown(std::u16string_view token) noexcept;
  /// True when there is a place for a token of this strength, perhaps since the weakest was pushed out for it.
  bool MakePlace(std::uint64_t strength) noexcept;
  /// True when it is among the chosen.
  [[nodiscard]] bool IsChosen(std::uint64_t beginning, std::u16string_view token) const noexcept;
  [[nodiscard]] bool IsChosen(WordId word) const noexcept {
    bool isChosen = false;
    for (std::size_t i = 0; i < count_; ++i) isChosen |= ids_[i] == word;
    return isChosen;
  }
  void Choose(std::uint64_t beginning, std::uint64_t strength, WordId word, const Chosen& chosen) noexcept;
  /// Of equally weak ones the first in key order.
  [[nodiscard]] std::size_t FindWeakest() const noexcept;
  /// The positions of the chosen in key order.
  [[nodiscard]] Positions ByKey() const noexcept;
  [[nodiscard]] std::u16string_view KeyOf(std::size_t position) const noexcept {
    const Chosen& chosen = chosen_[position];
    if (chosen.length == 0) return TextOf(static_cast<FixedToken>(chosen.begin));
    return std::u16string_view(texts_).substr(chosen.begin, chosen.length);
  }
  [[nodiscard]] bool KeyPrecedes(std::size_t a, std::size_t b) const noexcept {
    return beginnings_[a] != beginnings_[b] ? beginnings_[a] < beginnings_[b] : KeyOf(a) < KeyOf(b);
  }
  template <class Url>
  std::int32_t ClassifyAny(const Url& url);

  const TokenTable& table_;
  const WordSet& words_;
  double score_ = -1.0;
  // Of the chosen, count_ of them in no order.
  std::size_t count_ = 0;
  std::array<std::uint64_t, kMostTokens> beginnings_;
  std::array<std::uint64_t, kMostTokens> strengths_;
  std::array<WordId, kMostTokens> ids_;
  std::array<Chosen, kMostTokens> chosen_;
  std::optional<std::size_t> weakest_;   ///< while it is known
  bool pushedOut_ = false;               ///< some token was
  std::bitset<kFixedTokenCount> taken_;  ///< fixed tokens, while nothing was pushed out
  std::u16string texts_;                 ///< of all that were ever chosen for this URL, but the fixed ones
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
