// The diagnostic log: one timestamped line per trace call, appended to
// KelbrookLogFS.txt under the user's local application data folder while the
// "DebugLog" switch is on.
#pragma once

#include <atomic>
#include <cstddef>

#include "frame/format.h"

namespace kel {

// The log switch. Read on every trace call, written by every re-reading of
// the registry switch; several threads do both.
extern std::atomic<BOOL> g_bLogEnabled;

// Builds the log file path from LOCALAPPDATA. False leaves the path as it was.
bool MakeLogFilePath();

// The current log file path (empty until built).
WString LogFilePath();

// Forgets the path and turns the switch off (library unload, tests).
void ResetLog();

// Writes one line: the bracketed local time, then the formatted message.
// Returns 1 when the log is off, 0 for a null format or a file that cannot be
// opened, else the result of the message's write.
int WriteDebugLogArgs(const char* format, const FormatArg* args, std::size_t count);

// The trace call. With the log off it costs one test of the switch.
template <typename... Args>
inline int WriteDebugLog(const char* format, const Args&... args) {
  if (g_bLogEnabled.load(std::memory_order_relaxed) == 0) return 1;
  const FormatArg list[] = {FormatArg(args)..., FormatArg(0)};
  return WriteDebugLogArgs(format, list, sizeof...(Args));
}

// The exit trace of an operation that returns an HRESULT: logs the name and
// the code, and hands the code back.
inline HRESULT TraceExit(const char16_t* name, HRESULT result) {
  WriteDebugLog("%S OUT(0x%08X)\r\n", name, result);
  return result;
}

}  // namespace kel
