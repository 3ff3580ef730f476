// SPDX-License-Identifier: Apache-2.0
#include "authoring/Diagnostics.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace zeph {

namespace {

/// Lines of lists are long; this much of one is shown around the mark.
constexpr std::size_t kShownWidth = 110;

char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool BeginsCharacter(char c) noexcept { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }

std::size_t Characters(std::string_view text) noexcept {
  return static_cast<std::size_t>(std::ranges::count_if(text, BeginsCharacter));
}

/// How many letters have to be changed, put in, left out or swapped with the next, case ignored; limit + 1 for more.
std::size_t Distance(std::string_view a, std::string_view b, std::size_t limit) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit) return limit + 1;
  std::vector<std::size_t> before(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0U : 1U)});
      if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1])) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    before.swap(last);
    last.swap(row);
  }
  return std::min(last[b.size()], limit + 1);
}

}  // namespace

void Diagnostics::Sort() {
  std::ranges::stable_sort(found_, [](const Diagnostic& a, const Diagnostic& b) {
    const auto key = [](const Diagnostic& one) {
      return std::tuple(one.place.file == nullptr ? std::string_view() : one.place.file->name, one.place.offset);
    };
    return key(a) < key(b);
  });
}

std::size_t Diagnostics::Errors() const noexcept {
  return static_cast<std::size_t>(
      std::ranges::count_if(found_, [](const Diagnostic& one) { return one.severity == Severity::kError; }));
}

std::size_t LineOf(const Place& place) noexcept {
  if (place.file == nullptr) return 1;
  const std::string_view before = std::string_view(place.file->text).substr(0, place.offset);
  return static_cast<std::size_t>(std::ranges::count(before, '\n')) + 1;
}

std::string Render(const Diagnostic& diagnostic) {
  const std::string kind = diagnostic.severity == Severity::kError ? "error: " : "warning: ";
  const std::string help = diagnostic.help.empty() ? "" : "  help: " + diagnostic.help + "\n";
  if (diagnostic.place.file == nullptr) return kind + diagnostic.message + "\n" + help;
  const std::string_view text = diagnostic.place.file->text;
  const std::size_t offset = std::min(diagnostic.place.offset, text.size());
  const std::size_t begin = offset == 0 ? 0 : text.rfind('\n', offset - 1) + 1;  // npos + 1 is 0
  std::string_view line = text.substr(begin, text.find('\n', offset) - begin);
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::size_t at = std::min(offset - begin, line.size());
  const std::size_t number = LineOf(diagnostic.place);
  const std::string column = std::to_string(Characters(line.substr(0, at)) + 1);
  std::size_t length = std::min(std::max<std::size_t>(diagnostic.place.length, 1), line.size() - at);

  std::string_view left;
  std::string_view right;
  if (line.size() > kShownWidth) {
    std::size_t from = at > kShownWidth / 3 ? at - kShownWidth / 3 : 0;
    while (from < at && !BeginsCharacter(line[from])) ++from;
    std::size_t to = std::min(line.size(), from + kShownWidth);
    while (to < line.size() && !BeginsCharacter(line[to])) ++to;
    left = from > 0 ? "..." : "";
    right = to < line.size() ? "..." : "";
    line = line.substr(from, to - from);
    at -= from;
    length = std::min(length, line.size() - at);
  }
  std::string pad(left.size(), ' ');
  for (const char c : line.substr(0, at)) {
    if (BeginsCharacter(c)) pad += c == '\t' ? '\t' : ' ';
  }
  std::string shown(line);
  std::ranges::replace_if(
      shown, [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F; }, '?');
  const std::size_t marked = Characters(line.substr(at, length));
  const std::string gutter = std::to_string(number);
  return diagnostic.place.file->name + ":" + gutter + ":" + column + ": " + kind + diagnostic.message + "\n  " + gutter +
         " | " + std::string(left) + shown + std::string(right) + "\n  " + std::string(gutter.size(), ' ') + " | " + pad +
         "^" + std::string(marked > 1 ? marked - 1 : 0, '~') + "\n" + help;
}

std::string_view Nearest(std::string_view misspelt, std::span<const std::string_view> names) {
  constexpr std::size_t kLongestName = 64;
  if (misspelt.size() > kLongestName) return {};
  std::size_t limit = std::max<std::size_t>(1, misspelt.size() / 3);
  std::string_view nearest;
  for (const std::string_view name : names) {
    const std::size_t distance = Distance(misspelt, name, limit);
    if (distance > limit || (!nearest.empty() && distance == limit)) continue;
    nearest = name;
    limit = distance;
  }
  return nearest;
}

std::string DidYouMean(std::string_view misspelt, std::span<const std::string_view> names) {
  const std::string_view nearest = Nearest(misspelt, names);
  return nearest.empty() ? "" : "did you mean " + std::string(nearest) + "?";
}

}  // namespace zeph
