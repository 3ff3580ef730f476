// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/Cabinet.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include <zlib.h>

#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/platform/CabinetReader.h"
#include "DetectionEngine/platform/DosFile.h"
#include "DetectionEngine/platform/Files.h"

namespace zeph {

namespace {

constexpr char kExtractLabel[] = "CabExtract";

// The format, little-endian: header, folder records, file records, then the data blocks of all folders.
constexpr std::size_t kHeaderSize = 36;
constexpr std::size_t kFolderRecordSize = 8;
constexpr std::size_t kFileRecordSize = 16;  // and the name with its zero
constexpr std::uint16_t kMszip = 1;
constexpr std::uint16_t kSetIdentifier = 0x3045;
constexpr std::uint16_t kCabinetNumber = 1;
constexpr std::size_t kLargestCabinet = 0x7FFFFFFF;
constexpr std::size_t kFolderThreshold = 900000;
constexpr std::size_t kLongestName = 255;
constexpr std::uint16_t kAttributes = kDosReadOnly | kDosHidden | kDosSystem | kDosArchive;

// MSZIP: each block of up to 32 KiB is a deflate stream of its own behind "CK", with the block before it as dictionary.
constexpr std::size_t kBlockSize = 32768;
constexpr std::string_view kBlockSignature = "CK";

void Put16(std::string& out, std::size_t number) {
  out += static_cast<char>(number & 0xFF);
  out += static_cast<char>(number >> 8 & 0xFF);
}

void Put32(std::string& out, std::size_t number) {
  Put16(out, number & 0xFFFF);
  Put16(out, number >> 16 & 0xFFFF);
}

/// The exclusive or of the little-endian words; a rest of fewer than four bytes stands the other way round.
std::uint32_t Checksum(std::string_view bytes, std::uint32_t sum) noexcept {
  const auto byteAt = [&](std::size_t at) { return std::uint32_t{static_cast<std::uint8_t>(bytes[at])}; };
  std::size_t at = 0;
  for (; bytes.size() - at >= 4; at += 4) {
    sum ^= byteAt(at) | byteAt(at + 1) << 8 | byteAt(at + 2) << 16 | byteAt(at + 3) << 24;
  }
  std::uint32_t rest = 0;
  for (; at < bytes.size(); ++at) rest = rest << 8 | byteAt(at);
  return sum ^ rest;
}

/// Deflates the blocks of a folder, one behind another.
class BlockDeflater {
 public:
  BlockDeflater() {
    ready_ = deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
  }
  ~BlockDeflater() { deflateEnd(&stream_); }
  BlockDeflater(const BlockDeflater&) = delete;
  BlockDeflater& operator=(const BlockDeflater&) = delete;

  /// The block as MSZIP has it. Data that doesn't shrink is stored, so that no block grows by more than 7 bytes.
  std::string Pack(std::string_view block, std::string_view dictionary) {
    std::string packed(kBlockSignature);
    packed.resize(kBlockSignature.size() + kStoredHeader + block.size());
    const bool fits = ready_ && deflateReset(&stream_) == Z_OK && SetDictionary(dictionary) && Deflate(block, packed);
    if (fits) return packed;
    packed = kBlockSignature;
    packed += '\1';  // the last block of its stream, stored
    Put16(packed, block.size());
    Put16(packed, ~block.size() & 0xFFFF);
    packed += block;
    return packed;
  }

 private:
  static constexpr std::size_t kStoredHeader = 5;

  bool SetDictionary(std::string_view dictionary) noexcept {
    return dictionary.empty() || deflateSetDictionary(&stream_, reinterpret_cast<const Bytef*>(dictionary.data()),
                                                      static_cast<uInt>(dictionary.size())) == Z_OK;
  }

  bool Deflate(std::string_view block, std::string& packed) noexcept {
    stream_.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(block.data()));
    stream_.avail_in = static_cast<uInt>(block.size());
    stream_.next_out = reinterpret_cast<Bytef*>(packed.data() + kBlockSignature.size());
    stream_.avail_out = static_cast<uInt>(packed.size() - kBlockSignature.size());
    if (deflate(&stream_, Z_FINISH) != Z_STREAM_END) return false;
    packed.resize(packed.size() - stream_.avail_out);
    return true;
  }

