// SPDX-License-Identifier: Apache-2.0
// The debug log. Writes nowhere unless the machine's settings say so, which a running process follows: the values under
// kLogSettingsKey in the machine's hive (docs/integration.md lists them). Any thread.
//
// Each line goes by the settings as they stand. The hive's file is looked at only once the coarse clock has moved (a
// few milliseconds) or this process has changed the hive; between these, a line is decided on atomics alone.
//
// A line is in the file when the call that logged it returns, or within a LogBatch when that ends. Lines of one process
// keep their order.
//
// A line stays one line whatever URL it tells of: control characters in label and text are written as "\x0A". Lines of
// several processes and threads go into one file under a named lock that is waited for at most a second; a line that
// doesn't get it, or whose file can't be opened, is lost. Files are rotated past kLogFileLimit bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace zeph {

struct CalendarTime;

enum LogLevel : int { kLogError = 1, kLogWarning = 2, kLogInformation = 3, kLogDetail = 4 };

/// The module number that selects the engine's own log file.
inline constexpr int kEngineModule = 5;

/// Where the settings of the log stand in the machine's hive.
inline constexpr std::string_view kLogSettingsKey = "Software\\Corvanta\\Shared Agent\\Debug\\DebugOutput";
/// A log file with more bytes than this is renamed, zeph0.log becoming zeph1.log, before the next line.
inline constexpr std::uint64_t kLogFileLimit = 3000000;
/// Log files kept, the current one among them.
inline constexpr int kLogFileCount = 3;

/// Writes one line by the settings; null label or text: nothing happens. source and code are not used.
void DebugLog(const char* label, const char* text, const char* source, int code, int level, int module = kEngineModule);

/// True when a line of this level would go anywhere at present. Costs some ten nanoseconds, so that callers format a
/// text only when it is wanted. The first call of a process makes a level of -1 to 4; a "DebugType" in the settings
/// sets the level with each call.
[[nodiscard]] bool LogIsWanted(int level) noexcept;

/// A line of a ready text.
inline void LogLine(const char* label, std::string_view text, int level, int code = 0) {
  if (LogIsWanted(level)) DebugLog(label, std::string(text).c_str(), "", code, level);
}

/// A line whose text is made only if it is wanted: makeText() gives a std::string.
template <class MakeText>
requires requires(MakeText make) { std::string(make()); }
void LogLine(const char* label, MakeText&& makeText, int level, int code = 0) {
  if (LogIsWanted(level)) DebugLog(label, std::string(std::forward<MakeText>(makeText)()).c_str(), "", code, level);
}

/// While it lives, this thread's lines may wait, to be written with one taking of the lock and one write when the
/// outermost one ends (or another thread writes, the process forks or ends, or a tenth of a second has passed at the
/// next line). For a stretch that ends soon and waits for nobody.
class [[nodiscard]] LogBatch {
 public:
  LogBatch() noexcept;
  ~LogBatch();
  LogBatch(const LogBatch&) = delete;
  LogBatch& operator=(const LogBatch&) = delete;
};

/// The time as a line begins with it, such as "11- 5-2007 09:04:03.7": milliseconds aren't padded.
[[nodiscard]] std::string FormatLogTime(const CalendarTime& time);

/// The process-wide level above which lines are dropped; -1 until it was set or the first line was logged.
void SetLogLevel(int level) noexcept;
[[nodiscard]] int GetLogLevel() noexcept;

}  // namespace zeph
