// SPDX-License-Identifier: Apache-2.0
// A document from the bytes of an HTML page, as the browser of old would have given it.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "DetectionEngine/Document.h"
#include "documents/PageResources.h"
#include "documents/html/PageView.h"

namespace zeph {

struct HtmlDocumentOptions {
  std::u16string url;       ///< the page's own; addresses in the page are taken against it
  std::u16string referrer;  ///< the page that led there; may be empty
  std::string charset;      ///< the encoding that the transport named; may be empty
  /// What was saved with the page: sizes of its images, texts of its scripts. May be null.
  std::shared_ptr<const PageResources> resources;
};

/// Runs, fetches and follows nothing. One thread at a time. Lends its texts and elements as long as it lives. Parsing
/// is done when it is made; markup and text are written when they are first asked for. Linear in time and memory, and
/// what a page derives from little is bounded by its budget.
class HtmlDocument final : public IHTMLDocument2, public IUrlCache {
 public:
  explicit HtmlDocument(std::string_view bytes, HtmlDocumentOptions options = {});
  ~HtmlDocument();
  HtmlDocument(const HtmlDocument&) = delete;
  HtmlDocument& operator=(const HtmlDocument&) = delete;

  CollectionAnswer get_all() noexcept override;
  ObjectAnswer get_body() noexcept override;
  CollectionAnswer get_images() noexcept override;
  CollectionAnswer get_links() noexcept override;
  CollectionAnswer get_forms() noexcept override;
  TextAnswer get_title() noexcept override;
  CollectionAnswer get_scripts() noexcept override;
  TextAnswer get_referrer() noexcept override { return {0, options_.referrer}; }
  TextAnswer get_URL() noexcept override { return {0, options_.url}; }
  IUrlCache* UrlCache() noexcept override { return options_.resources != nullptr ? this : nullptr; }
  std::optional<std::string_view> Retrieve(std::string_view url) noexcept override;
  PageBudget* Budget() noexcept override { return &view_.Budget(); }

  /// What the page itself says about its address: the href of a link rel=canonical or of the base; empty if it doesn't.
  [[nodiscard]] std::u16string CanonicalUrl();

  /// The page that all this stands on.
  [[nodiscard]] html::PageView& View() noexcept { return view_; }

 private:
  class Element;
  class TextNode;
  class List;
  template <class Interface>
  class Facet;
  class Form;
  class Anchor;
  class Area;
  class Img;
  class Script;
  class Body;
  class Comment;
  class Link;
  class Meta;
  class DomNode;
  struct Objects;

  HtmlDocumentOptions options_;
  html::PageView view_;
  std::unique_ptr<Objects> objects_;
};

}  // namespace zeph
