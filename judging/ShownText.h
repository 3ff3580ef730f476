// SPDX-License-Identifier: Apache-2.0
// Text that a person reads. What pages, addresses, files' names and packages hold was written by strangers: nothing of
// it may steer a terminal, turn the direction of a line or end one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zeph {

/// Characters that aren't shown as they are: controls, what turns the direction of text or has no width, separators of
/// lines and paragraphs, tags, and halves of a character.
[[nodiscard]] bool IsUnshowable(char32_t c) noexcept;

/// The text on one line, as UTF-8, with each such character written as \x1b, \u202e or \U000e0001. Bytes that aren't
/// UTF-8 come as U+FFFD. O(length).
[[nodiscard]] std::string Shown(std::u16string_view text);
[[nodiscard]] std::string Shown(std::string_view text);

/// Shown, of the first so many characters, with "..." behind them when there are more.
[[nodiscard]] std::string ShownInShort(std::u16string_view text, std::size_t most);

}  // namespace zeph
