// SPDX-License-Identifier: Apache-2.0
#include "authoring/SourceCheck.h"

#include <algorithm>
#include <array>
#include <span>
#include <charconv>
#include <map>
#include <optional>
#include <set>

#include "DetectionEngine/configuration/TextSources.h"
#include "DetectionEngine/platform/CodePage.h"
#include "authoring/RuleCheck.h"

namespace zeph {

namespace {

/// What stands behind a tag.
enum class Content : std::uint8_t {
  kOpens,    ///< nothing: a block begins
  kCloses,   ///< nothing: the block ends
  kPlain,    ///< text as it stands
  kDecoded,  ///< text whose "&" are of "&amp;" or of "&#" and a number
  kWhole,    ///< a whole number
  kReal,     ///< a number
  kFlag,     ///< whatever: the tag alone counts
  kNetwork,  ///< address/mask
  kNo,       ///< "No"
};

/// A tag of one source.
struct TagRule {
  std::string_view tag;
  Content content;
  std::string_view block;  ///< where it stands; empty: outside all blocks
  bool repeats = true;     ///< may stand several times in its block
};

constexpr bool kOnce = false;

constexpr std::array kLocations = std::to_array<TagRule>({{"<Domain>", Content::kDecoded, ""},
                                                          {"<URL>", Content::kDecoded, ""},
                                                          {"<Hostname>", Content::kDecoded, ""},
                                                          {"<Network>", Content::kNetwork, ""}});
constexpr std::array kBlockList = std::to_array<TagRule>({{"<Domain>", Content::kDecoded, ""},
                                                          {"<URL>", Content::kDecoded, ""},
                                                          {"<Hostname>", Content::kDecoded, ""},
                                                          {"<Network>", Content::kNetwork, ""},
                                                          {"<TD>", Content::kPlain, ""}});
// Its brands' tags are told apart by their attribute, and its closing ones say nothing.
constexpr std::array kSafeList = std::to_array<TagRule>({{"<Domain>", Content::kDecoded, ""},
                                                         {"<URL>", Content::kDecoded, ""},
                                                         {"<Hostname>", Content::kDecoded, ""},
                                                         {"<Network>", Content::kNetwork, ""},
                                                         {"</Trusted.Domain>", Content::kFlag, ""},
                                                         {"<Exception.Domains>", Content::kFlag, ""},
                                                         {"</Exception.Domains>", Content::kFlag, ""}});
constexpr std::string_view kBrandTag = "<Trusted.Domain>";
constexpr std::array kTrustedDomains = std::to_array<TagRule>({{kBrandTag, Content::kOpens, ""},
                                                               {"</Trusted.Domain>", Content::kCloses, kBrandTag},
                                                               {"<Domain>", Content::kPlain, kBrandTag, kOnce},
                                                               {"<CN>", Content::kDecoded, kBrandTag, kOnce},
                                                               {"<UT>", Content::kDecoded, kBrandTag},
                                                               {"<TT>", Content::kDecoded, kBrandTag},
                                                               {"<CT>", Content::kDecoded, kBrandTag},
                                                               {"<DT>", Content::kPlain, kBrandTag},
                                                               {"<NT>", Content::kNo, kBrandTag, kOnce}});
constexpr std::string_view kRule = "<Indicator>";
constexpr std::string_view kExpression = "<Expression>";
constexpr std::array kIndicators = std::to_array<TagRule>({{kRule, Content::kOpens, ""},
                                                           {"</Indicator>", Content::kCloses, kRule},
                                                           {"<Name>", Content::kDecoded, kRule, kOnce},
                                                           {"<Sentence>", Content::kDecoded, kRule, kOnce},
                                                           {"<OnWeight>", Content::kReal, kRule, kOnce},
                                                           {"<OffWeight>", Content::kReal, kRule, kOnce},
                                                           {"<TDPriority>", Content::kWhole, kRule, kOnce},
                                                           {"<Category>", Content::kWhole, kRule, kOnce},
                                                           {"<OperatorID>", Content::kWhole, kRule, kOnce},
                                                           {kExpression, Content::kOpens, kRule},
                                                           {"</Expression>", Content::kCloses, kExpression},
                                                           {"<FieldID>", Content::kWhole, kExpression, kOnce},
                                                           {"<MethodID>", Content::kWhole, kExpression, kOnce},
                                                           {"<ValueType>", Content::kWhole, kExpression, kOnce},
                                                           {"<Value>", Content::kDecoded, kExpression, kOnce}});
constexpr std::string_view kPattern = "<ProxyPattern>";
constexpr std::array kRedirectors = std::to_array<TagRule>({{kPattern, Content::kOpens, ""},
                                                            {"</ProxyPattern>", Content::kCloses, kPattern},
                                                            {"<StartsWith>", Content::kPlain, kPattern, kOnce},
                                                            {"<UrlIsValueOfKey>", Content::kPlain, kPattern, kOnce},
                                                            {"<SkipNumericOptions>", Content::kFlag, kPattern, kOnce},
                                                            {"<CompleteScheme>", Content::kFlag, kPattern, kOnce}});
constexpr std::array kUrlAnalysis = std::to_array<TagRule>(
    {{"<k>", Content::kPlain, ""}, {"<p>", Content::kReal, ""}, {"<w>", Content::kPlain, ""}});
constexpr std::string_view kUpgrade = "<Upgrade>";
constexpr std::array kResources = std::to_array<TagRule>({{"<Server>", Content::kPlain, "", kOnce},
                                                          {"<ConfigFile>", Content::kPlain, "", kOnce},
                                                          {"<DownloadFrequency>", Content::kWhole, "", kOnce},
                                                          {"<Group>", Content::kPlain, "", kOnce},
                                                          {"<TRLMBrands>", Content::kPlain, ""},
                                                          {"<TRLMBrandIDs>", Content::kPlain, ""},
                                                          {kUpgrade, Content::kOpens, ""},
                                                          {"</Upgrade>", Content::kCloses, kUpgrade}});

/// The tags of each source, by the name that occurs in its file's name.
struct SourceRule {
  std::string_view name;
  std::span<const TagRule> tags;
};
constexpr std::array kSourceRules = std::to_array<SourceRule>({{"Resources.xml", kResources},
                                                               {"Identifiers.xml", kBlockList},
                                                               {"Indicators.xml", kIndicators},
                                                               {"PopularSites.xml", kLocations},
                                                               {"SafeList", kSafeList},
                                                               {"SearchServices.xml", kLocations},
                                                               {"TrustedDomains.xml", kTrustedDomains},
                                                               {"WebHostingSites.xml", kLocations},
                                                               {"Redirectors.xml", kRedirectors},
                                                               {"URLAnalysis.xml", kUrlAnalysis}});

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

template <class Number>
bool ReadsAs(std::string_view text) {
  Number number{};
  const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && at == text.data() + text.size();
}

bool IsQuad(std::string_view text) {
  int parts = 0;
  while (true) {
    const std::size_t dot = text.find('.');
    const std::string_view part = text.substr(0, dot);
    if (part.empty() || part.size() > 3 || !ReadsAs<std::uint8_t>(part)) return false;
    ++parts;
    if (dot == std::string_view::npos) return parts == 4;
    text.remove_prefix(dot + 1);
  }
}

/// One file, line by line as the loader reads it.
class FileCheck {
 public:
  FileCheck(const SourceFile& file, std::span<const TagRule> tags, bool isSafeList, Diagnostics& found)
      : file_(file), tags_(tags), isSafeList_(isSafeList), found_(found) {
    for (const TagRule& rule : tags_) names_.push_back(rule.tag);
    if (isSafeList_) names_.push_back(kBrandTag);
  }

