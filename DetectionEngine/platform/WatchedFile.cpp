// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/WatchedFile.h"

#include <cstddef>
#include <cstring>

#include <errno.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/Files.h"

namespace zeph {

namespace {

constexpr std::uint32_t kOfNames = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR;
constexpr std::uint32_t kOfContents = IN_MODIFY | IN_ATTRIB;
constexpr std::uint32_t kOfTheFolder = IN_DELETE_SELF | IN_MOVE_SELF;

/// A road that is built and torn down while it is looked at isn't followed for ever.
constexpr int kAttempts = 8;

/// The folder that the last component of a path lies in.
std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool EventsWait(int descriptor) noexcept {
  int bytes = 0;
  return ioctl(descriptor, FIONREAD, &bytes) != 0 || bytes != 0;
}

}  // namespace

WatchedFile::~WatchedFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::int64_t WatchedFile::LastWriteTime() {
  const std::int64_t tick = CoarseTick();
  if (knownAt_ == tick) {
    const int events = events_;
    if (events < 0) return zeph::LastWriteTime(path_);
    // In this order: whoever takes the events says first that nothing is known.
    if (!EventsWait(events) && isKnown_) return lastWrite_;
  }
  return Look(tick);
}

std::int64_t WatchedFile::Look(std::int64_t tick) {
  const std::lock_guard lock(looking_);
  isKnown_ = false;
  if (!TakeEvents()) Watch();
  const std::int64_t lastWrite = zeph::LastWriteTime(path_);
  lastWrite_ = lastWrite;
  knownAt_ = tick;
  isKnown_ = true;
  return lastWrite;
}

bool WatchedFile::TakeEvents() {
  if (watch_ < 0) return false;
  bool isGood = isInFolder_;
  alignas(inotify_event) char bytes[4096];
  ssize_t count = 0;
  while ((count = read(descriptor_, bytes, sizeof bytes)) > 0) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
      inotify_event event{};
      std::memcpy(&event, bytes + at, sizeof event);
      at += sizeof event + event.len;
      if (event.wd == watch_ && (event.mask & (kOfTheFolder | IN_IGNORED | IN_UNMOUNT)) != 0) isGood = false;
      if (event.wd == watch_ && (event.mask & IN_IGNORED) != 0) watch_ = -1;
    }
  }
  return isGood;
}

void WatchedFile::Watch() {
  events_ = -1;
  if (path_.empty()) return;
  if (descriptor_ < 0) descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (descriptor_ < 0) return;

  const std::string own = FolderOf(path_);
  int watch = -1;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string folder = own;
    std::string missing;
    while ((watch = inotify_add_watch(descriptor_, folder.c_str(),
                                      kOfNames | kOfTheFolder | (folder == own ? kOfContents : 0))) < 0 &&
           (errno == ENOENT || errno == ENOTDIR) && folder != "/" && folder != ".") {
      missing = folder;
      folder = FolderOf(folder);
    }
    isInFolder_ = missing.empty();
    // What has come into being before the watch began would never be told.
    if (watch < 0 || isInFolder_ || !FileExists(missing)) break;
    if (watch != watch_) inotify_rm_watch(descriptor_, watch);
    watch = -1;
  }
  if (watch_ >= 0 && watch_ != watch) inotify_rm_watch(descriptor_, watch_);
  watch_ = watch;
  if (watch_ >= 0) events_ = descriptor_;
}

}  // namespace zeph
