// SPDX-License-Identifier: Apache-2.0
// Configurations, packages and cabinets to test with.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/configuration/MemoryFileWriter.h"
#include "DetectionEngine/configuration/Pack.h"
#include "tests/platform/TestFolders.h"

namespace zeph {

/// Something else in every item that a memory file holds.
inline ConfigurationPair FullPair() {
  ConfigurationPair pair;
  Configuration& c = pair.configuration;
  c.Resources = {u"server.example", u"config.example", 86400, 7, u"group", u"reserved", u"<Upgrade>x",
                 {u"A", u"B"},      {u"1", u"", u"3"}};
  c.SafeList.Domains = {{kDomain, u"a.example", {}, 1, u"brand.example"}, {kDomain, u"b.example", {}, 0, u""}};
  std::uint32_t next = 10;
  for (NetLocationList* list : {&c.SafeList.Others, &c.BlockList, &c.SearchServices, &c.PopularSites,
                                &c.WebHostingSites, &c.ExceptionDomains, &c.TrustedDomains}) {
    for (const std::uint32_t type : {kUrl, kHostname, kNetwork}) {
      const std::u16string name = u"site" + std::u16string(1, static_cast<char16_t>(u'A' + next));
      list->Entries.push_back({type, name, {next << 24, next << 24 | 0xFF}, next % 256, name + u".owner"});
      ++next;
    }
  }
  c.Redirectors = {{u"http://go.example/?", u"u", true, false}, {u"http://to.example/", u"", false, true}};
  c.UrlAnalysisTable.insert_or_assign(u"login", 0.875);
  c.UrlAnalysisTable.insert_or_assign(u"\u4E2D", -1e300);
  c.UrlAnalysisWords = {u"secure", u"bank"};
  c.TrustedDomainInfos[u"brand.example"] = {false,   u"Brand", {u"u1", u"u2"},  {u"t1"},
                                            {u"d1"}, {u"c1"},  {{1, 2}, {3, 4}}};
  c.TrustedDomainInfos[u"other.example"] = {true, u"Other", {}, {}, {}, {}, {}};
  c.BlockedToTrusted = {{u"bad.example", u"brand.example"}, {u"worse.example", u""}};
  c.ModulePath = u"/opt/zeph/engine.so";
  c.ModuleFolder = u"/opt/zeph";
  c.ConfigBaseName = u"engine";
  c.OriginalConfigFile = u"/opt/zeph/engine.zip";
  c.NewConfigFile = u"/var/zeph/engine.zip";
  c.SpareConfigFile = u"/var/zeph/spare.zip";
  c.ActiveConfigFile = u"/opt/zeph/active.zip";
  c.KeepOriginalFile = true;
  Indicator& first = pair.indicators.Entries.emplace_back();
  first.OnWeight = 0.75F;
  first.OffWeight = -0.5F;
  first.Rule = {1, {{3, 54, {kValueList, u"a,b", {}, {}}}, {255, 0, {kValueNumber, u"", {}, {}}}}, 70000, 7};
  pair.indicators.Entries.emplace_back();
  return pair;
}

/// The packed file of a memory file.
inline std::string SealedMemoryFile(const ConfigurationPair& pair, const MemoryFileForm& form = {}) {
  return SealMemoryFile(WriteMemoryFile(pair.configuration, pair.indicators, form)).value();
}

/// A pack of these files, not yet compressed.
inline std::string PackOf(const std::vector<PackedFile>& files) {
  std::string pack;
  const auto number = [&pack](std::size_t value) {
    for (int shift = 0; shift < 32; shift += 8) pack += static_cast<char>(value >> shift & 0xFF);
  };
  number(files.size());
  for (const auto& [name, data] : files) {
    for (const std::string* text : {&name, &data}) {
      number(text->size());
      pack += *text;
    }
  }
  return pack;
}

/// Pointers for the functions with C arguments; they live as long as the texts.
inline std::vector<const char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<const char*> pointers;
  for (const std::string& text : texts) pointers.push_back(text.c_str());
  return pointers;
}

/// A file of a stored cabinet.
struct StoredFile {
  std::string name;
  std::string data;
};

/// A cabinet of stored data, as other makers' tools write it: a folder for each list of files. Nothing is checked, so
/// that names may be any.
inline std::string StoredCabinet(std::initializer_list<std::initializer_list<StoredFile>> folders) {
  const auto number = [](std::size_t value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
  };
  constexpr std::size_t kBlock = 32768;
  std::size_t dataAt = 36 + 8 * folders.size();
  for (const auto& folder : folders) {
    for (const StoredFile& file : folder) dataAt += 16 + file.name.size() + 1;
  }
  std::string folderRecords;
  std::string fileRecords;
  std::string blocks;
  std::size_t files = 0;
  std::size_t index = 0;
  for (const auto& folder : folders) {
    std::string data;
    for (const StoredFile& file : folder) {
      fileRecords += number(file.data.size(), 4) + number(data.size(), 4) + number(index, 2) + number(0x21, 2) + number(0, 2) +
                     number(0x20, 2) + file.name + '\0';
      data += file.data;
      ++files;
    }
    ++index;
    folderRecords += number(dataAt + blocks.size(), 4) + number((data.size() + kBlock - 1) / kBlock, 2) + number(0, 2);
    for (; !data.empty(); data.erase(0, kBlock)) {
      const std::string block = data.substr(0, kBlock);
      blocks += number(0, 4) + number(block.size(), 2) + number(block.size(), 2) + block;  // checksum 0: none
    }
  }
  return "MSCF" + number(0, 4) + number(dataAt + blocks.size(), 4) + number(0, 4) + number(36 + 8 * folders.size(), 4) +
         number(0, 4) + number(0x0103, 2) + number(folders.size(), 2) + number(files, 2) + number(0, 2) + number(1, 2) +
         number(0, 2) + folderRecords + fileRecords + blocks;
}

}  // namespace zeph
