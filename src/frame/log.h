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
bool MakeLogFilePath() noexcept;

// The current log file path (empty until built).
WString LogFilePath();

// Forgets the path and turns the switch off (library unload, tests).
void ResetLog();

// Writes one line: the bracketed local time, then the formatted message, cut
// to fit its 1,024-byte buffer. Formats on the stack: a trace line costs no
// heap, whatever the length of its arguments. Never fails its caller: a line
// that cannot be written is lost. Returns 1 when the log is off, 0 for a null
// format, a file that cannot be opened or a platform that failed, 1 for a
// line deferred (0 if it had to be dropped), else the result of the
// message's write.
int WriteDebugLogArgs(const char* format, const FormatArg* args, std::size_t count) noexcept;

// While a thread holds the catalogue lock it must not do file I/O, so its
// trace lines wait in memory, each with the time of its trace call, until the
// lock is let go of. DeferLogLines starts the waiting for the calling thread;
// FlushDeferredLogLines writes the waiting lines in order and ends it. A line
// that finds no memory to wait in is dropped.
void DeferLogLines() noexcept;
void FlushDeferredLogLines() noexcept;

// The trace call. With the log off it costs one test of the switch.
template <typename... Args>
inline int WriteDebugLog(const char* format, const Args&... args) noexcept {
  if (g_bLogEnabled.load(std::memory_order_relaxed) == 0) return 1;
  const FormatArg list[] = {FormatArg(args)..., FormatArg(0)};
  return WriteDebugLogArgs(format, list, sizeof...(Args));
}

// The exit line of an operation: its name and the code it ends with. For an
// operation that gives back something other than that code.
inline void WriteExitLine(const char16_t* name, HRESULT result) noexcept {
  WriteDebugLog("%S OUT(0x%08X)\r\n", name, result);
}

// The exit trace of an operation that returns an HRESULT: logs the exit line
// and hands the code back, to be returned.
[[nodiscard]] inline HRESULT TraceExit(const char16_t* name, HRESULT result) noexcept {
  WriteExitLine(name, result);
  return result;
}

}  // namespace kel
