// SPDX-License-Identifier: Apache-2.0
#include "tools/packaging/Place.h"

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/NamedMutex.h"
#include "DetectionEngine/platform/CodePage.h"
#include "tools/packaging/Minisign.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto kLockLimit = 10'000ms;
constexpr std::int64_t kMillisecond = 1'000'000;  ///< file systems that count coarser than this are long gone

std::string SystemReason() { return std::error_code(errno, std::generic_category()).message(); }

std::string Write(const std::string& path, std::string_view bytes) {
  std::error_code error;
  if (WriteWholeFile(path, bytes, &error)) return {};
  return path + ": can't be written: " + error.message();
}

/// The numbers of the earlier ones, the last one first. What isn't whole has no number.
std::vector<unsigned> Numbers(const std::string& folder) {
  std::vector<unsigned> numbers;
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.size() == 6 && std::ranges::all_of(name, [](char c) { return c >= '0' && c <= '9'; })) {
      numbers.push_back(static_cast<unsigned>(std::stoul(name)));
    }
  }
  std::ranges::sort(numbers, std::greater<>());
  return numbers;
}

std::string EntryPath(const std::string& folder, unsigned number) {
  char name[8];
  std::snprintf(name, sizeof name, "%06u", number % 1'000'000);
  return folder + "/" + name;
}

void RemoveTree(const std::string& path) {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

/// Takes an earlier one away at once, however long its files take.
void RemoveEntry(const std::string& folder, unsigned number) {
  const std::string gone = folder + "/gone";
  RemoveTree(gone);
  if (MoveFile(EntryPath(folder, number), gone)) RemoveTree(gone);
}

/// One change at a time, whoever makes it.
class ChangeLock {
 public:
  explicit ChangeLock(const std::string& path)
      : mutex_(NamedMutexName(Widen(path.substr(path.size() - std::min(path.size(), kToldApart))), u"Place")),
        held_(mutex_.TryLockFor(kLockLimit)) {}
  [[nodiscard]] bool IsHeld() const noexcept { return held_; }

 private:
  static constexpr std::size_t kToldApart = 60;  ///< the name of a lock is short; places that share one wait, no more

  NamedMutex mutex_;
  bool held_;
};

}  // namespace

std::optional<SignedPackage> ReadSignedPackage(const std::string& path, std::string& why) {
  std::error_code error;
  SignedPackage package;
  std::optional<std::string> bytes = ReadWholeFile(path, kPackageCeiling, &error);
  if (!bytes) {
    why = path + ": " + error.message();
    return std::nullopt;
  }
  package.bytes = *std::move(bytes);
  const std::string beside = path + std::string(kSignatureEnding);
  std::optional<std::string> signature = ReadWholeFile(beside, kMaxSignatureFile, &error);
  if (!signature && error != std::errc::no_such_file_or_directory) {
    why = beside + ": " + error.message();
    return std::nullopt;
  }
  if (signature) package.signature = *std::move(signature);
  return package;
}

PackagePlace::PackagePlace(std::string path, std::function<void(const char*)> step)
    : path_(std::move(path)), earlier_(path_ + ".earlier"), step_(std::move(step)) {}

void PackagePlace::Done(const char* step) const {
  if (step_) step_(step);
}

std::optional<SignedPackage> PackagePlace::Current(std::string& why) const { return ReadSignedPackage(path_, why); }

std::string PackagePlace::PutSignature(const std::string& text) {
  const std::string beside = path_ + std::string(kSignatureEnding);
  if (!text.empty()) {
    std::string why = Write(beside, text);
    if (!why.empty()) return why;
  } else if (!RemoveFile(beside) && FileExists(beside)) {
    return beside + ": can't be removed: " + SystemReason();
  }
  Done("signature");
  return {};
}

std::string PackagePlace::Put(const SignedPackage& package, bool signatureFirst) {
  const std::string next = path_ + ".next";
  std::string why = Write(next, package.bytes);
  if (!why.empty()) {
    RemoveFile(next);
    return why;
  }
  Done("next written");
  // Engines of other programs take only what is later than what they have.
  const std::int64_t now =
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  const std::int64_t time = std::max(now, LastWriteTime(path_) + kMillisecond);
  if (!SetFileMode(next, 0644) || !SetLastWriteTime(next, time)) {
    why = next + ": mode and time can't be set: " + SystemReason();
    RemoveFile(next);
    return why;
  }
  Done("next ready");
  // A new version is written down before it is in force: no moment is left in which an older one could be slipped in.
  if (signatureFirst) why = PutSignature(package.signature);
  if (why.empty() && !MoveFile(next, path_)) why = path_ + ": can't be replaced: " + SystemReason();
  if (!why.empty()) {
    RemoveFile(next);
    return why;
  }
  Done("in force");
  return signatureFirst ? std::string() : PutSignature(package.signature);
}

std::string PackagePlace::Keep(const SignedPackage& package) {
  const std::vector<unsigned> numbers = Numbers(earlier_);
  std::string ignored;
  if (!numbers.empty()) {
    // Somebody may have been stopped behind this step.
    const auto last = ReadSignedPackage(EntryPath(earlier_, numbers.front()) + "/package.zip", ignored);
    if (last && last->bytes == package.bytes) return {};
  }
  const std::string entry = earlier_ + "/new";
  RemoveTree(entry);
  if (!MakeFolders(entry)) return entry + ": can't be made: " + SystemReason();
  std::string why = Write(entry + "/package.zip", package.bytes);
  if (why.empty() && !package.signature.empty()) {
    why = Write(entry + "/package.zip" + std::string(kSignatureEnding), package.signature);
  }
  Done("earlier one written");
  const std::string name = EntryPath(earlier_, numbers.empty() ? 1 : numbers.front() + 1);
  if (why.empty() && !MoveFile(entry, name)) why = name + ": can't be made: " + SystemReason();
  if (!why.empty()) RemoveTree(entry);
  if (why.empty()) Done("earlier one kept");
  return why;
}

std::string PackagePlace::Install(const SignedPackage& package, const std::optional<SignedPackage>& instead) {
  const ChangeLock lock(path_);
  if (!lock.IsHeld()) return path_ + ": another installation has been at work for too long";
  std::string why;
  std::optional<SignedPackage> before = Current(why);
  if (!before && FileExists(path_)) return why;
  if (!before) before = instead;
  if (before && before->bytes != package.bytes) {
    why = Keep(*before);
    if (!why.empty()) return why;
  }
  why = Put(package, true);
  if (!why.empty()) return why;
  const std::vector<unsigned> numbers = Numbers(earlier_);
  for (std::size_t i = kEarlierPackages; i < numbers.size(); ++i) RemoveEntry(earlier_, numbers[i]);
  return {};
}

std::string PackagePlace::Rollback() {
  const ChangeLock lock(path_);
  if (!lock.IsHeld()) return path_ + ": another installation has been at work for too long";
  std::string why;
  const std::optional<SignedPackage> current = Current(why);
  for (const unsigned number : Numbers(earlier_)) {
    const std::string entry = EntryPath(earlier_, number);
    const auto package = ReadSignedPackage(entry + "/package.zip", why);
    if (!package) return why;
    // One that is in force already was put back, or kept, by somebody who was stopped.
    const bool isInForce = current && current->bytes == package->bytes;
    why = isInForce ? std::string() : Put(*package, false);
    if (!why.empty()) return why;
    RemoveEntry(earlier_, number);
    if (!isInForce) {
      Done("earlier one removed");
      return {};
    }
  }
  return path_ + ": no earlier package is kept";
}

}  // namespace zeph
