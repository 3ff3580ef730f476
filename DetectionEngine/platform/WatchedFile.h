// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace zeph {

/// A file whose last write is asked for far more often than it changes.
///
/// A look at a file walks its whole path. So the system is told to say when anything happens in the file's folder (as
/// long as there is none, in the folder where its road ends), and whether it has said something is asked for a third
/// of the price. What it doesn't say (of a file on another machine, of a link or a folder further up that gave way to
/// another), a look at each CoarseTick finds out a few milliseconds late; where it can't watch at all, each question is
/// a look.
///
/// Any thread. Takes a file descriptor from the first question on.
class WatchedFile {
 public:
  explicit WatchedFile(std::string path) : path_(std::move(path)) {}
  ~WatchedFile();
  WatchedFile(const WatchedFile&) = delete;
  WatchedFile& operator=(const WatchedFile&) = delete;

  [[nodiscard]] const std::string& Path() const noexcept { return path_; }
  /// Nanoseconds since 1970, UTC; 0 when there is no such file.
  [[nodiscard]] std::int64_t LastWriteTime();

 private:
  std::int64_t Look(std::int64_t tick);
  /// Takes the events that wait; false when the watch no longer says what happens on the road to the file.
  bool TakeEvents();
  void Watch();

  const std::string path_;
  std::mutex looking_;  ///< held for a look, and for the next three
  int descriptor_ = -1;
  int watch_ = -1;
  bool isInFolder_ = false;  ///< the watched folder is the file's own

  std::atomic<int> events_{-1};           ///< the descriptor while a folder is watched
  std::atomic<bool> isKnown_{false};      ///< no event was taken since the last look began
  std::atomic<std::int64_t> knownAt_{0};  ///< the tick of that look
  std::atomic<std::int64_t> lastWrite_{0};
};

}  // namespace zeph
