// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/PackageReader.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/configuration/MemoryFile.h"
#include "DetectionEngine/configuration/Pack.h"
#include "DetectionEngine/configuration/TextSources.h"

namespace zeph {

namespace {

constexpr char kParseLabel[] = "ConfigurationMgr::Parse";

/// The log file of the component that handles packages.
constexpr int kPackageModule = 4;

std::string ReadMemoryFile(std::string stored, ConfigurationPair& pair) {
  LogLine(kParseLabel, "Load in Memory", kLogDetail);
  try {
    MemoryFile file(MemoryFile::Packed{std::move(stored)});
    file.Read(pair.configuration);
    file.Read(pair.indicators);
    return {};
  } catch (const MemoryFileError& failure) {
    DebugLog("ConfigurationMgr::Parse - Exception thrown", failure.what(), "", 0, kLogError, kPackageModule);
    return failure.Reason();
  }
}

std::string ReadPack(std::string stored, ConfigurationPair& pair) {
  LogLine(kParseLabel, "Old style load", kLogDetail);
  LogLine(kParseLabel, "Decrypt", kLogDetail);
  DecryptData(stored.data(), stored.size());
  LogLine(kParseLabel, "DecompressLZW", kLogDetail);
  std::string why;
  std::optional<std::string> content = Inflate(stored, InflateRoom(stored.size()), &why);
  if (!content) return why;
  LogLine(kParseLabel, "CreateVectorofFileData", kLogDetail);
  const std::optional<std::vector<PackedFile>> files = CreateVectorofFileData(*content);
  if (!files) return "the pack ends before its last file does";
  content.reset();
  if (!ParseTextFiles(*files, pair.configuration, pair.indicators)) {
    return "the sources take more memory than a configuration may";
  }
  return {};
}

}  // namespace

std::string ReadPackedFile(Extraction packed, ConfigurationPair& pair) {
  if (!packed.pack && !packed.memoryFile) {
    LogLine(kParseLabel, "CAB Extract succeeded, but could not find packed output file", kLogError);
    return "it holds neither packed2.dat nor packed3.dat";
  }
  pair.configuration.Clear();
  pair.indicators.Clear();
  const bool isPack = packed.pack.has_value();
  std::string why = isPack ? ReadPack(*std::move(packed.pack), pair) : ReadMemoryFile(*std::move(packed.memoryFile), pair);
  if (!why.empty()) {
    LogLine(kParseLabel, why, kLogDetail);
    return why;
  }
  pair.configuration.BuildIndexes();
  pair.indicators.Prepare();
  if (isPack) LogLine(kParseLabel, "Done", kLogDetail);
  return {};
}

}  // namespace zeph
