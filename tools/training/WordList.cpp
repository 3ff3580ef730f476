// SPDX-License-Identifier: Apache-2.0
#include "tools/training/WordList.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph::training {
namespace {

constexpr std::size_t kShortest = 3;
constexpr std::size_t kLongest = 8;
constexpr std::u16string_view kAlphabet = u"abcdefghijklmnopqrstuvwxyz0123456789";

/// A piece of at most 8 of 36 letters and digits, and the part of the URL where it was seen.
using Piece = std::uint64_t;
constexpr int kBitsPerLetter = 6;
constexpr Piece kInHost = Piece{1} << 63;

int LetterOf(char16_t c) noexcept {
  if (c >= u'a' && c <= u'z') return c - u'a' + 1;
  if (c >= u'A' && c <= u'Z') return c - u'A' + 1;
  if (c >= u'0' && c <= u'9') return c - u'0' + 27;
  return 0;
}

std::u16string TextOf(Piece piece) {
  std::u16string text;
  for (piece &= ~kInHost; piece != 0; piece >>= kBitsPerLetter) {
    text.insert(text.begin(), kAlphabet[static_cast<std::size_t>(piece & 63) - 1]);
  }
  return text;
}

std::size_t LengthOf(Piece piece) noexcept {
  std::size_t length = 0;
  for (piece &= ~kInHost; piece != 0; piece >>= kBitsPerLetter) ++length;
  return length;
}

/// Adds the pieces of a text; digits part words where the tokeniser lets them.
void AddPieces(std::u16string_view text, Piece part, bool digitsPart, std::vector<Piece>& pieces) {
  std::array<Piece, kLongest> tails{};  // of each length so far, the piece that ends here
  std::size_t run = 0;
  for (const char16_t c : text) {
    const int letter = LetterOf(c);
    if (letter == 0 || (digitsPart && letter > 26)) {
      run = 0;
      continue;
    }
    run = std::min(run + 1, kLongest);
    for (std::size_t length = run; length > 1; --length) {
      tails[length - 1] = tails[length - 2] << kBitsPerLetter | static_cast<Piece>(letter);
    }
    tails[0] = static_cast<Piece>(letter);
    for (std::size_t length = kShortest; length <= run; ++length) pieces.push_back(part | tails[length - 1]);
  }
}

void AddPiecesOf(const UrlRow& row, std::vector<Piece>& pieces) {
  UrlParser parser;
  if (parser.DecodeUrl(Widen(row.url)) != 0) return;
  const UrlRecord& record = parser.Record();
  if (!record.HostIsIp) {
    const std::u16string_view host = record.HostName;
    AddPieces(host.substr(0, host.rfind(u'.')), kInHost, false, pieces);
  }
  AddPieces(record.UrlPath, 0, true, pieces);
  AddPieces(record.ExtraInfo, 0, false, pieces);
}

/// Calls take(pieces, isPhishing) for each group of each kind with its pieces, each once.
template <class Take>
void ForEachGroup(std::span<const UrlRow> rows, Take take) {
  std::vector<Piece> pieces;
  for (std::size_t begin = 0; begin < rows.size();) {
    std::size_t end = begin;
    pieces.clear();
    for (; end < rows.size() && rows[end].group == rows[begin].group && rows[end].isPhishing == rows[begin].isPhishing;
         ++end) {
      AddPiecesOf(rows[end], pieces);
    }
    std::ranges::sort(pieces);
    pieces.erase(std::unique(pieces.begin(), pieces.end()), pieces.end());
    take(pieces, rows[begin].isPhishing);
    begin = end;
  }
}

struct Count {
  std::uint32_t phishing = 0;
  std::uint32_t legitimate = 0;
  [[nodiscard]] std::uint32_t Total() const { return phishing + legitimate; }
};

/// How often something was seen at least, in a byte for each of many hashes: sifts out what is rare.
class Sieve {
 public:
  explicit Sieve(std::size_t rows) : bits_(std::clamp(static_cast<int>(std::bit_width(rows * 256)), 16, 27)) {}
  void Add(Piece piece) {
    std::uint8_t& seen = seen_[PlaceOf(piece)];
    if (seen < 255) ++seen;
  }
  [[nodiscard]] std::size_t Seen(Piece piece) const { return seen_[PlaceOf(piece)]; }

