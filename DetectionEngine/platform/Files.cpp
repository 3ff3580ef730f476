// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Files.h"

#include <array>
#include <atomic>
#include <utility>
#include <vector>

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "DetectionEngine/platform/Module.h"

namespace zeph {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

/// An open file, closed at the end of the scope.
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] bool IsOpen() const noexcept { return number_ >= 0; }
  [[nodiscard]] int Number() const noexcept { return number_; }
  /// Closes early, to see whether that fails.
  bool Close() noexcept { return close(std::exchange(number_, -1)) == 0; }

 private:
  int number_;
};

/// The system reads a path up to a zero byte, which would then be another file than the one meant.
bool IsUsable(const std::string& path) noexcept { return !path.empty() && path.find('\0') == std::string::npos; }

Descriptor Open(const std::string& path, int flags, mode_t mode = 0) noexcept {
  if (!IsUsable(path)) {
    errno = ENOENT;
    return Descriptor(-1);
  }
  return Descriptor(open(path.c_str(), flags | O_CLOEXEC, mode));
}

bool IsRegular(const Descriptor& file) noexcept {
  struct stat status {};
  return fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode);
}

bool WriteAll(const Descriptor& file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = write(file.Number(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Puts errno where the caller asked for it, and is false.
bool Failed(std::error_code* error) noexcept {
  if (error != nullptr) error->assign(errno, std::generic_category());
  return false;
}

std::string WithoutEndSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string HomeFolder() {
  if (auto home = TrustedEnvironment("HOME")) return *home;
  std::vector<char> room(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, room.data(), room.size(), &found) != 0 || found == nullptr) return {};
  return entry.pw_dir;
}

}  // namespace

std::string MachineFolder() {
  return WithoutEndSlash(TrustedEnvironment("ZEPH_MACHINE_DIR").value_or("/var/lib/zeph"));
}

std::string UserFolder() {
  if (auto folder = TrustedEnvironment("ZEPH_USER_DIR")) return WithoutEndSlash(*std::move(folder));
  const auto state = TrustedEnvironment("XDG_STATE_HOME");
  if (state && state->starts_with('/')) return WithoutEndSlash(*state) + "/zeph";
  const std::string home = HomeFolder();
  return home.starts_with('/') ? WithoutEndSlash(home) + "/.local/state/zeph" : std::string();
}

bool MakePrivateFolder(const std::string& path) noexcept {
  if (!MakeFolders(path, 0700)) return false;
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid()) return false;
  return (status.st_mode & 0077) == 0 || chmod(path.c_str(), 0700) == 0;
}

std::string DistrustOf(const std::string& path, const std::string& kin) {
  struct stat file {};
  if (!IsUsable(path) || stat(path.c_str(), &file) != 0) return {};
  struct stat trusted {};
  const uid_t kinsOwner = IsUsable(kin) && stat(kin.c_str(), &trusted) == 0 ? trusted.st_uid : 0;
  const auto distrust = [kinsOwner](const struct stat& status, const std::string& name) -> std::string {
    if (status.st_uid != 0 && status.st_uid != geteuid() && status.st_uid != kinsOwner) {
      return name + " belongs to another user, number " + std::to_string(status.st_uid);
    }
    const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    const bool groupWrites = (status.st_mode & S_IWGRP) != 0 && status.st_gid != status.st_uid;
    if (!isSticky && (groupWrites || (status.st_mode & S_IWOTH) != 0)) return name + " may be written by other users";
    return {};
  };
  std::string why = distrust(file, path);
  if (!why.empty()) return why;
  const std::size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) return {};
  return distrust(status, folder);
}

