// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/DosFile.h"

#include <algorithm>

#include <sys/stat.h>
#include <time.h>

namespace zeph {

namespace {

constexpr int kFirstYear = 1980;
constexpr int kLastYear = 2107;

constexpr std::uint16_t Word(int high, int highShift, int middle, int low) noexcept {
  return static_cast<std::uint16_t>(high << highShift | middle << 5 | low);
}

void SetTime(DosTraits& traits, time_t when) noexcept {
  tm local{};
  if (localtime_r(&when, &local) == nullptr) return;
  const int year = local.tm_year + 1900;
  if (year < kFirstYear) {
    traits.date = Word(0, 9, 1, 1);
  } else if (year > kLastYear) {
    traits.date = Word(kLastYear - kFirstYear, 9, 12, 31);
    traits.time = Word(23, 11, 59, 29);
  } else {
    traits.date = Word(year - kFirstYear, 9, local.tm_mon + 1, local.tm_mday);
    traits.time = Word(local.tm_hour, 11, local.tm_min, std::min(local.tm_sec, 59) / 2);
  }
}

}  // namespace

std::optional<DosTraits> DosTraitsOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  DosTraits traits;
  traits.attributes = kDosArchive;
  if ((status.st_mode & S_IWUSR) == 0) traits.attributes |= kDosReadOnly;
  const std::string name = path.substr(path.find_last_of('/') + 1);
  if (name.starts_with('.')) traits.attributes |= kDosHidden;
  SetTime(traits, status.st_mtim.tv_sec);
  return traits;
}

}  // namespace zeph