  void Run() {
    std::string_view rest = file_.text;
    while (const std::optional<SourceLine> line = NextLine(rest)) {
      line_ = *line;
      Line();
    }
    if (!rest.empty() && rest.find('\n') == std::string_view::npos) {
      found_.Error(At(rest.substr(0, 1)), "the last line has no line feed, so it isn't read", "end the file with a line feed");
    } else if (!rest.empty()) {
      found_.Error({&file_, Offset(rest) - 1, 0},
                   "an empty line ends the file: the " + std::to_string(std::ranges::count(rest, '\n')) +
                       " lines behind it aren't read",
                   "take the empty line out");
    }
    for (const Open& open : open_) {
      found_.Error(open.place, std::string(open.tag) + " isn't closed, so all that stands in it is dropped",
                   "add </" + std::string(open.tag.substr(1)));
    }
    CheckRulesFound();
  }

 private:
  struct Open {
    std::string_view tag;
    Place place;
    std::set<std::string_view> seen;
  };

  [[nodiscard]] std::size_t Offset(std::string_view part) const {
    return static_cast<std::size_t>(part.data() - file_.text.data());
  }
  [[nodiscard]] Place At(std::string_view part) const { return {&file_, Offset(part), part.size()}; }

  void Line() {
    const std::string_view text = line_.line;
    if (Trimmed(text).empty()) return;
    const bool inUpgrade = !open_.empty() && open_.back().tag == kUpgrade;
    if (line_.tag.empty()) {
      if (!inUpgrade) NoTag();
      return;
    }
    const std::string_view before = Trimmed(text.substr(0, text.find('<')));
    if (!before.empty()) found_.Error(At(before), "what stands before a line's tag isn't read");
    if (line_.tag.starts_with("<!--")) {
      if (!Trimmed(text).ends_with("-->")) {
        found_.Error(At(line_.tag.substr(0, 4)), "a comment ends on its own line: what stands in the lines behind it is read",
                     "end each line of it with -->");
      }
      return;
    }
    if (isSafeList_ && line_.tag.starts_with("<Trusted.Domain")) return SafeListBrand();
    const auto rule = std::ranges::find(tags_, line_.tag, &TagRule::tag);
    if (rule != tags_.end()) return Known(*rule);
    if (inUpgrade) return;
    found_.Error(At(line_.tag), file_.name.substr(file_.name.find_last_of('/') + 1) + " has no tag " + std::string(line_.tag),
                 DidYouMean(line_.tag, names_));
  }

