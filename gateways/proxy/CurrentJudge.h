// SPDX-License-Identifier: Apache-2.0
// A judge that stays up to date: a gateway runs for months, and packages come while it does.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "DetectionEngine/configuration/ConfigurationMgr.h"
#include "judging/Judge.h"

namespace zeph {

/// Any thread.
class CurrentJudge {
 public:
  /// One configuration's.
  struct Standing {
    std::shared_ptr<const ConfigurationPair> configuration;
    Judge judge;          ///< with explanations
    std::string version;  ///< sixteen hexadecimal digits that change when another package is in force
  };

  /// source tells the package or folder that the configuration in force comes from; empty when that isn't known.
  explicit CurrentJudge(std::function<std::string()> source) : source_(std::move(source)) {}

  /// For the configuration in force. Takes a newer package when there is one; a look costs next to nothing.
  [[nodiscard]] std::shared_ptr<const Standing> Now();

 private:
  [[nodiscard]] std::shared_ptr<const Standing> Make(std::shared_ptr<const ConfigurationPair> configuration);

  std::function<std::string()> source_;
  std::mutex mutex_;
  std::shared_ptr<const Standing> standing_;
  unsigned made_ = 0;
};

}  // namespace zeph
