// SPDX-License-Identifier: Apache-2.0
// Packs and text sources. The first byte says what the rest is: a pack in the plain, one source (the byte's high half
// choosing its name), or a stream to inflate, which must come out as uncompress has it.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <zlib.h>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/configuration/MemoryFileWriter.h"
#include "DetectionEngine/configuration/Pack.h"
#include "DetectionEngine/configuration/TextSources.h"

namespace {

constexpr std::size_t kRoom = std::size_t{1} << 27;

constexpr std::array<const char*, 11> kNames = {
    "Resources.xml",   "Identifiers.xml",    "Indicators.xml",     "PopularSites.xml",
    "SafeList",        "SearchServices.xml", "TrustedDomains.xml", "WebHostingSites.xml",
    "Redirectors.xml", "URLAnalysis.xml",    "Other.xml"};

void Parse(const std::vector<zeph::PackedFile>& files) {
  zeph::ConfigurationPair pair;
  if (!zeph::ParseTextFiles(files, pair.configuration, pair.indicators, zeph::LoadRoom(kRoom))) return;
  pair.configuration.BuildIndexes();
  pair.indicators.Prepare();
  // Whatever the sources say must be writable or refused by the writer.
  (void)zeph::SealMemoryFile(zeph::WriteMemoryFile(pair.configuration, pair.indicators));
}

void CheckInflate(const std::string& stored) {
  const std::size_t room = zeph::InflateRoom(stored.size());
  std::string expected(room, '\0');
  uLongf length = room;
  const bool isGood = uncompress(reinterpret_cast<Bytef*>(expected.data()), &length,
                                 reinterpret_cast<const Bytef*>(stored.data()), stored.size()) == Z_OK;
  expected.resize(length);
  const std::optional<std::string> content = zeph::Inflate(stored, room);
  if (content.has_value() != isGood || (content && *content != expected)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      if (const auto files = zeph::CreateVectorofFileData(rest)) Parse(*files);
      break;
    case 1:
      Parse({{kNames[(data[0] >> 4) % kNames.size()], rest}});
      break;
    default:
      CheckInflate(rest);
      break;
  }
  return 0;
}
