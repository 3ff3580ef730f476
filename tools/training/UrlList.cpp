// SPDX-License-Identifier: Apache-2.0
#include "tools/training/UrlList.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <tuple>
#include <unordered_map>

#include <archive.h>
#include <archive_entry.h>
#include <libpsl.h>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/url/UrlParser.h"

namespace zeph::training {
namespace {

constexpr std::size_t kLongestLine = 64 * 1024;
constexpr std::size_t kProgressEvery = 20'000;

struct CloseArchive {
  void operator()(archive* file) const { archive_read_free(file); }
};

/// The columns of a list, by position; none for one that it lacks.
struct Columns {
  std::size_t url = 0;
  std::optional<std::size_t> source, date, group;
};

std::vector<std::string_view> SplitAtTabs(std::string_view line) {
  std::vector<std::string_view> fields;
  for (;;) {
    const std::size_t tab = line.find('\t');
    fields.push_back(line.substr(0, tab));
    if (tab == std::string_view::npos) return fields;
    line.remove_prefix(tab + 1);
  }
}

/// The first line names the columns when one of its fields is "url".
std::optional<Columns> ColumnsOf(const std::vector<std::string_view>& fields) {
  Columns columns;
  bool isHeader = false;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i] == "url") {
      columns.url = i;
      isHeader = true;
    } else if (fields[i] == "source") {
      columns.source = i;
    } else if (fields[i] == "date") {
      columns.date = i;
    } else if (fields[i] == "group" || fields[i] == "key") {
      columns.group = i;
    }
  }
  return isHeader ? std::optional(columns) : std::nullopt;
}

std::string_view WithoutScheme(std::string_view url) {
  const std::size_t scheme = url.find("://");
  return scheme == std::string_view::npos ? url : url.substr(scheme + 3);
}

/// Why the engine couldn't judge the URL; null when it could.
const char* FaultOf(std::string_view url) {
  if (url.empty()) return "no URL";
  UrlParser parser;
  if (parser.DecodeUrl(Widen(url)) != 0) return "not a URL that can be taken apart";
  if (parser.Record().HostName.empty()) return "a URL without a host";
  return nullptr;
}

}  // namespace

void ForEachLine(const std::string& path, const std::function<void(std::string_view, std::size_t)>& take) {
  const std::unique_ptr<archive, CloseArchive> file(archive_read_new());
  archive_read_support_filter_all(file.get());
  archive_read_support_format_raw(file.get());
  archive_read_support_format_empty(file.get());
  const auto fail = [&] {
    const char* const reason = archive_error_string(file.get());
    throw TrainingError(path + ": " + (reason != nullptr ? reason : "can't be read"));
  };
  std::error_code ignored;
  if (path != "-" && std::filesystem::is_directory(path, ignored)) throw TrainingError(path + ": is a folder");
  if (archive_read_open_filename(file.get(), path == "-" ? nullptr : path.c_str(), 1 << 16) != ARCHIVE_OK) fail();
  archive_entry* entry = nullptr;
  const int opened = archive_read_next_header(file.get(), &entry);
  if (opened == ARCHIVE_EOF) return;
  if (opened != ARCHIVE_OK) fail();
  std::array<char, 1 << 16> room;
  std::string line;
  std::size_t number = 0;
  const auto end = [&] {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    take(line, ++number);
    line.clear();
  };
  for (;;) {
    const la_ssize_t got = archive_read_data(file.get(), room.data(), room.size());
    if (got < 0) fail();
    if (got == 0) break;
    for (std::string_view rest(room.data(), static_cast<std::size_t>(got));;) {
      const std::size_t feed = rest.find('\n');
      const std::string_view piece = rest.substr(0, feed);
      line.append(piece.substr(0, kLongestLine - std::min(line.size(), kLongestLine)));
      if (feed == std::string_view::npos) break;
      end();
      rest.remove_prefix(feed + 1);
    }
  }
  if (!line.empty()) end();
}

