// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// Sorts the elements of the whole document into counters and lists by tag name. One object makes both passes: the
/// first is cheap and reads the input fields alone, the second reads everything and takes the place of what the first
/// found.
class AllCollectionParser {
 public:
  /// First pass. Each pass gives the status of the last operation.
  Status GetAllCollectionData(IHTMLDocument2* document);
  /// Second pass.
  Status ParseAllCollection(IHTMLDocument2* document);

  /// What the passes have found so far.
  [[nodiscard]] const AllParser& Data() const noexcept { return data_; }
  /// Moves it out; the object is then of no further use.
  [[nodiscard]] AllParser TakeData() noexcept { return std::move(data_); }

 private:
  AllParser data_;
};

}  // namespace zeph
