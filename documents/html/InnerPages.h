// SPDX-License-Identifier: Apache-2.0
// The pages that a page carries inside itself: in frames and other elements that hold their document in an attribute, in
// templates, for readers without scripts, and what its scripts plainly write.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "documents/html/HtmlDocument.h"

namespace zeph {

/// A page within a page.
struct InnerPage {
  std::string where;    ///< in words, with the line where it stands if that can be told: "frame with srcdoc, line 12"
  std::string bytes;    ///< of its markup
  std::string charset;  ///< of the bytes; empty: as of a page that nobody says anything of
  std::string refusal;  ///< not empty: what isn't read, and why; the rest is empty
};

/// What may still be found in one page, pages in its pages included.
struct InnerRoom {
  static constexpr std::size_t kMostDepth = 4;       ///< of pages in pages
  static constexpr std::size_t kMostPages = 32;      ///< that have something to judge
  static constexpr std::size_t kMostFound = 256;     ///< whatever they are
  static constexpr std::size_t kLeastBytes = std::size_t{256} << 10;

  /// pageBytes: of the page that carries all. They may have twice as many together, and kLeastBytes whatever it has.
  explicit InnerRoom(std::size_t pageBytes) noexcept;

  std::size_t pages = kMostPages;
  std::size_t found = kMostFound;
  std::size_t bytes;
};

/// The inner pages of a page, in source order; those in them are found when they are documents themselves. Nothing runs.
/// markup: the page's, in which lines are counted. What is found is taken from the room and from the page's budget; what
/// finds no room is told once, by a refusal. Linear in the page.
[[nodiscard]] std::vector<InnerPage> FindInnerPages(HtmlDocument& document, std::string_view markup, InnerRoom& room);

/// Whether a page has anything to judge it by: a form or a field, a link, an image of more than one pixel, or twenty
/// words.
[[nodiscard]] bool SaysAnything(HtmlDocument& document);

}  // namespace zeph
