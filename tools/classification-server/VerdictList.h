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

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
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

/// A list's file, read again when it changes. A file that is gone or can't be read leaves the list that was read last.
/// Any thread.
class VerdictFile {
 public:
  /// Reads the file. Throws std::runtime_error with the reason when that can't be done.
  explicit VerdictFile(std::string path);
  /// The list as it stands; looks at the file's stamp at most once a second.
  std::shared_ptr<const VerdictList> Current();

 private:
  bool Reload();

  std::string path_;
  std::mutex mutex_;
  FileStamp stamp_{};
  std::int64_t lookedAtMs_ = 0;
  std::shared_ptr<const VerdictList> list_;
};

}  // namespace zeph::server
