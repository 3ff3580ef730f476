// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>

namespace zeph {

/// The name of a lock that processes agree on: "Global\" and then base, a hyphen and suffix, each 16-bit
/// character raised by 1.
[[nodiscard]] std::u16string NamedMutexName(std::u16string_view base, std::u16string_view suffix);

/// A lock across the threads and processes of one user. Two objects of one name exclude each other wherever they live;
/// one object belongs to one thread at a time and isn't recursive. A process that dies gives its locks back.
///
/// It is a lock on a file in the folder "locks" of the machine's folder if this user may make it there or it is his, else
/// of the user's folder. Who can open a file can hold its lock for ever, so folder and files are for this user alone,
/// and one that others made is not used: users don't meet. Where neither folder can be had, the processes don't meet
/// either, only the threads of each. The files stay; they are empty.
class NamedMutex {
 public:
  /// Opens the lock, not yet taken.
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
  std::timed_mutex* own_ = nullptr;  ///< in the place of a file
  bool held_ = false;
};

}  // namespace zeph
