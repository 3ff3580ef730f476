// SPDX-License-Identifier: Apache-2.0
// Which pages there are, and what their addresses are by the lists that people keep beside them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "judging/Input.h"

namespace zeph {

/// Addresses of pages by their files: lines of a path, a tab and an address. Paths count from the working directory or
/// from the folder of the list.
class PageMap {
 public:
  /// Nothing, and one line that says where and what in error, when the list can't be used. Empty lines and those that
  /// begin with "#" are passed over.
  [[nodiscard]] static std::optional<PageMap> Read(const std::string& path, std::string& error);

  /// The address of a page; empty when the list doesn't have it.
  [[nodiscard]] std::string Find(const std::string& path) const;

 private:
  std::map<std::string, std::string, std::less<>> urls_;  ///< by absolute path, without "." and ".."
};

/// An argument as inputs: itself, or the pages of the folder that it names and of those below, in order of their paths.
/// What a browser saved beside a page (page_files/) is part of that page. Each page's address comes from the map, else
/// from a url.txt in its folder: one line for the folder's only page or its index.html, or lines of a name, a tab and
/// an address. A folder that can't be read is an input with a refusal.
[[nodiscard]] std::vector<Input> InputsOf(const std::string& argument, const PageMap& map);

/// A line of a list as an input: an address, or a page's path, and behind a tab its address.
[[nodiscard]] Input InputOfLine(std::string line, const PageMap& map);

/// The names that browsers give the folder of a saved page's own files, for the name of its file without the ending.
[[nodiscard]] std::vector<std::string> CompanionNames(std::string_view stem);

}  // namespace zeph
