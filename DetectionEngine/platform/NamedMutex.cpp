// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/NamedMutex.h"

#include <algorithm>
#include <thread>

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "DetectionEngine/platform/Files.h"

namespace zeph {

namespace {

/// The name as a file's: letters, digits and hyphens stay, anything else becomes its number. Names that are longer than
/// a file's may be and begin alike share a lock, which costs waiting and no more.
std::string LockFileName(std::u16string_view name) {
  constexpr std::size_t kLongest = 200;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string file;
  for (const char16_t unit : name) {
    const bool stays = (unit >= u'0' && unit <= u'9') || (unit >= u'A' && unit <= u'Z') ||
                       (unit >= u'a' && unit <= u'z') || unit == u'-';
    if (stays) {
      file += static_cast<char>(unit);
    } else {
      file += '%';
      for (int shift = 12; shift >= 0; shift -= 4) file += kDigits[(unit >> shift) & 0xF];
    }
    if (file.size() > kLongest) break;
  }
  return file;
}

int OpenLockFile(const std::string& folder, const std::string& name) noexcept {
  const std::string path = folder + "/" + name;
  // A file of another user's may be locked though it can't be written to, but some systems refuse to open it with
  // O_CREAT.
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file >= 0 || errno != ENOENT) return file;
  return open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
}

}  // namespace

std::u16string NamedMutexName(std::u16string_view base, std::u16string_view suffix) {
  std::u16string name = u"Global\\";
  const auto raise = [&name](std::u16string_view text) {
    for (const char16_t unit : text) name += static_cast<char16_t>(unit + 1);
  };
  raise(base);
  raise(u"-");
  raise(suffix);
  return name;
}

NamedMutex::NamedMutex(std::u16string_view name) {
  const std::string fileName = LockFileName(name);
  const std::string shared = MachineFolder() + "/locks";
  if (MakeFolder(shared)) file_ = OpenLockFile(shared, fileName);
  if (file_ >= 0) return;
  // One place for all of the user's processes, so $TMPDIR has no say.
  const std::string own = "/tmp/zeph-" + std::to_string(geteuid());
  if (MakePrivateFolder(own) && MakeFolder(own + "/locks", 0700)) file_ = OpenLockFile(own + "/locks", fileName);
}

NamedMutex::~NamedMutex() {
  if (file_ >= 0) close(file_);
}

bool NamedMutex::TryLockFor(std::chrono::milliseconds limit) noexcept {
  using namespace std::chrono_literals;
  if (file_ < 0 || held_) return false;
  const auto end = std::chrono::steady_clock::now() + limit;
  std::chrono::microseconds pause = 50us;
  for (;;) {
    if (flock(file_, LOCK_EX | LOCK_NB) == 0) return held_ = true;
    const auto left = end - std::chrono::steady_clock::now();
    if ((errno != EWOULDBLOCK && errno != EINTR) || left <= 0ns) return false;
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(pause, left));
    pause = std::min<std::chrono::microseconds>(pause * 2, 5ms);
  }
}

void NamedMutex::Unlock() noexcept {
  if (held_) flock(file_, LOCK_UN);
  held_ = false;
}

}  // namespace zeph
