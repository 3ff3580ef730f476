// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/url/UrlRecord.h"

namespace zeph {

/// Reads every form of the page: its target, its fields by kind, its hidden fields. pageUrl is the page's own URL,
/// against which relative targets are read. Gives the status of the last operation; a form that isn't read to its end
/// is left out.
Status CollectFormData(IHTMLDocument2* document, const UrlRecord& pageUrl, FormData& data);

/// The shape of a mail address: 3 to 50 characters, an "@" that isn't the first, a "." behind the first "@" that isn't
/// the last.
[[nodiscard]] bool LooksLikeAddress(std::u16string_view value) noexcept;

}  // namespace zeph
