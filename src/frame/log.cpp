#include "frame/log.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>

#include "frame/constants.h"
#include "platform/handles.h"
#include "platform/platform.h"

namespace kel {

std::atomic<BOOL> g_bLogEnabled{0};

namespace {

// The formatter's buffer: a message, terminator included, fits in 1,024 bytes.
constexpr std::size_t kLogBufferSize = 1024;
// The timestamp's buffer: "[yyyy/mm/dd hh:mm:ss.mmm]" of 16-bit fields is
// never longer than 43 bytes.
constexpr std::size_t kStampBufferSize = 64;

// A plain buffer, never destroyed: records destroyed at unload still trace
// their last lines, and they must find the path intact.
char16_t g_szLogFilePath[kMaxPath] = {};  // guarded by PathLock()

// Deliberately never destroyed, for the same reason.
std::mutex& PathLock() {
  static std::mutex* lock = new std::mutex;
  return *lock;
}

std::size_t FormatTimestamp(char (&stamp)[kStampBufferSize], const platform::SystemTime& t) noexcept {
  const FormatArg fields[] = {t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds};
  return FormatNarrowInto(stamp, sizeof(stamp), "[%04d/%02d/%02d %02d:%02d:%02d.%03d]", fields,
                          sizeof(fields) / sizeof(fields[0]));
}

// One line to the file: open it anew, move to its end, write the timestamp
// and the message, close it. Returns the result of the message's write.
// Whatever the platform throws is swallowed: the line is lost, the caller
// goes on.
BOOL AppendLine(const char* stamp, std::size_t stampLength, const char* message, std::size_t messageLength) noexcept {
  try {
    char16_t path[kMaxPath];
    {
      std::lock_guard<std::mutex> lock(PathLock());
      std::copy(std::begin(g_szLogFilePath), std::end(g_szLogFilePath), std::begin(path));
    }
    auto& sys = platform::Current();
    platform::UniqueHandle file(sys.CreateFile(path, platform::GENERIC_WRITE,
                                               platform::FILE_SHARE_READ | platform::FILE_SHARE_WRITE,
                                               platform::OPEN_ALWAYS, platform::FILE_ATTRIBUTE_NORMAL));
    if (!file) return 0;
    BOOL ok = 0;
    try {
      // A pointer that did not move, or a stamp not written, only spoils
      // this line: the message's own write gives the result.
      (void)sys.SetFilePointer(file.get(), 0, platform::FILE_END);
      DWORD written = 0;
      (void)sys.WriteFile(file.get(), stamp, static_cast<DWORD>(stampLength), &written);
      written = 0;
      ok = sys.WriteFile(file.get(), message, static_cast<DWORD>(messageLength), &written);
    } catch (...) {
      ok = 0;
    }
    try {
      file.reset();
    } catch (...) {
      (void)file.release();  // a close that threw is not tried a second time
      return 0;
    }
    return ok;
  } catch (...) {
    return 0;
  }
}

// Lines traced while this thread must not touch the file wait here, each
// with the timestamp of its trace call, as records of a 16-bit timestamp
// length, a 16-bit message length, the timestamp and the message. The
// storage comes from malloc so that a failure is a null, not an exception,
// and it is given back at each flush: the thread-local object itself holds
// nothing that needs destroying when a thread ends (a module may be unloaded
// before the threads that called it end).
struct DeferredLines {
  bool deferring = false;
  char* bytes = nullptr;
  std::size_t size = 0;
  std::size_t capacity = 0;
};
thread_local DeferredLines t_deferred;

constexpr std::size_t kRecordHeader = 4;

// False when the memory for the line cannot be had; the line is dropped.
bool Defer(const char* stamp, std::size_t stampLength, const char* message, std::size_t messageLength) noexcept {
  DeferredLines& lines = t_deferred;
  const std::size_t needed = kRecordHeader + stampLength + messageLength;
  if (lines.capacity - lines.size < needed) {
    const std::size_t capacity = std::max({lines.capacity * 2, lines.size + needed, std::size_t{4096}});
    auto* grown = static_cast<char*>(std::realloc(lines.bytes, capacity));
    if (grown == nullptr) return false;
    lines.bytes = grown;
    lines.capacity = capacity;
  }
  char* record = lines.bytes + lines.size;
  const auto stampBytes = static_cast<std::uint16_t>(stampLength);
  const auto messageBytes = static_cast<std::uint16_t>(messageLength);
  std::memcpy(record, &stampBytes, 2);
  std::memcpy(record + 2, &messageBytes, 2);
  std::memcpy(record + kRecordHeader, stamp, stampLength);
  std::memcpy(record + kRecordHeader + stampLength, message, messageLength);
  lines.size += needed;
  return true;
}

}  // namespace

bool MakeLogFilePath() noexcept {
  try {
    auto& sys = platform::Current();
    WString folder;
    (void)sys.GetEnvironmentVariable(kLocalAppDataVariable, folder);  // unset: empty folder part
    if (folder.size() + 1 > kMaxPath) return false;
    WString path;
    if (!FormatWideInto(path, kMaxPath, u"%s\\Osk\\Kelbrook\\%s", {folder, kLogFileName})) {
      WriteDebugLog("%S log file path longer than %d characters, skipped\r\n", u"MakeLogFilePath",
                    static_cast<int>(kMaxPath - 1));
      return false;
    }
    std::lock_guard<std::mutex> lock(PathLock());
    std::copy(path.begin(), path.end(), g_szLogFilePath);
    g_szLogFilePath[path.size()] = 0;
    return true;
  } catch (...) {
    return false;  // the path stays as it was
  }
}

WString LogFilePath() {
  std::lock_guard<std::mutex> lock(PathLock());
  return WString(g_szLogFilePath);
}

void ResetLog() {
  g_bLogEnabled.store(0);
  std::lock_guard<std::mutex> lock(PathLock());
  g_szLogFilePath[0] = 0;
}

int WriteDebugLogArgs(const char* format, const FormatArg* args, std::size_t count) noexcept {
  if (g_bLogEnabled.load(std::memory_order_relaxed) == 0) return 1;
  if (format == nullptr) return 0;
  // The timestamp is the time of the trace call, also for a line that waits.
  platform::SystemTime now{};
  try {
    now = platform::Current().GetLocalTime();
  } catch (...) {
    return 0;
  }
  char stamp[kStampBufferSize];
  const std::size_t stampLength = FormatTimestamp(stamp, now);
  char message[kLogBufferSize];
  const std::size_t messageLength = FormatNarrowInto(message, sizeof(message), format, args, count);
  if (t_deferred.deferring) return Defer(stamp, stampLength, message, messageLength) ? 1 : 0;
  return AppendLine(stamp, stampLength, message, messageLength);
}

void DeferLogLines() noexcept { t_deferred.deferring = true; }

void FlushDeferredLogLines() noexcept {
  DeferredLines lines = t_deferred;
  t_deferred = DeferredLines{};  // lines traced while these are written go straight to the file
  for (std::size_t at = 0; at + kRecordHeader <= lines.size;) {
    std::uint16_t stampLength = 0;
    std::uint16_t messageLength = 0;
    std::memcpy(&stampLength, lines.bytes + at, 2);
    std::memcpy(&messageLength, lines.bytes + at + 2, 2);
    const char* stamp = lines.bytes + at + kRecordHeader;
    AppendLine(stamp, stampLength, stamp + stampLength, messageLength);
    at += kRecordHeader + stampLength + messageLength;
  }
  std::free(lines.bytes);
}

}  // namespace kel
