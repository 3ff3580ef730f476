// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Resolver.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

/// This program's resolver, in place of the system's: hosts that begin with "a" have an address. Counts.
static int queries = 0;
std::optional<std::string> ResolveHost(const std::string& host) {
  ++queries;
  if (!host.starts_with('a')) return std::nullopt;
  return "10.0.0.7";
}

namespace {

/// Every piece with all its places, then the walk over them.
bool MatchByPlaces(std::u16string_view text, std::u16string_view pattern) {
  if (pattern.find(u'*') == std::u16string_view::npos) return text == pattern;
  std::vector<std::u16string> pieces;
  SplitAt(pattern, u'*', pieces);
  if (pieces.empty()) return true;
  if (pattern.front() != u'*' && !text.starts_with(pieces.front())) return false;
  if (pattern.back() != u'*' && !text.ends_with(pieces.back())) return false;
  std::size_t behind = 0;
  for (const std::u16string& piece : pieces) {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i + piece.size() <= text.size(); ++i) {
      if (text.substr(i, piece.size()) == piece) places.push_back(i);
    }
    const auto place = std::find_if(places.begin(), places.end(), [&](std::size_t at) { return at >= behind; });
    if (place == places.end()) return false;
    behind = *place + piece.size();
  }
  return true;
}

std::ptrdiff_t FindByWalk(std::u16string_view host, std::span<const NetLocation> list) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    const NetLocation& entry = list[i];
    const bool matches =
        entry.Type == kDomain     ? MatchByPlaces(host, entry.Name) || MatchByPlaces(host, u"*." + entry.Name)
        : entry.Type == kHostname ? MatchByPlaces(host, entry.Name)
                                  : entry.Type == kNetwork && HostInRange(host, entry.Range.First, entry.Range.Last);
    if (matches) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

std::u16string RandomText(std::mt19937& random, std::u16string_view alphabet, std::size_t most) {
  std::u16string text(random() % (most + 1), u' ');
  for (char16_t& c : text) c = alphabet[random() % alphabet.size()];
  return text;
}

