// SPDX-License-Identifier: Apache-2.0
// A cabinet is extracted or refused; nothing is written outside its folder, and after a refusal nothing is left in it.
// The same bytes go through the signature test, which must not trust them.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <stdlib.h>

#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/PackageSignature.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kCeiling = std::size_t{1} << 22;

/// A folder of this process with one folder in it, into which cabinets are extracted.
struct Folders {
  Folders() {
    std::string pattern = (fs::temp_directory_path() / "zeph-fuzz-XXXXXX").string();
    outer = mkdtemp(pattern.data());
    inner = outer / "inner";
    fs::create_directory(inner);
  }
  ~Folders() { fs::remove_all(outer); }

  fs::path outer;
  fs::path inner;
};

std::size_t CountOf(const fs::path& folder) {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folders folders;
  const std::string cabinet(reinterpret_cast<const char*>(data), size);
  const zeph::Extraction extraction = zeph::ExtractCabinet(cabinet, "fuzz.cab", folders.inner.string() + "/", kCeiling);
  if (!extraction && CountOf(folders.inner) != 0) std::abort();
  std::size_t written = 0;
  for (const std::string& file : extraction.files) {
    if (fs::exists(file)) written += fs::file_size(file);
    fs::remove(file);
  }
  if (written > kCeiling || CountOf(folders.inner) != 0 || CountOf(folders.outer) != 1) std::abort();
  if (zeph::VerifyPackageSignature(cabinet, nullptr, "/dev/null")) std::abort();
  return 0;
}
