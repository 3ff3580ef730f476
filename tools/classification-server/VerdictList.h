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

/// The answer about a URL that nothing is known of.
inline constexpr std::int32_t kUnknown = 3;

class VerdictList {
 public:
  /// A line that can't be read, for people.
  struct Fault {
    std::size_t line;
    std::string what;
  };

  /// Reads a whole file's text. Lines that can't be read are left out and named in faults (at most a hundred).
  static VerdictList Parse(std::string_view text, std::vector<Fault>& faults);

  /// The verdict on a URL, kUnknown when no line meets it. Hosts are compared without regard to case.
  [[nodiscard]] std::int32_t Find(std::string_view url) const;
  [[nodiscard]] std::size_t size() const noexcept { return urls_.size() + hosts_.size() + suffixes_.size(); }

 private:
  using Verdicts = std::unordered_map<std::string, std::int32_t>;
  Verdicts urls_;
  Verdicts hosts_;
  Verdicts suffixes_;
};

/// A list's file, which a thread of its own looks at once a second and reads again when it has changed; until the new
/// list stands, the old one is in force. A file that is gone or can't be read leaves the list that was read last.
class VerdictFile {
 public:
  /// Reads the file. Throws std::runtime_error with the reason when that can't be done.
  explicit VerdictFile(std::string path);
  /// The list as it stands. Any thread.
  [[nodiscard]] std::shared_ptr<const VerdictList> Current() const;

 private:
  void Watch(const std::stop_token& stop);
  bool Reload();

  std::string path_;
  FileStamp stamp_{};
  mutable std::mutex mutex_;
  std::condition_variable_any stopped_;
  std::shared_ptr<const VerdictList> list_;
  std::jthread watcher_;
};

}  // namespace zeph::server
