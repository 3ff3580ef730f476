// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/RunNotes.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/Module.h"

namespace zeph {

namespace {

constexpr std::size_t kMaxNote = 16384;
constexpr std::size_t kMaxNotes = 4096;  ///< of a folder that are looked at

std::atomic<unsigned> counter{0};  ///< several threads may load at once
std::atomic<bool> hasNote{false};
std::atomic<bool> hasSwept{false};

std::string Folder() {
  const std::string user = UserFolder();
  return user.empty() ? std::string() : user + "/run";
}

/// What tells a process from a later one of the same number: when it started, in ticks since the system did. Empty when
/// there is no such process.
std::string StartOf(std::uint32_t process) {
  const std::optional<std::string> status = ReadWholeFile("/proc/" + std::to_string(process) + "/stat", kMaxNote);
  if (!status) return {};
  // The second field is the program's name, which may hold anything, in brackets; the start is the 22nd.
  std::size_t at = status->rfind(')');
  for (int field = 2; field < 22 && at != std::string::npos; ++field) at = status->find(' ', at + 1);
  return at == std::string::npos ? std::string() : status->substr(at + 1, status->find(' ', at + 1) - at - 1);
}

/// Process numbers count within it: containers that share a home have the same numbers for others.
std::string NumberSpace() {
  struct stat status {};
  return stat("/proc/self/ns/pid", &status) == 0 ? std::to_string(status.st_ino) : "0";
}

std::string NotePath(const std::string& folder) {
  return folder + "/" + NumberSpace() + "-" + std::to_string(ProcessId());
}

/// One line each, so without line feeds.
void AddLine(std::string& text, std::string_view line) {
  for (const char c : line) text += c == '\n' ? '?' : c;
  text += '\n';
}

std::string TakeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string line(text.substr(0, end));
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

std::string Absolute(const std::string& path) {
  std::array<char, PATH_MAX> folder{};
  if (path.starts_with('/') || getcwd(folder.data(), folder.size()) == nullptr) return path;
  return std::string(folder.data()) + "/" + path;
}

/// A regular file of this user; links aren't followed.
std::optional<std::string> ReadNote(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid()) return std::nullopt;
  return ReadWholeFile(path, kMaxNote);
}

}  // namespace

std::string Sha256Hex(std::string_view bytes) {
  std::array<unsigned char, 32> digest;
  std::size_t length = digest.size();
  if (EVP_Q_digest(nullptr, "SHA256", nullptr, bytes.data(), bytes.size(), digest.data(), &length) != 1) return {};
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

void WriteRunNote(const RunNote& note) noexcept {
  try {
    if (HasRaisedPrivileges()) return;
    const std::string folder = Folder();
    if (folder.empty() || !MakePrivateFolder(folder)) return;
    if (!hasSwept.exchange(true)) static_cast<void>(ReadRunNotes());
    std::string text;
    AddLine(text, StartOf(ProcessId()));
    AddLine(text, Absolute(note.package));
    AddLine(text, note.follows);
    AddLine(text, note.digest);
    AddLine(text, std::to_string(note.loadedAt));
    // Not synced to the disk: what a crash of the machine loses, it has made wrong.
    const std::string path = NotePath(folder);
    const std::string part = path + "." + std::to_string(counter.fetch_add(1)) + ".part";
    const int file = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (file < 0) return;
    const bool isWritten = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (close(file) == 0 && isWritten && MoveFile(part, path)) {
      hasNote = true;
    } else {
      RemoveFile(part);
    }
  } catch (...) {  // no note then
  }
}

void RemoveRunNote() noexcept {
  try {
    if (!hasNote.exchange(false)) return;
    // A child of a fork has inherited the mark, but not the note, which bears its parent's number.
    RemoveFile(NotePath(Folder()));
  } catch (...) {
  }
}

std::vector<RunNote> ReadRunNotes() {
  std::vector<RunNote> notes;
  const std::string folder = Folder();
  if (folder.empty()) return notes;
  DIR* const entries = opendir(folder.c_str());
  if (entries == nullptr) return notes;
  const std::string ours = NumberSpace() + "-";
  std::vector<std::string> names;
  while (const dirent* const entry = readdir(entries)) {
    if (names.size() < kMaxNotes && std::string_view(entry->d_name).starts_with(ours)) names.emplace_back(entry->d_name);
  }
  closedir(entries);
  for (const std::string& name : names) {
    RunNote note;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + ours.size(), end, note.process);
    if (error != std::errc{}) continue;
    const std::string path = folder + "/" + name;
    const std::string start = StartOf(note.process);
    if (rest != end) {  // one that is being written, or was when its process ended
      if (start.empty()) RemoveFile(path);
      continue;
    }
    const std::optional<std::string> text = ReadNote(path);
    if (!text) continue;
    std::string_view left = *text;
    if (start.empty() || TakeLine(left) != start) {
      RemoveFile(path);
      continue;
    }
    note.package = TakeLine(left);
    note.follows = TakeLine(left);
    note.digest = TakeLine(left);
    const std::string loadedAt = TakeLine(left);
    std::from_chars(loadedAt.data(), loadedAt.data() + loadedAt.size(), note.loadedAt);
    const auto program = ReadWholeFile("/proc/" + std::to_string(note.process) + "/comm", kMaxNote);
    if (program) note.program = program->substr(0, program->find('\n'));
    notes.push_back(std::move(note));
  }
  std::ranges::sort(notes, {}, &RunNote::process);
  return notes;
}

}  // namespace zeph
