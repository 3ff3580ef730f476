// SPDX-License-Identifier: Apache-2.0
#include "tools/training/UrlTrainer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <set>
#include <thread>
#include <tuple>
#include <unordered_map>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlAnalyzer.h"
#include "DetectionEngine/url/UrlParser.h"
#include "DetectionEngine/url/UrlTokenizer.h"
#include "tools/training/Regression.h"

namespace zeph::training {
namespace {

constexpr std::uint32_t kNoToken = 0xFFFFFFFF;
const double kUnknownLogit = std::log(0.4 / 0.6);
/// Where class high begins, and low ends on the other side.
const double kHighLogit = std::log(0.85 / 0.15);
/// No probability is nearer to 0 or 1: one token alone doesn't make a verdict.
constexpr double kStrongest = 0.995;
constexpr std::u16string_view kNamedHost = u"BI*AM";  ///< carries what all named hosts have in common
constexpr std::u16string_view kAddressHost = u"BI*AJ";

/// Codes of words behind which no piece of one or two letters counts: in paths and queries these are noise.
constexpr std::array<std::u16string_view, 5> kOutsideHost = {u"AF*", u"BK*", u"AIBY*", u"AIBZ*", u"BG*"};

/// Tokens that no list is to be told by, whether it has them or not: scheme, port, "www", a bare host, a feed.
constexpr auto kNeutral = std::to_array<std::u16string_view>(
    {u"BD*",     u"BD*http", u"BD*https", u"BD*ftp",   u"BE*-1",   u"BE*80",    u"BE*443",  u"AE*www",  u"BU*www", u"BG*www",
     u"BH*",     u"BH*html", u"BH*xml",   u"BH*rss",   u"BH*atom", u"BKBL*0",   u"BKBM*AK0", u"BKBN*0", u"BKBO*0",
     u"AF*feed", u"AF*rss",  u"AF*atom",  u"AF*index", u"BK*feed", u"BK*rss",   u"BK*atom", u"BG*feed"});

/// A line of a source holds it as it stands.
bool IsWritable(std::u16string_view token) {
  return std::ranges::all_of(token, [](char16_t c) { return c > 0x20 && c < 0x7F && c != u'<' && c != u'>' && c != u'&'; });
}

std::optional<UrlRecord> Decode(const UrlRow& row, std::span<const Redirector> redirectors) {
  UrlParser parser;
  if (parser.DecodeWithRedirectors(Widen(row.url), redirectors) != 0) return std::nullopt;
  return parser.TakeRecord();
}

/// Calls work(i) for each i below count, in runs that take turns; each run has its own state made by makeState().
template <class MakeState, class Work>
void InParallel(std::size_t count, MakeState makeState, Work work) {
  const std::size_t parts = std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::jthread> threads;
  for (std::size_t part = 0; part < parts; ++part) {
    threads.emplace_back([&, part] {
      auto state = makeState();
      for (std::size_t i = count * part / parts; i < count * (part + 1) / parts; ++i) work(state, i);
    });
  }
}

/// Tokens by number, in the order of their first appearance.
class Dictionary {
 public:
  std::uint32_t Add(const std::u16string& token) {
    const auto [at, isNew] = numbers_.emplace(token, static_cast<std::uint32_t>(tokens_.size()));
    if (isNew) tokens_.push_back(&at->first);
    return at->second;
  }
  [[nodiscard]] std::uint32_t Find(const std::u16string& token) const {
    const auto found = numbers_.find(token);
    return found == numbers_.end() ? kNoToken : found->second;
  }
  [[nodiscard]] const std::u16string& operator[](std::uint32_t number) const { return *tokens_[number]; }
  [[nodiscard]] std::size_t size() const { return tokens_.size(); }

