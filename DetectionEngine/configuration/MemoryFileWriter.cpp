// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/MemoryFileWriter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <map>
#include <string_view>
#include <vector>

#include <zlib.h>

#include "DetectionEngine/base/Cipher.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/MemoryFormat.h"
#include "DetectionEngine/configuration/Pack.h"

namespace zeph {

namespace {

/// The counterpart of MemoryFile, operation by operation.
class MemoryFileWriter {
 public:
  explicit MemoryFileWriter(const MemoryFileForm& form) : form_(form) { Number(memoryFormat::kMagic); }

  void Version(const char*) { Number(memoryFormat::kVersion); }
  std::uint8_t IndicatorVersion(const char*) {
    Number(form_.indicatorVersion);
    return form_.indicatorVersion;
  }
  void Byte(std::uint32_t value) { Fitting<std::uint8_t>(value); }
  void Flag(bool value) { Number<std::uint8_t>(value ? 1 : 0); }
  template <class T>
  void Number(T value) {
    std::array<char, sizeof(T)> bytes;
    std::memcpy(bytes.data(), &value, sizeof(T));
    if (form_.bigEndian) std::reverse(bytes.begin(), bytes.end());
    out_.append(bytes.data(), bytes.size());
  }
  void Text(std::u16string_view text) {
    const std::size_t length = text.size() * sizeof(char16_t);
    Fitting<std::uint16_t>(length);
    out_.append(reinterpret_cast<const char*>(text.data()), length);
  }
  void ValueText(std::u16string_view text) { Text(text); }
  template <class T>
  void List(const std::vector<T>& list) {
    Fitting<std::uint16_t>(list.size());
    for (const T& item : list) memoryFormat::Transfer(*this, item);
  }
  template <class T, class TransferValue>
  void Map(const std::map<std::u16string, T, std::less<>>& map, TransferValue transferValue) {
    Fitting<std::uint16_t>(map.size());
    for (const auto& [key, value] : map) {
      Text(key);
      transferValue(value);
    }
  }
  void Tokens(const TokenTable& table) {
    Fitting<std::uint16_t>(table.size());
    for (const auto& [key, probability] : table.Sorted()) {
      Text(key);
      Number(probability);
    }
  }

  [[nodiscard]] std::optional<std::string> Finish() { return fits_ ? std::optional(std::move(out_)) : std::nullopt; }

 private:
  template <class T>
  void Fitting(std::size_t number) {
    fits_ = fits_ && number <= std::numeric_limits<T>::max();
    Number(static_cast<T>(number));
  }

  MemoryFileForm form_;
  std::string out_;
  bool fits_ = true;
};

}  // namespace

std::optional<std::string> WriteMemoryFile(const Configuration& configuration, const Indicators& indicators,
                                           const MemoryFileForm& form) {
  MemoryFileWriter writer(form);
  memoryFormat::Transfer(writer, configuration);
  memoryFormat::Transfer(writer, indicators);
  return writer.Finish();
}

std::optional<std::string> SealMemoryFile(const std::optional<std::string>& content) {
  if (!content || content->size() > kPackageCeiling) return std::nullopt;
  for (const int level : {Z_DEFAULT_COMPRESSION, Z_NO_COMPRESSION}) {
    std::string sealed(compressBound(content->size()), '\0');
    uLongf length = sealed.size();
    if (compress2(reinterpret_cast<Bytef*>(sealed.data()), &length, reinterpret_cast<const Bytef*>(content->data()),
                  content->size(), level) != Z_OK) {
      return std::nullopt;
    }
    sealed.resize(length);
    if (content->size() > InflateRoom(sealed.size())) continue;
    EncryptData(sealed.data(), sealed.size());
    return sealed;
  }
  return std::nullopt;
}

}  // namespace zeph