  void NoTag() {
    const std::size_t open = line_.line.find('<');
    const std::size_t close = open == std::string_view::npos ? open : line_.line.find('>', open);
    if (open == std::string_view::npos) {
      found_.Error(At(Trimmed(line_.line)), "no tag stands on this line, so it isn't read");
    } else if (close == std::string_view::npos) {
      found_.Error(At(line_.line.substr(open)), "the tag has no end, so the line isn't read", "put a > behind the tag's name");
    } else {
      found_.Error(At(line_.line.substr(open, 1)),
                   "a tag has room for " + std::to_string(kLongestTag) + " bytes and a value for " +
                       std::to_string(kLongestTagValue) + ": the line isn't read");
    }
  }

  void SafeListBrand() {
    const std::string_view tag = line_.tag;
    constexpr std::string_view kHead = "<Trusted.Domain D=\"";
    const std::string_view rest = tag.starts_with(kHead) ? tag.substr(kHead.size()) : std::string_view();
    const std::size_t quote = rest.find('"');
    if (quote == std::string_view::npos || quote == 0) {
      found_.Error(At(tag), "the brand isn't named, so what follows goes to the one before",
                   "write <Trusted.Domain D=\"the brand's domain\">");
    }
  }

  void Known(const TagRule& rule) {
    if (rule.content == Content::kOpens) {
      if (!open_.empty() && open_.back().tag != rule.block) {
        found_.Error(At(rule.tag, line_), std::string(rule.tag) + " begins inside " + std::string(open_.back().tag) +
                                              ", which began in line " + std::to_string(LineOf(open_.back().place)) +
                                              " and is lost",
                     "close the one before");
        while (!open_.empty() && open_.back().tag != rule.block) open_.pop_back();
      }
      if (InBlock(rule)) Begin(rule.tag);
      return;
    }
    if (!InBlock(rule)) return;
    if (rule.content == Content::kCloses) {
      End();
      return;
    }
    if (!rule.repeats) Once(rule);
    Value(rule);
  }

  [[nodiscard]] Place At(std::string_view, const SourceLine& line) const { return At(line.tag); }

  bool InBlock(const TagRule& rule) {
    const std::string_view block = open_.empty() ? std::string_view() : open_.back().tag;
    if (rule.block == block || block == kUpgrade) return true;
    if (rule.block.empty()) {
      found_.Error(At(line_.tag), std::string(rule.tag) + " stands inside " + std::string(block));
      return false;
    }
    found_.Error(At(line_.tag), std::string(rule.tag) + " stands outside " + std::string(rule.block) + ", so it isn't read");
    return false;
  }

  void Begin(std::string_view tag) {
    open_.push_back({tag, At(line_.tag), {}});
    if (tag == kRule) {
      rule_.emplace();
      RulePlaces places;
      places.name = "rule " + std::to_string(rules_.Entries.size());
      places.whole = places.onWeight = places.offWeight = places.priority = places.stage = places.combination =
          At(line_.tag);
      places_ = std::move(places);
    } else if (tag == kExpression) {
      expression_ = {};
      const Place place = At(line_.tag);
      expressionPlaces_ = {place, place, place, place, place, {}};
    }
  }