 private:
  std::unordered_map<std::u16string, std::uint32_t> numbers_;
  std::vector<const std::u16string*> tokens_;
};

/// The tokens of a URL, each once, sorted.
std::vector<std::u16string> DistinctTokens(const UrlRow& row, std::span<const Redirector> redirectors,
                                           const WordSet& words) {
  const std::optional<UrlRecord> record = Decode(row, redirectors);
  if (!record) return {};
  std::vector<std::u16string> tokens = TokensOf(*record, words).value_or(std::vector<std::u16string>());
  std::ranges::sort(tokens);
  tokens.erase(std::unique(tokens.begin(), tokens.end()), tokens.end());
  return tokens;
}

bool CountsWhenUnknown(std::u16string_view token) { return !token.starts_with(u"AG"); }

/// A bare host, a path, a path with a query: lists differ in these because of how they were collected.
std::size_t ShapeOf(const UrlRow& row) {
  const std::string_view url = row.url;
  const std::size_t host = url.find("://") == std::string_view::npos ? 0 : url.find("://") + 3;
  if (url.find('?', host) != std::string_view::npos) return 2;
  const std::size_t slash = url.find('/', host);
  return slash == std::string_view::npos || slash + 1 == url.size() ? 0 : 1;
}
constexpr std::size_t kShapes = 3;

/// What each row counts: less in a crowd of its group, so that neither a campaign nor a large site drowns the rest, and
/// so that both kinds have the same share of each shape.
std::vector<double> ImportanceOf(std::span<const UrlRow> rows, double legitimateImportance) {
  std::vector<double> importance(rows.size());
  double shares[2][kShapes] = {};
  for (std::size_t begin = 0; begin < rows.size();) {
    std::size_t end = begin;
    while (end < rows.size() && rows[end].group == rows[begin].group && rows[end].isPhishing == rows[begin].isPhishing) {
      ++end;
    }
    for (std::size_t i = begin; i < end; ++i) {
      importance[i] = 1.0 / std::sqrt(static_cast<double>(end - begin));
      shares[rows[i].isPhishing][ShapeOf(rows[i])] += importance[i];
    }
    begin = end;
  }
  double sums[2] = {};
  for (std::size_t kind : {0, 1}) {
    for (const double share : shares[kind]) sums[kind] += share;
  }
  const double all = sums[0] + sums[1];
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::size_t shape = ShapeOf(rows[i]);
    const bool kind = rows[i].isPhishing;
    if (shares[!kind][shape] == 0.0) continue;
    const double wanted = (shares[0][shape] / sums[0] + shares[1][shape] / sums[1]) / 2;
    importance[i] *= wanted / (shares[kind][shape] / sums[kind]);
    importance[i] *= all / 2 / sums[kind] * (kind ? 1.0 : legitimateImportance);
  }
  return importance;
}

double LogitOf(double probability) { return std::log(probability / (1.0 - probability)); }
double ProbabilityOf(double logit) {
  const double exact = 1.0 / (1.0 + std::exp(-logit));
  // As many digits as stand in the source.
  return std::round(std::clamp(exact, 1.0 - kStrongest, kStrongest) * 1e4) / 1e4;
}

/// A configuration's two pieces that the score needs.
struct Loaded {
  TokenTable table;
  WordSet words;
};

std::vector<std::u16string_view> FixedTexts() {
  std::vector<std::u16string_view> texts;
  for (FixedToken token = 0; token < kFixedTokenCount; ++token) texts.push_back(TextOf(token));
  return texts;
}

/// The logit of what the analyser has chosen.
double LogitOfChosen(const UrlAnalyzer& analyzer) {
  double logit = 0.0;
  for (const auto& [token, probability] : analyzer.ChosenTokens()) logit += LogitOf(probability);
  return logit;
}

class Trainer {
 public:
  Trainer(std::span<const UrlRow> learned, std::span<const UrlRow> heldOut, std::span<const Redirector> redirectors,
          const TrainingOptions& options, TrainingReport& report)
      : learned_(learned), heldOut_(heldOut), redirectors_(redirectors), options_(options), report_(report) {}

  UrlModel Run(const std::function<void(const std::string&)>& say) {
    say("looking for words");
    model_.words = LearnWords(learned_, options_.words);
    loaded_.words.Assign(model_.words);
    say("counting tokens");
    CountTokens();
    rows_.importance = ImportanceOf(learned_, options_.legitimateImportance);
    for (const UrlRow& row : learned_) rows_.isPhishing.push_back(row.isPhishing);
    TakeAllTokens();
    for (int round = 0;; ++round) {
      say(round == 0 ? "fitting all tokens" : "fitting the chosen tokens, round " + std::to_string(round));
      FitLogistic(rows_, penalties_, {.penalty = options_.penalty}, weights_);
      PlaceCuts();
      if (round == options_.rounds) break;
      TakeChosenTokens();
    }
    return std::move(model_);
  }

