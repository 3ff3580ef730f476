// SPDX-License-Identifier: Apache-2.0
#include "tools/zeph/Pages.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "documents/Recording.h"
#include "documents/SavedPage.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
#include "documents/html/TreeBuilder.h"
#include "documents/html/TreePrinter.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

constexpr std::size_t kPageFileLimit = std::size_t{1} << 30;

std::string ReadPage(const std::string& path) {
  std::error_code error;
  auto text = ReadWholeFile(path, kPageFileLimit, &error);
  if (!text) throw CommandError(path + ": " + (error ? error.message() : "can't be read"));
  return std::move(*text);
}

class RecordedPage final : public LoadedPage {
 public:
  RecordedPage(const std::string& path) {
    std::string error;
    document_ = RecordedDocument::Parse(ReadPage(path), error);
    if (document_ == nullptr) throw CommandError(path + ": " + error);
  }
  IHTMLDocument2& Document() override { return *document_; }

 private:
  std::unique_ptr<RecordedDocument> document_;
};

/// A page from its bytes, with what was saved beside it.
class HtmlPage final : public LoadedPage {
 public:
  HtmlPage(std::string_view bytes, HtmlDocumentOptions options, std::string urlSource)
      : urlSource_(std::move(urlSource)) {
    const bool saysItself = options.url.empty();
    auto document = std::make_unique<HtmlDocument>(bytes, options);
    if (saysItself) {
      // The page is read anew once it has told its address, since its own links are taken against that.
      options.url = document->CanonicalUrl();
      if (!options.url.empty()) {
        urlSource_ = "the page itself (its canonical link or its base)";
        document = std::make_unique<HtmlDocument>(bytes, std::move(options));
      }
    }
    document_ = std::move(document);
  }
  IHTMLDocument2& Document() override { return *document_; }
  [[nodiscard]] std::string UrlSource() const override { return urlSource_; }

 private:
  std::unique_ptr<HtmlDocument> document_;
  std::string urlSource_;
};

std::unique_ptr<LoadedPage> LoadHtml(const std::string& path, const PageOptions& options) {
  HtmlDocumentOptions document;
  document.url = Widen(options.url);
  document.resources = FilesBeside(path, document.url);
  return std::make_unique<HtmlPage>(ReadPage(path), std::move(document), "");
}

std::unique_ptr<LoadedPage> LoadMhtml(const std::string& path, const PageOptions& options) {
  std::string error;
  const std::optional<SavedPage> saved = ReadMhtml(ReadPage(path), error);
  if (!saved) throw CommandError(path + ": " + error);
  HtmlDocumentOptions document;
  document.url = options.url.empty() ? saved->url : Widen(options.url);
  document.charset = saved->charset;
  document.resources = saved->resources;
  const bool savedSays = options.url.empty() && !saved->url.empty();
  return std::make_unique<HtmlPage>(saved->html, std::move(document), savedSays ? "the saved page" : "");
}

std::unique_ptr<LoadedPage> LoadRecording(const std::string& path, const PageOptions&) {
  return std::make_unique<RecordedPage>(path);
}

/// How a page's file is read, by its ending.
struct PageKind {
  std::string_view ending;
  std::unique_ptr<LoadedPage> (*load)(const std::string& path, const PageOptions& options);
};
constexpr std::array kPageKinds = {
    PageKind{".json", LoadRecording}, PageKind{".html", LoadHtml}, PageKind{".htm", LoadHtml},
    PageKind{".mhtml", LoadMhtml},    PageKind{".mht", LoadMhtml},
};

const PageKind* KindOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  const auto* const kind = std::ranges::find(kPageKinds, ending, &PageKind::ending);
  return kind != kPageKinds.end() ? kind : nullptr;
}

}  // namespace

void AddPageOptions(CLI::App& command, PageOptions& options) {
  command.add_option("--url", options.url, "The document's own URL, for files that don't say it");
  command.add_option("--page-url", options.pageUrl, "The URL to judge the page by, instead of the document's own");
}

bool IsPageFile(const std::string& path) { return KindOf(path) != nullptr; }

std::unique_ptr<LoadedPage> LoadPage(const std::string& path, const PageOptions& options) {
  const PageKind* const kind = KindOf(path);
  if (kind == nullptr) {
    throw CommandError(path + ": no page: neither a recording (.json) nor HTML (.html) nor a saved page (.mhtml)");
  }
  return kind->load(path, options);
}

std::string PageTree(const std::string& path) {
  html::ParseOptions options;
  options.noscriptIsText = false;  // the form is that of conformance tests, which run without scripts
  return html::PrintTree(html::ParseTree(html::DecodeMarkup(ReadPage(path)).text, options));
}

}  // namespace zeph
