// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/base/DebugLog.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <limits>
#include <mutex>
#include <optional>
#include <span>
#include <tuple>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/platform/NamedMutex.h"
#include "DetectionEngine/platform/SettingsHive.h"

namespace zeph {

namespace {

constexpr int kLevelNotSet = -1;
constexpr int kDefaultLevel = kLogDetail;
constexpr std::chrono::milliseconds kLogMutexLimit{1000};

/// What a line consists of and where it goes.
enum Switch : std::uint32_t {
  kAppendNewLine = 1,
  kOutputToDebugger = 2,
  kOutputToFile = 4,
  kPrependDateTime = 8,
  kPrependModuleName = 16,
  kPrependProcessId = 32,
  kPrependThreadId = 64,
  kPrependType = 128
};
constexpr std::uint32_t kDestinations = kOutputToDebugger | kOutputToFile;
constexpr std::uint32_t kDefaultSwitches = kAppendNewLine | kPrependDateTime | kPrependModuleName | kPrependType;

struct SwitchName {
  const char* name;
  Switch bit;
};
constexpr SwitchName kSwitchNames[] = {
    {"AppendNewLine", kAppendNewLine},         {"OutputToDebugger", kOutputToDebugger},
    {"OutputToFile", kOutputToFile},           {"PrependDateTime", kPrependDateTime},
    {"PrependModuleName", kPrependModuleName}, {"PrependProcessId", kPrependProcessId},
    {"PrependThreadId", kPrependThreadId},     {"PrependType", kPrependType},
};

/// The level that each "DebugType" stands for: nothing, everything, errors and warnings, errors. Another one changes
/// nothing.
constexpr int kDebugTypeLevels[] = {0, 6, 2, 1};

constexpr const char* kFileNames[] = {
    "zephUnknownComponent0.log", "zephServerEngine0.log", "zephServerWatchdog0.log",
    "zephSpoofMonitor0.log",     "zephPackageMgr0.log",   "zeph0.log",
    "zephRuleWizardDll0.log",    "zephAbnormalPage0.log", "zephClearCache0.log",
    "zephImageMatching0.log",
};

const char* FileNameOf(int module) {
  return kFileNames[module > 0 && module < static_cast<int>(std::size(kFileNames)) ? module : 0];
}

const char* TypeTextOf(int level) {
  switch (level) {
    case 1:
      return "Error";
    case 2:
      return "Warning";
    case 3:
    case 4:
    case 5:
    case 6:
      return "Information";
    default:
      return "";
  }
}

/// Switches and, above them, the level that "DebugType" forces, plus 1; 0 there: none.
constexpr int kForcedLevelShift = 16;

/// The settings as they were last read. Trivially destroyed, so that a thread may log while the process ends.
class LogSettings {
 public:
  /// Brings the settings up to date, applies "DebugType" to the level, and gives the switches.
  std::uint32_t Current() noexcept {
    LookAnew();
    const std::uint32_t published = published_.load(std::memory_order_relaxed);
    const int forced = static_cast<int>(published >> kForcedLevelShift) - 1;
    const int present = level.load(std::memory_order_relaxed);
    if (forced >= 0 && present != forced) {
      level.store(forced, std::memory_order_relaxed);
    } else if (present == kLevelNotSet) {
      int expected = kLevelNotSet;
      level.compare_exchange_strong(expected, kDefaultLevel, std::memory_order_relaxed);
    }
    return published;
  }

  /// The folder that the settings name; empty: none.
  std::string Directory() {
    const std::lock_guard guard(reading_);
    return {directory_.data(), directoryLength_};
  }

  // A child process finds the settings whole, and nobody who reads them.
  void BeforeFork() { reading_.lock(); }
  void AfterFork() { reading_.unlock(); }

  std::atomic<int> level{kLevelNotSet};

