// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/Document.h"
#include "DetectionEngine/page/PageData.h"

namespace zeph {

/// A FORM tag of the markup.
struct ScannedForm {
  std::u16string_view labelText;  ///< texts in front of its fields, each behind one blank
  std::u16string_view action;
};

/// What stands in front of the input fields of a page, which is what a reader takes for their labels. Views are of the
/// markup and of what is kept here.
struct FormTexts {
  std::vector<ScannedForm> forms;  ///< in order of the FORM tags
  std::u16string_view scanText;    ///< all label text, each piece behind one blank
  bool fieldWithoutLabel = false;  ///< a field had no text in front of it
  std::int32_t fieldCount = 0;
  TextArena kept;
};

/// Reads markup in the browser's normalised form (upper-case tags, lower-case attributes, values bare where they can
/// be) in one pass, without backtracking. No HTML parser: it knows the tags that matter and takes all else as it comes.
[[nodiscard]] FormTexts ScanFormTexts(std::u16string_view html);

/// Hands the label texts to the forms: one to one when both have the same number of forms, else by equal action, the
/// last such form winning.
void MergeLabels(FormData& formData, const std::vector<ScannedForm>& forms);

/// Scans the markup of the page's body and leaves what it finds in the body and in the forms. Always 0.
Status ScanFormTexts(PageData& pageData);

}  // namespace zeph
