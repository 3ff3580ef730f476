// SPDX-License-Identifier: Apache-2.0
// The bytes of a file from one end to the other, whatever it is compressed with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct archive;

namespace zeph {

/// One thread at a time. Memory is what a caller asks to see at once.
class ByteSource {
 public:
  /// A file (Failure tells when it can't be read).
  explicit ByteSource(const std::string& path);
  /// Bytes in memory, which must stay.
  struct InMemory {
    std::string_view bytes;
  };
  explicit ByteSource(InMemory memory);
  ~ByteSource();
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  /// What comes next, so many bytes or, at the end, fewer. Valid until the next call.
  [[nodiscard]] std::string_view Ahead(std::size_t bytes);
  void Drop(std::size_t bytes) noexcept { at_ += bytes; }  ///< of what Ahead has shown
  /// Passes over so many bytes; false when they end before.
  bool Skip(std::uint64_t bytes);
  /// Appends so many bytes, or those that are left.
  void Read(std::size_t bytes, std::string& out);
  /// The next line with its line feed; without one, a piece of a line that is longer than most, or the last. False at
  /// the end.
  bool ReadLine(std::size_t most, std::string& line);

  [[nodiscard]] bool IsCompressed() const noexcept { return isCompressed_; }
  [[nodiscard]] std::uint64_t Position() const noexcept { return total_ - (buffer_.size() - at_); }
  /// Why what follows can't be read; empty while all is well. The bytes end there.
  [[nodiscard]] const std::string& Failure() const noexcept { return failure_; }

 private:
  void Begin(bool opened);
  void Fill(std::size_t bytes);

  archive* archive_;
  bool isCompressed_ = false;
  std::string buffer_;
  std::size_t at_ = 0;
  std::uint64_t total_ = 0;
  bool ended_ = false;
  std::string failure_;
};

}  // namespace zeph