 private:
  static constexpr std::size_t kDirectoryLimit = 260;
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  static constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  /// A file that was written so recently may be written again without a change of its stamp.
  static constexpr std::int64_t kUnsettled = 100 * kNanosecondsPerMillisecond;
  /// A hive that gave no settings is read again after this time, should another process have held it.
  static constexpr std::int64_t kRetry = 1000 * kNanosecondsPerMillisecond;

  void LookAnew() noexcept {
    const std::int64_t tick = CoarseTick();
    const std::uint64_t generation = SettingsHive::Generation(HiveOwner::kMachine);
    if (generation == generation_.load(std::memory_order_acquire)) {
      // Of the threads that see the clock move one looks, and the others go on with what is known.
      std::int64_t lookedAt = lookedAt_.load(std::memory_order_relaxed);
      if (tick == lookedAt) return;
      if (!lookedAt_.compare_exchange_strong(lookedAt, tick, std::memory_order_relaxed)) return;
    }
    try {
      const std::lock_guard guard(reading_);
      Look(tick, generation);
    } catch (...) {  // for want of memory: what is known stays
    }
  }

  void Look(std::int64_t tick, std::uint64_t generation) {
    const SettingsHive hive(HiveOwner::kMachine);
    const FileStamp stamp = hive.Stamp();
    if (stamp != stamp_ || tick >= readAgainAt_ || generation != generation_.load(std::memory_order_relaxed)) {
      std::optional<SettingValues> values;
      if (stamp.Exists()) values = hive.ReadKey(kLogSettingsKey);
      Take(values.value_or(SettingValues()));
      stamp_ = stamp;
      const std::int64_t age = UtcNanoseconds() - stamp.lastWrite;
      readAgainAt_ = kNever;
      if (stamp.Exists() && !values) readAgainAt_ = tick + kRetry;
      if (stamp.Exists() && age >= 0 && age < kUnsettled) readAgainAt_ = tick;
    }
    generation_.store(generation, std::memory_order_release);
  }

  void Take(const SettingValues& values) {
    const auto number = [&values](const char* name) -> const std::uint32_t* {
      const auto found = values.find(name);
      return found == values.end() ? nullptr : std::get_if<std::uint32_t>(&found->second);
    };
    std::uint32_t published = kDefaultSwitches;
    for (const auto& [name, bit] : kSwitchNames) {
      if (const auto* value = number(name)) published = *value != 0 ? published | bit : published & ~bit;
    }
    if (const auto* type = number("DebugType"); type != nullptr && *type < std::size(kDebugTypeLevels)) {
      published |= static_cast<std::uint32_t>(kDebugTypeLevels[*type] + 1) << kForcedLevelShift;
    }
    directoryLength_ = 0;
    if (const auto found = values.find("Directory"); found != values.end()) {
      const auto* directory = std::get_if<std::string>(&found->second);
      if (directory != nullptr && directory->size() <= kDirectoryLimit) {
        directoryLength_ = directory->copy(directory_.data(), directory_.size());
      }
    }
    published_.store(published, std::memory_order_relaxed);
  }

  std::atomic<std::uint32_t> published_{kDefaultSwitches};
  std::atomic<std::int64_t> lookedAt_{-1};
  std::atomic<std::uint64_t> generation_{
      std::numeric_limits<std::uint64_t>::max()};  // so that the first lines all look

  std::mutex reading_;  // guards what follows
  FileStamp stamp_;
  std::int64_t readAgainAt_ = kNever;
  std::array<char, kDirectoryLimit> directory_{};
  std::size_t directoryLength_ = 0;
};

constinit LogSettings settings;

bool IsWanted(int level, std::uint32_t switches) noexcept {
  return (switches & kDestinations) != 0 && level <= settings.level.load(std::memory_order_relaxed);
}

/// Appends a text, each control character of it written as its number: a URL may hold line feeds, to forge a line, or
/// escape sequences, to play with the terminal that the log is read on.
void AppendVisibly(std::string& line, std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0; };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isTwoBytes = byte(i) == 0xC2 && byte(i + 1) >= 0x80 && byte(i + 1) < 0xA0;  // U+0080 to U+009F
    if (isTwoBytes) ++i;
    if (isTwoBytes || byte(i) < 0x20 || byte(i) == 0x7F) {
      line += {'\\', 'x', kDigits[byte(i) >> 4], kDigits[byte(i) & 0xF]};
    } else {
      line += text[i];
    }
  }
}

