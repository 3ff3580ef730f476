// SPDX-License-Identifier: Apache-2.0
// What the server knows: a text file that people keep by hand or a tool writes.
//
//   # a comment
//   spoofing      url     http://bad.example/login
//   confirmed     host    www.bad.example
//   trustworthy   suffix  good.example          (the name itself and every host below it)
//
// Verdicts: trustworthy, spoofing, unclassified, report (unknown; please report), confirmed; or their numbers 1 to 5.
// An exact URL wins over a host, a host over a suffix, a longer suffix over a shorter one; of two equal lines the
// later.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "DetectionEngine/platform/Files.h"

namespace zeph::server {

/// The answer about a URL that no line meets: it leaves the engine's own verdict. ("unclassified" would clear the page,
/// and an empty list every page.)
inline constexpr std::int32_t kUnknown = 2;

class VerdictList {
 public:
  /// A line that can't be read, for people.
  struct Fault {
    std::size_t line;
    std::string what;
  };

  /// Reads a whole file's text. Lines that can't be read are left out and named in faults (at most a hundred), with the
  /// beginning of what can't be read.
  static VerdictList Parse(std::string_view text, std::vector<Fault>& faults);

  /// The verdict on a URL, kUnknown when no line meets it. Hosts are compared without regard to case.
  [[nodiscard]] std::int32_t Find(std::string_view url) const;
  [[nodiscard]] std::size_t size() const noexcept { return urls_.size() + hosts_.size() + suffixes_.size(); }
  /// Lines that say something, and those of them that couldn't be read.
  [[nodiscard]] std::size_t Lines() const noexcept { return lines_; }
  [[nodiscard]] std::size_t FaultyLines() const noexcept { return faultyLines_; }

 private:
  using Verdicts = std::unordered_map<std::string, std::int32_t>;
  Verdicts urls_;
  Verdicts hosts_;
  Verdicts suffixes_;
  std::size_t lines_ = 0;
  std::size_t faultyLines_ = 0;
};

/// A list's file, which a thread of its own looks at once a second and reads again when it has changed; until the new
/// list stands, the old one is in force. It stays so when the file is gone, can't be read, or is most likely no list:
/// one that is empty where there were verdicts, holds a zero byte, or has more faulty lines than others.
class VerdictFile {
 public:
  /// Reads the file, which may be empty. Throws std::runtime_error with the reason when that can't be done.
  explicit VerdictFile(std::string path);
  /// The list as it stands. Any thread.
  [[nodiscard]] std::shared_ptr<const VerdictList> Current() const;
  /// How the file stands, for people.
  struct ListState {
    std::string path;
    std::size_t verdicts = 0;
    std::size_t faultyLines = 0;
    std::int64_t lastWrite = 0;  ///< of the file that is in force, nanoseconds since 1970
    std::string trouble;         ///< why the file as it lies there isn't in force; may be empty
  };
  [[nodiscard]] ListState State() const;
  /// Has the file read again soon, changed or not. Any thread.
  void Reread();

 private:
  void Watch(const std::stop_token& stop);
  /// Empty, or why the list stays as it is.
  std::string Reload();

  std::string path_;
  FileStamp stamp_{};
  mutable std::mutex mutex_;
  std::condition_variable_any wake_;
  bool reread_ = false;
  std::shared_ptr<const VerdictList> list_;
  std::int64_t lastWrite_ = 0;
  std::string trouble_;
  std::jthread watcher_;
};

}  // namespace zeph::server
