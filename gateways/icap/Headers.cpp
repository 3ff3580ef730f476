// SPDX-License-Identifier: Apache-2.0
#include "gateways/icap/Headers.h"

#include <algorithm>

namespace zeph::icap {

namespace {

bool IsName(std::string_view name) {
  return !name.empty() && std::ranges::all_of(name, [](char c) {
    return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

}  // namespace

std::string Lowered(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
  return lower;
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::optional<std::string_view> Headers::Find(std::string_view name) const {
  for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
    if (field->first == name) return field->second;
  }
  return std::nullopt;
}

std::string Headers::FindAll(std::string_view name) const {
  std::string all;
  for (const auto& [own, value] : fields) {
    if (own == name) all.append(all.empty() ? "" : ", ").append(value);
  }
  return all;
}

std::size_t Headers::Count(std::string_view name) const {
  return static_cast<std::size_t>(std::ranges::count(fields, name, &std::pair<std::string, std::string>::first));
}

std::optional<Headers> ReadHeaders(std::string_view text, bool strict) {
  Headers headers;
  bool isFirst = true;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (strict && line.find_first_of(std::string_view("\0\r", 2)) != std::string_view::npos) return std::nullopt;
    if (isFirst) {
      headers.first = line;
      isFirst = false;
      continue;
    }
    if (line.empty()) break;
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || !IsName(line.substr(0, colon))) {
      if (strict) return std::nullopt;
      continue;
    }
    headers.fields.emplace_back(Lowered(line.substr(0, colon)), Trimmed(line.substr(colon + 1)));
  }
  return headers;
}

std::vector<std::string> WordsOf(std::string_view value) {
  std::vector<std::string> words;
  while (!value.empty()) {
    const std::string_view word = value.substr(0, value.find(','));
    value.remove_prefix(std::min(word.size() + 1, value.size()));
    if (const std::string_view trimmed = Trimmed(word); !trimmed.empty()) words.push_back(Lowered(trimmed));
  }
  return words;
}

}  // namespace zeph::icap
