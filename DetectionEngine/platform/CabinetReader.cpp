// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/CabinetReader.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <mspack.h>

namespace zeph {

namespace {

constexpr std::string_view kSignature = "MSCF";
constexpr std::size_t kHeaderSize = 36;
constexpr std::size_t kMajorVersionAt = 25;
constexpr char kMajorVersion = 1;
constexpr std::size_t kFolderCountAt = 26;

/// What the library opens: the cabinet to read, or the text that a file goes to.
struct Stream : mspack_file {
  std::string_view bytes;
  off_t position = 0;
  std::string* output = nullptr;
};

/// The library's view of the outside: one thing to read, one to write, whatever their names.
struct MemorySystem : mspack_system {
  std::string_view bytes;
  std::string output;  ///< its room is reserved, so that nothing is thrown through the library
};

Stream& StreamOf(mspack_file* file) noexcept { return *static_cast<Stream*>(file); }

mspack_file* OpenStream(mspack_system* self, const char*, int mode) {
  auto& system = *static_cast<MemorySystem*>(self);
  auto* const stream = new (std::nothrow) Stream();
  if (stream == nullptr) return nullptr;
  if (mode == MSPACK_SYS_OPEN_READ) {
    stream->bytes = system.bytes;
  } else {
    stream->output = &system.output;
  }
  return stream;
}

void CloseStream(mspack_file* file) { delete &StreamOf(file); }

int ReadStream(mspack_file* file, void* buffer, int count) {
  Stream& stream = StreamOf(file);
  if (stream.output != nullptr || count < 0) return -1;
  const std::size_t at = std::min(static_cast<std::size_t>(stream.position), stream.bytes.size());
  const std::size_t length = std::min(static_cast<std::size_t>(count), stream.bytes.size() - at);
  std::memcpy(buffer, stream.bytes.data() + at, length);
  stream.position += static_cast<off_t>(length);
  return static_cast<int>(length);
}

int WriteStream(mspack_file* file, void* buffer, int count) {
  std::string* const output = StreamOf(file).output;
  if (output == nullptr || count < 0 || static_cast<std::size_t>(count) > output->capacity() - output->size()) return -1;
  output->append(static_cast<const char*>(buffer), static_cast<std::size_t>(count));
  return count;
}

int SeekStream(mspack_file* file, off_t offset, int mode) {
  Stream& stream = StreamOf(file);
  const auto size = static_cast<off_t>(stream.bytes.size());
  const off_t base = mode == MSPACK_SYS_SEEK_START ? 0 : mode == MSPACK_SYS_SEEK_CUR ? stream.position : size;
  if (offset < -base || offset > size - base) return -1;
  stream.position = base + offset;
  return 0;
}

off_t TellStream(mspack_file* file) { return StreamOf(file).position; }

void DropMessage(mspack_file*, const char*, ...) {}

void* Allocate(mspack_system*, size_t count) { return std::malloc(count); }

void Copy(void* from, void* to, size_t count) { std::memcpy(to, from, count); }

const char* TextOfError(int code) noexcept {
  switch (code) {
    case MSPACK_ERR_READ:
    case MSPACK_ERR_SEEK:
      return "the cabinet ends early";
    case MSPACK_ERR_NOMEMORY:
      return "out of memory";
    case MSPACK_ERR_CHECKSUM:
      return "a data block has the wrong checksum";
    case MSPACK_ERR_DECRUNCH:
      return "a data block can't be decompressed";
    default:
      return "the cabinet is broken";
  }
}

}  // namespace

struct CabinetReader::Library {
  explicit Library(std::string_view bytes) : system{} {
    system.open = OpenStream;
    system.close = CloseStream;
    system.read = ReadStream;
    system.write = WriteStream;
    system.seek = SeekStream;
    system.tell = TellStream;
    system.message = DropMessage;
    system.alloc = Allocate;
    system.free = std::free;
    system.copy = Copy;
    system.bytes = bytes;
    int selfTest = MSPACK_ERR_OK;
    MSPACK_SYS_SELFTEST(selfTest);
    if (selfTest == MSPACK_ERR_OK) decompressor = mspack_create_cab_decompressor(&system);
  }
  ~Library() {
    if (cabinet != nullptr) decompressor->close(decompressor, cabinet);
    if (decompressor != nullptr) mspack_destroy_cab_decompressor(decompressor);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  MemorySystem system;
  mscab_decompressor* decompressor = nullptr;
  mscabd_cabinet* cabinet = nullptr;

  [[nodiscard]] mscabd_file* Find(std::string_view name) const noexcept {
    mscabd_file* found = nullptr;
    for (mscabd_file* file = cabinet != nullptr ? cabinet->files : nullptr; file != nullptr; file = file->next) {
      if (name == file->filename) found = file;
    }
    return found;
  }
};

CabinetReader::CabinetReader(std::string_view bytes) : library_(std::make_unique<Library>(bytes)) {}

CabinetReader::~CabinetReader() = default;

bool CabinetReader::IsReady() const noexcept { return library_->decompressor != nullptr; }

bool CabinetReader::IsCabinet(std::string_view bytes) noexcept {
  return bytes.size() >= kHeaderSize && bytes.starts_with(kSignature) && bytes[kMajorVersionAt] == kMajorVersion;
}

bool CabinetReader::Open() {
  Library& library = *library_;
  if (!IsReady() || library.cabinet != nullptr) return false;
  const std::string_view bytes = library.system.bytes;
  const auto byteAt = [bytes](std::size_t at) { return std::size_t{static_cast<std::uint8_t>(bytes[at])}; };
  if (!IsCabinet(bytes) || (byteAt(kFolderCountAt) | byteAt(kFolderCountAt + 1) << 8) > kMostFolders) {
    error_ = "the cabinet has more folders than any package";
    return false;
  }
  library.cabinet = library.decompressor->open(library.decompressor, "");
  if (library.cabinet == nullptr) {
    error_ = TextOfError(library.decompressor->last_error(library.decompressor));
    return false;
  }
  if ((library.cabinet->flags & (MSCAB_HDR_PREVCAB | MSCAB_HDR_NEXTCAB)) != 0) {
    error_ = "the cabinet is a part of a set";
    return false;
  }
  return true;
}

bool CabinetReader::Has(std::string_view name) const noexcept { return library_->Find(name) != nullptr; }

std::optional<std::string> CabinetReader::Extract(std::string_view name, std::size_t ceiling) {
  Library& library = *library_;
  const auto refuse = [this](std::string why) {
    error_ = std::move(why);
    return std::nullopt;
  };
  mscabd_file* const file = library.Find(name);
  if (file == nullptr) return refuse("there is no such file");
  const int method = MSCABD_COMP_METHOD(file->folder->comp_type);
  if (method != MSCAB_COMP_NONE && method != MSCAB_COMP_MSZIP) {
    return refuse("the cabinet is compressed in a way that isn't read");
  }
  if (std::uint64_t{file->offset} + file->length > ceiling) {
    return refuse(std::string(name) + " is longer than any package's");
  }
  std::string& output = library.system.output;
  output.clear();
  output.reserve(file->length);
  const int result = library.decompressor->extract(library.decompressor, file, "");
  if (result != MSPACK_ERR_OK) return refuse(TextOfError(result));
  return std::exchange(output, {});
}

}  // namespace zeph
