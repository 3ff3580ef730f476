// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/url/UrlAnalyzer.h"

#include <algorithm>
#include <cmath>

namespace zeph {

namespace {

// Held in single precision once, and so in every table that was trained against them.
constexpr double kHighScore = 0.85F;
constexpr double kLowScore = 0.15F;
constexpr double kUnknownTokenProbability = 0.4F;

/// Room for the texts of the tokens of a usual URL.
constexpr std::size_t kUsualTexts = 512;

/// The first eight units; texts that differ there are in the order of these numbers.
std::array<std::uint64_t, 2> BeginningOf(std::u16string_view text) noexcept {
  std::array<std::uint64_t, 2> beginning{};
  for (std::size_t i = 0; i < 8; ++i) {
    std::uint64_t& half = beginning[i / 4];
    half = half << 16 | (i < text.size() ? text[i] : 0);
  }
  return beginning;
}

std::int32_t ClassOf(double score) noexcept {
  if (score > kHighScore) return kUrlScoreHigh;
  return score <= kLowScore ? kUrlScoreLow : kUrlScoreMiddle;
}

UrlScoreCache& Cache() {
  static UrlScoreCache cache;
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
  texts_.clear();
  Tokenize(url, words_, *this);
  score_ = 0.0;
  double forIt = 1.0;
  double against = 1.0;
  for (std::size_t i = 0; i < count_; ++i) {
    forIt *= entries_[i].probability;
    against *= 1.0 - entries_[i].probability;
    score_ = forIt / (forIt + against);
  }
  return ClassOf(score_);
}

std::map<std::u16string, double> UrlAnalyzer::ChosenTokens() const {
  std::map<std::u16string, double> tokens;
  for (std::size_t i = 0; i < count_; ++i) tokens.emplace(TextOf(entries_[i]), entries_[i].probability);
  return tokens;
}

void UrlAnalyzer::Take(std::u16string_view token) {
  const double* const known = table_.Find(token);
  if (known == nullptr && token.starts_with(u"AG")) return;  // a host's characters count where the table knows them
  const double probability = known != nullptr ? *known : kUnknownTokenProbability;
  const double distance = std::abs(probability - 0.5);
  if (count_ == kMostTokens) {
    const auto weakest = std::min_element(entries_.begin(), entries_.end(),
                                          [](const Entry& a, const Entry& b) { return a.distance < b.distance; });
    if (!(weakest->distance < distance)) return;
    std::move(weakest + 1, entries_.end(), weakest);
    --count_;
  }
  Write(token, probability, distance);
}

void UrlAnalyzer::Write(std::u16string_view token, double probability, double distance) {
  const std::array<std::uint64_t, 2> beginning = BeginningOf(token);
  const auto end = entries_.begin() + static_cast<std::ptrdiff_t>(count_);
  const auto at = std::lower_bound(entries_.begin(), end, token, [&](const Entry& entry, std::u16string_view text) {
    return entry.beginning != beginning ? entry.beginning < beginning : TextOf(entry) < text;
  });
  if (at != end && at->beginning == beginning && TextOf(*at) == token) return;
  std::move_backward(at, end, end + 1);
  *at = {beginning, static_cast<std::uint32_t>(texts_.size()), static_cast<std::uint32_t>(token.size()), probability,
         distance};
  texts_.append(token);
  ++count_;
}

std::optional<UrlScore> UrlScoreCache::Find(std::u16string_view url) const {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; i < count_; ++i) {
    const Entry& entry = entries_[(oldest_ + i) % kMostEntries];
    if (entry.url == url) return entry.score;
  }
  return std::nullopt;
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
