// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace zeph {

/// The name of a lock that processes agree on: "Global\" and then base, a hyphen and suffix, each 16-bit
/// character raised by 1.
[[nodiscard]] std::u16string NamedMutexName(std::u16string_view base, std::u16string_view suffix);

/// A lock across threads and processes. Two objects of one name exclude each other wherever they live; one object
/// belongs to one thread at a time and isn't recursive. A process that dies gives its locks back.
///
/// It is a lock on a file in the folder "locks" of the machine's folder if this user may write there, so that all
/// users meet, else in a folder of the user's own under /tmp. The files stay; they are empty.
class NamedMutex {
 public:
  /// Opens the lock, not yet taken. A lock that can't be opened is one that is never got.
  explicit NamedMutex(std::u16string_view name);
  ~NamedMutex();
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;

  /// Waits for the lock at most that long; with a limit of 0 it tries once. False when it wasn't got. There is no order
  /// among those who wait.
  [[nodiscard]] bool TryLockFor(std::chrono::milliseconds limit) noexcept;
  /// Gives the lock back; without it nothing happens. The destructor does the same.
  void Unlock() noexcept;

 private:
  int file_ = -1;
  bool held_ = false;
};

}  // namespace zeph
