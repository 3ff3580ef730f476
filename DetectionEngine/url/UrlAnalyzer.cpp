// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/url/UrlAnalyzer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>

#include "DetectionEngine/platform/Lasting.h"

namespace zeph {

namespace {

// Held in single precision once, and so in every table that was trained against them.
constexpr double kHighScore = 0.85F;
constexpr double kLowScore = 0.15F;
constexpr double kUnknownTokenProbability = 0.4F;

/// Room for the texts of the tokens of a usual URL.
constexpr std::size_t kUsualTexts = 512;

/// The distance from a half, as a number that orders as distances do: the bits of a double that isn't negative.
std::uint64_t StrengthOf(double probability) noexcept {
  return std::bit_cast<std::uint64_t>(std::abs(probability - 0.5));
}

std::int32_t ClassOf(double score) noexcept {
  if (score > kHighScore) return kUrlScoreHigh;
  return score <= kLowScore ? kUrlScoreLow : kUrlScoreMiddle;
}

std::u16string Joined(std::u16string_view code, std::u16string_view word) {
  std::u16string token(code);
  return token += word;
}

UrlScoreCache& Cache() {
  static UrlScoreCache& cache = Lasting(std::make_unique<UrlScoreCache>());
  return cache;
}

template <class Url>
UrlScore ScoreCached(std::u16string_view key, const Url& url, const TokenTable& table, const WordSet& words) {
  if (const std::optional<UrlScore> known = Cache().Find(key)) return *known;
  UrlAnalyzer analyzer(table, words);
  UrlScore score;
  score.scoreClass = analyzer.Classify(url);
  score.score = analyzer.Score();
  Cache().Add(key, score);
  return score;
}

}  // namespace

UrlAnalyzer::UrlAnalyzer(const TokenTable& table, const WordSet& words) : table_(table), words_(words) {
  texts_.reserve(kUsualTexts);
}

std::int32_t UrlAnalyzer::Classify(std::u16string_view url) { return ClassifyAny(url); }

std::int32_t UrlAnalyzer::Classify(const UrlRecord& record) { return ClassifyAny(record); }

template <class Url>
std::int32_t UrlAnalyzer::ClassifyAny(const Url& url) {
  count_ = 0;
  weakest_.reset();
  pushedOut_ = false;
  taken_.reset();
  texts_.clear();
  Tokenize(url, words_, *this);
  score_ = 0.0;
  double forIt = 1.0;
  double against = 1.0;
  const Positions byKey = ByKey();
  for (std::size_t i = 0; i < count_; ++i) {
    const double probability = chosen_[byKey[i]].probability;
    forIt *= probability;
    against *= 1.0 - probability;
    score_ = forIt / (forIt + against);
  }
  return ClassOf(score_);
}

std::map<std::u16string, double> UrlAnalyzer::ChosenTokens() const {
  std::map<std::u16string, double> tokens;
  for (std::size_t i = 0; i < count_; ++i) tokens.emplace(KeyOf(i), chosen_[i].probability);
  return tokens;
}

UrlAnalyzer::Positions UrlAnalyzer::ByKey() const noexcept {
  Positions positions;
  std::array<std::uint64_t, kMostTokens> sorted;
  for (std::size_t i = 0; i < count_; ++i) {
    const std::uint64_t beginning = beginnings_[i];
    std::size_t at = i;
    for (; at > 0 && sorted[at - 1] >= beginning; --at) {
      if (sorted[at - 1] == beginning && KeyOf(positions[at - 1]) < KeyOf(i)) break;
      sorted[at] = sorted[at - 1];
      positions[at] = positions[at - 1];
    }
    sorted[at] = beginning;
    positions[at] = static_cast<std::uint8_t>(i);
  }
  return positions;
}

std::size_t UrlAnalyzer::FindWeakest() const noexcept {
  std::uint64_t least = strengths_[0];
  for (std::size_t i = 1; i < count_; ++i) least = std::min(least, strengths_[i]);
  std::size_t weakest = count_;
  for (std::size_t i = 0; i < count_; ++i) {
    if (strengths_[i] == least && (weakest == count_ || KeyPrecedes(i, weakest))) weakest = i;
  }
  return weakest;
}

bool UrlAnalyzer::IsChosen(std::uint64_t beginning, std::u16string_view token) const noexcept {
  for (std::size_t i = 0; i < count_; ++i) {
    if (beginnings_[i] == beginning && TextHash::Same(KeyOf(i), token)) return true;
  }
  return false;
}

std::optional<double> UrlAnalyzer::ProbabilityOfUnknown(std::u16string_view token) noexcept {
  if (token.starts_with(u"AG")) return std::nullopt;  // a host's characters count where the table knows them
  return kUnknownTokenProbability;
}

bool UrlAnalyzer::MakePlace(std::uint64_t strength) noexcept {
  if (count_ < kMostTokens) return true;
  if (!weakest_) weakest_ = FindWeakest();
  if (strengths_[*weakest_] >= strength) return false;
  --count_;
  beginnings_[*weakest_] = beginnings_[count_];
  strengths_[*weakest_] = strengths_[count_];
  ids_[*weakest_] = ids_[count_];
  chosen_[*weakest_] = chosen_[count_];
  weakest_.reset();
  pushedOut_ = true;
  return true;
}

void UrlAnalyzer::Choose(std::uint64_t beginning, std::uint64_t strength, WordId word, const Chosen& chosen) noexcept {
  beginnings_[count_] = beginning;
  strengths_[count_] = strength;
  ids_[count_] = word;
  chosen_[count_] = chosen;
  ++count_;
}

void UrlAnalyzer::Take(std::u16string_view token) {
  const std::uint64_t beginning = BeginningOf(token);
  const bool wasFull = count_ == kMostTokens;
  if (!wasFull && IsChosen(beginning, token)) return;
  const double* const known = table_.Find(token);
  const std::optional<double> probability = known != nullptr ? *known : ProbabilityOfUnknown(token);
  if (!probability) return;
  const std::uint64_t strength = StrengthOf(*probability);
  if (!MakePlace(strength) || (wasFull && IsChosen(beginning, token))) return;
  Choose(beginning, strength, kNoWord,
         {*probability, static_cast<std::uint32_t>(texts_.size()), static_cast<std::uint32_t>(token.size())});
  texts_.append(token);
}

void UrlAnalyzer::TakeFixed(FixedToken token) {
  const bool cameBefore = taken_[token];
  taken_[token] = true;
  if (cameBefore && count_ < kMostTokens && !pushedOut_) return;  // it has its place, or doesn't count
  const double* const known = table_.HasPinned() ? table_.Pinned(token) : table_.Find(TextOf(token));
  const std::optional<double> probability = known != nullptr ? *known : ProbabilityOfUnknown(TextOf(token));
  if (!probability) return;
  const std::uint64_t beginning = BeginningOf(token);
  const std::uint64_t strength = StrengthOf(*probability);
  if (!MakePlace(strength) || (cameBefore && IsChosen(beginning, TextOf(token)))) return;
  Choose(beginning, strength, kNoWord, {*probability, token, 0});
}

// A word's token is met by no other road: what stands in the list never stays behind. So numbers tell whether it came
// before, and its text is made only once it is chosen.
void UrlAnalyzer::TakeWord(WordCode code, std::uint32_t number, std::u16string_view word) {
  const auto codeNumber = static_cast<std::size_t>(code);
  const WordId id = WordId{number} << 8 | codeNumber;
  const bool wasFull = count_ == kMostTokens;
  if (!wasFull && IsChosen(id)) return;
  const double* const known =
      table_.HasPinnedWords() ? table_.PinnedWord(number, codeNumber) : table_.Find(Joined(TextOf(code), word));
  const double probability = known != nullptr ? *known : kUnknownTokenProbability;
  const std::uint64_t strength = StrengthOf(probability);
  if (!MakePlace(strength) || (wasFull && IsChosen(id))) return;
  const auto begin = static_cast<std::uint32_t>(texts_.size());
  texts_.append(TextOf(code)).append(word);
  Choose(BeginningOf(std::u16string_view(texts_).substr(begin)), strength, id,
         {probability, begin, static_cast<std::uint32_t>(texts_.size() - begin)});
}

std::optional<UrlScore> UrlScoreCache::Find(std::u16string_view url) const {
  const std::lock_guard lock(mutex_);
  const auto findIn = [&](std::size_t begin, std::size_t end) -> std::optional<UrlScore> {
    for (; begin < end; ++begin) {
      if (TextHash::Same(entries_[begin].url, url)) return entries_[begin].score;
    }
    return std::nullopt;
  };
  const std::optional<UrlScore> found = findIn(oldest_, count_);
  return found ? found : findIn(0, oldest_);
}

void UrlScoreCache::Add(std::u16string_view url, const UrlScore& score) {
  const std::lock_guard lock(mutex_);
  if (count_ < kMostEntries) {
    entries_[count_++] = {std::u16string(url), score};
    return;
  }
  entries_[oldest_].url.assign(url);
  entries_[oldest_].score = score;
  oldest_ = (oldest_ + 1) % kMostEntries;
}

UrlScore ScoreUrl(std::u16string_view url, const TokenTable& table, const WordSet& words) {
  return ScoreCached(url, url, table, words);
}

UrlScore ScoreRecord(const UrlRecord& record, const TokenTable& table, const WordSet& words) {
  return ScoreCached(record.RawUrl, record, table, words);
}

}  // namespace zeph
