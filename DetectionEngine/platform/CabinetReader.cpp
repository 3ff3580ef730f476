// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/CabinetReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <errno.h>
#include <fcntl.h>
#include <mspack.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zeph {

namespace {

constexpr std::string_view kSignature = "MSCF";
constexpr std::size_t kHeaderSize = 36;
constexpr std::size_t kMajorVersionAt = 25;
constexpr char kMajorVersion = 1;

/// What the library opens: the cabinet in memory to read, or a file to write.
struct Stream : mspack_file {
  std::string_view bytes;
  off_t position = 0;
  int output = -1;
};

/// The library's view of the outside. The cabinet has the empty name, everything else is a file to write.
struct MemorySystem : mspack_system {
  std::string_view bytes;
};

Stream& StreamOf(mspack_file* file) noexcept { return *static_cast<Stream*>(file); }

mspack_file* OpenStream(mspack_system* self, const char* name, int mode) {
  auto stream = std::make_unique<Stream>();
  if (mode == MSPACK_SYS_OPEN_READ) {
    stream->bytes = static_cast<MemorySystem*>(self)->bytes;
  } else {
    // A file is made, never followed: what has the name, be it a link, goes first.
    if (unlink(name) != 0 && errno != ENOENT) return nullptr;
    stream->output = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (stream->output < 0) return nullptr;
  }
  return stream.release();
}

void CloseStream(mspack_file* file) {
  const std::unique_ptr<Stream> stream(&StreamOf(file));
  if (stream->output >= 0) close(stream->output);
}

int ReadStream(mspack_file* file, void* buffer, int count) {
  Stream& stream = StreamOf(file);
  if (stream.output >= 0 || count < 0) return -1;
  const std::size_t at = std::min(static_cast<std::size_t>(stream.position), stream.bytes.size());
  const std::size_t length = std::min(static_cast<std::size_t>(count), stream.bytes.size() - at);
  std::memcpy(buffer, stream.bytes.data() + at, length);
  stream.position += static_cast<off_t>(length);
  return static_cast<int>(length);
}

int WriteStream(mspack_file* file, void* buffer, int count) {
  const Stream& stream = StreamOf(file);
  int done = 0;
  while (done < count) {
    const ssize_t written =
        write(stream.output, static_cast<const char*>(buffer) + done, static_cast<std::size_t>(count - done));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return -1;
    done += static_cast<int>(written);
  }
  return done;
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
    case MSPACK_ERR_OPEN:
      return "a file can't be made";
    case MSPACK_ERR_WRITE:
      return "a file can't be written";
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

DosTraits TraitsOf(const mscabd_file& file) noexcept {
  return {static_cast<std::uint16_t>((file.date_y - 1980) << 9 | file.date_m << 5 | file.date_d),
          static_cast<std::uint16_t>(file.time_h << 11 | file.time_m << 5 | file.time_s >> 1),
          static_cast<std::uint16_t>(file.attribs & kCabinetAttributes)};
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
  std::vector<mscabd_file*> files;
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
  library.cabinet = library.decompressor->open(library.decompressor, "");
  if (library.cabinet == nullptr) {
    error_ = TextOfError(library.decompressor->last_error(library.decompressor));
    return false;
  }
  if ((library.cabinet->flags & (MSCAB_HDR_PREVCAB | MSCAB_HDR_NEXTCAB)) != 0) {
    error_ = "the cabinet is a part of a set";
    return false;
  }
  // The library goes on in a folder where it stands, and begins anew for what lies before that or in another folder.
  const mscabd_folder* folder = nullptr;
  std::uint64_t reached = 0;
  for (mscabd_file* file = library.cabinet->files; file != nullptr; file = file->next) {
    const int method = MSCABD_COMP_METHOD(file->folder->comp_type);
    if (method != MSCAB_COMP_NONE && method != MSCAB_COMP_MSZIP) {
      error_ = "the cabinet is compressed in a way that isn't read";
      return false;
    }
    if (file->folder != folder || file->offset < reached) reached = 0;
    folder = file->folder;
    const std::uint64_t end = std::uint64_t{file->offset} + file->length;
    library.files.push_back(file);
    members_.push_back({file->filename, file->length, end - reached, TraitsOf(*file)});
    reached = end;
  }
  return true;
}

bool CabinetReader::Extract(std::size_t member, const std::string& path) {
  const Library& library = *library_;
  const int result = library.decompressor->extract(library.decompressor, library.files[member], path.c_str());
  if (result != MSPACK_ERR_OK) {
    error_ = TextOfError(result);
  } else if (!ApplyDosTraits(path, members_[member].traits)) {
    error_ = "a file's time can't be set";
  } else {
    return true;
  }
  unlink(path.c_str());
  return false;
}

}  // namespace zeph
