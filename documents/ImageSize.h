// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zeph {

struct ImageSize {
  std::int32_t width = 0;
  std::int32_t height = 0;

  friend bool operator==(const ImageSize&, const ImageSize&) = default;
};

/// Width and height in pixels by the header of a PNG, GIF, JPEG, WebP or BMP; nothing for other bytes, for a header cut
/// short, and for sizes of 0 or beyond 1,000,000. Reads headers only, in time linear in them.
[[nodiscard]] std::optional<ImageSize> ReadImageSize(std::string_view bytes) noexcept;

/// The size of an image in a data: URL; only as much of it is decoded as a header takes.
[[nodiscard]] std::optional<ImageSize> ReadDataUrlImageSize(std::u16string_view url);

}  // namespace zeph
