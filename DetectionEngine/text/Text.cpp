// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/text/Text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>

#include "DetectionEngine/platform/Lasting.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/UnitBlock.h"

namespace zeph {

namespace {

constexpr std::size_t kNone = std::u16string_view::npos;

/// How a search compares: as the units stand, or folded to lower case.
struct AsIs {
  static char16_t Of(char16_t c) noexcept { return c; }
};
struct Folded {
  static char16_t Of(char16_t c) noexcept { return LowerOf(c); }
};

/// The units that a comparison takes for one unit: itself and at most two more ("k", "K" and the Kelvin sign).
struct Origins {
  char16_t self;
  char16_t second;
  char16_t third;

  [[nodiscard]] bool Holds(char16_t c) const noexcept { return c == self || c == second || c == third; }
  /// Which of a block's units it holds.
  [[nodiscard]] std::uint32_t In(const char16_t* units) const noexcept {
    return UnitBlock(units).AnyOf(self, second, third);
  }
};

/// The unit itself alone.
struct Itself {
  char16_t self;

  [[nodiscard]] bool Holds(char16_t c) const noexcept { return c == self; }
  [[nodiscard]] std::uint32_t In(const char16_t* units) const noexcept { return UnitBlock(units).AnyOf(self); }
};

/// The inverse of LowerOf. The search filters by it, so that it need not fold the text.
class OriginTable {
 public:
  static const OriginTable& Get() {
    static const OriginTable& table = Lasting(std::unique_ptr<const OriginTable>(new OriginTable));
    return table;
  }

  /// c is in lower case.
  [[nodiscard]] Origins Of(char16_t c) const noexcept { return c < ascii_.size() ? ascii_[c] : Look(c); }

 private:
  OriginTable() {
    for (std::uint32_t i = 0; i < 0x10000; ++i) {
      const auto c = static_cast<char16_t>(i);
      if (LowerOf(c) != c) pairs_.emplace_back(LowerOf(c), c);
    }
    std::sort(pairs_.begin(), pairs_.end());
    for (std::size_t i = 0; i < ascii_.size(); ++i) ascii_[i] = Look(static_cast<char16_t>(i));
  }

  [[nodiscard]] Origins Look(char16_t c) const noexcept {
    auto at = std::lower_bound(pairs_.begin(), pairs_.end(), std::pair<char16_t, char16_t>(c, 0));
    Origins origins{c, c, c};
    if (at != pairs_.end() && at->first == c) {
      origins.second = (at++)->second;
      if (at != pairs_.end() && at->first == c) origins.third = at->second;
    }
    return origins;
  }

