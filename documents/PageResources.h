// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

namespace zeph {

/// What was saved together with a page: images, scripts. Never the network. A page lends what it is given as long as
/// it lives.
class PageResources {
 public:
  virtual ~PageResources() = default;
  /// The bytes of a resource by its URL: absolute, or as the page names it. Nothing when there is none.
  [[nodiscard]] virtual std::optional<std::string_view> Find(std::string_view url) const = 0;
};

}  // namespace zeph
