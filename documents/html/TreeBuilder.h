// SPDX-License-Identifier: Apache-2.0
// Markup to a tree, by the tree construction rules of the HTML standard. Nothing is executed, fetched or followed.
#pragma once

#include <cstddef>
#include <optional>

#include "documents/html/Tree.h"

namespace zeph::html {

/// Elements open at a time. What would lie deeper becomes a sibling: the innermost element is closed first.
inline constexpr std::size_t kMaxDepth = 512;
/// Formatting elements that are remembered for later paragraphs; the oldest are forgotten.
inline constexpr std::size_t kMaxFormatting = 512;
/// Copies of formatting elements that misnested markup may make: this many, and one for each 16 characters of markup; a
/// copy counts once, and once more for each 16 characters of its attributes. Past them such elements are closed where
/// they would have been copied.
inline constexpr std::size_t kFreeCopies = 4096;
inline constexpr std::size_t kCharactersPerCopy = 16;

/// Elements and comments of a page that are kept whatever they are: this many, or one for each 20 characters of markup
/// where that is more. An element costs a hundred bytes and more, its tag as little as three: real pages have one in
/// thirty characters or so, tables of bare numbers one in ten.
///
/// Past them what says nothing is left out, and what it holds stands in its place: the tag opens and closes as ever,
/// only no node is made, and a blank keeps the words apart where it would have begun a line or a cell. What says
/// something is kept however many there are, so that nothing can be hidden behind a heap of tags:
///  - HTML, HEAD, BODY and FRAMESET in its place; fields, buttons and forms; what isn't read as markup or isn't shown:
///    scripts, styles, titles, templates and their like;
///  - links with an address (A, AREA, LINK, BASE), images, frames and EMBED with a source, cells and tables with a
///    background, META with an http-equiv;
///  - what hides its content: the attribute hidden, an inline display:none;
///  - comments of eight characters and more.
/// Then the engine's lists, its fields and its words are the same as without the bound; counts of paragraphs, rows and
/// lines stop, and attributes that none of its rules reads are gone.
inline constexpr std::size_t kFreeElements = 50'000;
inline constexpr std::size_t kCharactersPerElement = 20;
inline constexpr std::size_t kTellingComment = 8;

struct ParseOptions {
  /// The content of NOSCRIPT is text, as for a browser that runs scripts (none are run): that is what the reader of a
  /// page saw. Otherwise it is markup.
  bool noscriptIsText = true;
  /// Elements and comments that are kept whatever they are, instead of what the markup's length allows.
  std::optional<std::size_t> freeElements;
};

/// Parses a whole page. The markup has "\n" as its only line end and kScanPadding zeros behind its end; it is consumed.
/// Never fails; linear in time and memory whatever stands there.
[[nodiscard]] Tree ParseTree(GrowArray<char16_t> markup, const ParseOptions& options = {});

}  // namespace zeph::html