  std::vector<std::pair<char16_t, char16_t>> pairs_;  ///< {lower case, a unit that folds to it}, sorted
  std::array<Origins, 128> ascii_{};
};

Itself OriginsOf(AsIs, char16_t c) noexcept { return {c}; }
Origins OriginsOf(Folded, char16_t c) noexcept { return OriginTable::Get().Of(LowerOf(c)); }

/// The start of the needle's greatest suffix, in one of the two orders of units, and that suffix's period.
template <typename Fold>
std::pair<std::size_t, std::size_t> GreatestSuffix(std::u16string_view needle, bool reversed) noexcept {
  std::size_t start = 0;
  std::size_t rival = 1;
  std::size_t offset = 0;
  std::size_t period = 1;
  while (rival + offset < needle.size()) {
    const char16_t ours = Fold::Of(needle[start + offset]);
    const char16_t theirs = Fold::Of(needle[rival + offset]);
    if (ours == theirs) {
      if (++offset == period) {
        rival += period;
        offset = 0;
      }
    } else if ((ours > theirs) != reversed) {
      rival += offset + 1;
      offset = 0;
      period = rival - start;
    } else {
      start = rival++;
      offset = 0;
      period = 1;
    }
  }
  return {start, period};
}

/// The two-way search: linear in text and needle whatever they hold, without memory of its own. Slower than a
/// filtered scan on ordinary text.
template <typename Fold>
std::size_t FindTwoWay(std::u16string_view text, std::u16string_view needle, std::size_t from) noexcept {
  const auto same = [&](std::size_t textAt, std::size_t needleAt) {
    return Fold::Of(text[textAt]) == Fold::Of(needle[needleAt]);
  };
  const std::size_t length = needle.size();
  auto [split, period] = std::max(GreatestSuffix<Fold>(needle, false), GreatestSuffix<Fold>(needle, true),
                                  [](const auto& a, const auto& b) { return a.first < b.first; });
  bool periodic = true;
  for (std::size_t i = 0; i < split && periodic; ++i) {
    periodic = Fold::Of(needle[i]) == Fold::Of(needle[i + period]);
  }
  if (!periodic) period = std::max(split, length - split + 1);
  const std::size_t kept = periodic ? length - period : 0;  // what a shift by the period leaves compared
  std::size_t known = 0;                                    // this many units at the needle's start are equal
  while (text.size() - from >= length) {
    std::size_t i = std::max(split, known);
    while (i < length && same(from + i, i)) ++i;
    if (i < length) {
      from += i - split + 1;
      known = 0;
      continue;
    }
    i = split;
    while (i > known && same(from + i - 1, i - 1)) --i;
    if (i <= known) return from;
    from += period;
    known = kept;
  }
  return kNone;
}

/// Position of the first hit at or behind from. Ordinary text is scanned for the needle's first and last unit at
/// their distance, a block at a time; a text that keeps passing this filter goes to the two-way search, so that
/// the worst case stays linear.
template <typename Fold>
std::size_t Find(std::u16string_view text, std::u16string_view needle, std::size_t from) noexcept {
  if (from > text.size() || text.size() - from < needle.size()) return kNone;
  if (needle.empty()) return from;
  const auto first = OriginsOf(Fold{}, needle.front());
  const auto last = OriginsOf(Fold{}, needle.back());
  const char16_t* const heads = text.data();
  const char16_t* const tails = heads + needle.size() - 1;
  const std::size_t end = text.size() - needle.size() + 1;
  std::size_t spent = 0;
  const auto standsAt = [&](std::size_t at) {
    std::size_t i = 1;
    while (i + 1 < needle.size() && Fold::Of(heads[at + i]) == Fold::Of(needle[i])) ++i;
    spent += i;
    return i + 1 >= needle.size();
  };
  std::size_t at = from;
  for (; end - at >= UnitBlock::kUnits; at += UnitBlock::kUnits) {
    for (std::uint32_t hits = first.In(&heads[at]) & last.In(&tails[at]); hits != 0; hits &= hits - 1) {
      const std::size_t hit = at + static_cast<std::size_t>(std::countr_zero(hits));
      if (standsAt(hit)) return hit;
    }
    if (spent > 8 * (at - from) + 256) return FindTwoWay<Fold>(text, needle, at + UnitBlock::kUnits);
  }
  for (; at < end; ++at) {
    if (first.Holds(heads[at]) && last.Holds(tails[at]) && standsAt(at)) return at;
  }
  return kNone;
}

template <typename Piece>
std::size_t SplitInto(std::u16string_view text, char16_t separator, std::vector<Piece>& out) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(separator, at), text.size());
    if (end > at) out.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return out.size();
}

template <typename Keep>
std::size_t KeepOnly(std::u16string& text, Keep keep) {
  if (text.size() > kCleaningLimit) return 0;
  return std::erase_if(text, [&](char16_t c) { return !keep(c); });
}

void MakeLowerAll(char16_t* text, std::size_t length) noexcept {
  std::size_t at = 0;
  for (; length - at >= 8; at += 8) {
    if (LowerEightAscii(text + at)) continue;
    const auto& lower = detail::Characters().lower;
    for (std::size_t i = at; i < at + 8; ++i) text[i] = lower[text[i]];
  }
  for (; at < length; ++at) text[at] = LowerOf(text[at]);
}

std::u16string_view SkipSpace(std::u16string_view text) noexcept {
  std::size_t at = 0;
  while (at < text.size() && IsSpace(text[at])) ++at;
  return text.substr(at);
}

std::u16string WidenAscii(const char* begin, const char* end) { return std::u16string(begin, end); }

}  // namespace

