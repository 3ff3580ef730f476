// SPDX-License-Identifier: Apache-2.0
#include "judging/Pages.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "documents/Recording.h"
#include "documents/SavedPage.h"
#include "documents/html/Decoder.h"
#include "documents/html/HtmlDocument.h"
#include "judging/TypedAddress.h"

namespace zeph {

namespace {

constexpr char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

bool HoldsNoCase(std::string_view text, std::string_view lower) noexcept {
  return std::search(text.begin(), text.end(), lower.begin(), lower.end(), [](auto a, auto b) { return Lower(a) == b; }) != text.end();
}

/// A document under another address than its own.
class Readdressed final : public IHTMLDocument2 {
 public:
  Readdressed(IHTMLDocument2& document, std::optional<std::u16string> url) : document_(document), url_(std::move(url)) {}

  CollectionAnswer get_all() noexcept override { return document_.get_all(); }
  ObjectAnswer get_body() noexcept override { return document_.get_body(); }
  CollectionAnswer get_images() noexcept override { return document_.get_images(); }
  CollectionAnswer get_links() noexcept override { return document_.get_links(); }
  CollectionAnswer get_forms() noexcept override { return document_.get_forms(); }
  TextAnswer get_title() noexcept override { return document_.get_title(); }
  CollectionAnswer get_scripts() noexcept override { return document_.get_scripts(); }
  TextAnswer get_referrer() noexcept override { return document_.get_referrer(); }
  TextAnswer get_URL() noexcept override { return url_ ? TextAnswer{0, *url_} : document_.get_URL(); }
  IUrlCache* UrlCache() noexcept override { return document_.UrlCache(); }
  PageBudget* Budget() noexcept override { return document_.Budget(); }

 private:
  IHTMLDocument2& document_;
  std::optional<std::u16string> url_;
};

class RecordedPage final : public LoadedPage {
 public:
  RecordedPage(std::unique_ptr<RecordedDocument> source, std::optional<std::u16string> url)
      : source_(std::move(source)), document_(*source_, std::move(url)) {}
  IHTMLDocument2& Document() noexcept override { return document_; }

 private:
  std::unique_ptr<RecordedDocument> source_;
  Readdressed document_;
};

/// A page of markup, which it keeps.
class HtmlPage final : public LoadedPage {
 public:
  HtmlPage(std::string bytes, HtmlDocumentOptions options, std::optional<std::u16string> url)
      : bytes_(std::move(bytes)), html_(bytes_, std::move(options)), document_(html_, std::move(url)) {}
  IHTMLDocument2& Document() noexcept override { return document_; }
  HtmlDocument* Html() noexcept override { return &html_; }
  [[nodiscard]] std::string_view Markup() const noexcept override { return bytes_; }

