// SPDX-License-Identifier: Apache-2.0
// Pages as browsers save them: one MHTML file (.mht, .mhtml), or an HTML file with a folder beside it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "documents/PageResources.h"

namespace zeph {

/// A page out of an MHTML file.
struct SavedPage {
  std::string html;                                ///< bytes of the root part
  std::string charset;                             ///< as its part names it; may be empty
  std::u16string url;                              ///< Content-Location or the snapshot's; empty when there is none
  std::shared_ptr<const PageResources> resources;  ///< the other parts, by Content-Location and cid: URL
};

/// Reads an MHTML file: the root part is the one that the message names as its start, else its first HTML part; pages
/// of frames are not entered. Nothing, and one line that says why in error, when there is no HTML part.
[[nodiscard]] std::optional<SavedPage> ReadMhtml(std::string_view bytes, std::string& error);

/// The files beside a page that was saved as pagePath: what the page names by a relative URL, or by an absolute one
/// that begins with the folder of url, the page's own. Only regular files in the folder of the page or below it.
[[nodiscard]] std::shared_ptr<const PageResources> FilesBeside(const std::string& pagePath, std::u16string_view url);

}  // namespace zeph
