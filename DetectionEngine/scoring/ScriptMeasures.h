// SPDX-License-Identifier: Apache-2.0
// Signs of hiding in a page's scripts.
#pragma once

#include <span>
#include <string>

#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// A script is encoded or packed: by a comment or code that a known tool leaves, by a long line of percent escapes, by
/// a long list of numbers behind "array", or by its language. The match names what was found; for a list it is the
/// line.
[[nodiscard]] IndicatorResult HiddenScript(const ScriptData& scripts, std::span<const std::u16string_view> comments);

/// One script holds a certain combination of words, case ignored; it becomes the field text.
[[nodiscard]] IndicatorResult ScriptWords(std::span<const std::u16string_view> texts);

}  // namespace zeph
