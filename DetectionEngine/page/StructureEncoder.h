// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zeph {

/// A page of more elements has no structure.
inline constexpr std::int32_t kStructureElementLimit = 40000;

/// Turns the body's markup, in the browser's normalised form, into one letter per structural element, so that pages can
/// be compared by their shape. Rules carry such strings: the letters are a data format. 0, or 1 and an empty structure
/// for a page of more than kStructureElementLimit elements.
///
/// T text, n line break, nn paragraph or list, I text field or text area, S select, B button, C check box, R radio
/// button, G image, IB file field, L rule.
int EncodeStructure(std::int32_t elementCount, std::u16string_view html, std::u16string& structure);

}  // namespace zeph