 private:
  /// Which tokens the table is to have.
  void CountTokens() {
    struct Count {
      std::uint32_t groups[2] = {};
      std::uint32_t lastGroup = 0;
    };
    std::unordered_map<std::u16string, Count> counts;
    std::uint32_t group = 0;
    constexpr std::size_t kBatch = 20'000;
    std::vector<std::vector<std::u16string>> batch(kBatch);
    for (std::size_t begin = 0; begin < learned_.size(); begin += kBatch) {
      const std::size_t size = std::min(kBatch, learned_.size() - begin);
      InParallel(size, [] { return 0; },
                 [&](int, std::size_t i) { batch[i] = DistinctTokens(learned_[begin + i], redirectors_, loaded_.words); });
      for (std::size_t i = 0; i < size; ++i) {
        const UrlRow& row = learned_[begin + i];
        const bool isNew = begin + i == 0 || learned_[begin + i - 1].group != row.group ||
                           learned_[begin + i - 1].isPhishing != row.isPhishing;
        ++report_.learned[row.isPhishing];
        if (isNew) {
          ++group;
          ++report_.groups[row.isPhishing];
        }
        for (const std::u16string& token : batch[i]) {
          Count& count = counts[token];
          if (std::exchange(count.lastGroup, group) != group) ++count.groups[row.isPhishing];
        }
      }
    }
    for (const UrlRow& row : heldOut_) ++report_.held[row.isPhishing];
    report_.met = counts.size();
    std::set<std::u16string> neutral(options_.neutral.begin(), options_.neutral.end());
    for (const std::u16string_view token : kNeutral) neutral.emplace(token);
    struct Ranked {
      double evidence;
      const std::u16string* token;
    };
    std::vector<Ranked> ranked;
    for (const auto& [token, count] : counts) {
      if (count.groups[0] + count.groups[1] < options_.leastGroups || !IsWritable(token)) continue;
      if (IsNeutral(token)) {
        neutral.insert(token);
        continue;
      }
      if (neutral.contains(token)) continue;
      const double evidence = Evidence(count.groups[1], static_cast<double>(report_.groups[1]), count.groups[0],
                                       static_cast<double>(report_.groups[0]));
      ranked.push_back({std::abs(evidence), &token});
    }
    for (const std::u16string& token : neutral) model_.probabilities[token] = 0.5;
    std::ranges::sort(ranked, [](const Ranked& a, const Ranked& b) {
      return std::tie(b.evidence, *a.token) < std::tie(a.evidence, *b.token);
    });
    const std::size_t room = options_.tokens - std::min(options_.tokens, neutral.size());
    ranked.resize(std::min(ranked.size(), room));
    std::ranges::sort(ranked, {}, [](const Ranked& one) { return *one.token; });
    for (const Ranked& one : ranked) dictionary_.Add(*one.token);
    weights_.assign(dictionary_.size(), 0.0);
    penalties_.assign(dictionary_.size(), 1.0);
    for (const std::u16string_view host : {kNamedHost, kAddressHost}) {
      // It is no evidence but the level from which evidence counts.
      const std::uint32_t number = dictionary_.Find(std::u16string(host));
      if (number != kNoToken) penalties_[number] = 0.01;
    }
  }

  [[nodiscard]] bool IsKnown(const std::u16string& token) const {
    return dictionary_.Find(token) != kNoToken || model_.probabilities.contains(token);
  }

  void TakeRow(const std::vector<std::uint32_t>& features, std::size_t unknown) {
    rows_.features.insert(rows_.features.end(), features.begin(), features.end());
    rows_.ends.push_back(rows_.features.size());
    rows_.fixed.push_back(kUnknownLogit / scale_ * static_cast<double>(unknown));
  }

  /// Makes the rows from tokensOf(state, row), which sees each row with a state of its thread.
  template <class MakeState, class TokensOfRow>
  void MakeRows(MakeState makeState, TokensOfRow tokensOfRow) {
    rows_.features.clear();
    rows_.ends.clear();
    rows_.fixed.clear();
    std::size_t unknownTokens = 0;
    constexpr std::size_t kBatch = 20'000;
    struct Taken {
      std::vector<std::uint32_t> features;
      std::size_t unknown;
    };
    std::vector<Taken> batch(kBatch);
    for (std::size_t begin = 0; begin < learned_.size(); begin += kBatch) {
      const std::size_t size = std::min(kBatch, learned_.size() - begin);
      InParallel(size, makeState, [&](auto& state, std::size_t i) {
        batch[i] = {};
        for (const std::u16string& token : tokensOfRow(state, learned_[begin + i])) {
          const std::uint32_t number = dictionary_.Find(token);
          if (number != kNoToken) {
            batch[i].features.push_back(number);
          } else if (CountsWhenUnknown(token) && !model_.probabilities.contains(token)) {
            ++batch[i].unknown;
          }
        }
      });
      for (std::size_t i = 0; i < size; ++i) {
        TakeRow(batch[i].features, batch[i].unknown);
        unknownTokens += batch[i].unknown;
      }
    }
    report_.unknown = static_cast<double>(unknownTokens) / static_cast<double>(std::max<std::size_t>(1, learned_.size()));
  }

  void TakeAllTokens() {
    MakeRows([] { return 0; },
             [&](int, const UrlRow& row) { return DistinctTokens(row, redirectors_, loaded_.words); });
  }

  void TakeChosenTokens() {
    MakeRows([&] { return UrlAnalyzer(loaded_.table, loaded_.words); },
             [&](UrlAnalyzer& analyzer, const UrlRow& row) {
               std::vector<std::u16string> chosen;
               if (const auto record = Decode(row, redirectors_)) {
                 analyzer.Classify(*record);
                 for (const auto& [token, probability] : analyzer.ChosenTokens()) chosen.push_back(token);
               }
               return chosen;
             });
  }

