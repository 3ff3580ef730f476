// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/configuration/LoadRoom.h"

namespace zeph {

/// Why a memory file can't be read: a constant text for the log, and what people are told, which says more where there is
/// more to say. What was being filled is garbage then.
class MemoryFileError : public std::runtime_error {
 public:
  explicit MemoryFileError(const char* text) : runtime_error(text), reason_(text) {}
  MemoryFileError(const char* text, std::string reason) : runtime_error(text), reason_(std::move(reason)) {}
  [[nodiscard]] const std::string& Reason() const noexcept { return reason_; }

 private:
  std::string reason_;
};

/// Reads a memory file, the compact form of a Configuration and its Indicators, in one pass from the first byte to the
/// last record. Every operation throws MemoryFileError, in particular "Trying to read data past the end of the file".
/// MemoryFormat.h has the layout. One thread at a time.
class MemoryFile {
 public:
  /// Deciphers and inflates a packed file and tests its magic number. Logs failures under "MemoryFile::LoadFile" and
  /// "MemoryFile::VerifyFile"; a file that can't be inflated is one without a byte.
  struct Packed {
    std::string bytes;
  };
  explicit MemoryFile(Packed packed);
  /// Takes the plain content. room bounds what the records may come to.
  struct Content {
    std::string bytes;
    std::size_t room = kRecordRoom;
  };
  explicit MemoryFile(Content content);

  /// Reads the two records, which come in this order. Both are cleared by the caller; lists are appended to and maps
  /// inserted into. Bytes behind the second record are ignored.
  void Read(Configuration& configuration);
  void Read(Indicators& indicators);

  // What the records are made of, for memoryFormat::Transfer.
  /// Throws failure unless the next byte is the one version that is known.
  void Version(const char* failure);
  /// Gives the version, one of the two.
  std::uint8_t IndicatorVersion(const char* failure);
  void Byte(std::uint32_t& value) { value = TakeNumber<std::uint8_t>(); }
  void Flag(bool& value) { value = TakeNumber<std::uint8_t>() != 0; }
  template <class T>
  void Number(T& value) {
    value = TakeNumber<T>();
  }
  void Text(std::u16string& text);
  void ValueText(std::u16string& text);
  template <class T>
  void List(std::vector<T>& list);
  template <class T, class TransferValue>
  void Map(std::map<std::u16string, T, std::less<>>& map, TransferValue transferValue);
  void Tokens(TokenTable& table);

 private:
  static constexpr char kPastTheEnd[] = "Trying to read data past the end of the file";

  void VerifyFile();
  std::string_view Take(std::size_t count) {
    if (count > data_.size() - position_) throw MemoryFileError(kPastTheEnd);
    const std::string_view taken(data_.data() + position_, count);
    position_ += count;
    return taken;
  }
  template <class T>
  T TakeNumber() {
    std::array<char, sizeof(T)> bytes;
    std::memcpy(bytes.data(), Take(sizeof(T)).data(), sizeof(T));
    if (swapBytes_) std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<T>(bytes);
  }
  /// For a record of so many bytes in memory.
  void TakeRoom(std::size_t bytes);
  /// How many items of at least so many bytes there can be, of a claimed count: what to reserve.
  [[nodiscard]] std::size_t Plausible(std::size_t count, std::size_t leastSize) const noexcept;

  std::string data_;
  std::size_t position_ = 0;
  bool swapBytes_ = false;
  LoadRoom room_;
};

}  // namespace zeph
