// SPDX-License-Identifier: Apache-2.0
#include "documents/MailHeaders.h"

#include <algorithm>
#include <array>

namespace zeph {

namespace {

constexpr std::array<std::string_view, 6> kAddressHeaders = {"from", "to", "cc", "bcc", "sender", "reply-to"};
/// Colons in one header; a group has one.
constexpr std::ptrdiff_t kMostGroups = 50;

constexpr char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

/// The line begins with the name of a header of addresses, as the sender's own or that of one who sent it on.
bool IsAddressHeader(std::string_view line) {
  constexpr std::size_t kLongestName = 24;
  std::string name;
  for (const char c : line.substr(0, kLongestName)) {
    if (c == ':') {
      while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.pop_back();
      if (name.starts_with("resent-")) name.erase(0, 7);
      return std::ranges::find(kAddressHeaders, name) != kAddressHeaders.end();
    }
    name += Lower(c);
  }
  return false;
}

/// Where the header that begins at a place ends: before the first line that doesn't go on with it.
std::size_t EndOfHeader(std::string_view bytes, std::size_t at) {
  for (;;) {
    at = bytes.find('\n', at);
    if (at == std::string_view::npos) return bytes.size();
    ++at;
    if (at == bytes.size() || (bytes[at] != ' ' && bytes[at] != '\t')) return at;
  }
}

}  // namespace

std::string_view WithoutDeepAddresses(std::string_view bytes, std::string& room) {
  // Headers of letters in the letter count too, and where those are only the library knows: every line is looked at.
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t end = bytes.find('\n', at);
    end = end == std::string_view::npos ? bytes.size() : end + 1;
    if (IsAddressHeader(bytes.substr(at, end - at))) {
      end = EndOfHeader(bytes, at);
      const std::string_view header = bytes.substr(at, end - at);
      if (std::ranges::count(header, ':') > kMostGroups) {
        if (room.empty()) room = bytes;
        room[at] = 'X';
      }
    }
    at = end;
  }
  return room.empty() ? bytes : std::string_view(room);
}

std::size_t CostOfMessage(std::string_view bytes) {
  constexpr std::size_t kPart = 900;
  constexpr std::size_t kHeader = 260;
  constexpr std::size_t kHeaderByte = 6;
  constexpr std::size_t kElementOfHeader = 170;  // an address, a parameter
  std::size_t cost = 0;
  bool inHeaders = true;
  bool holdsMessage = false;
  bool isDigest = false;
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
    const std::string_view line = bytes.substr(0, end);
    bytes.remove_prefix(end);
    if (line.starts_with("--")) {
      cost += kPart;
      inHeaders = true;
    } else if (line == "\n" || line == "\r\n") {
      inHeaders = holdsMessage || isDigest;
      holdsMessage = false;
    } else if (inHeaders) {
      const bool isFolded = line.front() == ' ' || line.front() == '\t';
      if (!isFolded && line.substr(0, line.find_first_of(" \t")).find(':') == std::string_view::npos) continue;
      const auto elements = std::ranges::count_if(line, [](char c) { return c == ',' || c == ';' || c == '<'; });
      cost +=
          (isFolded ? 0 : kHeader) + kHeaderByte * line.size() + kElementOfHeader * static_cast<std::size_t>(elements);
      std::string lower(line);
      std::ranges::transform(lower, lower.begin(),
                             [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
      holdsMessage = holdsMessage || lower.find("message/") != std::string::npos;
      isDigest = isDigest || lower.find("digest") != std::string::npos;  // its parts are messages without saying so
    }
  }
  return cost;
}

}  // namespace zeph
