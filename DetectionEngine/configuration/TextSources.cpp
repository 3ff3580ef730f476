// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/TextSources.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

constexpr char kLabel[] = "ConfigurationMgr::Parse";

/// The value of a &#dddd; or &#ddddd; at the start of the text, and its length; a length of 0 says that none is there.
std::pair<char16_t, std::size_t> NumericEntity(std::string_view text) noexcept {
  constexpr std::string_view kBegin = "&#";
  if (!text.starts_with(kBegin)) return {};
  std::uint32_t number = 0;
  std::size_t digits = 0;
  std::size_t at = kBegin.size();
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && digits < 6; ++at, ++digits) {
    number = number * 10 + static_cast<std::uint32_t>(text[at] - '0');
  }
  if ((digits != 4 && digits != 5) || at == text.size() || text[at] != ';') return {};
  return {static_cast<char16_t>(number), at + 1};
}

std::int32_t NumberOf(std::string_view value) { return ReadNumber(Widen(value)); }
std::uint32_t UnsignedOf(std::string_view value) { return static_cast<std::uint32_t>(NumberOf(value)); }
double RealOf(std::string_view value) { return ReadReal(Widen(value)); }

IPRange RangeOf(std::string_view value) {
  const std::size_t slash = value.find('/');
  if (slash == std::string_view::npos) return {};
  const std::uint32_t first = IpToNumber(Widen(value.substr(0, slash)));
  const std::uint32_t mask = IpToNumber(Widen(value.substr(slash + 1)));
  return {first, first + ~mask};
}

/// What the handlers of one load share.
struct Target {
  Configuration& configuration;
  Indicators& indicators;
  LoadRoom& room;
};

/// Walks a file's lines. What a line makes of its own is paid for here; a handler pays for copies of what earlier lines
/// made.
class Lines {
 public:
  Lines(std::string_view text, LoadRoom& room) noexcept : cursor_(text), room_(room) {}

  std::optional<SourceLine> Next() {
    constexpr std::size_t kRecord = 256;  // the largest record with its place in a container
    std::optional<SourceLine> line = NextLine(cursor_);
    if (line) {
      const auto isSeparator = [](char c) { return c == ',' || c == '^'; };
      const auto items =
          static_cast<std::size_t>(std::count_if(line->tagValue.begin(), line->tagValue.end(), isSeparator));
      if (!room_.Take(2 * line->line.size() + (line->tag.empty() ? 0 : kRecord))) return std::nullopt;
      if (!room_.Take(RoomOfValue(line->tagValue.size(), items))) return std::nullopt;
    }
    return line;
  }

 private:
  std::string_view cursor_;
  LoadRoom& room_;
};

/// What a handler does at one tag. State holds what it knows of the lines before.
template <class State>
struct TagRow {
  std::string_view tag;
  void (*act)(State& state, const SourceLine& line);
};

template <class State, std::size_t N>
void FollowTags(Lines& lines, State& state, const std::array<TagRow<State>, N>& rows) {
  while (const auto line = lines.Next()) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& r) { return r.tag == line->tag; });
    if (row != rows.end()) row->act(state, *line);
  }
}

template <NetLocationList Configuration::*list>
void HandleLocationList(Lines& lines, const Target& target) {
  while (const auto line = lines.Next()) {
    if (auto location = MakeLocation(line->tag, line->tagValue)) {
      (target.configuration.*list).Entries.push_back(*std::move(location));
    }
  }
}

void HandleIdentifiers(Lines& lines, const Target& target) {
  Configuration& configuration = target.configuration;
  std::vector<NetLocation>& blocked = configuration.BlockList.Entries;
  while (const auto line = lines.Next()) {
    if (auto location = MakeLocation(line->tag, line->tagValue)) {
      blocked.push_back(*std::move(location));
    } else if (line->tag == "<TD>" && !blocked.empty() && target.room.Take(RoomOf(blocked.back().Name))) {
      configuration.BlockedToTrusted[blocked.back().Name] = Widen(line->tagValue);
    }
  }
  LogLine(
      kLabel, [&] { return "Block list size: " + std::to_string(blocked.size()) + " "; }, kLogDetail);
}