 private:
  std::string bytes_;
  HtmlDocument html_;
  Readdressed document_;
};

/// The address in the comment that browsers put in front of a page that they save.
std::u16string SavedFromMark(std::string_view bytes) {
  constexpr std::string_view kMark = "saved from url=(";
  constexpr std::size_t kFront = 4096;
  const std::string_view front = bytes.substr(0, kFront);
  const std::size_t mark = front.find(kMark);
  if (mark == std::string_view::npos) return {};
  std::string_view url = front.substr(std::min(front.find(')', mark), front.size() - 1) + 1);
  url = url.substr(0, std::min(url.find("-->"), url.find_first_of(" \t\r\n")));
  return Widen(url);
}

/// What the page itself says about its address; empty when it says nothing that is one.
std::u16string ClaimOf(std::string_view bytes, const std::string& charset) {
  if (std::u16string mark = ReadWrittenAddress(SavedFromMark(bytes)).url; !mark.empty()) return mark;
  // Parsing costs more than looking whether it can tell anything.
  if (!HoldsNoCase(bytes, "canonical") && !HoldsNoCase(bytes, "<base")) return {};
  HtmlDocumentOptions options;
  options.charset = charset;
  return ReadWrittenAddress(HtmlDocument(bytes, std::move(options)).CanonicalUrl()).url;
}

std::string TooLong() {
  return "longer than " + std::to_string(html::kMaxMarkup >> 20) + " MiB, which is the most that a page may have";
}

/// A media type's own name, in lower case, without its parameters.
std::string TypeName(std::string_view mediaType) {
  std::string name(mediaType.substr(0, mediaType.find(';')));
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.pop_back();
  std::ranges::transform(name, name.begin(), Lower);
  return name;
}

/// application/json may be anything, so it tells nothing.
std::optional<PageKind> PageKindOfType(std::string_view mediaType) {
  const std::string name = TypeName(mediaType);
  if (name == "text/html" || name == "application/xhtml+xml") return PageKind::kHtml;
  if (name == "multipart/related" || name == "application/x-mimearchive") return PageKind::kMhtml;
  return std::nullopt;
}

std::string CharsetOfType(std::string_view mediaType) {
  constexpr std::string_view kName = "charset=";
  const auto found = std::search(mediaType.begin(), mediaType.end(), kName.begin(), kName.end(), [](auto a, auto b) { return Lower(a) == b; });
  if (found == mediaType.end()) return {};
  std::string_view value = mediaType.substr(static_cast<std::size_t>(found - mediaType.begin()) + kName.size());
  if (value.starts_with('"')) {
    value.remove_prefix(1);
    return std::string(value.substr(0, value.find('"')));
  }
  return std::string(value.substr(0, value.find_first_of("; \t")));
}

struct Ending {
  std::string_view text;
  PageKind kind;
};
constexpr std::array kEndings = {
    Ending{".json", PageKind::kRecording}, Ending{".html", PageKind::kHtml}, Ending{".htm", PageKind::kHtml},
    Ending{".mhtml", PageKind::kMhtml},    Ending{".mht", PageKind::kMhtml},
};

}  // namespace

std::optional<PageKind> PageKindOfName(std::string_view path) {
  const std::size_t name = path.rfind('/') + 1;
  for (const Ending& ending : kEndings) {
    if (path.size() < name + ending.text.size()) continue;
    if (std::ranges::equal(path.substr(path.size() - ending.text.size()), ending.text, {}, Lower)) return ending.kind;
  }
  return std::nullopt;
}

std::optional<PageKind> PageKindOfContent(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  const std::size_t start = bytes.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return std::nullopt;
  bytes = bytes.substr(start, 2048);
  if (bytes.front() == '<') return PageKind::kHtml;
  if (bytes.front() == '{' && bytes.find("\"recording\"") != std::string_view::npos) return PageKind::kRecording;
  if (HoldsNoCase(bytes, "mime-version:") && HoldsNoCase(bytes, "content-type:")) return PageKind::kMhtml;
  return std::nullopt;
}

std::optional<std::string> ReadPageBytes(const std::string& path, std::string& error) {
  std::error_code code;
  auto bytes = ReadWholeFile(path, html::kMaxMarkup, &code);
  if (bytes) return bytes;
  if (code == std::errc::file_too_large) {
    error = TooLong();
  } else if (code == std::errc::invalid_argument) {
    error = "no regular file";
  } else {
    error = code ? code.message() : "can't be read";
  }
  return std::nullopt;
}

std::optional<PageSource> ReadPageFile(const std::string& path, std::string& error) {
  std::optional<std::string> bytes = ReadPageBytes(path, error);
  if (!bytes) return std::nullopt;
  std::optional<PageSource> source = ReadPageContent(*std::move(bytes), {}, path, error);
  if (source && source->kind != PageKind::kMhtml) source->path = path;
  return source;
}

std::optional<PageSource> ReadPageContent(std::string bytes, std::string_view mediaType, std::string_view name,
                                          std::string& error) {
  if (bytes.size() > html::kMaxMarkup) {
    error = TooLong();
    return std::nullopt;
  }
  std::optional<PageKind> kind = PageKindOfType(mediaType);
  if (!kind) kind = PageKindOfName(name);
  if (!kind) kind = PageKindOfContent(bytes);
  if (!kind) {
    error = "no page: neither a recording (.json) nor HTML (.html) nor a saved page (.mhtml)";
    return std::nullopt;
  }
  PageSource source;
  source.kind = *kind;
  source.bytes = std::move(bytes);
  if (*kind == PageKind::kMhtml) {
    std::optional<SavedPage> saved = ReadMhtml(source.bytes, error);
    if (!saved) return std::nullopt;
    source.bytes = std::move(saved->html);
    source.charset = std::move(saved->charset);
    source.savedUrl = std::move(saved->url);
    source.parts = std::move(saved->resources);
  }
  if (*kind == PageKind::kRecording) {
    source.recording = RecordedDocument::Parse(source.bytes, error);
    if (source.recording == nullptr) return std::nullopt;
    source.bytes.clear();
    const TextAnswer url = source.recording->get_URL();
    if (url.HasValue()) source.savedUrl = *url.value;
  } else {
    if (*kind == PageKind::kHtml) source.charset = CharsetOfType(mediaType);
    source.claimedUrl = ClaimOf(source.bytes, source.charset);
  }
  return source;
}

std::unique_ptr<LoadedPage> OpenPage(PageSource source, std::optional<std::u16string> url, std::u16string base) {
  if (source.recording != nullptr) {
    return std::make_unique<RecordedPage>(std::move(source.recording), std::move(url));
  }
  HtmlDocumentOptions options;
  options.charset = std::move(source.charset);
  options.resources = source.path.empty() ? source.parts : FilesBeside(source.path, {base, url.value_or(base)});
  options.url = std::move(base);
  return std::make_unique<HtmlPage>(std::move(source.bytes), std::move(options), std::move(url));
}

}  // namespace zeph