  z_stream stream_{};
  bool ready_ = false;
};

struct FileRecord {
  std::string name;
  std::size_t length = 0;
  std::size_t offset = 0;  ///< in its folder, uncompressed
  std::size_t folder = 0;
  DosTraits traits;
};

struct Folder {
  std::string data;  ///< its data blocks
  std::size_t blocks = 0;
  std::size_t length = 0;  ///< uncompressed, in whole
  std::string pending;     ///< not yet in a block
  std::string previous;    ///< the last whole block, uncompressed
};

class CabinetWriter {
 public:
  /// Flushes the current folder: the next file starts another.
  void EndFolder() {
    if (folders_.empty() || ended_) return;
    Flush(true);
    folders_.back().previous.clear();
    ended_ = true;
  }

  bool Add(const std::string& path) {
    const std::optional<DosTraits> traits = DosTraitsOf(path);
    const std::optional<std::string> content = traits ? ReadWholeFile(path, kLargestCabinet) : std::nullopt;
    if (!content) return false;
    if (folders_.empty() || ended_) folders_.emplace_back();
    ended_ = false;
    Folder& folder = folders_.back();
    FileRecord file{path.substr(path.find_last_of("/\\") + 1), content->size(), folder.length, folders_.size() - 1,
                    *traits};
    if (file.name.empty() || file.name.size() > kLongestName || folder.length + file.length > kLargestCabinet)
      return false;
    files_.push_back(std::move(file));
    folder.length += content->size();
    folder.pending += *content;
    Flush(false);
    if (folder.data.size() >= kFolderThreshold) EndFolder();
    return true;
  }

  /// The cabinet; nothing when there is no file or it would be too long.
  std::optional<std::string> Finish() {
    EndFolder();
    std::size_t dataAt = kHeaderSize + kFolderRecordSize * folders_.size();
    const std::size_t filesAt = dataAt;
    for (const FileRecord& file : files_) dataAt += kFileRecordSize + file.name.size() + 1;
    std::size_t size = dataAt;
    for (const Folder& folder : folders_) size += folder.data.size();
    constexpr std::size_t kMost = 0xFFFF;
    if (files_.empty() || size > kLargestCabinet || files_.size() > kMost || folders_.size() > kMost)
      return std::nullopt;

    std::string out = "MSCF";
    out.reserve(size);
    Put32(out, 0);
    Put32(out, size);
    Put32(out, 0);
    Put32(out, filesAt);
    Put32(out, 0);
    Put16(out, 0x0103);  // version 1.3
    Put16(out, folders_.size());
    Put16(out, files_.size());
    Put16(out, 0);  // flags: nothing reserved, no other cabinet
    Put16(out, kSetIdentifier);
    Put16(out, kCabinetNumber);
    for (const Folder& folder : folders_) {
      if (folder.blocks > kMost) return std::nullopt;
      Put32(out, dataAt);
      Put16(out, folder.blocks);
      Put16(out, kMszip);
      dataAt += folder.data.size();
    }
    for (const FileRecord& file : files_) {
      Put32(out, file.length);
      Put32(out, file.offset);
      Put16(out, file.folder);
      Put16(out, file.traits.date);
      Put16(out, file.traits.time);
      Put16(out, file.traits.attributes & kAttributes);
      out.append(file.name.c_str(), file.name.size() + 1);
    }
    for (Folder& folder : folders_) out += std::exchange(folder.data, {});
    return out;
  }

 private:
  /// Moves what is pending into data blocks, a last short one only at the folder's end.
  void Flush(bool all) {
    Folder& folder = folders_.back();
    std::string_view rest = folder.pending;
    while (rest.size() >= kBlockSize || (all && !rest.empty())) {
      const std::string_view block = rest.substr(0, kBlockSize);
      rest.remove_prefix(block.size());
      const std::string packed = deflater_.Pack(block, folder.previous);
      std::string lengths;
      Put16(lengths, packed.size());
      Put16(lengths, block.size());
      Put32(folder.data, Checksum(lengths, Checksum(packed, 0)));
      folder.data += lengths;
      folder.data += packed;
      folder.previous = block;
      ++folder.blocks;
    }
    folder.pending.erase(0, folder.pending.size() - rest.size());
  }

