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

/// No page's file is longer than the markup that is read of one, so that none is read in part.
std::string ReadPage(const std::string& path) {
  std::error_code error;
  auto text = ReadWholeFile(path, html::kMaxMarkup, &error);
  if (text) return std::move(*text);
  if (error == std::errc::file_too_large) {
    throw CommandError(path + ": longer than " + std::to_string(html::kMaxMarkup >> 20) +
                       " MiB, which is the most that a page may have");
  }
  throw CommandError(path + ": " + (error ? error.message() : "can't be read"));
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

class HtmlPage final : public LoadedPage {
 public:
  HtmlPage(std::string_view bytes, HtmlDocumentOptions options, std::string urlSource)
      : document_(bytes, std::move(options)), urlSource_(std::move(urlSource)) {}
  IHTMLDocument2& Document() override { return document_; }
  [[nodiscard]] std::string UrlSource() const override { return urlSource_; }

 private:
  HtmlDocument document_;
  std::string urlSource_;
};

/// Has the page tell its URL where nobody else did, before it is read for good: its links, and the files beside it, are
/// taken against that. Gives who told.
std::string AskForUrl(std::string_view bytes, HtmlDocumentOptions& options) {
  if (!options.url.empty()) return "";
  options.url = HtmlDocument(bytes, options).CanonicalUrl();
  return options.url.empty() ? "" : "the page itself (its canonical link or its base)";
}

std::unique_ptr<LoadedPage> LoadHtml(const std::string& path, const PageOptions& options) {
  HtmlDocumentOptions document;
  document.url = Widen(options.url);
  const std::string bytes = ReadPage(path);
  std::string urlSource = AskForUrl(bytes, document);
  document.resources = FilesBeside(path, document.url);
  return std::make_unique<HtmlPage>(bytes, std::move(document), std::move(urlSource));
}

std::unique_ptr<LoadedPage> LoadMhtml(const std::string& path, const PageOptions& options) {
  std::string error;
  const std::optional<SavedPage> saved = ReadMhtml(ReadPage(path), error);
  if (!saved) throw CommandError(path + ": " + error);
  HtmlDocumentOptions document;
  document.url = options.url.empty() ? saved->url : Widen(options.url);
  document.charset = saved->charset;
  const bool savedSays = options.url.empty() && !saved->url.empty();
  std::string urlSource = savedSays ? "the saved page" : AskForUrl(saved->html, document);
  document.resources = saved->resources;
  return std::make_unique<HtmlPage>(saved->html, std::move(document), std::move(urlSource));
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

void PrintPageTree(const std::string& path, const std::function<void(std::string_view)>& write) {
  html::ParseOptions options;
  options.noscriptIsText = false;  // the form is that of conformance tests, which run without scripts
  html::PrintTree(html::ParseTree(html::DecodeMarkup(ReadPage(path)).text, options), write);
}

}  // namespace zeph
