// SPDX-License-Identifier: Apache-2.0
// Markup to a tree, by the tree construction rules of the HTML standard. Nothing is executed, fetched or followed.
#pragma once

#include <cstddef>

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

struct ParseOptions {
  /// The content of NOSCRIPT is text, as for a browser that runs scripts (none are run): that is what the reader of a
  /// page saw. Otherwise it is markup.
  bool noscriptIsText = true;
};

/// Parses a whole page. The markup has "\n" as its only line end and kScanPadding zeros behind its end; it is consumed.
/// Never fails; linear in time and memory whatever stands there.
[[nodiscard]] Tree ParseTree(GrowArray<char16_t> markup, const ParseOptions& options = {});

}  // namespace zeph::html
