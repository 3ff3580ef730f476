// SPDX-License-Identifier: Apache-2.0
// Pages from files: recordings (.json), HTML (.html, .htm) and saved pages (.mht, .mhtml).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>

#include "DetectionEngine/Document.h"

namespace zeph {

struct PageOptions {
  std::string url;      ///< the document's own URL, for inputs that don't say
  std::string pageUrl;  ///< the URL to judge the page by; empty: the document's own
};

void AddPageOptions(CLI::App& command, PageOptions& options);

/// A page that was read from a file, and all that its document lends.
class LoadedPage {
 public:
  virtual ~LoadedPage() = default;
  virtual IHTMLDocument2& Document() = 0;
  /// Where the document's URL comes from, when the file itself had to be asked; else empty.
  [[nodiscard]] virtual std::string UrlSource() const { return {}; }
};

/// True for a path that names a page's file.
[[nodiscard]] bool IsPageFile(const std::string& path);

/// Throws CommandError with where and what when the file can't be used.
[[nodiscard]] std::unique_ptr<LoadedPage> LoadPage(const std::string& path, const PageOptions& options);

/// Writes the parsed tree of an HTML file, in pieces. Unlike a page that is classified, it is parsed for a reader
/// without scripts: the content of NOSCRIPT is markup. Throws CommandError.
void PrintPageTree(const std::string& path, const std::function<void(std::string_view)>& write);

}  // namespace zeph
