// SPDX-License-Identifier: Apache-2.0
#include "authoring/Lint.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/text/CharacterClass.h"
#include "DetectionEngine/text/Text.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph {

namespace {

/// A tag of an address is found inside words too, so a short one is found in too many.
constexpr std::size_t kShortestUrlTag = 4;

/// Words that stand in addresses of all kinds, whatever they are about.
constexpr std::array<std::u16string_view, 40> kEverydayWords = {
    u"account",  u"address", u"article",  u"banking",  u"business", u"category", u"company",   u"contact",  u"content",  u"customer",
    u"delivery", u"details", u"discount", u"download", u"education", u"exchange", u"finance",   u"forecast", u"forward",  u"government",
    u"history",  u"holiday", u"insurance", u"internet", u"invoice",  u"language", u"marketing", u"member",   u"newsletter", u"online",
    u"partner",  u"password", u"payment", u"product",  u"question", u"recording", u"security", u"shopping", u"support",  u"weather"};

class Linter {
 public:
  Linter(const Configuration& world, std::span<const SourceFile> sources, Diagnostics& found)
      : world_(world), sources_(sources), found_(found) {}

  void Run() {
    CheckList("SafeList", world_.SafeList.Domains);
    CheckList("SafeList", world_.SafeList.Others.Entries);
    CheckList("SafeList", world_.ExceptionDomains.Entries);
    CheckList("PopularSites", world_.PopularSites.Entries);
    CheckList("SearchServices", world_.SearchServices.Entries);
    CheckList("WebHostingSites", world_.WebHostingSites.Entries);
    for (const auto& [key, info] : world_.TrustedDomainInfos) CheckBrand(key, info);
    CheckBeginnings(&TrustedDomainInfo::UT, false);
    CheckBeginnings(&TrustedDomainInfo::TT, true);
    CheckContradictions();
    for (const Redirector& redirector : world_.Redirectors) CheckRedirector(redirector);
    CheckTokens();
  }

 private:
  static bool IsWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
  }

  /// The first place of each word of a source. Findings are many, and sources long.
  const std::unordered_map<std::string_view, std::size_t>& WordsOf(const SourceFile& source) {
    const auto [entry, isNew] = words_.try_emplace(&source);
    auto& words = entry->second;
    const std::string_view text = source.text;
    for (std::size_t at = 0; isNew && at < text.size();) {
      std::size_t end = at;
      while (end < text.size() && IsWord(text[end])) ++end;
      if (end > at) words.emplace(text.substr(at, end - at), at);
      at = end + 1;
    }
    return words;
  }

  /// Where a source says the text: in the file that is named, as a whole word if it is one.
  [[nodiscard]] Place Where(std::string_view file, std::u16string_view what) {
    const std::string text = Narrow(what);
    for (const SourceFile& source : sources_) {
      const bool isThere = source.name.find(file) != std::string::npos ||
                           ((file == "TrustedDomains" || file == "SafeList") && source.name.ends_with("brands.zeph"));
      if (!isThere || text.empty()) continue;
      const bool isOneWord = std::ranges::all_of(text, IsWord);
      const auto& words = WordsOf(source);
      const auto word = words.find(text);
      const std::size_t at = !isOneWord ? source.text.find(text) : word != words.end() ? word->second : std::string::npos;
      if (at != std::string::npos) return {&source, at, text.size()};
    }
    for (const SourceFile& source : sources_) {
      if (source.name.find(file) != std::string::npos) return {&source, 0, 0};
    }
    return {};
  }

  static bool IsBelow(std::u16string_view host, const NetLocationList& list) {
    return static_cast<bool>(FindInNetLocations(host, list));
  }

  void CheckList(std::string_view file, const std::vector<NetLocation>& entries) {
    std::map<std::u16string_view, const NetLocation*> seen;
    for (const NetLocation& entry : entries) {
      const std::string name = Narrow(entry.Name);
      if (entry.Type == kNetwork) {
        found_.Error(Where(file, u"<Network>"), "a network has every host looked up in the DNS that comes before it",
                     "name the hosts instead");
        continue;
      }
      if (!seen.emplace(entry.Name, &entry).second) {
        found_.Error(Where(file, entry.Name), name + " stands in the list twice", "take one out");
      }
      if (entry.Type != kUrl && name.find('.') == std::string::npos) {
        found_.Error(Where(file, entry.Name), name + " has no dot: hosts on the Internet have one");
      } else if (entry.Type != kUrl &&
                 name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-*") != std::string::npos) {
        found_.Error(Where(file, entry.Name), name + " is no host as it is compared: small letters, digits, dots, hyphens",
                     "names of other scripts stand in their xn-- form");
      }
    }
    for (const NetLocation& entry : entries) {
      if (entry.Type == kNetwork || entry.Type == kUrl) continue;
      for (std::size_t dot = entry.Name.find(u'.'); dot != std::u16string::npos; dot = entry.Name.find(u'.', dot + 1)) {
        const auto above = seen.find(std::u16string_view(entry.Name).substr(dot + 1));
        if (above == seen.end() || above->second->Type != kDomain || above->second->Name == entry.Name) continue;
        found_.Warning(Where(file, entry.Name), Narrow(entry.Name) + " says nothing: " + Narrow(above->first) +
                                                    ", which stands in the list too, covers it",
                       "take it out");
        break;
      }
    }
  }

