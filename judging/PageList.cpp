// SPDX-License-Identifier: Apache-2.0
#include "judging/PageList.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "DetectionEngine/platform/Files.h"
#include "documents/SavedPage.h"
#include "judging/Pages.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxList = std::size_t{64} << 20;
constexpr std::size_t kMaxUrlFile = 65536;

std::string Absolute(const fs::path& path) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  return (error ? path : absolute).lexically_normal().string();
}

/// Calls take for each line, numbered from 1, without its line end and a mark of byte order.
template <class Take>
void ForEachLine(std::string_view text, Take&& take) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  for (std::size_t number = 1; !text.empty(); ++number) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.empty() && line.front() != '#') take(number, line);
  }
}

/// The address that url.txt in the page's folder gives it; isOnly: the folder has no other page.
std::string FromUrlFile(const fs::path& page, bool isOnly) {
  const auto text = ReadWholeFile((page.parent_path() / "url.txt").string(), kMaxUrlFile);
  if (!text) return {};
  const std::string name = page.filename().string();
  std::string url;
  ForEachLine(*text, [&](std::size_t, std::string_view line) {
    const std::size_t tab = line.find('\t');
    const bool isMine = tab == std::string_view::npos ? isOnly || page.stem() == "index" : line.substr(0, tab) == name;
    if (isMine && url.empty()) url = line.substr(tab == std::string_view::npos ? 0 : tab + 1);
  });
  return url;
}

/// Where a page's address comes from when it is named alone: whether it is its folder's only one isn't looked up for
/// nothing.
std::string AddressOf(const std::string& path, const PageMap& map) {
  if (!FileExists(path)) return {};
  if (std::string url = map.Find(path); !url.empty()) return url;
  const fs::path page(path);
  const fs::path folder = page.parent_path();
  if (!FileExists((folder / "url.txt").string())) return {};
  std::error_code error;
  int pages = 0;
  for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end; !error && entry != end && pages < 2;
       entry.increment(error)) {
    pages += PageKindOfName(entry->path().string()) ? 1 : 0;
  }
  return FromUrlFile(page, pages < 2);
}

/// What is looked for in a folder: pages, letters, files of many of these.
bool IsInputOfName(std::string_view path) {
  constexpr std::array<std::string_view, 4> kEndings = {".eml", ".mbox", ".warc", ".har"};
  for (const std::string_view packed : {".gz", ".zst"}) {
    if (path.ends_with(packed)) path.remove_suffix(packed.size());
  }
  return PageKindOfName(path) || std::ranges::any_of(kEndings, [&](std::string_view ending) { return path.ends_with(ending); });
}

struct Found {
  std::vector<std::string> pages;
  std::vector<Input> refused;
};

/// The pages of one folder, and the folders to enter next.
void ReadFolder(const fs::path& folder, Found& found, std::vector<fs::path>& next) {
  std::error_code error;
  std::vector<fs::path> folders;
  std::set<std::string> companions;
  fs::directory_iterator entry(folder, error);
  for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    const fs::path& path = entry->path();
    const fs::file_status status = entry->symlink_status(unknown);
    if (unknown) {
      found.refused.push_back({path.string(), "", unknown.message()});
    } else if (fs::is_directory(status)) {
      folders.push_back(path);
    } else if (IsInputOfName(path.string())) {
      // A link in a circle is no file, but a page that can't be read, and as such it is told.
      if (entry->is_directory(unknown)) continue;
      found.pages.push_back(path.string());
      for (std::string& name : CompanionNames(path.stem().string())) companions.insert(std::move(name));
    }
  }
  if (error) found.refused.push_back({folder.string(), "", "its folder can't be read: " + error.message()});
  for (fs::path& path : folders) {
    if (!companions.contains(path.filename().string())) next.push_back(std::move(path));
  }
}

}  // namespace

std::optional<PageMap> PageMap::Read(const std::string& path, std::string& error) {
  std::error_code code;
  const auto text = ReadWholeFile(path, kMaxList, &code);
  if (!text) {
    error = path + ": " + (code ? code.message() : "can't be read");
    return std::nullopt;
  }
  PageMap map;
  const fs::path folder = fs::path(path).parent_path();
  ForEachLine(*text, [&](std::size_t number, std::string_view line) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos || tab == 0 || tab + 1 == line.size()) {
      if (error.empty()) error = path + ", line " + std::to_string(number) + ": no page, tab and address";
      return;
    }
    const fs::path page(line.substr(0, tab));
    const std::string url(line.substr(tab + 1));
    map.urls_.try_emplace(Absolute(page), url);
    if (page.is_relative()) map.urls_.try_emplace(Absolute(folder / page), url);
  });
  if (!error.empty()) return std::nullopt;
  return map;
}

std::string PageMap::Find(const std::string& path) const {
  if (urls_.empty()) return {};
  const auto found = urls_.find(Absolute(path));
  return found != urls_.end() ? found->second : "";
}

std::vector<Input> InputsOf(const std::string& argument, const PageMap& map) {
  std::error_code error;
  if (argument.find('\0') != std::string::npos || !fs::is_directory(argument, error)) {
    return {{argument, AddressOf(argument, map), ""}};
  }
  Found found;
  std::vector<fs::path> next = {argument};
  while (!next.empty()) {
    const fs::path folder = std::move(next.back());
    next.pop_back();
    ReadFolder(folder, found, next);
  }
  std::vector<Input> inputs = std::move(found.refused);
  std::map<std::string, int> pagesOfFolder;
  for (const std::string& page : found.pages) ++pagesOfFolder[fs::path(page).parent_path().string()];
  for (std::string& page : found.pages) {
    std::string url = map.Find(page);
    if (url.empty()) url = FromUrlFile(page, pagesOfFolder[fs::path(page).parent_path().string()] == 1);
    inputs.push_back({std::move(page), std::move(url), ""});
  }
  if (inputs.empty()) inputs.push_back({argument, "", "holds no pages"});
  std::ranges::sort(inputs, {}, &Input::text);
  return inputs;
}

Input InputOfLine(std::string line, const PageMap& map) {
  const std::size_t tab = line.find('\t');
  // A tab inside an address is none of a list's.
  if (tab != std::string::npos && FileExists(line.substr(0, tab))) {
    std::string url = line.substr(tab + 1);
    line.resize(tab);
    if (!url.empty()) return {std::move(line), std::move(url), ""};
  }
  std::string url = AddressOf(line, map);
  return {std::move(line), std::move(url), ""};
}

std::vector<std::string> CompanionNames(std::string_view stem) {
  std::vector<std::string> names;
  for (const std::string_view ending : kCompanionEndings) names.push_back(std::string(stem).append(ending));
  return names;
}

}  // namespace zeph
