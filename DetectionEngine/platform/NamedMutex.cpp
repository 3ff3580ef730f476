// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/NamedMutex.h"

#include <algorithm>
#include <array>
#include <thread>

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
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

/// The lock's file in a folder of this user alone; below 0 when there can be no such folder or the file is another's.
int OpenLockFile(const std::string& folder, const std::string& name) noexcept {
  if (folder.empty() || !MakePrivateFolder(folder)) return -1;
  const std::string path = folder + "/" + name;
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  struct stat status {};
  if (file < 0 || (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid())) return file;
  close(file);
  return -1;
}

/// Where a lock lies that can't lie anywhere: it excludes the threads of this process. Names share them, which costs
/// waiting and no more.
constinit std::array<std::timed_mutex, 8> ownLocks;

std::timed_mutex& OwnLock(std::string_view name) noexcept {
  std::size_t sum = 0;
  for (const char c : name) sum = sum * 31 + static_cast<unsigned char>(c);
  return ownLocks[sum % ownLocks.size()];
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
  // A machine's folder that is missing is for others to make: it isn't private.
  const std::string machine = MachineFolder();
  if (FileExists(machine)) file_ = OpenLockFile(machine + "/locks", fileName);
  const std::string user = UserFolder();
  if (file_ < 0 && !user.empty()) file_ = OpenLockFile(user + "/locks", fileName);
  if (file_ < 0) own_ = &OwnLock(fileName);
}

NamedMutex::~NamedMutex() {
  Unlock();
  if (file_ >= 0) close(file_);
}

bool NamedMutex::TryLockFor(std::chrono::milliseconds limit) noexcept {
  using namespace std::chrono_literals;
  if (held_) return false;
  // By the clock of the calendar: the thread sanitizer doesn't see waits by another.
  if (own_ != nullptr) return held_ = own_->try_lock_until(std::chrono::system_clock::now() + limit);
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
  if (held_ && own_ != nullptr) own_->unlock();
  if (held_ && own_ == nullptr) flock(file_, LOCK_UN);
  held_ = false;
}

}  // namespace zeph
