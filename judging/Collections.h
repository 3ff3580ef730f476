// SPDX-License-Identifier: Apache-2.0
// Files that hold many things to judge: letters in a row (mbox), recorded answers of servers (WARC, HAR), addresses a
// line (.txt). Each of them, and a single page or letter, may be compressed (gzip, zstd).
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "judging/Input.h"

namespace zeph {

/// What is read of one entry; a longer one is an input that says so.
inline constexpr std::size_t kMaxEntry = std::size_t{64} << 20;

/// Reads from one end to the other and keeps one entry at a time. One thread at a time.
class Collection {
 public:
  virtual ~Collection() = default;
  /// The next entry; nothing at the end. What can't be used, and what a bound cut, is an input with a refusal.
  [[nodiscard]] virtual std::optional<Input> Next() = 0;
};

/// The file of this name as a collection; null when it is none: a single page or letter that isn't compressed, an
/// address, a file that can't be read. pageUrl: the address of a single page by a list that goes with it; may be empty.
[[nodiscard]] std::unique_ptr<Collection> OpenCollection(const std::string& path, const std::string& pageUrl);

}  // namespace zeph
