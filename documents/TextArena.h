// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

namespace zeph {

/// Keeps texts that stay where they are for as long as the arena, without an allocation for each short one.
class TextArena {
 public:
  /// Takes the text, which is then empty and may be used again.
  std::u16string_view Keep(std::u16string& text) {
    if (text.size() >= kLong) {
      texts_.push_back(std::move(text));
      text = {};
      return texts_.back();
    }
    const std::u16string_view kept = Copy(text);
    text.clear();
    return kept;
  }
  /// The same for a short text that stays with the caller.
  std::u16string_view Copy(std::u16string_view text) {
    if (room_ == nullptr || room_->capacity() - room_->size() < text.size()) {
      room_ = &texts_.emplace_back();
      room_->reserve(std::max(kChunk, text.size()));
    }
    const std::size_t begin = room_->size();
    room_->append(text);
    return std::u16string_view(*room_).substr(begin);
  }

 private:
  static constexpr std::size_t kLong = 4096;
  static constexpr std::size_t kChunk = 32768;

  std::deque<std::u16string> texts_;  ///< a deque, so that none of them moves
  std::u16string* room_ = nullptr;    ///< the one that short texts go to
};

}  // namespace zeph
