// SPDX-License-Identifier: Apache-2.0
// The whole road from a package's bytes to a configuration, which is taken or refused; what is extracted stays under
// its ceiling. The same bytes go through the signature test, which must not trust them.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "DetectionEngine/configuration/PackageReader.h"
#include "DetectionEngine/configuration/PackageSignature.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kCeiling = std::size_t{1} << 22;
  const std::string cabinet(reinterpret_cast<const char*>(data), size);
  zeph::Extraction packed = zeph::ExtractCabinet(cabinet, "fuzz.cab", kCeiling);
  const std::size_t extracted = packed.pack.value_or("").size() + packed.memoryFile.value_or("").size();
  if (extracted > 2 * kCeiling || (!packed && extracted != 0)) std::abort();
  zeph::ConfigurationPair pair;
  if (packed) static_cast<void>(zeph::ReadPackedFile(std::move(packed), pair));
  if (zeph::VerifyPackageSignature(cabinet, nullptr, "/dev/null")) std::abort();
  return 0;
}
