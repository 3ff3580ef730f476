// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/DocumentReading.h"
#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// Reads the visible text, the markup and the title, and what follows from the text. Gives the status of the title, or
/// at once that of a body that couldn't be read.
Status CollectBodyData(IHTMLDocument2* document, BodyData& data);

/// Appends a phrase to data, in lower case, for each place where marker stands in text, case ignored: from there to the
/// white space that ends the seventh word, or to the end, and a blank. Places may overlap phrases but not one another.
/// Phrases overlap, and a word can be the whole page: throws TooCostly when they pass what may be kept.
void ExtractPhrases(std::u16string_view text, std::u16string_view marker, KeptTexts& kept, BodyData& data);

}  // namespace zeph