std::size_t SplitAt(std::u16string_view text, char16_t separator, std::vector<std::u16string>& out) {
  return SplitInto(text, separator, out);
}

std::size_t SplitAt(std::u16string_view text, char16_t separator, std::vector<std::u16string_view>& out) {
  return SplitInto(text, separator, out);
}

std::size_t SplitWords(std::u16string_view text, std::vector<std::u16string>& out, std::u16string_view delimiters,
                       bool removePunctuation, bool squeeze) {
  const auto delimits = [&](char16_t c) {
    return delimiters.empty() ? IsSpace(c) : delimiters.find(c) != std::u16string_view::npos;
  };
  for (std::size_t at = 0;;) {
    while (at < text.size() && delimits(text[at])) ++at;
    if (at == text.size()) return out.size();
    const std::size_t begin = at;
    while (at < text.size() && !delimits(text[at])) ++at;
    std::u16string& word = out.emplace_back(text.substr(begin, at - begin));
    if (removePunctuation) RemovePunctuation(word);
    if (squeeze) SqueezeRepeats(word);
  }
}

std::size_t RemovePunctuation(std::u16string& text) {
  return KeepOnly(text, [](char16_t c) { return IsAlnum(c) || IsSpace(c) || c == u'/'; });
}

std::size_t KeepAlnum(std::u16string& text) { return KeepOnly(text, IsAlnum); }

// A run that was shortened has other characters on both sides, so it never joins a neighbour: one pass gives what
// starting again after each erasure gives.
std::size_t SqueezeRepeats(std::u16string& text) {
  if (text.size() > kCleaningLimit) return 0;
  std::size_t erasures = 0;
  std::size_t kept = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const char16_t c = text[begin];
    std::size_t end = begin + 1;
    while (end < text.size() && text[end] == c) ++end;
    const std::size_t run = end - begin;
    const bool stays = run == 1 || end == text.size() || (run == 2 && (c == u'o' || c == u'e'));
    if (!stays) ++erasures;
    const std::size_t left = stays ? run : 1;
    std::fill_n(text.begin() + static_cast<std::ptrdiff_t>(kept), left, c);
    kept += left;
    begin = end;
  }
  text.resize(kept);
  return erasures;
}

void Trim(std::u16string& text) {
  std::size_t end = text.size();
  while (end > 0 && IsSpace(text[end - 1])) --end;
  text.resize(end);
  text.erase(0, end - SkipSpace(text).size());
}

bool IsBlank(std::u16string_view text) noexcept { return SkipSpace(text).empty(); }

std::size_t CountChar(std::u16string_view text, char16_t c) noexcept {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), c));
}

std::u16string ToLower(std::u16string_view text) {
  std::u16string lower(text);
  MakeLower(lower);
  return lower;
}

void MakeLower(std::u16string& text) noexcept { MakeLowerAll(text.data(), text.size()); }

void ReplaceAll(std::u16string& text, std::u16string_view find, std::u16string_view replacement) {
  if (find.empty()) return;
  std::size_t hit = FindExact(text, find);
  if (hit == kNone) return;
  std::u16string result;
  std::size_t copied = 0;
  for (; hit != kNone; hit = FindExact(text, find, copied)) {
    result.append(text, copied, hit - copied).append(replacement);
    copied = hit + find.size();
  }
  result.append(text, copied);
  text = std::move(result);
}

void ReplaceAllNoCase(std::u16string& text, std::u16string_view find, std::u16string_view replacement) {
  MakeLower(text);
  ReplaceAll(text, ToLower(find), replacement);
}

bool StartsWith(std::u16string_view text, std::u16string_view prefix) noexcept { return text.starts_with(prefix); }

bool StartsWithNoCase(std::u16string_view text, std::u16string_view prefix) noexcept {
  return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(),
                                                    [](char16_t a, char16_t b) { return LowerOf(a) == LowerOf(b); });
}

bool EndsWith(std::u16string_view text, std::u16string_view suffix) noexcept {
  return !suffix.empty() && text.ends_with(suffix);
}

std::size_t FindExact(std::u16string_view text, std::u16string_view needle, std::size_t from) noexcept {
  return Find<AsIs>(text, needle, from);
}