void HandleSafeList(Lines& lines, const Target& target) {
  constexpr std::string_view kTrustedDomain = "<Trusted.Domain D=\"";
  Configuration& configuration = target.configuration;
  std::u16string currentDomain;
  bool inExceptions = false;
  while (const auto line = lines.Next()) {
    const std::string_view tag = line->tag;
    if (tag == "<Exception.Domains>") {
      inExceptions = true;
    } else if (tag == "</Exception.Domains>") {
      inExceptions = false;
    } else if (auto location = MakeLocation(tag, line->tagValue)) {
      if (!target.room.Take(2 * RoomOf(currentDomain))) return;
      if (location->Type == kNetwork) configuration.TrustedDomainInfos[currentDomain].Ranges.push_back(location->Range);
      if (inExceptions) {
        configuration.ExceptionDomains.Entries.push_back(*std::move(location));
      } else {
        location->TrustedDomainName = currentDomain;
        configuration.SafeList.Add(*std::move(location));
      }
    } else if (tag.starts_with(kTrustedDomain)) {
      const std::string_view rest = tag.substr(kTrustedDomain.size());
      const std::size_t quote = rest.find('"');
      if (quote != std::string_view::npos && quote != 0) currentDomain = Widen(rest.substr(0, quote));
    }
  }
  LogLine(kLabel, "SL Sort Safe list", kLogDetail);
  configuration.SafeList.Sort();
  LogLine(kLabel, "SL Sort Done", kLogDetail);
}

struct TrustedDomainsState {
  const Target& target;
  std::u16string currentDomain;
  TrustedDomainInfo currentInfo;
  bool trustedFlag = true;
};

template <std::vector<std::u16string> TrustedDomainInfo::*list>
void AppendTags(TrustedDomainsState& state, const SourceLine& line) {
  SplitAt(DecodeEntities(line.tagValue), u'^', state.currentInfo.*list);
}

constexpr std::array kTrustedDomainsTags = std::to_array<TagRow<TrustedDomainsState>>({
    {"<Trusted.Domain>",
     [](auto& state, const auto&) {
       state.currentInfo = {};
       state.trustedFlag = true;
     }},
    {"<Domain>",
     [](auto& state, const auto& line) {
       state.currentDomain = Widen(line.tagValue);
       NetLocation location;
       location.Name = state.currentDomain;
       state.target.configuration.TrustedDomains.Entries.push_back(std::move(location));
     }},
    {"<CN>", [](auto& state, const auto& line) { state.currentInfo.CN = DecodeEntities(line.tagValue); }},
    {"<CT>", AppendTags<&TrustedDomainInfo::CT>},
    {"<UT>", AppendTags<&TrustedDomainInfo::UT>},
    {"<TT>", AppendTags<&TrustedDomainInfo::TT>},
    {"<DT>",
     [](auto& state, const auto& line) { SplitAt(Widen(line.tagValue), u'^', state.currentInfo.DT); }},
    {"<NT>",
     [](auto& state, const auto& line) {
       if (line.tagValue == "No") state.trustedFlag = false;
     }},
    {"</Trusted.Domain>",
     [](auto& state, const auto&) {
       const auto& [target, domain, info, flag] = state;
       if (!target.room.Take(RoomOf(domain) + RoomOf(info) + RoomOfIndexes(domain, info))) return;
       state.currentInfo.NT = flag;
       target.configuration.TrustedDomainInfos.insert_or_assign(domain, info);
     }},
});

void HandleTrustedDomains(Lines& lines, const Target& target) {
  TrustedDomainsState state{target, {}, {}, true};
  FollowTags(lines, state, kTrustedDomainsTags);
}

struct IndicatorsState {
  Indicators& indicators;
  std::optional<Indicator> indicator;
  std::optional<IndicatorExpression> expression;
};

template <std::uint32_t IndicatorRule::*member>
void SetRuleNumber(IndicatorsState& state, const SourceLine& line) {
  if (state.indicator) state.indicator->Rule.*member = UnsignedOf(line.tagValue);
}
template <float Indicator::*member>
void SetWeight(IndicatorsState& state, const SourceLine& line) {
  if (state.indicator) (*state.indicator).*member = static_cast<float>(RealOf(line.tagValue));
}
template <std::uint32_t IndicatorExpression::*member>
void SetExpressionNumber(IndicatorsState& state, const SourceLine& line) {
  if (state.expression) (*state.expression).*member = UnsignedOf(line.tagValue);
}

