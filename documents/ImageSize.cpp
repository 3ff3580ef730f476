// SPDX-License-Identifier: Apache-2.0
#include "documents/ImageSize.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "documents/DataUrl.h"

namespace zeph {
namespace {

constexpr std::int64_t kLargest = 1'000'000;
/// A JPEG's size may stand behind embedded previews; of a data: URL no more than this is decoded.
constexpr std::size_t kDataHeader = 256 * 1024;

/// Numbers at places of a text; 0 behind its end.
class Bytes {
 public:
  explicit Bytes(std::string_view bytes) noexcept : bytes_(bytes) {}

  [[nodiscard]] std::uint32_t Byte(std::size_t at) const noexcept {
    return at < bytes_.size() ? static_cast<unsigned char>(bytes_[at]) : 0U;
  }
  [[nodiscard]] std::uint32_t Big16(std::size_t at) const noexcept { return Byte(at) << 8 | Byte(at + 1); }
  [[nodiscard]] std::uint32_t Big32(std::size_t at) const noexcept { return Big16(at) << 16 | Big16(at + 2); }
  [[nodiscard]] std::uint32_t Little16(std::size_t at) const noexcept { return Byte(at + 1) << 8 | Byte(at); }
  [[nodiscard]] std::uint32_t Little24(std::size_t at) const noexcept { return Byte(at + 2) << 16 | Little16(at); }
  [[nodiscard]] std::uint32_t Little32(std::size_t at) const noexcept { return Little16(at + 2) << 16 | Little16(at); }
  [[nodiscard]] bool Has(std::size_t at, std::string_view text) const noexcept {
    return at <= bytes_.size() && bytes_.substr(at).starts_with(text);
  }
  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }

 private:
  std::string_view bytes_;
};

std::optional<ImageSize> Checked(std::int64_t width, std::int64_t height) noexcept {
  if (width < 1 || height < 1 || width > kLargest || height > kLargest) return std::nullopt;
  return ImageSize{static_cast<std::int32_t>(width), static_cast<std::int32_t>(height)};
}

std::optional<ImageSize> ReadJpeg(const Bytes& bytes) noexcept {
  std::size_t at = 2;
  while (at + 9 < bytes.size()) {
    if (bytes.Byte(at) != 0xFF) return std::nullopt;
    const std::uint32_t marker = bytes.Byte(at + 1);
    if (marker == 0xFF) {  // fill
      ++at;
      continue;
    }
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) return Checked(bytes.Big16(at + 7), bytes.Big16(at + 5));
    const bool alone = marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8);
    const std::uint32_t length = alone ? 0 : bytes.Big16(at + 2);
    if (!alone && length < 2) return std::nullopt;
    if (marker == 0xD9 || marker == 0xDA) return std::nullopt;  // the picture itself, with no frame before it
    at += 2 + length;
  }
  return std::nullopt;
}

std::optional<ImageSize> ReadWebP(const Bytes& bytes) noexcept {
  if (bytes.size() < 30) return std::nullopt;
  if (bytes.Has(12, "VP8 ")) {
    if (!bytes.Has(23, "\x9D\x01\x2A")) return std::nullopt;
    return Checked(bytes.Little16(26) & 0x3FFF, bytes.Little16(28) & 0x3FFF);
  }
  if (bytes.Has(12, "VP8L")) {
    if (bytes.Byte(20) != 0x2F) return std::nullopt;
    const std::uint32_t bits = bytes.Little32(21);
    return Checked((bits & 0x3FFF) + 1, (bits >> 14 & 0x3FFF) + 1);
  }
  if (bytes.Has(12, "VP8X")) return Checked(bytes.Little24(24) + 1, bytes.Little24(27) + 1);
  return std::nullopt;
}

std::optional<ImageSize> ReadBmp(const Bytes& bytes) noexcept {
  const std::uint32_t header = bytes.Little32(14);
  if (header == 12 && bytes.size() >= 22) return Checked(bytes.Little16(18), bytes.Little16(20));
  if (header < 40 || bytes.size() < 26) return std::nullopt;
  const auto width = static_cast<std::int32_t>(bytes.Little32(18));
  const std::int64_t height = static_cast<std::int32_t>(bytes.Little32(22));
  return Checked(width, height < 0 ? -height : height);  // negative: rows from the top
}

}  // namespace

std::optional<ImageSize> ReadImageSize(std::string_view text) noexcept {
  const Bytes bytes(text);
  if (bytes.Has(0, "\x89PNG\r\n\x1A\n") && bytes.Has(12, "IHDR") && bytes.size() >= 24) {
    return Checked(bytes.Big32(16), bytes.Big32(20));
  }
  if ((bytes.Has(0, "GIF87a") || bytes.Has(0, "GIF89a")) && bytes.size() >= 10) {
    return Checked(bytes.Little16(6), bytes.Little16(8));
  }
  if (bytes.Has(0, "\xFF\xD8\xFF")) return ReadJpeg(bytes);
  if (bytes.Has(0, "RIFF") && bytes.Has(8, "WEBP")) return ReadWebP(bytes);
  if (bytes.Has(0, "BM")) return ReadBmp(bytes);
  return std::nullopt;
}

std::optional<ImageSize> ReadDataUrlImageSize(std::u16string_view url) {
  const std::optional<DataUrl> data = ReadDataUrl(url, kDataHeader);
  return data ? ReadImageSize(data->bytes) : std::nullopt;
}

}  // namespace zeph
