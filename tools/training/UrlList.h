// SPDX-License-Identifier: Apache-2.0
// Labelled lists of URLs: read in a stream, plain or compressed, and kept in bounded room.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::training {

/// A list or an option that can't be used, in one line that says which and why.
class TrainingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One URL of a list, and what the list says of it.
struct UrlRow {
  std::string url;
  std::string source;  ///< where it was collected; the list's file name when the list doesn't say
  std::string date;    ///< ISO, as precise as it is known; may be empty
  std::string group;   ///< rows of one group belong together; the registrable domain when the list doesn't say
  bool isPhishing = false;
};

/// What a reading came upon.
struct ReadingReport {
  std::size_t rows = 0;
  std::size_t bad = 0;
  std::string firstBad;           ///< file, line and reason
  std::size_t repeated = 0;       ///< the same address again, but for scheme and "www."
  std::size_t contradictory = 0;  ///< in lists of both kinds: neither counts
  std::size_t crowded = 0;        ///< more than the limit of a group
};

/// Calls take(line, number) for each line of a file; gzip, bzip2, xz, zstd are seen through, "-" is standard input.
/// A line of more than 64 KiB comes cut. Throws TrainingError.
void ForEachLine(const std::string& path, const std::function<void(std::string_view, std::size_t)>& take);

/// Calls take for each URL of a list. A line is a URL, or fields parted by tabs, of which the first line may give the
/// names: url, source, date, group (or key), others are passed over. Without names the first field is the URL. Empty
/// lines and lines that begin with "#" are passed over. A URL without a scheme gets "http://".
void ReadUrlList(const std::string& path, bool isPhishing, const std::function<void(UrlRow&&)>& take,
                 ReadingReport& report);

/// The domain that a registrant or a hoster's customer holds, by the public suffix list; an address for itself.
[[nodiscard]] std::string GroupOfHost(std::string_view host);

/// The host of a URL, in lower case; empty when there is none.
[[nodiscard]] std::string HostOf(std::string_view url);

/// The URL but for what tells nothing of the page: scheme, "www.", a slash at the end.
[[nodiscard]] std::string PlainForm(std::string_view url);

/// Rows of both kinds, each URL once, sorted by group and URL: the same whatever the order of the lists.
struct UrlSet {
  std::vector<UrlRow> rows;
  ReadingReport report;
};

struct SetLimits {
  std::size_t perGroup = 20;    ///< rows of one group and kind
  std::size_t rows = 2'000'000; ///< of each kind; of more, an even sample stays
};

/// Reads the lists. progress(rows so far) is called now and then.
[[nodiscard]] UrlSet ReadUrlSet(const std::vector<std::string>& phishing, const std::vector<std::string>& legitimate,
                                const SetLimits& limits, const std::function<void(std::size_t)>& progress);

/// The same number for the same text on every machine.
[[nodiscard]] std::uint64_t StableHash(std::string_view text) noexcept;

}  // namespace zeph::training