  BlockDeflater deflater_;
  std::vector<Folder> folders_;
  std::vector<FileRecord> files_;
  bool ended_ = false;
};

/// What may have to be decompressed for a packed file: files beside it may shrink well, but not like a bomb.
std::size_t WorkCeiling(std::size_t cabinetSize, std::size_t ceiling) noexcept {
  constexpr std::size_t kAlways = std::size_t{1} << 20;
  constexpr std::size_t kTimes = 32;
  return std::min(ceiling, cabinetSize > kPackageCeiling ? kPackageCeiling : kAlways + kTimes * cabinetSize);
}

}  // namespace

Extraction ExtractCabinet(std::string_view cabinet, const std::string& cabFile, std::size_t ceiling) {
  LogLine(kExtractLabel, cabFile, kLogDetail);
  const auto refuse = [](const char* text, std::string why) {
    LogLine(kExtractLabel, text, kLogError);
    LogLine(kExtractLabel, why, kLogDetail);
    return Extraction{{}, {}, std::move(why)};
  };
  CabinetReader reader(cabinet);
  if (!reader.IsReady()) return refuse("FDICreate failed", "the cabinet reader can't be started");
  if (!CabinetReader::IsCabinet(cabinet)) return refuse("FDIIsCabinet returned FALSE", "it is no cabinet");
  constexpr char kFailure[] = "FDICopy returned false - failure";
  if (!reader.Open()) return refuse(kFailure, reader.Error());
  Extraction extraction;
  for (const auto& [name, content] : {std::pair(kPackName, &extraction.pack),
                                      std::pair(kMemoryFileName, &extraction.memoryFile)}) {
    if (!reader.Has(name)) continue;
    *content = reader.Extract(name, WorkCeiling(cabinet.size(), ceiling));
    if (!*content) return refuse(kFailure, reader.Error());
  }
  return extraction;
}

Extraction CabExtract(const std::string& cabFile) {
  if (cabFile.empty()) {
    constexpr char kNone[] = "CAB file NULL or empty";
    LogLine(kExtractLabel, kNone, kLogError);
    return {{}, {}, kNone};
  }
  std::error_code error;
  const std::optional<std::string> cabinet = ReadWholeFile(cabFile, kPackageCeiling, &error);
  if (cabinet) return ExtractCabinet(*cabinet, cabFile);
  LogLine(kExtractLabel, cabFile, kLogDetail);
  LogLine(kExtractLabel, error.message(), kLogDetail);
  return {{}, {}, "it can't be read: " + error.message()};
}

std::optional<std::string> CabExtractFile(const std::string& cabFile, std::string_view name) {
  const std::optional<std::string> cabinet = ReadWholeFile(cabFile, kPackageCeiling);
  if (!cabinet) return std::nullopt;
  CabinetReader reader(*cabinet);
  if (!reader.IsReady() || !reader.Open()) return std::nullopt;
  return reader.Extract(name, WorkCeiling(cabinet->size(), kPackageCeiling));
}

bool MakeCabinet(const char* const* files, std::int32_t count, const char* cabName, const char* cabPath) {
  if (files == nullptr || count < 1 || cabName == nullptr) return false;
  CabinetWriter writer;
  for (std::int32_t i = 0; i < count; ++i) {
    if (files[i] == nullptr) return false;
    const std::string_view entry = files[i];
    if (entry == "+") {
      writer.EndFolder();
    } else if (!writer.Add(std::string(entry))) {
      return false;
    }
  }
  const std::optional<std::string> cabinet = writer.Finish();
  if (!cabinet) return false;
  std::string path = cabPath != nullptr ? cabPath : "/";
  if (!path.empty() && !path.ends_with('/')) path += '/';
  return WriteWholeFile(path + cabName, *cabinet);
}

}  // namespace zeph
