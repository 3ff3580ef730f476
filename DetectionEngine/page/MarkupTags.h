// SPDX-License-Identifier: Apache-2.0
// What the scanners ask of a tag: which of a fixed set of texts it contains. One look at each "<" and each "=" of the
// tag answers for all of them.
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph {

enum class MarkupTag : std::uint8_t {
  kP,
  kDiv,
  kBr,
  kTr,
  kUl,
  kOl,
  kLi,
  kHr,
  kForm,
  kInput,
  kSelect,
  kTextarea,
  kImg,
  kScript,
  kStyle,
};

/// A set of texts that a tag contains, a bit each.
using TagMarks = std::uint64_t;

/// "<NAME>"
constexpr TagMarks BareTag(MarkupTag tag) noexcept { return TagMarks{1} << (static_cast<unsigned>(tag) * 3); }
/// "<NAME "
constexpr TagMarks TagWithMore(MarkupTag tag) noexcept { return BareTag(tag) << 1; }
/// "</NAME>"
constexpr TagMarks ClosingTag(MarkupTag tag) noexcept { return BareTag(tag) << 2; }
constexpr TagMarks OpeningTag(MarkupTag tag) noexcept { return BareTag(tag) | TagWithMore(tag); }
constexpr TagMarks AnyTag(MarkupTag tag) noexcept { return OpeningTag(tag) | ClosingTag(tag); }

/// All that the tag contains, wherever in it.
[[nodiscard]] TagMarks FindTagMarks(std::u16string_view tag) noexcept;

/// Texts of attributes, a bit each: "type=" and the word, "src=", and the size 1 with the attribute's end behind it.
enum AttributeMark : std::uint32_t {
  kTypeText = 1U << 0,
  kTypePassword = 1U << 1,
  kTypeFile = 1U << 2,
  kTypeButton = 1U << 3,
  kTypeCheckbox = 1U << 4,
  kTypeHidden = 1U << 5,
  kTypeImage = 1U << 6,
  kTypeRadio = 1U << 7,
  kTypeReset = 1U << 8,
  kTypeSubmit = 1U << 9,
  kHasSource = 1U << 10,
  kWidthOne = 1U << 11,
  kHeightOne = 1U << 12,
};

/// All that the tag contains, wherever in it.
[[nodiscard]] std::uint32_t FindAttributeMarks(std::u16string_view tag) noexcept;

}  // namespace zeph
