// SPDX-License-Identifier: Apache-2.0
// A letter as mail programs send it, taken apart into what can be judged: the addresses that it leads to, and the pages
// that it carries. Hostile letters are bounded in levels, parts, links and decoded bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "judging/Pages.h"

namespace zeph {

/// An address that a letter leads to.
struct LetterLink {
  std::string url;    ///< as a browser hands it on
  std::string where;  ///< where it stands, and what it shows if that is the address of another site
};

/// A page that a letter carries or is. Nobody tells its address; what its maker wrote down counts as a claim.
struct LetterPage {
  PageSource source;
  std::string refusal;  ///< not empty: why it can't be looked at
  std::string name;     ///< of the file, or what it is
  std::string where;
};

struct Letter {
  std::vector<LetterLink> links;  ///< each address once, in the place where it stands first
  std::vector<LetterPage> pages;
  std::string leftOut;  ///< what the bounds cut, in words; empty when nothing was
};

/// What is looked at of one letter; nested letters count with the one that carries them.
inline constexpr int kMaxLetterLevels = 32;
inline constexpr std::size_t kMaxLetterParts = 1000;
inline constexpr std::size_t kMaxLetterLinks = 1000;

/// It is a letter by its media type, by the name of its file (.eml), or where neither tells anything by the headers at
/// its start. Pages that a browser saved as a message aren't.
[[nodiscard]] bool IsLetter(std::string_view bytes, std::string_view mediaType, std::string_view name);

/// Takes a letter apart. Nothing, and one line that says why in error, when it is no letter, or one of so many parts and
/// headers that reading it would be too costly. Any number of threads at once.
[[nodiscard]] std::optional<Letter> ReadLetter(std::string_view bytes, std::string& error);

}  // namespace zeph