constexpr std::array kIndicatorsTags = std::to_array<TagRow<IndicatorsState>>({
    {"<Indicator>", [](auto& state, const auto&) { state.indicator.emplace(); }},
    {"</Indicator>",
     [](auto& state, const auto&) {
       if (state.indicator) state.indicators.Entries.push_back(*std::move(state.indicator));
       state.indicator.reset();
     }},
    {"<OnWeight>", SetWeight<&Indicator::OnWeight>},
    {"<OffWeight>", SetWeight<&Indicator::OffWeight>},
    {"<TDPriority>", SetRuleNumber<&IndicatorRule::TDPriority>},
    {"<Category>", SetRuleNumber<&IndicatorRule::Category>},
    {"<OperatorID>", SetRuleNumber<&IndicatorRule::OperatorID>},
    {"<Expression>", [](auto& state, const auto&) { state.expression.emplace(); }},
    {"<FieldID>", SetExpressionNumber<&IndicatorExpression::FieldID>},
    {"<ValueType>",
     [](auto& state, const auto& line) {
       if (state.expression) state.expression->ExpressionValue.ValueType = UnsignedOf(line.tagValue);
     }},
    {"<MethodID>", SetExpressionNumber<&IndicatorExpression::MethodID>},
    {"<Value>",
     [](auto& state, const auto& line) {
       if (state.expression) state.expression->ExpressionValue.Value = DecodeEntities(line.tagValue);
     }},
    {"</Expression>",
     [](auto& state, const auto&) {
       if (!state.indicator || !state.expression) return;
       state.indicator->Rule.Expressions.push_back(*std::move(state.expression));
       state.expression.reset();
     }},
});

void HandleIndicators(Lines& lines, const Target& target) {
  IndicatorsState state{target.indicators, {}, {}};
  FollowTags(lines, state, kIndicatorsTags);
}

struct RedirectorsState {
  const Target& target;
  Redirector redirector;
};

constexpr std::array kRedirectorsTags = std::to_array<TagRow<RedirectorsState>>({
    {"<ProxyPattern>", [](auto& state, const auto&) { state.redirector = {}; }},
    {"<StartsWith>", [](auto& state, const auto& line) { state.redirector.StartsWith = Widen(line.tagValue); }},
    {"<UrlIsValueOfKey>", [](auto& state, const auto& line) { state.redirector.UrlIsValueOfKey = Widen(line.tagValue); }},
    {"<SkipNumericOptions>", [](auto& state, const auto&) { state.redirector.SkipNumericOptions = true; }},
    {"<CompleteScheme>", [](auto& state, const auto&) { state.redirector.CompleteScheme = true; }},
    {"</ProxyPattern>",
     [](auto& state, const auto&) {
       const Redirector& redirector = state.redirector;
       if (!state.target.room.Take(RoomOf(redirector.StartsWith) + RoomOf(redirector.UrlIsValueOfKey))) return;
       state.target.configuration.Redirectors.push_back(redirector);
     }},
});

void HandleRedirectors(Lines& lines, const Target& target) {
  RedirectorsState state{target, {}};
  FollowTags(lines, state, kRedirectorsTags);
}

struct UrlAnalysisState {
  const Target& target;
  std::u16string currentKey;
};

constexpr std::array kUrlAnalysisTags = std::to_array<TagRow<UrlAnalysisState>>({
    {"<k>", [](auto& state, const auto& line) { state.currentKey = Widen(line.tagValue); }},
    {"<p>",
     [](auto& state, const auto& line) {
       state.target.configuration.UrlAnalysisTable.insert_or_assign(state.currentKey, RealOf(line.tagValue));
     }},
    {"<w>", [](auto& state,
               const auto& line) { state.target.configuration.UrlAnalysisWords.push_back(Widen(line.tagValue)); }},
});

void HandleUrlAnalysis(Lines& lines, const Target& target) {
  UrlAnalysisState state{target, {}};
  FollowTags(lines, state, kUrlAnalysisTags);
  LogLine(kLabel, "URL Analysis Done", kLogDetail);
}

constexpr std::array kResourcesTags = std::to_array<TagRow<Resources>>({
    {"<Server>", [](auto& resources, const auto& line) { resources.Server = Widen(line.tagValue); }},
    {"<ConfigFile>", [](auto& resources, const auto& line) { resources.ConfigFile = Widen(line.tagValue); }},
    {"<DownloadFrequency>",
     [](auto& resources, const auto& line) { resources.DownloadFrequency = UnsignedOf(line.tagValue); }},
    {"<Group>", [](auto& resources, const auto& line) { resources.Group = Widen(line.tagValue); }},
    {"<TRLMBrands>",
     [](auto& resources, const auto& line) { SplitAt(Widen(line.tagValue), u',', resources.TRLMBrands); }},
    {"<TRLMBrandIDs>",
     [](auto& resources, const auto& line) { SplitAt(Widen(line.tagValue), u',', resources.TRLMBrandIDs); }},
});

