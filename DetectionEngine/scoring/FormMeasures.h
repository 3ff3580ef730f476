// SPDX-License-Identifier: Apache-2.0
// How much of a page is a request for what a user knows, and where it goes. Sums are 64 bits wide, so none overflows.
#pragma once

#include <cstdint>
#include <span>

#include "DetectionEngine/page/PageData.h"
#include "DetectionEngine/scoring/IndicatorResult.h"

namespace zeph {

/// The page's blocks of text, at least 1.
[[nodiscard]] std::int64_t BlockCount(const AllParser& all) noexcept;

/// A form has several text and password fields, or fields stand outside the forms.
[[nodiscard]] IndicatorResult LoginFieldsPresent(std::span<const FormRecord> forms, const AllParser& all);

/// The words of the page for each of its form fields, cut to a whole number, are more than limit.
[[nodiscard]] IndicatorResult WordsPerField(const PageData& pageData, std::int32_t limit);

/// The fields of a form, select fields aside, against the size of the page in lines exceed 0.0199.
[[nodiscard]] IndicatorResult FieldDensity(const PageData& pageData);

/// A form of several fields goes to a relative address whose extension is the marked one.
[[nodiscard]] IndicatorResult FormWithExtension(std::span<const FormRecord> forms);

/// A form of several fields has the marked scheme.
[[nodiscard]] IndicatorResult FormWithScheme(std::span<const FormRecord> forms);

/// The forms hold one text or password field in all, and none holds several.
[[nodiscard]] IndicatorResult OneField(std::span<const FormRecord> forms);

/// A form with user fields has a mail address in a hidden field.
[[nodiscard]] IndicatorResult FormWithHiddenAddress(std::span<const FormRecord> forms);

}  // namespace zeph