  void End() {
    const Open closed = std::move(open_.back());
    open_.pop_back();
    if (closed.tag == kExpression && rule_) {
      rule_->Rule.Expressions.push_back(std::move(expression_));
      places_.expressions.push_back(std::move(expressionPlaces_));
    } else if (closed.tag == kRule && rule_) {
      rules_.Entries.push_back(*std::move(rule_));
      rulePlaces_.push_back(std::move(places_));
      rule_.reset();
    } else if (closed.tag == kBrandTag && !closed.seen.contains("<Domain>")) {
      found_.Error(closed.place, "the brand has no <Domain>, which is its key");
    } else if (closed.tag == kPattern && !closed.seen.contains("<StartsWith>")) {
      found_.Error(closed.place, "the pattern has no <StartsWith>");
    }
  }

  void Once(const TagRule& rule) {
    std::set<std::string_view>& seen = open_.empty() ? seenOutside_ : open_.back().seen;
    if (!seen.insert(rule.tag).second) {
      found_.Error(At(line_.tag), std::string(rule.tag) + " stands here a second time, and the last one counts");
    }
  }

  void Value(const TagRule& rule) {
    const std::string_view text = line_.line;
    const std::size_t behindTag = static_cast<std::size_t>(line_.tag.data() - text.data()) + line_.tag.size();
    const std::string_view behind = text.substr(behindTag);
    const std::string_view value = line_.tagValue;
    if (value.empty() && rule.content != Content::kFlag) {
      const std::string_view unread = Trimmed(behind);
      const bool mayBeEmpty = rule.tag == "<Value>" || rule.content == Content::kPlain;
      if (!unread.empty() && unread.front() != '<') {
        found_.Error(At(unread), "the value has no end, so it isn't read", "put a < behind it");
      } else if (!mayBeEmpty || unread.empty()) {
        found_.Error(At(line_.tag), std::string(rule.tag) + " has no value");
      }
      return;
    }
    const std::string_view end = Trimmed(behind.substr(std::min(behind.size(), value.size())));
    const std::string closing = "</" + std::string(rule.tag.substr(1));
    if (!end.empty() && end != "<" && end != closing) {
      found_.Error(At(end), "a line carries one tag: what stands behind its value isn't read",
                   end.starts_with("</") ? "the tag that closes is " + closing : "give it a line of its own");
    }
    Converts(rule, value);
    TakeRule(rule, value);
  }

  void Converts(const TagRule& rule, std::string_view value) {
    const auto wrong = [&](std::string what, std::string help = {}) { found_.Error(At(value), std::move(what), std::move(help)); };
    switch (rule.content) {
      case Content::kWhole:
        if (!ReadsAs<std::int32_t>(value)) wrong("\"" + std::string(value) + "\" is no whole number");
        break;
      case Content::kReal:
        if (!ReadsAs<double>(value)) wrong("\"" + std::string(value) + "\" is no number");
        break;
      case Content::kNetwork: {
        const std::size_t slash = value.find('/');
        if (slash == std::string_view::npos || !IsQuad(value.substr(0, slash)) || !IsQuad(value.substr(slash + 1))) {
          wrong("a network is an address, a slash and a mask", "10.0.0.0/255.0.0.0");
        }
        break;
      }
      case Content::kNo:
        if (value != "No") found_.Warning(At(value), "only \"No\" says something here", "leave the line out");
        break;
      case Content::kDecoded:
        Decodes(value);
        break;
      default:
        break;
    }
  }

  void Decodes(std::string_view value) {
    for (std::size_t i = 0; i < value.size(); ++i) {
      const std::string_view rest = value.substr(i);
      if (static_cast<unsigned char>(value[i]) > 0x7F) {
        const std::size_t length = rest.find_first_not_of("\x80\x81\x82\x83\x84\x85\x86\x87\x88\x89\x8a\x8b\x8c\x8d\x8e\x8f"
                                                          "\x90\x91\x92\x93\x94\x95\x96\x97\x98\x99\x9a\x9b\x9c\x9d\x9e\x9f"
                                                          "\xa0\xa1\xa2\xa3\xa4\xa5\xa6\xa7\xa8\xa9\xaa\xab\xac\xad\xae\xaf"
                                                          "\xb0\xb1\xb2\xb3\xb4\xb5\xb6\xb7\xb8\xb9\xba\xbb\xbc\xbd\xbe\xbf",
                                                          1);
        const std::string_view character = rest.substr(0, length);
        std::string help;
        for (const char16_t unit : Widen(character)) {
          const std::string digits = std::to_string(static_cast<unsigned>(unit));
          help += "&#" + std::string(4 - std::min<std::size_t>(digits.size(), 4), '0') + digits + ";";
        }
        found_.Error(At(character), "a character outside ASCII isn't read as what it is", "write " + help);
        i += character.size() - 1;
      } else if (value[i] == '&' && DecodeEntities(rest.substr(0, std::min<std::size_t>(rest.size(), 8))) ==
                                        Widen(rest.substr(0, std::min<std::size_t>(rest.size(), 8)))) {
        found_.Warning(At(rest.substr(0, 1)), "an \"&\" that begins neither &amp; nor a number stays an \"&\"",
                       "write &amp;, or &# with four or five digits and a semicolon");
      }
    }
  }