/// The lines from <Upgrade> to </Upgrade> are kept as they are, but for those whose tag has a meaning of its own.
void HandleResources(Lines& lines, const Target& target) {
  Resources& resources = target.configuration.Resources;
  bool inUpgrade = false;
  while (const auto line = lines.Next()) {
    const auto row =
        std::find_if(kResourcesTags.begin(), kResourcesTags.end(), [&](const auto& r) { return r.tag == line->tag; });
    if (row != kResourcesTags.end()) {
      row->act(resources, *line);
      continue;
    }
    const bool begins = line->tag == "<Upgrade>";
    const bool ends = line->tag == "</Upgrade>";
    if (begins) resources.Upgrade.clear();
    if (begins || ends || inUpgrade) resources.Upgrade += Widen(line->line);
    inUpgrade = begins || (inUpgrade && !ends);
  }
}

struct SourceRow {
  std::string_view name;
  void (*handle)(Lines& lines, const Target& target);
};

/// The first name that occurs anywhere in a file's name decides.
constexpr std::array kSources = std::to_array<SourceRow>({
    {"Resources.xml", HandleResources},
    {"Identifiers.xml", HandleIdentifiers},
    {"Indicators.xml", HandleIndicators},
    {"PopularSites.xml", HandleLocationList<&Configuration::PopularSites>},
    {"SafeList", HandleSafeList},
    {"SearchServices.xml", HandleLocationList<&Configuration::SearchServices>},
    {"TrustedDomains.xml", HandleTrustedDomains},
    {"WebHostingSites.xml", HandleLocationList<&Configuration::WebHostingSites>},
    {"Redirectors.xml", HandleRedirectors},
    {"URLAnalysis.xml", HandleUrlAnalysis},
});

}  // namespace

std::optional<SourceLine> NextLine(std::string_view& cursor) {
  const std::size_t feed = cursor.find('\n');
  if (feed == std::string_view::npos) return std::nullopt;
  SourceLine found{cursor.substr(0, feed), {}, {}};
  cursor.remove_prefix(feed + 1);
  // One that stands before a line feed is the whole of a line, which so isn't empty.
  if (cursor.starts_with('\r') && !cursor.starts_with("\r\n")) cursor.remove_prefix(1);
  const std::string_view line = found.line;
  if (line.empty()) return std::nullopt;

  const std::size_t open = line.find('<');
  const std::size_t close = open == std::string_view::npos ? open : line.find('>', open);
  if (close == std::string_view::npos) return found;
  const std::string_view tag = line.substr(open, close + 1 - open);
  const std::string_view rest = line.substr(close + 1);
  const std::size_t next = rest.find('<');
  const std::string_view value = next == std::string_view::npos ? std::string_view() : rest.substr(0, next);
  if (tag.size() > kLongestTag || value.size() > kLongestTagValue) return found;
  found.tag = tag;
  found.tagValue = value;
  return found;
}

std::u16string DecodeEntities(std::string_view text) {
  constexpr std::string_view kAmpersand = "&amp;";
  std::u16string decoded;
  decoded.reserve(text.size());
  while (!text.empty()) {
    std::size_t length = 1;
    auto unit = static_cast<char16_t>(static_cast<signed char>(text.front()));
    if (text.starts_with(kAmpersand)) {
      length = kAmpersand.size();
    } else if (const auto [number, entityLength] = NumericEntity(text); entityLength != 0) {
      unit = number;
      length = entityLength;
    }
    decoded += unit;
    text.remove_prefix(length);
  }
  return decoded;
}

std::optional<NetLocation> MakeLocation(std::string_view tag, std::string_view tagValue) {
  constexpr std::array<std::string_view, 4> kTags = {"<Domain>", "<URL>", "<Hostname>", "<Network>"};
  const auto row = std::find(kTags.begin(), kTags.end(), tag);
  if (row == kTags.end()) return std::nullopt;
  NetLocation location;
  location.Type = static_cast<std::uint32_t>(row - kTags.begin());
  if (location.Type == kNetwork) {
    location.Range = RangeOf(tagValue);
  } else {
    location.Name = DecodeEntities(tagValue);
  }
  return location;
}

bool ParseTextFiles(std::span<const PackedFile> files, Configuration& configuration, Indicators& indicators,
                    LoadRoom room) {
  const Target target{configuration, indicators, room};
  for (const PackedFile& file : files) {
    if (file.Name.empty() || file.FileData.empty()) continue;
    LogLine(kLabel, file.Name, kLogDetail);
    const auto row = std::find_if(kSources.begin(), kSources.end(),
                                  [&](const SourceRow& r) { return file.Name.find(r.name) != std::string::npos; });
    if (row == kSources.end()) continue;
    Lines lines(file.FileData, room);
    row->handle(lines, target);
    if (room.IsUsedUp()) return false;
  }
  return true;
}

}  // namespace zeph