std::string MakeLine(std::uint32_t switches, const char* label, const char* text, int level) {
  std::string line;
  if ((switches & kPrependDateTime) != 0) line += FormatLogTime(LocalTime()) + " : ";
  const auto appendNumber = [&line](std::uint32_t number) {
    std::array<char, 16> piece;
    std::snprintf(piece.data(), piece.size(), "0x%x : ", number);
    line += piece.data();
  };
  if ((switches & kPrependProcessId) != 0) appendNumber(ProcessId());
  if ((switches & kPrependThreadId) != 0) appendNumber(ThreadId());
  if ((switches & kPrependModuleName) != 0) {
    AppendVisibly(line, label);
    line += " : ";
  }
  if ((switches & kPrependType) != 0) {
    line += TypeTextOf(level);
    line += " : ";
  }
  AppendVisibly(line, text);
  if ((switches & kAppendNewLine) != 0) line += '\n';
  return line;
}

/// Where the lines of a module go; empty: nowhere.
std::string LogPath(int module) {
  std::string path = settings.Directory();
  if (path.empty()) path = GetDataFolder();
  if (path.empty()) return {};
  if (path.back() != '/') path += '/';
  return path + FileNameOf(module);
}

/// zeph0.log becomes zeph1.log, that zeph2.log, and so on; the last one goes.
void Rotate(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  std::string stem = path.substr(0, dot);
  const std::string extension = path.substr(dot);
  if (stem.ends_with('0')) stem.pop_back();
  const auto numbered = [&](int number) { return stem + std::to_string(number) + extension; };
  RemoveFile(numbered(kLogFileCount - 1));
  for (int number = kLogFileCount - 1; number >= 1; --number) MoveFile(numbered(number - 1), numbered(number));
}

/// The lines that wait to be written, all of one module, and the writing of them. Trivially destroyed, as the settings
/// are. A line waits only while the thread that logged it is within a LogBatch, and not for long.
class Writer {
 public:
  /// Takes a line, and writes all that waits unless the line may wait too.
  void Take(int module, std::string_view line, bool mayWait) {
    if (!Lock()) return;
    const std::lock_guard unlocking(guard_, std::adopt_lock);
    if (count_ != 0 && (module != module_ || count_ == ends_.size() || line.size() > text_.size() - Length())) Write();
    module_ = module;
    if (line.size() > text_.size()) {
      Append(module, std::span(&line, 1));
      return;
    }
    const std::int64_t now = CoarseTick();
    if (count_ == 0) oldest_ = now;
    line.copy(text_.data() + Length(), line.size());
    ends_[count_] = Length() + line.size();
    waiting_.store(++count_, std::memory_order_relaxed);
    if (!mayWait || now - oldest_ > kLongestWait) Write();
  }

  /// Writes what waits.
  void Flush() {
    if (waiting_.load(std::memory_order_relaxed) == 0 || !Lock()) return;
    const std::lock_guard unlocking(guard_, std::adopt_lock);
    Write();
  }

  // A child process finds nothing to write, and the guard free.
  void BeforeFork() {
    guard_.lock();
    Write();
  }
  void AfterFork() { guard_.unlock(); }

 private:
  static constexpr std::int64_t kLongestWait = 100'000'000;  // nanoseconds

  [[nodiscard]] std::size_t Length() const noexcept { return count_ == 0 ? 0 : ends_[count_ - 1]; }

