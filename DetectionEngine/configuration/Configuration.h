// SPDX-License-Identifier: Apache-2.0
// What the engine knows of the world: plain records, filled by one of the two loaders, immutable once
// a load has published them, read by any number of threads without a lock.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/configuration/NetLocation.h"
#include "DetectionEngine/configuration/NetLocationIndex.h"
#include "DetectionEngine/configuration/TagIndex.h"
#include "DetectionEngine/configuration/TokenTable.h"
#include "DetectionEngine/text/WordSet.h"

namespace zeph {

/// A site list in file order, and the index that finds its first matching entry without a walk.
struct NetLocationList {
  std::vector<NetLocation> Entries;
  NetLocationIndex Index;  ///< empty until BuildIndex; lookups walk while it is

  void Clear();
  /// Indexes Entries as they stand. Every load ends with it.
  void BuildIndex();

  friend bool operator==(const NetLocationList& a, const NetLocationList& b) { return a.Entries == b.Entries; }
};

/// Server, package and brand settings.
struct Resources {
  std::u16string Server;                   ///< host of the classification server; empty: none
  std::u16string ConfigFile;               ///< carried
  std::uint32_t DownloadFrequency = 0;     ///< carried
  std::uint32_t ReservedNumber = 0;        ///< carried
  std::u16string Group;                    ///< carried
  std::u16string ReservedText;             ///< carried
  std::u16string Upgrade;                  ///< carried: raw source lines, joined
  std::vector<std::u16string> TRLMBrands;  ///< carried
  std::vector<std::u16string> TRLMBrandIDs;

  friend bool operator==(const Resources&, const Resources&) = default;
};

/// Sites that are known to be safe.
struct SafeList {
  std::vector<NetLocation> Domains;  ///< type Domain, exactly one dot in the name; sorted by name after a load
  NetLocationList Others;            ///< everything else
  NetLocationIndex DomainIndex;      ///< of Domains; Configuration::BuildIndexes makes it

  /// Appends to Domains or Others by the location's type and dots.
  void Add(NetLocation location);
  /// Sorts Domains by Name, 16-bit values ascending.
  void Sort();
  /// True when the host's last two labels are in Domains, or the host matches an entry of Others.
  [[nodiscard]] bool Contains(std::u16string_view host) const;
  void Clear();

  friend bool operator==(const SafeList& a, const SafeList& b) {
    return a.Domains == b.Domains && a.Others == b.Others;
  }
};

/// Brand data of one trusted domain.
struct TrustedDomainInfo {
  bool NT = true;                  ///< false: sites that imitate this brand aren't reported
  std::u16string CN;               ///< company name
  std::vector<std::u16string> UT;  ///< tags to look for in URLs
  std::vector<std::u16string> TT;  ///< tags to look for in titles
  std::vector<std::u16string> DT;  ///< the brand's domains
  std::vector<std::u16string> CT;  ///< tags to look for in page content
  std::vector<IPRange> Ranges;     ///< the brand's addresses

  friend bool operator==(const TrustedDomainInfo&, const TrustedDomainInfo&) = default;
};

/// How to see through the URLs of one redirecting service.
struct Redirector {
  std::u16string StartsWith;       ///< prefix that marks a URL of this service
  std::u16string UrlIsValueOfKey;  ///< query key whose value is the target; empty: the target is the tail
  bool SkipNumericOptions = false;
  bool CompleteScheme = false;

  friend bool operator==(const Redirector&, const Redirector&) = default;
};

/// Everything that one package brings, and the texts of the module that loaded it.
/// Members stand in the order of the binary form.
struct Configuration {
  zeph::Resources Resources;
  zeph::SafeList SafeList;
  NetLocationList BlockList;
  NetLocationList SearchServices;
  NetLocationList PopularSites;
  NetLocationList WebHostingSites;
  NetLocationList ExceptionDomains;
  NetLocationList TrustedDomains;
  std::vector<Redirector> Redirectors;
  TokenTable UrlAnalysisTable;  ///< URL token to probability
  std::vector<std::u16string> UrlAnalysisWords;
  std::map<std::u16string, TrustedDomainInfo, std::less<>> TrustedDomainInfos;
  std::map<std::u16string, std::u16string, std::less<>> BlockedToTrusted;
  TagIndex TitleTagIndex;
  TagIndex UrlTagIndex;
  TagIndex ContentTagIndex;
  WordSet UrlWordSet;  ///< UrlAnalysisWords, prepared for the tokeniser
  /// The DT of every brand, in key order, each with the brand's key as TrustedDomainName.
  NetLocationList BrandDomains;
  std::u16string ModulePath;
  std::u16string ModuleFolder;
  std::u16string ConfigBaseName;
  std::u16string OriginalConfigFile;
  std::u16string NewConfigFile;
  std::u16string SpareConfigFile;
  std::u16string ActiveConfigFile;
  bool KeepOriginalFile = false;
  bool IsClient = true;

  /// Empties what a load fills, but Resources, BlockedToTrusted, the indexes, the seven texts and the flags.
  void Clear();
  /// Rebuilds the three tag indexes from TrustedDomainInfos.
  void BuildTagIndexes();
  /// BuildTagIndexes, UrlWordSet, BrandDomains, the index of every site list, and what UrlAnalysisTable pins.
  /// Every load ends with it.
  void BuildIndexes();
  /// CN of the trusted domain; empty when there is none. The view lives as long as the record.
  [[nodiscard]] std::u16string_view GetCompanyName(std::u16string_view domain) const;
};

/// The seven texts that tell of the module: of the one that loads, or those that a memory file brings.
inline constexpr std::array<std::u16string Configuration::*, 7> kModuleTexts = {
    &Configuration::ModulePath,         &Configuration::ModuleFolder,  &Configuration::ConfigBaseName,
    &Configuration::OriginalConfigFile, &Configuration::NewConfigFile, &Configuration::SpareConfigFile,
    &Configuration::ActiveConfigFile};

/// What a memory file holds in the place of such a text to leave the loader its own, so that a package says nothing of
/// who built it and is at home on any machine. An empty text will not do: where NewConfigFile is empty, no newer package
/// is looked for any more. No path holds a zero character, so nothing else is stored like this.
inline constexpr std::u16string_view kOwnText(u"\0", 1);

/// Replaces each text that is kOwnText by that of own.
void UseOwnTexts(Configuration& configuration, const Configuration& own);

}  // namespace zeph
