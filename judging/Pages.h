// SPDX-License-Identifier: Apache-2.0
// Pages from files: recordings (.json), HTML (.html, .htm) and saved pages (.mht, .mhtml).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "DetectionEngine/Document.h"
#include "documents/PageResources.h"
#include "documents/Recording.h"
#include "documents/html/HtmlDocument.h"

namespace zeph {

enum class PageKind : std::uint8_t { kRecording, kHtml, kMhtml };

/// The kind that a file's name tells by its ending.
[[nodiscard]] std::optional<PageKind> PageKindOfName(std::string_view path);
/// The kind that content looks like, for a file whose name doesn't tell.
[[nodiscard]] std::optional<PageKind> PageKindOfContent(std::string_view bytes);

/// A page's address where nobody knows it: no rule vouches for it, and nothing speaks against it. Links that lead
/// nowhere else stay on the page's own site.
inline constexpr std::u16string_view kUnknownAddress = u"http://address.invalid/";

/// A page as it was read, and what tells its address.
struct PageSource {
  PageKind kind = PageKind::kHtml;
  std::string bytes;                            ///< of the markup
  std::string charset;                          ///< as the transport named it; may be empty
  std::string path;                             ///< of a file beside which its own files may lie; may be empty
  std::u16string savedUrl;                      ///< that who saved it wrote down; may be empty
  std::u16string claimedUrl;                    ///< that the page itself tells, as a browser writes it; may be empty
  std::shared_ptr<const PageResources> parts;   ///< that were saved in the same file; may be null
  std::unique_ptr<RecordedDocument> recording;  ///< of a recording, in the place of bytes
};

/// A page to classify, and all that its document lends.
class LoadedPage {
 public:
  virtual ~LoadedPage() = default;
  virtual IHTMLDocument2& Document() noexcept = 0;
  /// The document of a page of markup, and the markup; null and empty for a recording.
  virtual HtmlDocument* Html() noexcept { return nullptr; }
  virtual std::string_view Markup() const noexcept { return {}; }
};

/// Reads a page's file as far as its address. Nothing, and one line that says why in error, when it can't be used.
[[nodiscard]] std::optional<PageSource> ReadPageFile(const std::string& path, std::string& error);

/// The same for a page in memory. mediaType: as the transport names it, with its charset; empty or unknown: the name
/// tells, then the looks.
[[nodiscard]] std::optional<PageSource> ReadPageContent(std::string bytes, std::string_view mediaType,
                                                        std::string_view name, std::string& error);

/// The document of a page. url: what it says its address is; nothing: what it was recorded with. base: what its links
/// are taken against; a recording's are absolute already.
[[nodiscard]] std::unique_ptr<LoadedPage> OpenPage(PageSource source, std::optional<std::u16string> url,
                                                   std::u16string base);

/// The bytes of a page's file; nothing, and why in error. No page is longer than the markup that is read of one.
[[nodiscard]] std::optional<std::string> ReadPageBytes(const std::string& path, std::string& error);

}  // namespace zeph
