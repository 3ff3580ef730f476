// SPDX-License-Identifier: Apache-2.0
#include "authoring/PackageDiff.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "DetectionEngine/configuration/NamedLists.h"
#include "DetectionEngine/platform/CodePage.h"

namespace zeph {

namespace {

constexpr std::size_t kShown = 8;

using Texts = std::set<std::string>;

class Differ {
 public:
  void Set(const std::string& what, const Texts& before, const Texts& after) {
    Some(what + ": new", after, before);
    Some(what + ": gone", before, after);
  }
  void Say(std::string line) { lines_.push_back(std::move(line)); }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  void Some(const std::string& what, const Texts& these, const Texts& others) {
    Texts only;
    std::ranges::set_difference(these, others, std::inserter(only, only.end()));
    if (only.empty()) return;
    std::string line = what + " (" + std::to_string(only.size()) + "): ";
    std::size_t shown = 0;
    for (const std::string& one : only) {
      if (shown == kShown) {
        line += ", ...";
        break;
      }
      line += (shown++ > 0 ? ", " : "") + one;
    }
    Say(std::move(line));
  }

  std::vector<std::string> lines_;
};

std::string NameOf(const NetLocation& location) {
  if (location.Type != kNetwork) return Narrow(location.Name);
  return std::to_string(location.Range.First) + " to " + std::to_string(location.Range.Last);
}

Texts NamesOf(const std::vector<NetLocation>& entries) {
  Texts names;
  for (const NetLocation& entry : entries) names.insert(NameOf(entry));
  return names;
}

Texts TextsOf(const std::vector<std::u16string>& texts) {
  Texts narrow;
  for (const std::u16string& text : texts) narrow.insert(Narrow(text));
  return narrow;
}

/// Each rule as it is written, under what it is called; rules without names are told apart by what they ask.
struct RuleText {
  std::string name;
  std::vector<std::string> clauses;  ///< without the condition
  std::string condition;
};

std::vector<RuleText> RuleTexts(const NamedRules& rules) {
  std::vector<RuleText> texts;
  std::istringstream source(DecompileRules(rules));
  std::string line;
  bool inCondition = false;
  while (std::getline(source, line)) {
    if (line.starts_with("rule ") || line.starts_with("fact ")) {
      texts.push_back({line.substr(5), {}, {}});
      inCondition = false;
    } else if (!line.empty() && !texts.empty()) {
      inCondition = inCondition || line.starts_with("  when") || line.starts_with("  unless") || line.starts_with("  operator");
      if (inCondition) {
        texts.back().condition += line + '\n';
      } else {
        texts.back().clauses.push_back(line.substr(2));
      }
    }
  }
  return texts;
}

}  // namespace

std::vector<std::string> DiffPackages(const Configuration& before, const NamedRules& rulesBefore,
                                      const Configuration& after, const NamedRules& rulesAfter) {
  Differ differ;
  const std::vector<RuleText> old = RuleTexts(rulesBefore);
  const std::vector<RuleText> now = RuleTexts(rulesAfter);
  const auto hasNames = [](const NamedRules& rules) {
    return std::ranges::any_of(rules.names, [](const std::string& name) { return !name.empty(); });
  };
  const bool named = hasNames(rulesBefore) && hasNames(rulesAfter);
  std::multimap<std::string_view, const RuleText*> left;
  for (const RuleText& rule : old) left.emplace(named ? rule.name : rule.condition, &rule);
  for (const RuleText& rule : now) {
    const auto at = left.find(named ? rule.name : rule.condition);
    if (at == left.end()) {
      differ.Say("rule " + rule.name + " is new");
      continue;
    }
    const RuleText& was = *at->second;
    left.erase(at);
    const auto value = [](const RuleText& of, std::string_view clause) {
      for (const std::string& one : of.clauses) {
        if (one.starts_with(std::string(clause) + " ")) return one.substr(one.find_first_not_of(' ', clause.size()));
      }
      return std::string("none");
    };
    for (const std::string_view clause : {"say", "stage", "weight", "else", "brand"}) {
      if (value(was, clause) != value(rule, clause)) {
        differ.Say("rule " + rule.name + ": " + std::string(clause) + " " + value(was, clause) + " became " + value(rule, clause));
      }
    }
    if (was.condition != rule.condition) differ.Say("rule " + rule.name + " asks something else");
  }
  for (const auto& [key, rule] : left) differ.Say("rule " + rule->name + " is gone");

  for (const auto& [key, info] : after.TrustedDomainInfos) {
    const auto was = before.TrustedDomainInfos.find(key);
    const std::string brand = "brand " + Narrow(key);
    if (was == before.TrustedDomainInfos.end()) {
      differ.Say(brand + " (" + Narrow(info.CN) + ") is new");
      continue;
    }
    if (was->second.CN != info.CN) differ.Say(brand + ": name " + Narrow(was->second.CN) + " became " + Narrow(info.CN));
    if (was->second.NT != info.NT) differ.Say(brand + (info.NT ? ": is reported now" : ": isn't reported any more"));
    differ.Set(brand + ": tags of addresses", TextsOf(was->second.UT), TextsOf(info.UT));
    differ.Set(brand + ": tags of titles", TextsOf(was->second.TT), TextsOf(info.TT));
    differ.Set(brand + ": tags of texts", TextsOf(was->second.CT), TextsOf(info.CT));
    differ.Set(brand + ": domains", TextsOf(was->second.DT), TextsOf(info.DT));
  }
  for (const auto& [key, info] : before.TrustedDomainInfos) {
    if (!after.TrustedDomainInfos.contains(key)) differ.Say("brand " + Narrow(key) + " (" + Narrow(info.CN) + ") is gone");
  }
  for (const NamedList& list : kNamedLists) {
    if (list.sites == nullptr || list.sites == &Configuration::TrustedDomains) continue;
    differ.Set(std::string(list.name), NamesOf((before.*list.sites).Entries), NamesOf((after.*list.sites).Entries));
  }
  Texts safeBefore = NamesOf(before.SafeList.Domains);
  safeBefore.merge(NamesOf(before.SafeList.Others.Entries));
  Texts safeAfter = NamesOf(after.SafeList.Domains);
  safeAfter.merge(NamesOf(after.SafeList.Others.Entries));
  differ.Set("SafeList", safeBefore, safeAfter);
  const auto prefixes = [](const Configuration& world) {
    Texts texts;
    for (const Redirector& redirector : world.Redirectors) texts.insert(Narrow(redirector.StartsWith));
    return texts;
  };
  differ.Set("redirectors", prefixes(before), prefixes(after));
  const auto tokens = [](const Configuration& world) {
    Texts texts;
    for (const auto& [token, probability] : world.UrlAnalysisTable.Sorted()) {
      std::ostringstream text;
      text << Narrow(token) << ' ' << probability;
      texts.insert(text.str());
    }
    return texts;
  };
  differ.Set("tokens of addresses", tokens(before), tokens(after));
  differ.Set("words of addresses", TextsOf(before.UrlAnalysisWords), TextsOf(after.UrlAnalysisWords));
  if (before.Resources.Server != after.Resources.Server) {
    differ.Say("server " + Narrow(before.Resources.Server) + " became " + Narrow(after.Resources.Server));
  }
  return differ.Take();
}

}  // namespace zeph
