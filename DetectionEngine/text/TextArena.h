// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

namespace zeph {

/// Keeps texts that stay where they are for as long as the arena, wherever it is moved, without an allocation for each
/// short one.
class TextArena {
 public:
  TextArena() = default;
  TextArena(TextArena&& other) noexcept : texts_(std::move(other.texts_)), room_(std::exchange(other.room_, nullptr)) {}
  TextArena& operator=(TextArena&& other) noexcept {
    texts_ = std::move(other.texts_);
    room_ = std::exchange(other.room_, nullptr);
    return *this;
  }

  /// Takes the text, which is then empty and may be used again.
  std::u16string_view Keep(std::u16string& text) {
    if (text.size() >= kLong && text.capacity() - text.size() <= text.size() / 8) {
      texts_.push_back(std::move(text));
      text = {};
      return texts_.back();
    }
    const std::u16string_view kept = Copy(text);
    text.clear();
    return kept;
  }
  /// The same for a text that stays with the caller.
  std::u16string_view Copy(std::u16string_view text) {
    if (text.size() >= kLong) return texts_.emplace_back(text);
    if (room_ == nullptr || room_->capacity() - room_->size() < text.size()) {
      const std::size_t chunk = std::clamp(room_ == nullptr ? 0 : 2 * room_->capacity(), kLeastChunk, kMostChunk);
      room_ = &texts_.emplace_back();
      room_->reserve(std::max(chunk, text.size()));
    }
    const std::size_t begin = room_->size();
    room_->append(text);
    return std::u16string_view(*room_).substr(begin);
  }

  /// Takes over the texts of another, which stay where they are: none is short enough to lie in its string object.
  void Adopt(TextArena&& other) {
    for (std::u16string& text : other.texts_) texts_.push_back(std::move(text));
    room_ = nullptr;
    other = {};
  }

 private:
  static constexpr std::size_t kLong = 4096;
  static constexpr std::size_t kLeastChunk = 512;
  static constexpr std::size_t kMostChunk = 32768;

  std::deque<std::u16string> texts_;  ///< a deque, so that none of them moves
  std::u16string* room_ = nullptr;    ///< the one that short texts go to
};

}  // namespace zeph