TEST(WildcardMatch, TakesPiecesFromTheLeft) {
  struct {
    std::u16string_view text, pattern;
    bool matches;
  } const rows[] = {
      {u"abc", u"a*c", true}, {u"ac", u"a*c", true},     {u"ab", u"a*b*b", false}, {u"abc", u"abc", true},
      {u"", u"", true},       {u"x", u"", false},        {u"", u"*", true},        {u"abab", u"*ab", true},
      {u"aab", u"*ab", true}, {u"abcbc", u"a*bc", true}, {u"Abc", u"a*", false},   {u"aba", u"ab*ba", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(WildcardMatch(row.text, row.pattern), row.matches) << Narrow(row.text) << " " << Narrow(row.pattern);
  }
}

TEST(WildcardMatch, AgreesWithTheWalkOverAllPlaces) {
  std::mt19937 random(4);
  int matched = 0;
  for (int i = 0; i < 100000; ++i) {
    const std::u16string text = RandomText(random, u"ab.", 9);
    const std::u16string pattern = RandomText(random, u"ab.**", 6);
    const bool matches = MatchByPlaces(text, pattern);
    ASSERT_EQ(WildcardMatch(text, pattern), matches) << Narrow(text) << " " << Narrow(pattern);
    ASSERT_EQ(HostMatchesDomain(text, pattern), matches || MatchByPlaces(text, u"*." + pattern))
        << Narrow(text) << " " << Narrow(pattern);
    matched += matches ? 1 : 0;
  }
  EXPECT_GT(matched, 5000);
}

TEST(IpToNumber, WantsFourBytes) {
  struct {
    std::u16string_view text;
    std::uint32_t number;
  } const rows[] = {
      {u"1.2.3.4", 0x01020304},
      {u"255.255.255.255", 0xFFFFFFFF},
      {u"0000000000001.2.3.4", 0x01020304},
      {u"", 0},
      {u"1.2.3", 0},
      {u"00000000000000001.2.3.4", 0},
      {u"1.2.3.", 0},
      {u"1.2.3.4.", 0},
      {u"1.2.3.4.5", 0},
      {u".1.2.3", 0},
      {u"1.2.3.256", 0},
      {u"1..3.4", 0},
      {u" 1.2.3.4", 0},
      {u"1.2.3.4294967297", 0},
  };
  for (const auto& row : rows) EXPECT_EQ(IpToNumber(row.text), row.number) << Narrow(row.text);
}

TEST(HostInRange, ResolvesNamesOnly) {
  struct {
    std::u16string_view host;
    std::uint32_t low, high;
    bool inside;
    int asked;
  } const rows[] = {
      {u"", 0, 0xFFFFFFFF, false, 0},
      {u"10.0.0.7", 0x0A000007, 0x0A000007, true, 0},
      {u"10.0.0.7", 0x0A000008, 0x0A0000FF, false, 0},
      {u"1.2", 0, 5, true, 0},  // no address, so 0
      {u"a.example", 0x0A000000, 0x0A000007, true, 1},
      {u"a.example", 0x0A000008, 0xFFFFFFFF, false, 1},
      {u"b.example", 0, 0xFFFFFFFF, false, 1},
  };
  for (const auto& row : rows) {
    queries = 0;
    EXPECT_EQ(HostInRange(row.host, row.low, row.high), row.inside) << Narrow(row.host);
    EXPECT_EQ(queries, row.asked) << Narrow(row.host);
  }
}

TEST(FindInNetLocations, GivesTheNameUnlessANetworkMatched) {
  NetLocationList list;
  list.Entries = {{kUrl, u"a.example", {}, 0, u""},
                  {kNetwork, u"unused", {0x0A000000, 0x0A0000FF}, 0, u""},
                  {kHostname, u"*.example", {}, 0, u""}};
  for (int indexed = 0; indexed < 2; ++indexed) {
    const NetLocationMatch network = FindInNetLocations(u"a.example", list);
    EXPECT_EQ(network.index, 1);
    EXPECT_EQ(network.name, u"");
    const NetLocationMatch host = FindInNetLocations(u"b.example", list);
    EXPECT_EQ(host.index, 2);
    EXPECT_EQ(host.name, u"*.example");
    EXPECT_FALSE(FindInNetLocations(u"example", list));
    list.BuildIndex();
  }
}

TEST(NetLocationIndex, AgreesWithTheWalkAndAsksNoMoreThanOnceForAnAddress) {
  std::mt19937 random(5);
  int found = 0;
  for (int round = 0; round < 3000; ++round) {
    // Names of few letters in few labels: duplicates, tails of one another, patterns, dots at either end, nothing.
    NetLocationList list;
    const std::size_t count = random() % 40;
    for (std::size_t i = 0; i < count; ++i) {
      NetLocation entry;
      entry.Type = static_cast<std::uint32_t>(random() % (round % 2 == 0 ? 3 : 5));
      entry.Name = RandomText(random, random() % 4 == 0 ? u"aB.*" : u"abB..", 6);
      if (random() % 4 != 0) entry.Range = {0x0A000000, 0x0A000000 + static_cast<std::uint32_t>(random() % 16)};
      list.Entries.push_back(std::move(entry));
    }
    list.BuildIndex();
    for (int i = 0; i < 20; ++i) {
      const std::u16string host = i == 0 ? u"10.0.0.7" : RandomText(random, u"abB..", 10);
      queries = 0;
      const std::ptrdiff_t expected = FindByWalk(host, list.Entries);
      const int asked = std::min(queries, 1);
      queries = 0;
      ASSERT_EQ(FindInNetLocations(host, list).index, expected) << Narrow(host);
      ASSERT_EQ(queries, asked) << Narrow(host);
      queries = 0;
      ASSERT_EQ(FindInNetLocations(host, std::span<const NetLocation>(list.Entries)).index, expected) << Narrow(host);
      ASSERT_EQ(queries, asked) << Narrow(host);
      found += expected >= 0 ? 1 : 0;
    }
  }
  EXPECT_GT(found, 10000);
}

}  // namespace
}  // namespace zeph
