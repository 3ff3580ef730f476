// SPDX-License-Identifier: Apache-2.0
// A memory file is read or refused; what was read, written and read again is the same. The content is plain, so that
// nobody has to break the cipher first.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "DetectionEngine/configuration/MemoryFile.h"
#include "DetectionEngine/configuration/MemoryFileWriter.h"

namespace {

constexpr std::size_t kRoom = std::size_t{1} << 27;

bool Read(std::string content, zeph::ConfigurationPair& pair) {
  try {
    zeph::MemoryFile file(zeph::MemoryFile::Content{std::move(content), kRoom});
    file.Read(pair.configuration);
    file.Read(pair.indicators);
    return true;
  } catch (const zeph::MemoryFileError&) {
    return false;
  }
}

std::optional<std::string> Written(const zeph::ConfigurationPair& pair, const zeph::MemoryFileForm& form = {}) {
  return zeph::WriteMemoryFile(pair.configuration, pair.indicators, form);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zeph::ConfigurationPair first;
  if (!Read(std::string(reinterpret_cast<const char*>(data), size), first)) return 0;
  const std::optional<std::string> content = Written(first);
  if (!content) std::abort();
  // Compared as bytes, since a weight may be a number that isn't equal to itself.
  for (const zeph::MemoryFileForm& form : {zeph::MemoryFileForm{false, 1}, zeph::MemoryFileForm{true, 2}}) {
    zeph::ConfigurationPair again;
    if (!Read(Written(first, form).value(), again) || Written(again) != content) std::abort();
  }
  first.configuration.BuildIndexes();
  first.indicators.Prepare();
  return 0;
}