  void CheckBrand(const std::u16string& key, const TrustedDomainInfo& info) {
    const std::string brand = info.CN.empty() ? Narrow(key) : Narrow(info.CN);
    const auto say = [&](std::u16string_view what, std::string message, std::string help = {}) {
      found_.Error(Where("TrustedDomains", what), std::move(message), std::move(help));
    };
    if (info.CN.empty()) say(key, "the brand " + Narrow(key) + " has no name");
    if (info.CN.size() >= kZephNameRoom) say(key, brand + ": the name is longer than callers have room for");
    if (info.DT.empty()) {
      say(key, brand + " has no domains", "its own domain stands first in them");
    } else if (info.DT.front() != key) {
      say(key, brand + ": its own domain doesn't stand first among its domains");
    }
    for (const std::u16string& domain : info.DT) {
      const auto [owner, isNew] = owners_.emplace(domain, key);
      if (!isNew) {
        say(domain, Narrow(domain) + " is a domain of " + Narrow(owner->second) + " and of " + Narrow(key),
            "give it to one of them");
      }
      if (domain != key && !world_.SafeList.Contains(domain)) {
        say(domain, Narrow(domain) + " isn't in the safe list, so the brand is held for its own page",
            "add it to the brand's domains there");
      }
    }
    for (const auto* const tags : {&info.UT, &info.TT, &info.CT}) {
      for (const std::u16string& tag : *tags) {
        if (tag != ToLower(tag)) say(tag, "\"" + Narrow(tag) + "\" has capitals, and tags are compared in small letters");
      }
    }
    for (const std::u16string& tag : info.UT) {
      if (tag.size() < kShortestUrlTag) {
        say(tag, "\"" + Narrow(tag) + "\" is part of too many words", "add a dot or a hyphen on the side where words go on");
      }
      CheckTag(key, brand, tag);
    }
  }

  /// A tag is found anywhere in an address, so it mustn't stand in names of others.
  void CheckTag(const std::u16string& key, const std::string& brand, const std::u16string& tag) {
    std::size_t hits = 0;
    std::u16string_view example;
    for (const auto* const list : {&world_.PopularSites, &world_.SearchServices}) {
      for (const NetLocation& site : list->Entries) {
        if (site.Name.find(tag) == std::u16string::npos || OwnerOf(site.Name) == key) continue;
        if (hits++ == 0) example = site.Name;
      }
    }
    if (hits > 0) {
      found_.Warning(Where("TrustedDomains", tag), "the tag \"" + Narrow(tag) + "\" of " + brand + " stands in " +
                                                       Narrow(example) +
                                                       (hits > 1 ? " and " + std::to_string(hits - 1) + " more popular sites" : ""),
                     "make it longer, or give it a dot or a hyphen");
    }
    for (const std::u16string_view word : kEverydayWords) {
      if (word.find(tag) == std::u16string_view::npos) continue;
      found_.Warning(Where("TrustedDomains", tag),
                     "the tag \"" + Narrow(tag) + "\" of " + brand + " is part of the everyday word \"" + Narrow(word) + "\"",
                     "make it longer, or give it a dot or a hyphen");
      break;
    }
  }

  /// The search for a tag probes a sorted list: a tag that is the beginning of another brand's can hide it. Where words
  /// are whole, a longer word is another.
  void CheckBeginnings(std::vector<std::u16string> TrustedDomainInfo::*list, bool wholeWords) {
    std::map<std::u16string_view, std::u16string_view> owners;
    for (const auto& [key, info] : world_.TrustedDomainInfos) {
      for (const std::u16string& tag : info.*list) owners.emplace(tag, key);
    }
    const std::pair<const std::u16string_view, std::u16string_view>* before = nullptr;
    for (const auto& entry : owners) {
      const bool begins = before != nullptr && entry.first.starts_with(before->first) &&
                          (!wholeWords || !IsAlpha(entry.first[before->first.size()]));
      if (!begins) {
        before = &entry;
      } else if (entry.second != before->second) {
        found_.Error(Where("TrustedDomains", entry.first),
                     "the tag \"" + Narrow(before->first) + "\" of " + Narrow(before->second) + " hides \"" + Narrow(entry.first) +
                         "\" of " + Narrow(entry.second),
                     "make the shorter one longer, or take the longer one out");
      }
    }
  }

