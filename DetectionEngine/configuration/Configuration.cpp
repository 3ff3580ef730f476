// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/Configuration.h"

#include <algorithm>
#include <array>
#include <utility>

#include "DetectionEngine/configuration/FixedTokens.h"
#include "DetectionEngine/configuration/HostMatching.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

/// What stands behind the last dot but one: the whole host when it has one dot, nothing when it has none.
std::u16string_view RegisteredPart(std::u16string_view host) noexcept {
  const std::size_t last = host.rfind(u'.');
  if (last == std::u16string_view::npos) return {};
  const std::size_t before = host.substr(0, last).rfind(u'.');
  return before == std::u16string_view::npos ? host : host.substr(before + 1);
}

}  // namespace

void NetLocationList::Clear() {
  Entries.clear();
  Index.Clear();
}

void NetLocationList::BuildIndex() { Index.Build(Entries); }

void SafeList::Add(NetLocation location) {
  const bool isDomain = location.Type == kDomain && CountChar(location.Name, u'.') == 1;
  (isDomain ? Domains : Others.Entries).push_back(std::move(location));
}

void SafeList::Sort() {
  std::stable_sort(Domains.begin(), Domains.end(),
                   [](const NetLocation& a, const NetLocation& b) { return a.Name < b.Name; });
}

bool SafeList::Contains(std::u16string_view host) const {
  const std::u16string_view registered = RegisteredPart(host);
  const auto isRegistered = [&](const NetLocation& location) { return location.Name == registered; };
  const bool isDomain = DomainIndex.IsBuilt() ? DomainIndex.Names(registered, Domains)
                                              : std::any_of(Domains.begin(), Domains.end(), isRegistered);
  if (isDomain && !registered.empty()) return true;
  return static_cast<bool>(FindInNetLocations(host, Others));
}

void SafeList::Clear() {
  Domains.clear();
  DomainIndex.Clear();
  Others.Clear();
}

void Configuration::Clear() {
  UrlAnalysisTable.clear();
  UrlAnalysisWords.clear();
  WebHostingSites.Clear();
  PopularSites.Clear();
  SearchServices.Clear();
  ExceptionDomains.Clear();
  TrustedDomains.Clear();
  SafeList.Clear();
  BlockList.Clear();
  TrustedDomainInfos.clear();
  Redirectors.clear();
}

void Configuration::BuildTagIndexes() {
  using Tags = std::vector<std::u16string> TrustedDomainInfo::*;
  for (const auto& [index, tags] : {std::pair<TagIndex&, Tags>(TitleTagIndex, &TrustedDomainInfo::TT),
                                    std::pair<TagIndex&, Tags>(UrlTagIndex, &TrustedDomainInfo::UT),
                                    std::pair<TagIndex&, Tags>(ContentTagIndex, &TrustedDomainInfo::CT)}) {
    std::vector<TagIndexEntry> entries;
    for (const auto& [domain, info] : TrustedDomainInfos) {
      for (const std::u16string& tag : info.*tags) entries.push_back({ToLower(tag), domain});
    }
    index.Assign(std::move(entries));
  }
}

void Configuration::BuildIndexes() {
  BuildTagIndexes();
  UrlWordSet.Assign(UrlAnalysisWords);
  std::array<std::u16string_view, kFixedTokenCount> fixed;
  for (std::size_t token = 0; token < fixed.size(); ++token) fixed[token] = TextOf(static_cast<FixedToken>(token));
  UrlAnalysisTable.Pin(fixed);
  UrlAnalysisTable.PinWords(kWordCodes, UrlAnalysisWords);
  BrandDomains.Clear();
  for (const auto& [domain, info] : TrustedDomainInfos) {
    for (const std::u16string& name : info.DT) BrandDomains.Entries.push_back({kDomain, name, {}, 0, domain});
  }
  SafeList.DomainIndex.Build(SafeList.Domains);
  for (NetLocationList* list : {&SafeList.Others, &BlockList, &SearchServices, &PopularSites, &WebHostingSites,
                                &ExceptionDomains, &TrustedDomains, &BrandDomains}) {
    list->BuildIndex();
  }
}

std::u16string_view Configuration::GetCompanyName(std::u16string_view domain) const {
  const auto at = TrustedDomainInfos.find(domain);
  return at == TrustedDomainInfos.end() ? std::u16string_view() : at->second.CN;
}

void UseOwnTexts(Configuration& configuration, const Configuration& own) {
  for (const auto text : kModuleTexts) {
    if (configuration.*text == kOwnText) configuration.*text = own.*text;
  }
}

}  // namespace zeph
