// SPDX-License-Identifier: Apache-2.0
// Pages as browsers save them: one MHTML file (.mht, .mhtml), or an HTML file with a folder beside it.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
/// of frames are not entered. Nothing, and one line that says why in error, when there is no HTML part, or
/// when the message is made of so many parts and headers that reading it would be too costly.
[[nodiscard]] std::optional<SavedPage> ReadMhtml(std::string_view bytes, std::string& error);

/// What browsers put behind the name of a page's file, without its ending, to name the folder of its own files.
inline constexpr std::array<std::string_view, 12> kCompanionEndings = {
    "_files", ".files", "-Dateien", "_fichiers", "_archivos",  "_file",
    "-filer", "_pliki", "_soubory", "_bestanden", "_arquivos", "_tiedostot"};

/// The files that a browser saved beside a page in a folder of their own (page_files/): what the page names by a
/// relative URL, or by an absolute one that begins with the folder of one of urls, addresses of the page. Only scripts,
/// by their names, and images, by their content; nothing whose name begins with a dot, nothing outside the folder,
/// whatever links lead there.
[[nodiscard]] std::shared_ptr<const PageResources> FilesBeside(const std::string& pagePath,
                                                               const std::vector<std::u16string>& urls);

}  // namespace zeph
