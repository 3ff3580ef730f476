// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/Pack.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <zlib.h>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/platform/Files.h"

namespace zeph {

namespace {

constexpr std::size_t kInflateFactor = 20;
constexpr std::size_t kNumberSize = 4;
constexpr std::size_t kLongestItem = std::numeric_limits<std::int32_t>::max();

std::uint32_t ReadNumber(std::string_view bytes) noexcept {
  std::uint32_t number = 0;
  for (std::size_t i = kNumberSize; i-- > 0;) number = number << 8 | static_cast<std::uint8_t>(bytes[i]);
  return number;
}

void PutNumber(std::string& out, std::size_t number) {
  for (std::size_t i = 0; i < kNumberSize; ++i) out += static_cast<char>(number >> (8 * i) & 0xFF);
}

/// Walks the items of a pack: each a length and that many bytes, none for a length below 1.
class ItemCursor {
 public:
  explicit ItemCursor(std::string_view content) noexcept : rest_(content) {}

  /// Nothing when the content ends first.
  std::optional<std::uint32_t> Number() noexcept {
    if (rest_.size() < kNumberSize) return std::nullopt;
    const std::uint32_t number = ReadNumber(rest_);
    rest_.remove_prefix(kNumberSize);
    return number;
  }
  std::optional<std::string_view> Item() noexcept {
    const std::optional<std::uint32_t> number = Number();
    if (!number) return std::nullopt;
    const std::size_t length = *number > kLongestItem ? 0 : *number;
    if (length > rest_.size()) return std::nullopt;
    const std::string_view item = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return item;
  }
  [[nodiscard]] std::size_t Left() const noexcept { return rest_.size(); }

 private:
  std::string_view rest_;
};

}  // namespace

std::size_t InflateRoom(std::size_t storedSize) noexcept {
  return storedSize > kPackageCeiling / kInflateFactor ? kPackageCeiling : storedSize * kInflateFactor;
}

std::optional<std::string> Inflate(std::string_view stored, std::size_t room, std::string* why) {
  constexpr std::size_t kStep = std::size_t{1} << 18;
  z_stream stream{};
  stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(stored.data()));
  stream.avail_in = static_cast<uInt>(stored.size());
  if (stored.size() > std::numeric_limits<uInt>::max() || inflateInit(&stream) != Z_OK) return std::nullopt;
  // Reserved memory isn't there until it is touched, so the room costs nothing and nothing is copied as content grows.
  std::string content;
  content.reserve(room);
  int result = Z_OK;
  do {
    const std::size_t begin = content.size();
    content.resize(begin + std::min(kStep, room - begin));
    stream.next_out = reinterpret_cast<Bytef*>(content.data() + begin);
    stream.avail_out = static_cast<uInt>(content.size() - begin);
    result = inflate(&stream, Z_NO_FLUSH);
    content.resize(content.size() - stream.avail_out);
  } while (result == Z_OK);
  inflateEnd(&stream);
  if (result == Z_STREAM_END) return content;
  if (why != nullptr) {
    const bool isFull = content.size() == room && result == Z_BUF_ERROR;
    *why = stored.empty()            ? "the packed file is empty"
           : !isFull                 ? "the packed file can't be inflated: it is broken, or enciphered with another key"
           : room == kPackageCeiling ? "the packed file holds more than any package may"
                                     : "the packed file holds more than 20 times what it takes, which isn't read";
  }
  return std::nullopt;
}

std::optional<std::string> OpenPacked(std::string stored, std::string* why) {
  DecryptData(stored.data(), stored.size());
  return Inflate(stored, InflateRoom(stored.size()), why);
}

std::optional<std::vector<PackedFile>> CreateVectorofFileData(std::string_view content) {
  ItemCursor cursor(content);
  const std::optional<std::uint32_t> count = cursor.Number();
  if (!count) return std::nullopt;
  std::vector<PackedFile> files;
  files.reserve(std::min<std::size_t>(*count, cursor.Left() / (2 * kNumberSize)));
  for (std::uint32_t i = 0; i < *count; ++i) {
    const std::optional<std::string_view> name = cursor.Item();
    const std::optional<std::string_view> data = name ? cursor.Item() : std::nullopt;
    if (!data) return std::nullopt;
    if (!name->empty() && !data->empty()) files.push_back({std::string(*name), std::string(*data)});
  }
  return files;
}

bool MakePack(const char* const* files, std::int32_t count, const char* outputFile) {
  if (files == nullptr || outputFile == nullptr || count < 1) return false;
  std::string pack(kNumberSize, '\0');
  std::size_t packed = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    if (files[i] == nullptr) continue;
    const std::string path = files[i];
    const std::optional<std::string> content = ReadWholeFile(path, kPackageCeiling);
    if (!content) continue;
    const std::string name = path.substr(path.find_last_of("/\\") + 1);
    PutNumber(pack, name.size());
    pack += name;
    PutNumber(pack, content->size());
    pack += *content;
    ++packed;
  }
  std::string number;
  PutNumber(number, packed);
  pack.replace(0, kNumberSize, number);

  std::string compressed(pack.size(), '\0');
  uLongf length = compressed.size();
  if (compress(reinterpret_cast<Bytef*>(compressed.data()), &length, reinterpret_cast<const Bytef*>(pack.data()),
               pack.size()) != Z_OK) {
    return false;
  }
  compressed.resize(length);
  EncryptData(compressed.data(), compressed.size());
  return WriteWholeFile(outputFile, compressed);
}

}  // namespace zeph