 private:
  [[nodiscard]] std::size_t PlaceOf(Piece piece) const { return static_cast<std::size_t>(piece * 0x9E3779B97F4A7C15U >> (64 - bits_)); }

  int bits_;
  std::vector<std::uint8_t> seen_ = std::vector<std::uint8_t>(std::size_t{1} << bits_);
};

}  // namespace

double Evidence(double inPhishing, double phishing, double inLegitimate, double legitimate) noexcept {
  const double forIt = (inPhishing + 0.5) / (phishing - inPhishing + 0.5);
  const double against = (inLegitimate + 0.5) / (legitimate - inLegitimate + 0.5);
  return std::log(forIt / against) / std::sqrt(1.0 / (inPhishing + 0.5) + 1.0 / (inLegitimate + 0.5));
}

std::vector<std::u16string> LearnWords(std::span<const UrlRow> rows, const WordLimits& limits) {
  Sieve sieve(rows.size());
  Count groups;
  ForEachGroup(rows, [&](const std::vector<Piece>& pieces, bool isPhishing) {
    ++(isPhishing ? groups.phishing : groups.legitimate);
    for (const Piece piece : pieces) sieve.Add(piece);
  });
  const std::size_t least = std::clamp<std::size_t>(limits.leastGroups, 1, 255);
  std::unordered_map<Piece, Count> counts;
  ForEachGroup(rows, [&](const std::vector<Piece>& pieces, bool isPhishing) {
    for (const Piece piece : pieces) {
      if (sieve.Seen(piece) < least) continue;
      Count& count = counts[piece];
      ++(isPhishing ? count.phishing : count.legitimate);
    }
  });
  // Hash collisions let some rare ones through.
  std::erase_if(counts, [&](const auto& entry) { return entry.second.Total() < least; });
  // A piece that stands nearly always in the same longer one says nothing beside it.
  constexpr double kNearlyAlways = 0.8;
  std::vector<Piece> covered;
  for (const auto& [piece, count] : counts) {
    const std::size_t length = LengthOf(piece);
    if (length == kShortest) continue;
    const Piece part = piece & kInHost;
    const Piece letters = piece & ~kInHost;
    const Piece withoutFirst = letters & ((Piece{1} << (kBitsPerLetter * static_cast<int>(length - 1))) - 1);
    for (const Piece shorter : {part | letters >> kBitsPerLetter, part | withoutFirst}) {
      const auto found = counts.find(shorter);
      if (found != counts.end() && count.Total() > kNearlyAlways * found->second.Total()) covered.push_back(shorter);
    }
  }
  for (const Piece piece : covered) counts.erase(piece);

  struct Ranked {
    double evidence;
    Piece letters;
  };
  std::vector<Ranked> ranked;
  for (const auto& [piece, count] : counts) {
    const double evidence = Evidence(count.phishing, groups.phishing, count.legitimate, groups.legitimate);
    ranked.push_back({std::abs(evidence), piece & ~kInHost});
  }
  std::ranges::sort(ranked, [](const Ranked& a, const Ranked& b) {
    return std::tuple(b.evidence, a.letters) < std::tuple(a.evidence, b.letters);
  });
  std::vector<Piece> chosen;
  std::unordered_map<Piece, bool> isChosen;
  for (const Ranked& piece : ranked) {
    if (chosen.size() == limits.words) break;
    if (isChosen.emplace(piece.letters, true).second) chosen.push_back(piece.letters);
  }
  std::vector<std::u16string> words;
  for (const Piece piece : chosen) words.push_back(TextOf(piece));
  std::ranges::sort(words, [](const std::u16string& a, const std::u16string& b) {
    return a.size() != b.size() ? a.size() > b.size() : a < b;
  });
  for (const char16_t first : kAlphabet) {
    for (const char16_t second : kAlphabet) words.push_back({first, second});
  }
  for (const char16_t only : kAlphabet) words.emplace_back(1, only);
  return words;
}

}  // namespace zeph::training
