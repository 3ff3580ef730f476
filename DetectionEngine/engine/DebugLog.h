// SPDX-License-Identifier: Apache-2.0
// The debug log. Writes nowhere unless the machine's settings say so; they are looked at anew for each
// line, so that a change takes effect in a running process. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace zeph {

enum LogLevel : int { kLogError = 1, kLogWarning = 2, kLogInformation = 3, kLogDetail = 4 };

/// The module number that selects the engine's own log file.
inline constexpr int kEngineModule = 5;

/// Writes one line by the settings; null label or text: nothing happens. source and code are not used.
void DebugLog(const char* label, const char* text, const char* source, int code, int level,
              int module = kEngineModule);

/// True when a line of this level would go anywhere at present. Costs a few nanoseconds while the log is
/// off, so that callers format a text only when it is wanted.
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

/// The process-wide level above which lines are dropped; -1 until it was set or the first line was logged.
void SetLogLevel(int level) noexcept;
[[nodiscard]] int GetLogLevel() noexcept;

}  // namespace zeph