bool ContainsExact(std::u16string_view needle, std::u16string_view text) noexcept {
  return Find<AsIs>(text, needle, 0) != kNone;
}

bool ContainsNoCase(std::u16string_view needle, std::u16string_view text) noexcept {
  return Find<Folded>(text, needle, 0) != kNone;
}

bool ContainsWordNoCase(std::u16string_view needle, std::u16string_view text) noexcept {
  const std::size_t step = std::max<std::size_t>(needle.size(), 1);  // an empty needle moves on all the same
  for (std::size_t from = 0;; from += step) {
    from = Find<Folded>(text, needle, from);
    if (from == kNone) return false;
    const std::size_t behind = from + needle.size();
    const bool begins = from == 0 || !IsAlpha(text[from - 1]);
    const bool ends = behind + 1 >= text.size() || !IsAlpha(text[behind]);
    if (begins && ends) return true;
  }
}

std::optional<std::size_t> FindNoCase(std::u16string_view text, std::u16string_view needle) noexcept {
  const std::size_t at = Find<Folded>(text, needle, 0);
  return at == kNone ? std::nullopt : std::optional(at);
}

bool CountContainedNoCase(std::u16string_view text, std::span<const std::u16string_view> list,
                          std::size_t minimum) noexcept {
  if (text.empty()) return false;
  std::size_t count = 0;
  for (const std::u16string_view item : list) {
    if (ContainsNoCase(item, text)) ++count;
    if (count >= minimum) return true;
  }
  return false;
}

std::ptrdiff_t IndexOfExact(std::u16string_view text, std::span<const std::u16string_view> list, std::u16string& out) {
  const auto at = std::find(list.begin(), list.end(), text);
  if (at == list.end()) return -1;
  out = *at;
  return at - list.begin();
}

std::int32_t ReadNumber(std::u16string_view text) noexcept {
  text = SkipSpace(text);
  const bool negative = text.starts_with(u'-');
  if (negative || text.starts_with(u'+')) text.remove_prefix(1);
  constexpr std::int64_t kBeyond = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  std::int64_t number = 0;
  for (const char16_t c : text) {
    if (!IsDigit(c)) break;
    number = std::min(number * 10 + (c - u'0'), kBeyond);
  }
  if (negative) return static_cast<std::int32_t>(-number);
  return static_cast<std::int32_t>(std::min(number, kBeyond - 1));
}

double ReadReal(std::u16string_view text) {
  text = SkipSpace(text);
  const bool negative = text.starts_with(u'-');
  if (negative || text.starts_with(u'+')) text.remove_prefix(1);
  std::string narrow;  // what a number may hold, so without a second sign in front, infinities and their like
  for (const char16_t c : text) {
    const bool sign = (c == u'-' || c == u'+') && !narrow.empty();
    if (!IsDigit(c) && c != u'.' && c != u'e' && c != u'E' && !sign) break;
    narrow.push_back(static_cast<char>(c));
  }
  double number = 0.0;
  const auto read = std::from_chars(narrow.data(), narrow.data() + narrow.size(), number);
  if (read.ec == std::errc::result_out_of_range) {
    // Too great or too small for a double: the place of the first digit that counts tells.
    const std::string_view mantissa = std::string_view(narrow).substr(0, narrow.find_first_of("eE"));
    const auto point = static_cast<std::int64_t>(std::min(mantissa.find('.'), mantissa.size()));
    const auto first = static_cast<std::int64_t>(mantissa.find_first_of("123456789"));
    const std::int64_t exponent = mantissa.size() < narrow.size() ? ReadNumber(text.substr(mantissa.size() + 1)) : 0;
    number = point - first + exponent < 0 ? 0.0 : std::numeric_limits<double>::infinity();
  }
  return negative ? -number : number;
}

std::u16string NumberText(std::int64_t number) {
  std::array<char, 24> digits;
  return WidenAscii(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

std::u16string RealText(double number) {
  std::array<char, 384> digits;  // the greatest double has 309 digits before the point
  return WidenAscii(
      digits.data(),
      std::to_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed, 6).ptr);
}

}  // namespace zeph
