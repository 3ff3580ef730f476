// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/Module.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include <elf.h>
#include <link.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <unistd.h>

#include "DetectionEngine/platform/Files.h"

namespace zeph {

namespace {

constexpr char kVersionNoteName[] = "Zeph";
constexpr std::uint32_t kVersionNoteType = 1;

/// The version as it lies in the module's file: an ELF note, which is found by the program headers and so outlives
/// the stripping of symbols and sections.
struct VersionNote {
  ElfW(Nhdr) header;
  char name[8];
  std::uint16_t version[4];
};
static_assert(offsetof(VersionNote, version) == 20 && sizeof(VersionNote) == 28, "a note has no gaps");

[[gnu::section(".note.zeph.version"), gnu::used]] alignas(4) constinit const VersionNote versionNote = {
    {sizeof(kVersionNoteName), sizeof(VersionNote::version), kVersionNoteType},
    "Zeph",
    {ZEPH_VERSION_MAJOR, ZEPH_VERSION_MINOR, ZEPH_VERSION_PATCH, 0}};

/// The first bytes of a module of this machine's kind.
constexpr unsigned char kOwnKind[] = {ELFMAG0,
                                      ELFMAG1,
                                      ELFMAG2,
                                      ELFMAG3,
                                      sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32,
                                      std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB};

template <class Record>
std::span<char> Bytes(Record& record) {
  return {reinterpret_cast<char*>(&record), sizeof(record)};
}

/// False when the file ends before.
bool ReadAt(std::ifstream& file, std::uint64_t offset, std::span<char> bytes) {
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::streamoff>::max())) return false;
  file.clear();
  return file.seekg(static_cast<std::streamoff>(offset)) &&
         file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// Looks through the notes of a segment.
std::optional<FileVersion> FindVersion(std::span<const char> notes) {
  const auto padded = [](std::uint64_t size) { return (size + 3) / 4 * 4; };
  while (notes.size() >= sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) header;
    std::memcpy(&header, notes.data(), sizeof(header));
    notes = notes.subspan(sizeof(header));
    const std::uint64_t nameSize = padded(header.n_namesz);
    const std::uint64_t contentSize = padded(header.n_descsz);
    if (nameSize + contentSize > notes.size()) return {};
    const std::string_view name(notes.data(), header.n_namesz);
    FileVersion version;
    if (name == std::string_view(kVersionNoteName, sizeof(kVersionNoteName)) && header.n_type == kVersionNoteType &&
        header.n_descsz == sizeof(version)) {
      std::memcpy(version.data(), notes.data() + nameSize, sizeof(version));
      return version;
    }
    notes = notes.subspan(nameSize + contentSize);
  }
  return {};
}

}  // namespace

std::string ModulePath() {
  struct Search {
    std::uintptr_t address = reinterpret_cast<std::uintptr_t>(&versionNote);
    std::optional<std::string> name;  // empty text: the program itself
  } search;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* data) {
        auto& wanted = *static_cast<Search*>(data);
        const std::span segments(info->dlpi_phdr, info->dlpi_phnum);
        const bool holds = std::ranges::any_of(segments, [&](const ElfW(Phdr) & segment) {
          return segment.p_type == PT_LOAD && wanted.address - (info->dlpi_addr + segment.p_vaddr) < segment.p_memsz;
        });
        if (holds) wanted.name = info->dlpi_name;
        return holds ? 1 : 0;
      },
      &search);
  if (!search.name) return {};
  std::error_code error;
  const std::filesystem::path path = search.name->empty() ? std::filesystem::read_symlink("/proc/self/exe", error)
                                                          : std::filesystem::absolute(*search.name, error);
  return error ? std::string() : path.lexically_normal().string();
}

std::optional<FileVersion> ReadVersionResource(const std::string& path) {
  // Real modules have about a dozen segments, and some hundred bytes of notes.
  constexpr int kMostSegments = 256;
  std::uint64_t noteBytesLeft = 262144;
  std::error_code error;
  if (!FileExists(path) || !std::filesystem::is_regular_file(path, error)) return {};
  std::ifstream file(path, std::ios::binary);

  ElfW(Ehdr) header;
  if (!ReadAt(file, 0, Bytes(header)) || std::memcmp(header.e_ident, kOwnKind, sizeof(kOwnKind)) != 0 ||
      header.e_phentsize != sizeof(ElfW(Phdr)) || header.e_phnum > kMostSegments) {
    return {};
  }
  for (int i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) segment;
    if (!ReadAt(file, header.e_phoff + static_cast<std::uint64_t>(i) * sizeof(segment), Bytes(segment))) return {};
    if (segment.p_type != PT_NOTE || segment.p_filesz > noteBytesLeft) continue;
    noteBytesLeft -= segment.p_filesz;
    std::vector<char> notes(segment.p_filesz);
    if (!ReadAt(file, segment.p_offset, notes)) continue;
    if (const auto version = FindVersion(notes)) return version;
  }
  return {};
}

std::uint32_t ProcessId() noexcept { return static_cast<std::uint32_t>(getpid()); }
std::uint32_t ThreadId() noexcept { return static_cast<std::uint32_t>(gettid()); }

void AtFork(void (*before)(), void (*after)()) { pthread_atfork(before, after, after); }

bool HasRaisedPrivileges() noexcept { return getauxval(AT_SECURE) != 0; }

std::optional<std::string> TrustedEnvironment(const char* name) {
  const char* value = secure_getenv(name);
  if (value == nullptr || *value == '\0') return {};
  return value;
}

void DropHostileEnvironment() noexcept {
  if (!HasRaisedPrivileges()) return;
  for (const char* name : {"SSLKEYLOGFILE", "CURL_SSL_BACKEND", "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy",
                           "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
    unsetenv(name);
  }
}

}  // namespace zeph