  [[nodiscard]] std::u16string_view OwnerOf(std::u16string_view host) const {
    return FindInNetLocations(host, world_.BrandDomains) ? FindOwner(host) : std::u16string_view();
  }
  [[nodiscard]] std::u16string_view FindOwner(std::u16string_view host) const {
    for (const NetLocation& domain : world_.BrandDomains.Entries) {
      if (HostMatchesDomain(host, domain.Name)) return domain.TrustedDomainName;
    }
    return {};
  }

  void CheckContradictions() {
    for (const NetLocation& popular : world_.PopularSites.Entries) {
      if (IsBelow(popular.Name, world_.WebHostingSites)) {
        found_.Error(Where("PopularSites", popular.Name), Narrow(popular.Name) + " is held for popular and hosts users' pages",
                     "take it out of one of the two lists");
      }
    }
    NetLocationList popular;
    popular.Entries = world_.PopularSites.Entries;
    popular.BuildIndex();
    for (const NetLocation& domain : world_.BrandDomains.Entries) {
      if (!IsBelow(domain.Name, popular)) continue;
      found_.Error(Where("PopularSites", domain.Name), "the popular sites hide " + Narrow(domain.Name) + ", a domain of " +
                                                           Narrow(world_.GetCompanyName(domain.TrustedDomainName)),
                   "take it out of PopularSites.xml");
    }
    for (const NetLocation& search : world_.SearchServices.Entries) {
      if (IsBelow(search.Name, world_.WebHostingSites)) {
        found_.Error(Where("SearchServices", search.Name), Narrow(search.Name) + " is a search service and hosts users' pages");
      }
    }
    for (const NetLocation& exception : world_.ExceptionDomains.Entries) {
      if (!IsBelow(exception.Name, world_.TrustedDomains) && !world_.SafeList.Contains(exception.Name)) {
        found_.Error(Where("SafeList", exception.Name), Narrow(exception.Name) + " is an exception to nothing");
      }
    }
    for (const NetLocation& hoster : world_.WebHostingSites.Entries) {
      const bool isSafe = IsBelow(hoster.Name, world_.TrustedDomains) || world_.SafeList.Contains(hoster.Name);
      if (isSafe && !IsBelow(hoster.Name, world_.ExceptionDomains)) {
        found_.Warning(Where("WebHostingSites", hoster.Name),
                       Narrow(hoster.Name) + " hosts users' pages, and the safe list covers them",
                       "add it to Exception.Domains in SafeList");
      }
    }
  }

  void CheckRedirector(const Redirector& redirector) {
    std::u16string url = redirector.StartsWith;
    if (!redirector.UrlIsValueOfKey.empty()) {
      url += (url.ends_with(u'?') ? u"" : u"?") + redirector.UrlIsValueOfKey + u"=";
    } else if (redirector.SkipNumericOptions) {
      url += u"20200101000000/";
    }
    url += redirector.CompleteScheme ? u"target.example/" : u"http://target.example/";
    UrlParser parser;
    if (parser.DecodeWithRedirectors(url, world_.Redirectors) != 0 || !parser.Record().IsRedirector ||
        parser.Record().RedirectTarget != u"http://target.example/") {
      found_.Error(Where("Redirectors", redirector.StartsWith), "no target is found in " + Narrow(url));
    }
  }

  void CheckTokens() {
    for (const auto& [token, probability] : world_.UrlAnalysisTable.Sorted()) {
      if (!(probability > 0.0 && probability < 1.0)) {
        found_.Error(Where("URLAnalysis", token), "the probability of " + Narrow(token) + " doesn't lie between 0 and 1");
      }
    }
    // Of the words that stand in a text, the first in the list is taken, and what it takes is gone for later ones.
    std::set<std::u16string_view> before;
    for (const std::u16string& word : world_.UrlAnalysisWords) {
      if (word != ToLower(word)) found_.Error(Where("URLAnalysis", word), Narrow(word) + " has capitals");
      const std::u16string_view view = word;
      bool isTaken = false;
      for (std::size_t from = 0; from < view.size() && !isTaken; ++from) {
        for (std::size_t length = 1; length <= view.size() - from && !isTaken; ++length) {
          isTaken = before.contains(view.substr(from, length));
          if (!isTaken) continue;
          found_.Error(Where("URLAnalysis", word),
                       Narrow(word) + " is never found: " + Narrow(view.substr(from, length)) + " takes it away", "put the longer word first");
        }
      }
      before.insert(view);
    }
  }

  const Configuration& world_;
  std::span<const SourceFile> sources_;
  Diagnostics& found_;
  std::map<std::u16string, std::u16string> owners_;
  std::map<const SourceFile*, std::unordered_map<std::string_view, std::size_t>> words_;
};

}  // namespace

void Lint(const Configuration& world, std::span<const SourceFile> sources, Diagnostics& found) {
  Linter(world, sources, found).Run();
  found.Sort();
}

}  // namespace zeph
