// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

#include "gateways/icap/Headers.h"

namespace zeph::icap {

enum class PageType : std::uint8_t { kPage, kOther, kUntold };

/// What a response's Content-Type says: HTML and XHTML are pages. Untold where it is missing or says nothing, so that
/// browsers look at the content.
[[nodiscard]] PageType PageTypeOf(const Headers& response);

/// What a browser would take the front of a content for that nobody tells the type of.
[[nodiscard]] bool LooksLikePage(std::string_view front);

}  // namespace zeph::icap
