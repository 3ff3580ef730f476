// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zeph::icap {

/// The head of a message: its first line, and the fields behind it.
struct Headers {
  std::string first;
  std::vector<std::pair<std::string, std::string>> fields;  ///< names in lower case, values without blanks around them

  /// The last one's value, which is the one that browsers heed; nothing when there is none.
  [[nodiscard]] std::optional<std::string_view> Find(std::string_view name) const;
  /// The values of all of them, with ", " between.
  [[nodiscard]] std::string FindAll(std::string_view name) const;
  [[nodiscard]] std::size_t Count(std::string_view name) const;
};

/// Strict: nothing when a line is no field. Else such a line is passed over: what a strange server wrote is the
/// proxy's affair. text ends behind the empty line.
[[nodiscard]] std::optional<Headers> ReadHeaders(std::string_view text, bool strict);

/// Words of a field that are parted by commas, in lower case, without blanks around them.
[[nodiscard]] std::vector<std::string> WordsOf(std::string_view value);

[[nodiscard]] std::string Lowered(std::string_view text);
[[nodiscard]] std::string_view Trimmed(std::string_view text);

}  // namespace zeph::icap
