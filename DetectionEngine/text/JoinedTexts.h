// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace zeph {

/// Texts one behind another, without a separator. A single text isn't copied: the list must stay.
class JoinedTexts {
 public:
  explicit JoinedTexts(std::span<const std::u16string_view> texts) {
    if (texts.size() == 1) {
      view_ = texts.front();
      return;
    }
    std::size_t length = 0;
    for (const std::u16string_view text : texts) length += text.size();
    joined_.reserve(length);
    for (const std::u16string_view text : texts) joined_ += text;
    view_ = joined_;
  }
  JoinedTexts(const JoinedTexts&) = delete;
  JoinedTexts& operator=(const JoinedTexts&) = delete;

  [[nodiscard]] std::u16string_view Text() const noexcept { return view_; }

 private:
  std::u16string joined_;
  std::u16string_view view_;
};

}  // namespace zeph
