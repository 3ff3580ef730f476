// SPDX-License-Identifier: Apache-2.0
// Small operations on wide text: splitting, cleaning, case-blind search. Free functions without state; none
// throws but for want of memory. Where two strings are named, the text to search comes second.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph {

/// The cleaning operations leave a longer text untouched: rules were written against texts of at most this length.
inline constexpr std::size_t kCleaningLimit = 3000;

/// Appends the pieces between separators, empty ones dropped; gives the new size of out. O(length).
std::size_t SplitAt(std::u16string_view text, char16_t separator, std::vector<std::u16string>& out);
/// The same as views into text.
std::size_t SplitAt(std::u16string_view text, char16_t separator, std::vector<std::u16string_view>& out);

/// Appends the runs between delimiters (white space when the list is empty), each cleaned as asked, also those
/// that cleaning empties; gives the new size of out.
std::size_t SplitWords(std::u16string_view text, std::vector<std::u16string>& out, std::u16string_view delimiters,
                       bool removePunctuation, bool squeeze);

/// Erases what is neither letter, digit, white space nor "/"; gives the number erased.
std::size_t RemovePunctuation(std::u16string& text);
/// Erases what is neither letter nor digit; gives the number erased.
std::size_t KeepAlnum(std::u16string& text);
/// Shortens each run of one repeated character to one, but for a run of exactly two "o" or "e" and a run at the
/// text's end; gives the number of erasures.
std::size_t SqueezeRepeats(std::u16string& text);

void Trim(std::u16string& text);
[[nodiscard]] bool IsBlank(std::u16string_view text) noexcept;
[[nodiscard]] std::size_t CountChar(std::u16string_view text, char16_t c) noexcept;
[[nodiscard]] std::u16string ToLower(std::u16string_view text);
/// In place, one 16-bit unit at a time.
void MakeLower(std::u16string& text) noexcept;
/// Left to right, without overlap; the search goes on behind what was inserted. find isn't empty.
void ReplaceAll(std::u16string& text, std::u16string_view find, std::u16string_view replacement);
/// The same without regard to case; the text becomes its lower-case copy with the replacements.
void ReplaceAllNoCase(std::u16string& text, std::u16string_view find, std::u16string_view replacement);

[[nodiscard]] bool StartsWith(std::u16string_view text, std::u16string_view prefix) noexcept;
[[nodiscard]] bool StartsWithNoCase(std::u16string_view text, std::u16string_view prefix) noexcept;
/// False for an empty suffix.
[[nodiscard]] bool EndsWith(std::u16string_view text, std::u16string_view suffix) noexcept;
/// Position of the first hit at or behind from, or npos. Linear in the text whatever the two hold, as all searches
/// here are; none allocates.
[[nodiscard]] std::size_t FindExact(std::u16string_view text, std::u16string_view needle,
                                    std::size_t from = 0) noexcept;
[[nodiscard]] bool ContainsExact(std::u16string_view needle, std::u16string_view text) noexcept;
/// An empty needle is found in any text.
[[nodiscard]] bool ContainsNoCase(std::u16string_view needle, std::u16string_view text) noexcept;
/// A hit stands alone: no letter before it, none behind it; the character behind isn't looked at when it is the
/// text's last.
[[nodiscard]] bool ContainsWordNoCase(std::u16string_view needle, std::u16string_view text) noexcept;
/// Position in text of the first hit, case ignored.
[[nodiscard]] std::optional<std::size_t> FindNoCase(std::u16string_view text, std::u16string_view needle) noexcept;
/// True as soon as minimum of the items are contained in the text, case ignored; false for an empty text or list.
[[nodiscard]] bool CountContainedNoCase(std::u16string_view text, std::span<const std::u16string_view> list,
                                        std::size_t minimum) noexcept;
/// Position of the first item equal to the text, or -1; out receives the item.
std::ptrdiff_t IndexOfExact(std::u16string_view text, std::span<const std::u16string_view> list, std::u16string& out);

/// Decimal text to a signed number: optional white space, sign, digits up to the first other character; 0 when
/// there are none. A number beyond 32 bits is held at the nearest end of the range.
[[nodiscard]] std::int32_t ReadNumber(std::u16string_view text) noexcept;
/// Floating-point text by the usual syntax ("C" locale), up to the first character that doesn't fit; 0 when none.
[[nodiscard]] double ReadReal(std::u16string_view text);
/// Decimal text of a number.
[[nodiscard]] std::u16string NumberText(std::int64_t number);
/// The form "%f".
[[nodiscard]] std::u16string RealText(double number);

}  // namespace zeph
