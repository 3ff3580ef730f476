// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/DataFolder.h"

#include <array>
#include <mutex>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"

namespace zeph {

namespace {

/// Longest path that the system takes, in bytes.
constexpr std::size_t kPathLimit = 4095;

/// Zero-terminated. Trivially destroyed, since the log asks for it to the end of the process.
constinit std::array<char, kVendorNameRoom> vendorName = {"Corvanta"};
constinit std::mutex vendorNameGuard;

}  // namespace

std::string VendorName() {
  const std::lock_guard guard(vendorNameGuard);
  return vendorName.data();
}

bool SetVendorName(std::string_view name) {
  if (name.empty() || name == "." || name == ".." || name.size() >= kVendorNameRoom ||
      name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos) {
    return false;
  }
  {
    const std::lock_guard guard(vendorNameGuard);
    vendorName[name.copy(vendorName.data(), name.size())] = '\0';
  }
  const std::string folder = GetDataFolder();
  if (!folder.empty()) EnsureFolder(Widen(folder));
  return true;
}

std::string GetDataFolder() {
  std::string folder = MachineFolder() + "/" + VendorName();
  if (folder.size() > kPathLimit) folder.clear();
  return folder;
}

std::int32_t EnsureFolder(std::u16string_view path) {
  if (path.size() < 2) return 0;
  if (path.size() > kPathLimit) return 1;
  const std::string narrow = Narrow(path);
  return MakeFolders(narrow) || FileExists(narrow) ? 0 : 1;
}

}  // namespace zeph