  void TakeRule(const TagRule& rule, std::string_view value) {
    if (rule.tag == "<TD>" && !sawLocation_) {
      found_.Error(At(line_.tag), "<TD> belongs to the location before it, and there is none");
    }
    sawLocation_ = sawLocation_ || MakeLocation(line_.tag, value).has_value();
    if (rule.tag == "<p>" && !sawKey_) found_.Error(At(line_.tag), "<p> belongs to the <k> before it, and there is none");
    sawKey_ = rule.tag == "<k>";
    if (!rule_) return;
    const Place place = At(value);
    const auto number = [&] {
      std::int32_t read = 0;
      std::from_chars(value.data(), value.data() + value.size(), read);
      return static_cast<std::uint32_t>(read);
    };
    const auto real = [&] {
      double read = 0;
      std::from_chars(value.data(), value.data() + value.size(), read);
      return static_cast<float>(read);
    };
    const auto set = [&](auto& member, auto read, Place& at) {
      member = read;
      at = place;
    };
    if (rule.tag == "<Name>") places_.name = value;
    if (rule.tag == "<OnWeight>") set(rule_->OnWeight, real(), places_.onWeight);
    if (rule.tag == "<OffWeight>") set(rule_->OffWeight, real(), places_.offWeight);
    if (rule.tag == "<TDPriority>") set(rule_->Rule.TDPriority, number(), places_.priority);
    if (rule.tag == "<Category>") set(rule_->Rule.Category, number(), places_.stage);
    if (rule.tag == "<OperatorID>") set(rule_->Rule.OperatorID, number(), places_.combination);
    if (rule.tag == "<FieldID>") set(expression_.FieldID, number(), expressionPlaces_.field);
    if (rule.tag == "<MethodID>") set(expression_.MethodID, number(), expressionPlaces_.method);
    if (rule.tag == "<ValueType>") set(expression_.ExpressionValue.ValueType, number(), expressionPlaces_.type);
    if (rule.tag == "<Value>") set(expression_.ExpressionValue.Value, DecodeEntities(value), expressionPlaces_.value);
  }

  void CheckRulesFound() {
    if (rules_.Entries.empty()) return;
    rules_.Prepare();
    CheckRules(rules_, rulePlaces_, found_);
  }

  const SourceFile& file_;
  std::span<const TagRule> tags_;
  bool isSafeList_;
  Diagnostics& found_;
  std::vector<std::string_view> names_;
  SourceLine line_;
  std::vector<Open> open_;
  std::set<std::string_view> seenOutside_;
  bool sawLocation_ = false;
  bool sawKey_ = false;
  Indicators rules_;
  std::vector<RulePlaces> rulePlaces_;
  std::optional<Indicator> rule_;
  RulePlaces places_;
  IndicatorExpression expression_;
  ExpressionPlaces expressionPlaces_;
};

}  // namespace

void CheckSource(const SourceFile& file, Diagnostics& found) {
  const std::string_view base = std::string_view(file.name).substr(file.name.find_last_of('/') + 1);
  const auto rule = std::ranges::find_if(
      kSourceRules, [&](const SourceRule& one) { return base.find(one.name) != std::string_view::npos; });
  if (rule == kSourceRules.end()) {
    std::vector<std::string_view> names;
    for (const SourceRule& one : kSourceRules) names.push_back(one.name);
    found.Error({&file, 0, 0}, "no source of a package has this name, so it isn't read", DidYouMean(base, names));
  } else if (file.text.empty()) {
    found.Warning({&file, 0, 0}, "the file is empty");
  } else {
    FileCheck(file, rule->tags, rule->name == "SafeList", found).Run();
  }
}

}  // namespace zeph
