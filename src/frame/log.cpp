#include "frame/log.h"

#include <algorithm>
#include <mutex>
#include <string>

#include "frame/constants.h"
#include "platform/platform.h"

namespace kel {

std::atomic<BOOL> g_bLogEnabled{0};

namespace {

// The formatter's buffer: a message, terminator included, fits in 1,024 bytes.
constexpr std::size_t kLogBufferSize = 1024;

// A plain buffer, never destroyed: records destroyed at unload still trace
// their last lines, and they must find the path intact.
char16_t g_szLogFilePath[kMaxPath] = {};  // guarded by PathLock()

// Deliberately never destroyed, for the same reason.
std::mutex& PathLock() {
  static std::mutex* lock = new std::mutex;
  return *lock;
}

// A message longer than the buffer is cut to fit. The cut never splits a
// UTF-8 sequence, and a message that ended in a line break keeps it, so the
// file stays one line per trace call.
std::string FitToBuffer(std::string message) {
  const std::size_t limit = kLogBufferSize - 1;
  if (message.size() <= limit) return message;
  const bool endsWithLineBreak = message.size() >= 2 && message.compare(message.size() - 2, 2, "\r\n") == 0;
  std::size_t keep = endsWithLineBreak ? limit - 2 : limit;
  while (keep > 0 && (static_cast<unsigned char>(message[keep]) & 0xC0) == 0x80) --keep;
  message.resize(keep);
  if (endsWithLineBreak) message += "\r\n";
  return message;
}

std::string Timestamp(const platform::SystemTime& t) {
  std::string stamp = FormatNarrow("[%04d/%02d/%02d %02d:%02d:%02d.%03d]",
                                   {t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds});
  if (stamp.size() > kLogBufferSize - 1) stamp.resize(kLogBufferSize - 1);
  return stamp;
}

}  // namespace

bool MakeLogFilePath() {
  auto& sys = platform::Current();
  WString folder;
  sys.GetEnvironmentVariable(kLocalAppDataVariable, folder);  // unset: empty folder part
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

int WriteDebugLogArgs(const char* format, const FormatArg* args, std::size_t count) {
  if (g_bLogEnabled.load(std::memory_order_relaxed) == 0) return 1;
  if (format == nullptr) return 0;
  auto& sys = platform::Current();
  const WString path = LogFilePath();
  Handle file = sys.CreateFile(path.c_str(), platform::GENERIC_WRITE,
                               platform::FILE_SHARE_READ | platform::FILE_SHARE_WRITE,
                               platform::OPEN_ALWAYS, platform::FILE_ATTRIBUTE_NORMAL);
  if (file == platform::InvalidHandleValue() || file == nullptr) return 0;
  sys.SetFilePointer(file, 0, platform::FILE_END);

  const std::string stamp = Timestamp(sys.GetLocalTime());
  DWORD written = 0;
  sys.WriteFile(file, stamp.data(), static_cast<DWORD>(stamp.size()), &written);

  const std::string message = FitToBuffer(FormatNarrow(format, args, count));
  written = 0;
  const BOOL ok = sys.WriteFile(file, message.data(), static_cast<DWORD>(message.size()), &written);
  sys.CloseHandle(file);
  return ok;
}

}  // namespace kel
