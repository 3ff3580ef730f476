// SPDX-License-Identifier: Apache-2.0
#include "tools/zeph/Pages.h"

#include <filesystem>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "documents/Recording.h"
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

std::string EndingOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return ending;
}

}  // namespace

void AddPageOptions(CLI::App& command, PageOptions& options) {
  command.add_option("--url", options.url, "The document's own URL, for files that don't say it");
  command.add_option("--page-url", options.pageUrl, "The URL to judge the page by, instead of the document's own");
}

bool IsPageFile(const std::string& path) { return EndingOf(path) == ".json"; }

std::unique_ptr<LoadedPage> LoadPage(const std::string& path, const PageOptions&) {
  if (EndingOf(path) == ".json") return std::make_unique<RecordedPage>(path);
  throw CommandError(path + ": no page: neither a recording (.json) nor HTML nor a saved page");
}

}  // namespace zeph