FileStamp StampOf(const std::string& path) noexcept {
  struct stat status {};
  if (!IsUsable(path) || stat(path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
          std::int64_t{status.st_mtim.tv_sec} * kNanosecondsPerSecond + status.st_mtim.tv_nsec};
}

std::optional<std::string> ReadWholeFile(const std::string& path, std::size_t limit, std::error_code* error) {
  const auto fail = [error](int reason) {
    errno = reason;
    Failed(error);
    return std::nullopt;
  };
  const Descriptor file = Open(path, O_RDONLY | O_NONBLOCK);
  if (!file.IsOpen()) return fail(errno);
  struct stat status {};
  if (fstat(file.Number(), &status) != 0) return fail(errno);
  if (S_ISDIR(status.st_mode)) return fail(EISDIR);
  if (!S_ISREG(status.st_mode)) return fail(EINVAL);
  if (static_cast<std::uint64_t>(status.st_size) > limit) return fail(EFBIG);

  // The file may grow while it is read, and files of the system's own say that they are empty.
  constexpr std::size_t kStep = 65536;
  std::string content;
  std::size_t length = 0;
  for (;;) {
    if (length == content.size()) {
      if (length > limit) return fail(EFBIG);
      content.resize(length == 0 ? static_cast<std::size_t>(status.st_size) + 1 : length + kStep);
    }
    const ssize_t got = read(file.Number(), content.data() + length, content.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return fail(errno);
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  if (length > limit) return fail(EFBIG);
  content.resize(length);
  return content;
}

bool WriteWholeFile(const std::string& path, std::string_view bytes, std::error_code* error) {
  static std::atomic<unsigned> counter{0};
  const std::string sibling =
      path + "." + std::to_string(getpid()) + "-" + std::to_string(counter.fetch_add(1)) + ".part";
  Descriptor file = Open(sibling, O_WRONLY | O_CREAT | O_EXCL, 0644);
  if (!file.IsOpen()) return Failed(error);
  if (WriteAll(file, bytes) && fsync(file.Number()) == 0 && file.Close() &&
      rename(sibling.c_str(), path.c_str()) == 0) {
    return true;
  }
  Failed(error);
  unlink(sibling.c_str());
  return false;
}

bool AppendToFile(const std::string& path, std::string_view bytes) noexcept {
  const Descriptor file = Open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
  return file.IsOpen() && IsRegular(file) && WriteAll(file, bytes);
}

bool RemoveFile(const std::string& path) noexcept { return IsUsable(path) && remove(path.c_str()) == 0; }

bool MoveFile(const std::string& from, const std::string& to) noexcept {
  return IsUsable(from) && IsUsable(to) && rename(from.c_str(), to.c_str()) == 0;
}

bool MakeFolders(const std::string& path, unsigned mode) noexcept {
  if (!IsUsable(path) || path.size() >= PATH_MAX) return false;
  std::array<char, PATH_MAX> prefix{};
  path.copy(prefix.data(), path.size());
  // The first character is the root's or begins a name: there is nothing before it to make.
  for (std::size_t end = 1; end <= path.size(); ++end) {
    if (end < path.size() && path[end] != '/') continue;
    prefix[end] = '\0';
    struct stat status {};
    const bool isThere = mkdir(prefix.data(), mode) == 0 || stat(prefix.data(), &status) == 0;
    if (!isThere || (status.st_mode != 0 && !S_ISDIR(status.st_mode))) return false;
    if (end < path.size()) prefix[end] = '/';
  }
  return true;
}

bool SetFileMode(const std::string& path, unsigned mode) noexcept {
  return IsUsable(path) && chmod(path.c_str(), mode) == 0;
}

bool SetLastWriteTime(const std::string& path, std::int64_t nanoseconds) noexcept {
  std::int64_t seconds = nanoseconds / kNanosecondsPerSecond;
  std::int64_t rest = nanoseconds % kNanosecondsPerSecond;
  if (rest < 0) {
    --seconds;
    rest += kNanosecondsPerSecond;
  }
  const timespec times[2] = {{0, UTIME_OMIT}, {seconds, rest}};
  return IsUsable(path) && utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

}  // namespace zeph
