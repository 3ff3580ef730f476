// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "judging/Judge.h"

namespace zeph::http_door {

/// The judges of the configuration in force: made anew when another has come into force. Any thread.
class Judges {
 public:
  struct Pair {
    std::shared_ptr<const ConfigurationPair> configuration;
    Judge plain;
    Judge explaining;
    std::string source;          ///< the package's file or folder; may be empty
    std::string version;         ///< sixteen hexadecimal digits that change with the package's bytes; empty without a file
    std::int64_t lastWrite = 0;  ///< of the file, nanoseconds since 1970; 0 when there is none
  };

  /// source tells where the configuration in force comes from.
  explicit Judges(std::function<std::string()> source) : source_(std::move(source)) {}

  [[nodiscard]] std::shared_ptr<const Pair> Current();

  /// Looks for a newer package, and notes whether there is one to judge by and whether a load has failed.
  void Look();
  [[nodiscard]] bool HavePackage() const { return havePackage_; }
  [[nodiscard]] std::uint64_t LoadFailures() const { return loadFailures_; }

 private:
  [[nodiscard]] std::shared_ptr<const Pair> Make(std::shared_ptr<const ConfigurationPair> configuration) const;

  std::function<std::string()> source_;
  std::mutex mutex_;
  std::shared_ptr<const Pair> current_;
  std::mutex making_;
  std::string lastFailure_;  ///< with making_
  std::atomic<bool> havePackage_{false};
  std::atomic<std::uint64_t> loadFailures_{0};
};

}  // namespace zeph::http_door
