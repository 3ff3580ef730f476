// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace zeph {

/// A text of a result. Dozens of rules look at the same text, and it may be a whole page's: what stands in the page's
/// data or in the configuration is lent, and anything else owned. A copy owns what it holds, and so outlives both.
class ResultText {
 public:
  ResultText() = default;
  /// Owns the text.
  ResultText(std::u16string text) : owned_(std::make_unique<const std::u16string>(std::move(text))), text_(*owned_) {}
  ResultText(const ResultText& other) { *this = other; }
  ResultText(ResultText&& other) noexcept : owned_(std::move(other.owned_)), text_(std::exchange(other.text_, {})) {}
  ~ResultText() = default;

  ResultText& operator=(const ResultText& other) {
    if (this != &other) *this = other.text_.empty() ? ResultText() : ResultText(std::u16string(other.text_));
    return *this;
  }
  ResultText& operator=(ResultText&& other) noexcept {
    owned_ = std::move(other.owned_);
    text_ = std::exchange(other.text_, {});
    return *this;
  }

  /// Shows a text that stays as it is as long as it is shown.
  void Lend(std::u16string_view text) noexcept {
    owned_.reset();
    text_ = text;
  }
  /// Makes a lent text its own, before the page's data change.
  void Keep() {
    if (owned_ == nullptr && !text_.empty()) *this = ResultText(std::u16string(text_));
  }

  operator std::u16string_view() const noexcept { return text_; }
  [[nodiscard]] bool empty() const noexcept { return text_.empty(); }
  friend bool operator==(const ResultText& a, std::u16string_view b) noexcept { return a.text_ == b; }

 private:
  std::unique_ptr<const std::u16string> owned_;
  std::u16string_view text_;
};

/// The answer of one expression and, after combining, of one indicator.
struct IndicatorResult {
  bool evaluated = false;  ///< the indicator ran, and every expression that ran had a known method
  bool on = false;
  ResultText fieldText;    ///< what was looked at
  ResultText matchText;    ///< what it matched: an item, a number as text, a brand's key
  double elapsedMs = 0.0;  ///< time spent on the whole indicator, milliseconds
};

}  // namespace zeph
