// SPDX-License-Identifier: Apache-2.0
// The records of a memory file, item by item in the order of the file, once for the reader and the writer. A file is
// little-endian unless its first two bytes say otherwise, without padding, and each record begins with its version.
// Neither order nor widths can change: a record that changes gets a new version.
//
//   byte, flag   1 byte                      text   2 bytes of length in bytes, then 16-bit units as they stand
//   number, f32  4 bytes, f64 8 bytes        list   2 bytes of count, then the items; a map: keys and values
//
// Transfer(file, record) takes a MemoryFile and a record to fill, or a MemoryFileWriter and a constant record.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"

namespace zeph::memoryFormat {

inline constexpr std::uint16_t kMagic = 0xABCD;
inline constexpr std::uint8_t kVersion = 1;
/// A version 2 Indicator is a version 1 one without the result at its end.
inline constexpr std::uint8_t kIndicatorWithResult = 1;
inline constexpr std::uint8_t kIndicatorWithoutResult = 2;

/// R is T, constant or not.
template <class R, class T>
concept Is = std::same_as<std::remove_const_t<R>, T>;

/// What old files carry behind a rule: its answer in the page that it was last tried on. Nobody wants it.
struct StoredResult {
  bool evaluated = false;
  bool on = false;
  std::u16string fieldText;
  std::u16string matchText;
};

template <class File>
void Transfer(File& file, Is<std::u16string> auto& text) {
  file.Text(text);
}

template <class File>
void Transfer(File& file, Is<IPRange> auto& r) {
  file.Version("Unknown version for IPRange");
  file.Number(r.First);
  file.Number(r.Last);
}

template <class File>
void Transfer(File& file, Is<NetLocation> auto& r) {
  file.Version("Unknown version for NetLocation");
  file.Byte(r.Type);
  file.Text(r.Name);
  Transfer(file, r.Range);
  file.Byte(r.Mark);
  file.Text(r.TrustedDomainName);
}

template <class File>
void Transfer(File& file, Is<Redirector> auto& r) {
  file.Version("Unknown version for Redirector");
  file.Text(r.StartsWith);
  file.Text(r.UrlIsValueOfKey);
  file.Flag(r.SkipNumericOptions);
  file.Flag(r.CompleteScheme);
}

template <class File>
void Transfer(File& file, Is<Resources> auto& r) {
  file.Version("Unknown version for Resources");
  file.Text(r.Server);
  file.Text(r.ConfigFile);
  file.Number(r.DownloadFrequency);
  file.Number(r.ReservedNumber);
  file.Text(r.Group);
  file.Text(r.ReservedText);
  file.Text(r.Upgrade);
  file.List(r.TRLMBrands);
  file.List(r.TRLMBrandIDs);
}

template <class File>
void Transfer(File& file, Is<TrustedDomainInfo> auto& r) {
  file.Version("Unknown version for TrustedDomainInfo");
  file.Flag(r.NT);
  file.Text(r.CN);
  file.List(r.UT);
  file.List(r.TT);
  file.List(r.DT);
  file.List(r.CT);
  file.List(r.Ranges);
}

template <class File>
void Transfer(File& file, Is<Configuration> auto& r) {
  file.Version("Unknown version for Configuration");
  Transfer(file, r.Resources);
  file.List(r.SafeList.Domains);
  for (auto* list : {&r.SafeList.Others, &r.BlockList, &r.SearchServices, &r.PopularSites, &r.WebHostingSites,
                     &r.ExceptionDomains, &r.TrustedDomains}) {
    file.List(list->Entries);
  }
  file.List(r.Redirectors);
  file.Tokens(r.UrlAnalysisTable);
  file.List(r.UrlAnalysisWords);
  file.Map(r.TrustedDomainInfos, [&file](auto& info) { Transfer(file, info); });
  file.Map(r.BlockedToTrusted, [&file](auto& trusted) {
    file.Version("Unknown version for BlockedToTrusted");
    file.Text(trusted);
  });
  for (auto* text : {&r.ModulePath, &r.ModuleFolder, &r.ConfigBaseName, &r.OriginalConfigFile, &r.NewConfigFile,
                     &r.SpareConfigFile, &r.ActiveConfigFile}) {
    file.Text(*text);
  }
  file.Flag(r.KeepOriginalFile);
}

template <class File>
void Transfer(File& file, Is<StoredResult> auto& r) {
  file.Version("Unknown version for IndicatorResult");
  file.Flag(r.evaluated);
  file.Flag(r.on);
  file.Text(r.fieldText);
  file.Text(r.matchText);
}

template <class File>
void Transfer(File& file, Is<IndicatorExpression> auto& r) {
  file.Version("Unknown version for IndicatorExpression");
  file.Version("Unknown version for ExpressionField");
  file.Byte(r.FieldID);
  file.Version("Unknown version for ExpressionMethod");
  file.Byte(r.MethodID);
  file.Version("Unknown version for ExpressionValue");
  file.Byte(r.ExpressionValue.ValueType);
  file.ValueText(r.ExpressionValue.Value);
}

template <class File>
void Transfer(File& file, Is<IndicatorRule> auto& r) {
  file.Version("Unknown version for IndicatorRule");
  file.Byte(r.OperatorID);
  file.List(r.Expressions);
  file.Number(r.TDPriority);
  file.Version("Unknown version for RuleCategory");
  file.Byte(r.Category);
}

template <class File>
void Transfer(File& file, Is<Indicator> auto& r) {
  const std::uint8_t version = file.IndicatorVersion("Unknown version for Indicator");
  for (auto* weight : {&r.OnWeight, &r.OffWeight}) {
    file.Version("Unknown version for Weight");
    file.Number(*weight);
  }
  Transfer(file, r.Rule);
  if (version == kIndicatorWithResult) {
    StoredResult result;
    Transfer(file, result);
  }
}

template <class File>
void Transfer(File& file, Is<Indicators> auto& r) {
  file.Version("Unknown version for Indicators");
  file.List(r.Entries);
}

}  // namespace zeph::memoryFormat
