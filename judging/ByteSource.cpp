// SPDX-License-Identifier: Apache-2.0
#include "judging/ByteSource.h"

#include <algorithm>
#include <fstream>

#include <archive.h>
#include <archive_entry.h>

namespace zeph {

namespace {

constexpr std::size_t kPiece = 1 << 16;
/// Nobody's archive unpacks to more than so many times its size, unless to harm; small files may.
constexpr std::uint64_t kMostTimes = 200;
constexpr std::uint64_t kFreely = std::uint64_t{1} << 30;

bool BeginsPacked(std::string_view bytes) noexcept {
  return bytes.starts_with("\x1F\x8B") || bytes.starts_with("\x28\xB5\x2F\xFD");
}

/// Only what is unpacked in this process: others would start programs.
archive* NewReader() {
  archive* const reader = archive_read_new();
  archive_read_support_filter_gzip(reader);
  archive_read_support_filter_zstd(reader);
  archive_read_support_format_raw(reader);
  archive_read_support_format_empty(reader);
  return reader;
}

}  // namespace

ByteSource::ByteSource(const std::string& path) : archive_(NewReader()) {
  std::string front(4, '\0');
  std::ifstream(path, std::ios::binary).read(front.data(), static_cast<std::streamsize>(front.size()));
  isCompressed_ = BeginsPacked(front);
  Begin(archive_read_open_filename(archive_, path.c_str(), kPiece) == ARCHIVE_OK);
}

ByteSource::ByteSource(InMemory memory) : archive_(NewReader()), isCompressed_(BeginsPacked(memory.bytes)) {
  Begin(archive_read_open_memory(archive_, memory.bytes.data(), memory.bytes.size()) == ARCHIVE_OK);
}

ByteSource::~ByteSource() { archive_read_free(archive_); }

void ByteSource::Begin(bool opened) {
  archive_entry* entry = nullptr;
  const int result = opened ? archive_read_next_header(archive_, &entry) : ARCHIVE_FATAL;
  ended_ = result != ARCHIVE_OK;
  if (result != ARCHIVE_OK && result != ARCHIVE_EOF) {
    const char* const reason = archive_error_string(archive_);
    failure_ = reason != nullptr ? reason : "can't be read";
  }
}

void ByteSource::Fill(std::size_t bytes) {
  while (!ended_ && buffer_.size() - at_ < bytes) {
    buffer_.erase(0, at_);
    at_ = 0;
    const void* piece = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    const int result = archive_read_data_block(archive_, &piece, &size, &offset);
    if (result == ARCHIVE_OK) {
      buffer_.append(static_cast<const char*>(piece), size);
      total_ += size;
    }
    if (result != ARCHIVE_OK && result != ARCHIVE_EOF) {
      const char* const reason = archive_error_string(archive_);
      failure_ = reason != nullptr ? reason : "can't be read";
    } else if (isCompressed_ && total_ > kFreely &&
               total_ / kMostTimes > static_cast<std::uint64_t>(archive_filter_bytes(archive_, -1))) {
      failure_ = "unpacks to more than " + std::to_string(kMostTimes) + " times its size";
    }
    ended_ = result != ARCHIVE_OK || !failure_.empty();
  }
}

std::string_view ByteSource::Ahead(std::size_t bytes) {
  if (buffer_.size() - at_ < bytes) Fill(bytes);
  return std::string_view(buffer_).substr(at_, bytes);
}

bool ByteSource::Skip(std::uint64_t bytes) {
  while (bytes > 0) {
    const std::size_t piece = Ahead(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, kPiece))).size();
    if (piece == 0) return false;
    Drop(piece);
    bytes -= piece;
  }
  return true;
}

void ByteSource::Read(std::size_t bytes, std::string& out) {
  while (bytes > 0) {
    const std::string_view piece = Ahead(std::min(bytes, kPiece));
    if (piece.empty()) return;
    out.append(piece);
    bytes -= piece.size();
    Drop(piece.size());
  }
}

bool ByteSource::ReadLine(std::size_t most, std::string& line) {
  line.clear();
  while (line.size() < most) {
    std::string_view piece = Ahead(1);
    if (piece.empty()) break;
    piece = std::string_view(buffer_).substr(at_);
    const std::size_t feed = piece.find('\n');
    piece = piece.substr(0, std::min(feed == std::string_view::npos ? piece.size() : feed + 1, most - line.size()));
    line.append(piece);
    Drop(piece.size());
    if (line.back() == '\n') break;
  }
  return !line.empty();
}

}  // namespace zeph
