// SPDX-License-Identifier: Apache-2.0
#include "gateways/milter/GatheredLetter.h"

#include <algorithm>

#include "gateways/milter/VerdictHeader.h"

namespace zeph::milter {

namespace {

constexpr char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

bool IsOurName(std::string_view name) {
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.remove_suffix(1);
  return std::ranges::equal(name, kHeaderName, {}, Lower, Lower);
}

}  // namespace

void GatheredLetter::AddHeader(std::string_view name, std::string_view value) {
  if (IsOurName(name)) {
    ++forged_;
    return;
  }
  std::string line(name);
  line += ':';
  if (!value.starts_with(' ') && !value.starts_with('\t')) line += ' ';
  for (const char c : value) {
    if (c == '\r') continue;
    if (c == '\n') line += '\r';
    line += c;
  }
  Append(line.append("\r\n"));
}

void GatheredLetter::Append(std::string_view bytes) {
  if (IsFull()) return;
  const std::size_t fits = std::min(bytes.size(), most_ - bytes_.size());
  isCut_ = fits < bytes.size();
  // Grown by hand, so that the room that is counted is the room that is there.
  if (bytes_.size() + fits > taken_) {
    constexpr std::size_t kLeast = 16 * 1024;
    const std::size_t wanted = std::min(most_, std::max({kLeast, 2 * taken_, bytes_.size() + fits}));
    if (!room_.Take(wanted - taken_)) {
      lacksRoom_ = true;
      bytes_ = {};
      return;
    }
    taken_ = wanted;
    bytes_.reserve(wanted);
  }
  bytes_.append(bytes.substr(0, fits));
}

}  // namespace zeph::milter
