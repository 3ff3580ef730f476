// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "DetectionEngine/Document.h"

namespace zeph {

/// A compact picture of a page in four blocks: visible text, skeleton of the layout, image sources, elements with a
/// class or an id. Made by a walk over the node tree that is bounded in depth and size.
class PageDump {
 public:
  /// A page of more nodes keeps only its visible text.
  static constexpr int kNodeLimit = 20000;
  /// Nodes this deep below the body, and deeper ones, aren't looked at.
  static constexpr int kDepthLimit = 150;

  /// Walks the document. visibleText is kept as a view and must stay until Text was called. Gives the status of the
  /// body, kStatusUnexpected without a document. A page whose dump costs too much counts as too large, as does one
  /// with a million children that don't come.
  Status Build(IHTMLDocument2* document, std::u16string_view visibleText);
  /// The four blocks.
  [[nodiscard]] std::u16string Text() const;

 private:
  class Walker;

  std::u16string_view visibleText_;
  std::u16string structure_;
  std::u16string images_;
  std::u16string distinctiveTags_;
};

}  // namespace zeph
