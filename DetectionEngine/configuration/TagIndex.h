// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
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
  /// which of several matching tags is taken, not the longest. The text is read in lower case.
  /// The view lives as long as the index. O(text * log entries), no allocation; a position where no tag can begin
  /// costs one lookup.
  [[nodiscard]] std::optional<std::u16string_view> FindTag(std::u16string_view text, TagForm form) const;

 private:
  /// A tag goes into the filter by its first units, at most this many.
  static constexpr std::size_t kFilterUnits = 4;

  [[nodiscard]] std::size_t BitOf(std::uint64_t units) const noexcept;
  void Set(std::uint64_t key) noexcept;
  [[nodiscard]] unsigned IsSet(std::uint64_t key) const noexcept;
  /// 1 or 0, without branches on the text.
  [[nodiscard]] unsigned MayBegin(std::uint64_t units, std::u16string_view text) const noexcept;
  template <TagForm form>
  [[nodiscard]] const TagIndexEntry* Probe(std::u16string_view text) const noexcept;
  [[nodiscard]] const TagIndexEntry* SearchEverywhere(std::u16string_view text) const noexcept;
  [[nodiscard]] const TagIndexEntry* SearchWords(std::u16string_view text) const noexcept;

  std::vector<TagIndexEntry> entries_;
  std::vector<std::uint64_t> filter_;      ///< bits by the hash of first units; a clear bit: no tag begins so
  unsigned shift_ = 0;                     ///< leaves of a hash the number of a bit of filter_
  bool hasLength_[kFilterUnits + 1] = {};  ///< a tag stands in the filter by so many units
  bool hasShort_ = false;                  ///< by fewer than kFilterUnits
};

}  // namespace zeph
