// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/MemoryFile.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <type_traits>
#include <utility>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/configuration/MemoryFormat.h"
#include "DetectionEngine/configuration/Pack.h"

namespace zeph {

namespace {

constexpr char kLoadLabel[] = "MemoryFile::LoadFile";

}  // namespace

MemoryFile::MemoryFile(Packed packed) {
  std::string why;
  std::optional<std::string> content = OpenPacked(std::move(packed.bytes), &why);
  if (!content) {
    LogLine(kLoadLabel, "Error uncompressing data", kLogError);
    throw MemoryFileError(kPastTheEnd, why);
  }
  data_ = *std::move(content);
  LogLine(kLoadLabel, "Success Loading configuration data - now to parse it", kLogDetail);
  VerifyFile();
}

MemoryFile::MemoryFile(Content content) : data_(std::move(content.bytes)), room_(content.room) { VerifyFile(); }

void MemoryFile::VerifyFile() {
  const auto magic = TakeNumber<std::uint16_t>();
  swapBytes_ = magic == static_cast<std::uint16_t>(memoryFormat::kMagic << 8 | memoryFormat::kMagic >> 8);
  if (swapBytes_ || magic == memoryFormat::kMagic) return;
  LogLine("MemoryFile::VerifyFile", "Does not appear to be a memory file", kLogError);
  throw MemoryFileError("Not a binary ZEPH configuration file");
}

void MemoryFile::Read(Configuration& configuration) { memoryFormat::Transfer(*this, configuration); }

void MemoryFile::Read(Indicators& indicators) { memoryFormat::Transfer(*this, indicators); }

void MemoryFile::TakeRoom(std::size_t bytes) {
  if (!room_.Take(bytes)) throw MemoryFileError("The records take more memory than a configuration may");
}

std::size_t MemoryFile::Plausible(std::size_t count, std::size_t leastSize) const noexcept {
  return std::min(count, (data_.size() - position_) / leastSize);
}

void MemoryFile::Version(const char* failure) {
  if (TakeNumber<std::uint8_t>() != memoryFormat::kVersion) throw MemoryFileError(failure);
}

std::uint8_t MemoryFile::IndicatorVersion(const char* failure) {
  const auto version = TakeNumber<std::uint8_t>();
  if (version != memoryFormat::kIndicatorWithResult && version != memoryFormat::kIndicatorWithoutResult) {
    throw MemoryFileError(failure);
  }
  return version;
}

void MemoryFile::Text(std::u16string& text) {
  const std::size_t length = TakeNumber<std::uint16_t>();
  if (length % sizeof(char16_t) != 0) throw MemoryFileError("A text of half a character");
  TakeRoom(length);
  const std::string_view bytes = Take(length);
  text.resize(length / sizeof(char16_t));
  std::memcpy(text.data(), bytes.data(), length);
}

void MemoryFile::ValueText(std::u16string& text) {
  Text(text);
  TakeRoom(RoomOfValue(text.size(), static_cast<std::size_t>(std::count(text.begin(), text.end(), u',')) + 1));
}

template <class T>
void MemoryFile::List(std::vector<T>& list) {
  const std::size_t count = TakeNumber<std::uint16_t>();
  const std::size_t leastSize = 2;  // an empty text; every other item is longer
  list.reserve(list.size() + Plausible(count, leastSize));
  for (std::size_t i = 0; i < count; ++i) {
    TakeRoom(sizeof(T));
    memoryFormat::Transfer(*this, list.emplace_back());
  }
}

template <class T, class TransferValue>
void MemoryFile::Map(std::map<std::u16string, T, std::less<>>& map, TransferValue transferValue) {
  constexpr std::size_t kNode = 40;  // links of a tree
  const std::size_t count = TakeNumber<std::uint16_t>();
  for (std::size_t i = 0; i < count; ++i) {
    std::u16string key;
    Text(key);
    T value;
    transferValue(value);
    TakeRoom(kNode + sizeof(std::u16string) + sizeof(T));
    if constexpr (std::is_same_v<T, TrustedDomainInfo>) TakeRoom(RoomOfIndexes(key, value));
    // Files are written in key order, so the place is the end.
    map.insert_or_assign(map.end(), std::move(key), std::move(value));
  }
}

void MemoryFile::Tokens(TokenTable& table) {
  constexpr std::size_t kLeastSize = 10;  // an empty text and a number
  constexpr std::size_t kEntry = 64;      // an entry, and its part of a table that is half full
  const std::size_t count = TakeNumber<std::uint16_t>();
  table.reserve(table.size() + Plausible(count, kLeastSize));
  std::u16string key;
  for (std::size_t i = 0; i < count; ++i) {
    TakeRoom(kEntry);
    Text(key);
    table.insert_or_assign(key, TakeNumber<double>());
  }
}

}  // namespace zeph
