// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

struct TagIndexEntry {
  std::u16string Tag;     ///< lower case
  std::u16string Domain;  ///< key in TrustedDomainInfos

  friend bool operator==(const TagIndexEntry&, const TagIndexEntry&) = default;
};

/// Where a tag may match.
enum class TagForm : std::uint8_t {
  kUrl,   ///< at every position, also inside a word
  kWord,  ///< whole words and word runs only; a word begins with a letter behind a non-letter
};

/// Brand tags, sorted by Tag (16-bit values), and the search for the first of them in a text.
class TagIndex {
 public:
  /// Sorts the entries and keeps them. Equal tags keep their order.
  void Assign(std::vector<TagIndexEntry> entries);
  [[nodiscard]] const std::vector<TagIndexEntry>& Entries() const noexcept { return entries_; }
  /// The Domain of the first hit, or nothing. At each position the binary search's own probing decides
  /// which of several matching tags is taken, not the longest. The text is folded to lower case first.
  /// The view lives as long as the index. O(text * log entries); positions where no tag can begin cost one lookup.
  [[nodiscard]] std::optional<std::u16string_view> FindTag(std::u16string_view text, TagForm form) const;

 private:
  std::vector<TagIndexEntry> entries_;
  std::array<std::uint64_t, 1024> firstUnits_{};  ///< bit set of the first units of all tags
};

}  // namespace zeph