  /// The table with all weights multiplied with the scale, and the level of named hosts shifted.
  void MakeTable() {
    loaded_.table.clear();
    for (std::uint32_t i = 0; i < dictionary_.size(); ++i) {
      const double shift = dictionary_[i] == kNamedHost ? shift_ : 0.0;
      model_.probabilities[dictionary_[i]] = ProbabilityOf(scale_ * weights_[i] + shift);
    }
    loaded_.table.reserve(model_.probabilities.size());
    for (const auto& [token, probability] : model_.probabilities) {
      loaded_.table.insert_or_assign(token, probability);
    }
    loaded_.table.Pin(FixedTexts());
  }

  void PlaceCuts() {
    std::vector<const UrlRow*> legitimate;
    for (const UrlRow& row : heldOut_.empty() ? learned_ : heldOut_) {
      if (!row.isPhishing) legitimate.push_back(&row);
    }
    for (int step = 0; step < 5; ++step) {
      MakeTable();
      if (legitimate.empty()) return;
      std::vector<double> logits(legitimate.size());
      InParallel(legitimate.size(), [&] { return UrlAnalyzer(loaded_.table, loaded_.words); },
                 [&](UrlAnalyzer& analyzer, std::size_t i) {
                   if (const auto record = Decode(*legitimate[i], redirectors_)) {
                     analyzer.Classify(*record);
                     logits[i] = LogitOfChosen(analyzer);
                   }
                 });
      std::ranges::sort(logits);
      const auto above = [&](double rate) {
        const auto rank = static_cast<std::size_t>(rate * static_cast<double>(logits.size()));
        return logits[logits.size() - 1 - std::min(rank, logits.size() - 1)];
      };
      const double high = above(options_.highRate);
      const double low = above(options_.lowRate);
      const double stretch = std::clamp(2 * kHighLogit / std::max(high - low, 1e-3), 0.5, 2.0);
      scale_ = std::clamp(scale_ * stretch, 0.05, 20.0);
      shift_ = stretch * shift_ + kHighLogit - stretch * high;
    }
    MakeTable();
  }

  std::span<const UrlRow> learned_;
  std::span<const UrlRow> heldOut_;
  std::span<const Redirector> redirectors_;
  const TrainingOptions& options_;
  TrainingReport& report_;
  UrlModel model_;
  Loaded loaded_;
  Dictionary dictionary_;  ///< tokens that get weights
  std::vector<double> weights_;
  std::vector<double> penalties_;
  SparseRows rows_;
  double scale_ = 1.0;
  double shift_ = 0.0;
};

}  // namespace

bool IsNeutral(std::u16string_view token) {
  constexpr std::array<std::u16string_view, 5> kCodes = {u"BD*", u"BE*", u"BT*", u"CE*", u"CF*"};
  for (const std::u16string_view code : kCodes) {
    if (token.starts_with(code)) return true;
  }
  if (std::ranges::find(kNeutral, token) != kNeutral.end()) return true;
  for (const std::u16string_view code : kOutsideHost) {
    if (token.starts_with(code) && token.size() <= code.size() + 2) return true;
  }
  return false;
}

UrlModel TrainUrlModel(std::span<const UrlRow> learned, std::span<const UrlRow> heldOut,
                       std::span<const Redirector> redirectors, const TrainingOptions& options,
                       const std::function<void(const std::string&)>& say, TrainingReport& report) {
  return Trainer(learned, heldOut, redirectors, options, report).Run(say);
}

std::vector<double> ScoreRows(const UrlModel& model, std::span<const UrlRow> rows,
                              std::span<const Redirector> redirectors) {
  Loaded loaded;
  loaded.words.Assign(model.words);
  loaded.table.reserve(model.probabilities.size());
  for (const auto& [token, probability] : model.probabilities) loaded.table.insert_or_assign(token, probability);
  loaded.table.Pin(FixedTexts());
  std::vector<double> logits(rows.size());
  InParallel(rows.size(), [&] { return UrlAnalyzer(loaded.table, loaded.words); },
             [&](UrlAnalyzer& analyzer, std::size_t i) {
               if (const auto record = Decode(rows[i], redirectors)) {
                 analyzer.Classify(*record);
                 logits[i] = LogitOfChosen(analyzer);
               }
             });
  return logits;
}

std::string SourceText(const UrlModel& model, std::string_view comment) {
  std::string text = "<!-- " + std::string(comment) + " -->\n";
  for (const std::u16string& word : model.words) text += "<w>" + Narrow(word) + "</w>\n";
  for (const auto& [token, probability] : model.probabilities) {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, probability);
    text += "<k>" + Narrow(token) + "</k>\n<p>" + std::string(digits, end.ptr) + "</p>\n";
  }
  return text;
}

}  // namespace zeph::training
