// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/ModuleTexts.h"

#include <memory>
#include <mutex>

#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Lasting.h"
#include "DetectionEngine/platform/Module.h"

namespace zeph {

namespace {

constexpr std::uint32_t kSettingsKeyStart = 0xC4;
constexpr std::uint32_t kSettingsKeyMiddle = 0xC5;

struct SharedText {
  std::mutex guard;
  std::u16string text;
};

SharedText& KeyPath() {
  static SharedText& path = Lasting(std::make_unique<SharedText>());
  return path;
}

}  // namespace

OsFamily GetOsFamily() noexcept { return {}; }

std::string_view BaseNameOf(std::string_view fileName) noexcept {
  constexpr std::string_view kLibrary = ".so";
  for (std::size_t at = fileName.find(kLibrary); at != fileName.npos; at = fileName.find(kLibrary, at + 1)) {
    const std::string_view version = fileName.substr(at + kLibrary.size());
    if (version.empty() || (version.front() == '.' && version.find_first_not_of(".0123456789") == version.npos)) {
      return fileName.substr(0, at);
    }
  }
  return fileName.substr(0, fileName.rfind('.'));
}

ModuleTexts FillModuleTexts() {
  const std::string path = ModulePath();
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  const std::string_view name = std::string_view(path).substr(slash + 1);
  return {Widen(path), Widen(std::string_view(path).substr(0, slash)), Widen(BaseNameOf(name))};
}

std::u16string SettingsKeyPath() {
  SharedText& path = KeyPath();
  const std::lock_guard guard(path.guard);
  return path.text;
}

void SetSettingsKeyPath(std::string_view vendor, std::string_view module) {
  std::u16string text(StringEntry(kSettingsKeyStart));
  text += Widen(vendor);
  text += StringEntry(kSettingsKeyMiddle);
  text += Widen(module);
  SharedText& path = KeyPath();
  const std::lock_guard guard(path.guard);
  path.text = std::move(text);
}

}  // namespace zeph