  /// Another thread may wait with the guard for another process, but no longer than that.
  bool Lock() { return guard_.try_lock_until(std::chrono::system_clock::now() + kLogMutexLimit); }

  /// With the guard.
  void Write() noexcept {
    if (count_ == 0) return;
    try {
      std::array<std::string_view, std::tuple_size_v<decltype(ends_)>> lines;
      for (std::size_t i = 0, begin = 0; i < count_; begin = ends_[i++]) {
        lines[i] = std::string_view(text_.data() + begin, ends_[i] - begin);
      }
      Append(module_, std::span(lines.data(), count_));
    } catch (...) {  // for want of memory the lines are lost, as lines may be
    }
    waiting_.store(count_ = 0, std::memory_order_relaxed);
  }

  /// Adds lines that lie behind each other, the file being rotated before each that finds it too long.
  static void Append(int module, std::span<const std::string_view> lines) {
    const std::string path = LogPath(module);
    NamedMutex mutex(NamedMutexName(u"ZEPH", u"LOG"));
    if (path.empty() || !mutex.TryLockFor(kLogMutexLimit)) return;
    std::uint64_t size = StampOf(path).size;
    const char* begin = lines.front().data();
    const auto appendUpTo = [&](const char* end) {
      if (begin != end) AppendToFile(path, {begin, end});
      begin = end;
    };
    for (const std::string_view line : lines) {
      if (size > kLogFileLimit) {
        appendUpTo(line.data());
        Rotate(path);
        size = 0;
      }
      size += line.size();
    }
    appendUpTo(lines.back().data() + lines.back().size());
  }

  std::timed_mutex guard_;
  std::atomic<std::size_t> waiting_{0};  ///< count_, for a look without the guard
  std::size_t count_ = 0;
  int module_ = 0;
  std::int64_t oldest_ = 0;
  std::array<char, 16384> text_{};
  std::array<std::size_t, 128> ends_{};  ///< of each line in text_
};

constinit Writer writer;

/// How many batches this thread is within.
constinit thread_local int batchDepth = 0;

/// The program has come to its end: nothing waits any more.
constinit std::atomic<bool> ending{false};

[[gnu::constructor]] void WatchForks() {
  AtFork(
      [] {
        writer.BeforeFork();
        settings.BeforeFork();
      },
      [] {
        settings.AfterFork();
        writer.AfterFork();
      });
}

[[gnu::destructor]] void WriteTheLast() {
  ending = true;
  writer.Flush();
}

}  // namespace

bool LogIsWanted(int level) noexcept { return IsWanted(level, settings.Current()); }

void DebugLog(const char* label, const char* text, const char*, int, int level, int module) {
  if (label == nullptr || text == nullptr) return;
  const std::uint32_t switches = settings.Current();
  if (!IsWanted(level, switches)) return;
  try {
    const std::string line = MakeLine(switches, label, text, level);
    if ((switches & kOutputToFile) != 0) writer.Take(module, line, batchDepth > 0 && !ending);
    if ((switches & kOutputToDebugger) != 0) std::fwrite(line.data(), 1, line.size(), stderr);
  } catch (...) {  // for want of memory the line is lost, as a line may be
  }
}

LogBatch::LogBatch() noexcept { ++batchDepth; }

LogBatch::~LogBatch() {
  if (--batchDepth == 0) writer.Flush();
}

std::string FormatLogTime(const CalendarTime& time) {
  std::array<char, 96> text;
  std::snprintf(text.data(), text.size(), "%.2d-%2d-%d %.2d:%.2d:%.2d.%hu", time.month, time.day, time.year, time.hour,
                time.minute, time.second, static_cast<unsigned short>(time.millisecond));
  return text.data();
}

void SetLogLevel(int level) noexcept { settings.level.store(level, std::memory_order_relaxed); }
int GetLogLevel() noexcept { return settings.level.load(std::memory_order_relaxed); }

}  // namespace zeph
