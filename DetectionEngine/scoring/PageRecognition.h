// SPDX-License-Identifier: Apache-2.0
// Where a page comes from: pages on which users read their mail, and the memory of the last such site; pages reached
// from it; copies saved to disk. The memory is one slot of the settings store and holds a digest, never a site's name.
// It outlives the process; the last writer wins.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// The page shows mail, or its site is the remembered one; a page that shows mail makes its site the remembered one. On
/// client installations only.
[[nodiscard]] IndicatorResult RecognisedPage(const PageData& pageData, bool isClient);

/// The page was reached from the remembered site, or from nowhere. On client installations only.
[[nodiscard]] IndicatorResult FromRememberedSite(std::u16string_view referrer, bool isClient);

/// The page is a copy saved to disk: by its sources, or by a comment that a program leaves, which the match names.
[[nodiscard]] IndicatorResult SavedCopy(std::span<const std::u16string_view> comments,
                                        std::span<const std::u16string_view> imageSources,
                                        std::span<const std::u16string_view> scriptSources);

/// The words on buttons and links are those of a mail page, or the text holds the head of a message. url chooses the
/// language, beside the common words, by its top-level label.
[[nodiscard]] bool ShowsMail(std::u16string_view text, std::u16string_view captions, std::u16string_view url);

/// Remembers a URL's site: the whole host for an address, else its last two labels. A failure isn't reported.
void RememberSite(std::u16string_view url);
/// The URL's site, or its whole host, is the remembered one.
[[nodiscard]] bool IsRememberedSite(std::u16string_view url);

}  // namespace zeph