void ReadUrlList(const std::string& path, bool isPhishing, const std::function<void(UrlRow&&)>& take,
                 ReadingReport& report) {
  Columns columns;
  bool isFirst = true;
  const std::string fileName = std::filesystem::path(path).filename().string();
  ForEachLine(path, [&](std::string_view line, std::size_t number) {
    if (line.empty() || line.front() == '#') return;
    const std::vector<std::string_view> fields = SplitAtTabs(line);
    if (std::exchange(isFirst, false)) {
      if (const auto named = ColumnsOf(fields)) {
        columns = *named;
        return;
      }
    }
    const auto field = [&](std::optional<std::size_t> column) {
      return column && *column < fields.size() ? fields[*column] : std::string_view();
    };
    UrlRow row;
    row.url = field(columns.url);
    if (row.url.find("://") == std::string::npos && !row.url.empty()) row.url.insert(0, "http://");
    if (const char* const fault = FaultOf(row.url)) {
      if (report.bad++ == 0) report.firstBad = path + ":" + std::to_string(number) + ": " + fault;
      return;
    }
    ++report.rows;
    row.source = field(columns.source);
    if (row.source.empty()) row.source = fileName;
    row.date = field(columns.date);
    row.group = field(columns.group);
    if (row.group.empty()) row.group = GroupOfHost(HostOf(row.url));
    row.isPhishing = isPhishing;
    take(std::move(row));
  });
}

std::string HostOf(std::string_view url) {
  UrlParser parser;
  if (parser.DecodeUrl(Widen(url)) != 0) return {};
  std::string host = Narrow(parser.Record().HostName);
  std::ranges::transform(host, host.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
  return host;
}

std::string GroupOfHost(std::string_view host) {
  const bool isAddress = host.find_first_not_of("0123456789.") == std::string_view::npos || host.front() == '[';
  const std::string text(host);
  const char* const domain = isAddress ? nullptr : psl_registrable_domain(psl_builtin(), text.c_str());
  return domain != nullptr ? domain : text;
}

std::string PlainForm(std::string_view url) {
  std::string_view plain = WithoutScheme(url);
  if (plain.starts_with("www.")) plain.remove_prefix(4);
  if (plain.ends_with('/')) plain.remove_suffix(1);
  return std::string(plain);
}

std::uint64_t StableHash(std::string_view text) noexcept {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
  hash ^= hash >> 32;
  hash *= 0x9E3779B97F4A7C15U;
  return hash ^ hash >> 29;
}

UrlSet ReadUrlSet(const std::vector<std::string>& phishing, const std::vector<std::string>& legitimate,
                  const SetLimits& limits, const std::function<void(std::size_t)>& progress) {
  UrlSet set;
  std::size_t read = 0;
  for (const bool isPhishing : {true, false}) {
    std::vector<UrlRow> kept;
    // Of too many rows those stay whose hash is low: half of them, time and again, whatever their order.
    std::uint64_t ceiling = ~std::uint64_t{0};
    for (const std::string& path : isPhishing ? phishing : legitimate) {
      ReadUrlList(path, isPhishing, [&](UrlRow&& row) {
        if (++read % kProgressEvery == 0) progress(read);
        if (StableHash(PlainForm(row.url)) > ceiling) return;
        kept.push_back(std::move(row));
        if (kept.size() <= limits.rows) return;
        ceiling /= 2;
        std::erase_if(kept, [&](const UrlRow& old) { return StableHash(PlainForm(old.url)) > ceiling; });
      }, set.report);
    }
    std::ranges::move(kept, std::back_inserter(set.rows));
  }
  // The same address twice: of one kind once, the earlier one; of both kinds not at all.
  const auto keyOf = [](const UrlRow& row) { return PlainForm(row.url); };
  std::ranges::sort(set.rows, {}, [&](const UrlRow& row) {
    return std::tuple(keyOf(row), row.isPhishing, std::string_view(row.date), std::string_view(row.source),
                      std::string_view(row.url));
  });
  std::vector<UrlRow> unique;
  for (std::size_t begin = 0; begin < set.rows.size();) {
    std::size_t end = begin + 1;
    const std::string key = keyOf(set.rows[begin]);
    while (end < set.rows.size() && keyOf(set.rows[end]) == key) ++end;
    if (set.rows[begin].isPhishing != set.rows[end - 1].isPhishing) {
      set.report.contradictory += end - begin;
    } else {
      set.report.repeated += end - begin - 1;
      unique.push_back(std::move(set.rows[begin]));
    }
    begin = end;
  }
  // Of a crowd an even sample stays.
  std::ranges::sort(unique, {}, [](const UrlRow& row) {
    return std::tuple(std::string_view(row.group), row.isPhishing, StableHash(row.url), std::string_view(row.url));
  });
  set.rows.clear();
  std::size_t inGroup = 0;
  for (UrlRow& row : unique) {
    const bool isSame = !set.rows.empty() && set.rows.back().group == row.group &&
                        set.rows.back().isPhishing == row.isPhishing;
    inGroup = isSame ? inGroup + 1 : 1;
    if (inGroup > limits.perGroup) {
      ++set.report.crowded;
    } else {
      set.rows.push_back(std::move(row));
    }
  }
  return set;
}

}  // namespace zeph::training
