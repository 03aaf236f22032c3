// host_tests.exe: tests of the built Kelbrook.dll, run the way a host runs it.
//
//   host_tests.exe DLLPATH TESTNAME
//
// Loads the DLL with LoadLibraryW, looks its exports up with GetProcAddress,
// runs the one named test and prints "PASS name" or "FAIL name: reason".
// Exit code 0 on PASS, 1 on FAIL, 2 on bad usage. Meant to run under Wine in
// the prefix prepared by wine_prefix.sh (which registers the "kelrec" protocol
// with recorder.exe as its handler), one test per process so that every test
// starts with a freshly loaded library.
//
// Several tests set values under HKCU\Software\Osk\Kelbrook and remove them
// again (before and after), so they must not run at the same time as each other.

#include "support/wine_test_support.h"

#include <shellapi.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Kelbrook.h"

using namespace wine_test;

namespace {

// ---------------------------------------------------------------------------
// The log's folder

const wchar_t kTempPrefix[] = L"kelhost";  // of the test's temporary folders

// Points LOCALAPPDATA at `folder` and creates Osk\Kelbrook in it, the folder
// the log file goes to. Returns the log file's path.
std::wstring UseLocalAppData(const std::wstring& folder) {
  SetEnvironment(L"LOCALAPPDATA", folder);
  CreateDirectoryW((folder + L"\\Osk").c_str(), nullptr);
  std::wstring logFolder = folder + L"\\Osk\\Kelbrook";
  if (!CreateDirectoryW(logFolder.c_str(), nullptr)) Fail("cannot create " + Narrow(logFolder));
  return logFolder + L"\\KelbrookLogFS.txt";
}

// The library's settings cleared and its log sent to a temporary
// LOCALAPPDATA, for the test's lifetime.
struct LogFolderScope {
  SettingsScope settings;
  TempFolder localAppData{kTempPrefix};
  std::wstring logPath = UseLocalAppData(localAppData.Path());
};

// ---------------------------------------------------------------------------
// The refresh thread

// The name of the refresh thread's stop event for this process.
std::wstring StopEventName() { return L"Local\\KEL_Event_Exit_RefreshThread" + std::to_wstring(GetCurrentProcessId()); }

// While this object lives, KelInitialize cannot start the refresh thread: a
// mutex holds the name its stop event needs, so creating the event fails and
// KelInitialize returns E_FAIL. The log writer takes no lock, so a refresh
// thread writing at the same moment as the calling thread could interleave
// lines; without the thread every line of the log comes from the test.
class RefreshThreadBlocker {
 public:
  RefreshThreadBlocker() : mutex_(CreateMutexW(nullptr, FALSE, StopEventName().c_str())) {
    if (mutex_ == nullptr)
      Fail(Format("CreateMutexW(%s) failed with error %lu", Narrow(StopEventName()).c_str(), GetLastError()));
  }
  ~RefreshThreadBlocker() { CloseHandle(mutex_); }
  RefreshThreadBlocker(const RefreshThreadBlocker&) = delete;
  RefreshThreadBlocker& operator=(const RefreshThreadBlocker&) = delete;

 private:
  HANDLE mutex_;
};

// Holds the loader lock while it lives. A new thread takes that lock before it
// runs its first instruction of user code, so a thread started meanwhile waits
// until this object is gone. Used to let KelInitialize finish its own log lines
// before the refresh thread it starts writes any.
//
// Should the library wait for such a thread while the lock is held, it would
// never return; a watchdog, started before the lock is taken, then reports the
// failure and ends the process after 30 s.
class LoaderLockHold {
 public:
  LoaderLockHold() {
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    lock_ = reinterpret_cast<LockFunction>(reinterpret_cast<void*>(GetProcAddress(ntdll, "LdrLockLoaderLock")));
    unlock_ = reinterpret_cast<UnlockFunction>(reinterpret_cast<void*>(GetProcAddress(ntdll, "LdrUnlockLoaderLock")));
    if (lock_ == nullptr || unlock_ == nullptr) Fail("ntdll has no LdrLockLoaderLock/LdrUnlockLoaderLock");

    started_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    released_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    watchdog_ = CreateThread(nullptr, 0, Watch, this, 0, nullptr);
    if (started_ == nullptr || released_ == nullptr || watchdog_ == nullptr) {
      Stop();
      Fail("cannot start the loader-lock watchdog");
    }
    if (WaitForSingleObject(started_, 10000) != WAIT_OBJECT_0) {
      Stop();
      Fail("the loader-lock watchdog did not start within 10 s");
    }
    ULONG disposition = 0;
    if (lock_(0, &disposition, &cookie_) != 0) {
      Stop();
      Fail("LdrLockLoaderLock failed");
    }
    held_ = true;
  }
  ~LoaderLockHold() { Stop(); }
  LoaderLockHold(const LoaderLockHold&) = delete;
  LoaderLockHold& operator=(const LoaderLockHold&) = delete;

 private:
  void Stop() {
    if (held_) unlock_(0, cookie_);
    held_ = false;
    if (released_ != nullptr) SetEvent(released_);
    if (watchdog_ != nullptr) {
      WaitForSingleObject(watchdog_, 10000);
      CloseHandle(watchdog_);
    }
    if (released_ != nullptr) CloseHandle(released_);
    if (started_ != nullptr) CloseHandle(started_);
    watchdog_ = released_ = started_ = nullptr;
  }

  static DWORD WINAPI Watch(void* parameter) {
    auto self = static_cast<LoaderLockHold*>(parameter);
    SetEvent(self->started_);
    if (WaitForSingleObject(self->released_, 30000) == WAIT_TIMEOUT) {
      // Only calls that need no loader lock from here on: no C runtime
      // output, and TerminateProcess instead of ExitProcess.
      std::string message = std::string("FAIL ") + g_currentTest +
                            ": the library did not return within 30 s while the loader lock was held "
                            "(does KelInitialize wait for the thread it starts?)\n";
      DWORD written = 0;
      WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), message.data(), static_cast<DWORD>(message.size()), &written, nullptr);
      TerminateProcess(GetCurrentProcess(), 1);
    }
    return 0;
  }

  using LockFunction = LONG(NTAPI*)(ULONG, ULONG*, ULONG_PTR*);
  using UnlockFunction = LONG(NTAPI*)(ULONG, ULONG_PTR);
  LockFunction lock_ = nullptr;
  UnlockFunction unlock_ = nullptr;
  ULONG_PTR cookie_ = 0;
  bool held_ = false;
  HANDLE started_ = nullptr;
  HANDLE released_ = nullptr;
  HANDLE watchdog_ = nullptr;
};

// ---------------------------------------------------------------------------
// Reading the log

const char kTimestampShape[] = "[0000/00/00 00:00:00.000]";  // 0 stands for a digit
const size_t kTimestampLength = sizeof kTimestampShape - 1;

// The log's lines, each with its "\r\n" (a last line without one is kept as it is).
std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    end = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

bool HasTimestamp(const std::string& line) {
  if (line.size() < kTimestampLength) return false;
  for (size_t i = 0; i < kTimestampLength; ++i) {
    char expected = kTimestampShape[i];
    char actual = line[i];
    if (expected == '0' ? (actual < '0' || actual > '9') : actual != expected) return false;
  }
  return true;
}

// The messages of the log: every line without its timestamp, "\r\n" kept.
std::vector<std::string> LogMessages(const std::string& text) {
  std::vector<std::string> messages;
  for (const std::string& line : SplitLines(text))
    messages.push_back(HasTimestamp(line) ? line.substr(kTimestampLength) : line);
  return messages;
}

std::string LogDetail(const std::string& text) {
  std::string detail = "log file content:\n";
  for (const std::string& line : SplitLines(text)) detail += "  | " + Quoted(line) + "\n";
  return detail;
}

// Finds `expected` in `messages` in this order, starting at `from`; returns the
// index after the last one found. Fails naming the first message not found.
size_t ExpectMessagesInOrder(const std::vector<std::string>& messages, const std::vector<std::string>& expected,
                             const std::string& logText, size_t from = 0) {
  size_t next = from;
  for (const std::string& wanted : expected) {
    while (next < messages.size() && messages[next] != wanted) ++next;
    if (next == messages.size())
      Fail("log lacks the line " + Quoted(wanted) + " (in the expected order)", LogDetail(logText));
    ++next;
  }
  return next;
}

bool ContainsMessage(const std::vector<std::string>& messages, const std::string& wanted, size_t from = 0) {
  for (size_t i = from; i < messages.size(); ++i)
    if (messages[i] == wanted) return true;
  return false;
}

// ---------------------------------------------------------------------------
// Tests

const char* const kExportNames[] = {
    "KelFinalize",                  // @1
    "KelGetAppDisplayNameByPFNW",   // @2
    "KelGetMonitorMode",            // @3
    "KelInitialize",                // @4
    "KelIsInstalledA",              // @5
    "KelIsInstalledW",              // @6
    "KelLaunchBrowserByProtocolA",  // @7
    "KelLaunchBrowserByProtocolW",  // @8
    "KelLaunchByAppUserModelIdA",   // @9
    "KelLaunchByAppUserModelIdW",   // @10
    "KelLaunchByPFNA",              // @11
    "KelLaunchByPFNW",              // @12
    "KelLaunchByProtocolA",         // @13
    "KelLaunchByProtocolW",         // @14
    "KelLaunchBySearchA",           // @15
    "KelLaunchBySearchW",           // @16
    "KelLaunchIEBySearch",          // @17
    "KelLaunchStoreA",              // @18
    "KelLaunchStoreW",              // @19
    "KelReleaseStringA",            // @20
    "KelReleaseStringW",            // @21
};
const unsigned kExportCount = sizeof kExportNames / sizeof kExportNames[0];

void ExportsResolveByNameAndOrdinal(const std::wstring& dllPath) {
  for (unsigned i = 1; i < kExportCount; ++i)
    if (strcmp(kExportNames[i - 1], kExportNames[i]) >= 0)
      Fail(Format("the test's own table is not in alphabetical order at %s", kExportNames[i]));

  Library library(dllPath);
  HMODULE module = library.Module();

  // Exactly the 21 exports, ordinals 1 to 21, all of them named.
  auto base = reinterpret_cast<const BYTE*>(module);
  auto dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (directory.VirtualAddress == 0) Fail("the DLL has no export directory");
  auto exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + directory.VirtualAddress);
  if (exports->Base != 1 || exports->NumberOfFunctions != kExportCount || exports->NumberOfNames != kExportCount)
    Fail(Format("export directory has ordinal base %lu, %lu functions, %lu names; expected 1, %u, %u", exports->Base,
                exports->NumberOfFunctions, exports->NumberOfNames, kExportCount, kExportCount));

  for (unsigned ordinal = 1; ordinal <= kExportCount; ++ordinal) {
    const char* name = kExportNames[ordinal - 1];
    FARPROC byName = GetProcAddress(module, name);
    if (byName == nullptr) Fail(Format("GetProcAddress(\"%s\") failed", name));
    FARPROC byOrdinal = GetProcAddress(module, MAKEINTRESOURCEA(ordinal));
    if (byOrdinal == nullptr) Fail(Format("GetProcAddress(ordinal %u) failed (expected %s)", ordinal, name));
    if (byOrdinal != byName)
      Fail(Format("ordinal %u resolves to %p but %s is at %p", ordinal, reinterpret_cast<void*>(byOrdinal), name,
                  reinterpret_cast<void*>(byName)));
  }
  if (GetProcAddress(module, MAKEINTRESOURCEA(kExportCount + 1)) != nullptr)
    Fail(Format("ordinal %u resolves, expected only %u exports", kExportCount + 1, kExportCount));
}

void NullAndEmptyArgumentsGiveTheirResults(const std::wstring& dllPath) {
  SettingsScope settings;
  Library library(dllPath);

  ExpectResult(KEL(library, KelLaunchByProtocolW)(nullptr), E_POINTER, "KelLaunchByProtocolW(NULL)");
  ExpectResult(KEL(library, KelLaunchByProtocolW)(L""), E_INVALIDARG, "KelLaunchByProtocolW(L\"\")");
  ExpectResult(KEL(library, KelLaunchBySearchW)(L"x", 3, 0), E_INVALIDARG, "KelLaunchBySearchW(L\"x\", 3, 0)");
  ExpectResult(KEL(library, KelGetMonitorMode)(nullptr), E_POINTER, "KelGetMonitorMode(NULL)");
  ExpectResult(KEL(library, KelIsInstalledW)(L"a", nullptr), E_POINTER, "KelIsInstalledW(L\"a\", NULL)");
  ExpectResult(KEL(library, KelLaunchBrowserByProtocolA)("http", 0), E_INVALIDARG,
               "KelLaunchBrowserByProtocolA(\"http\", 0)");
  KEL(library, KelReleaseStringW)(nullptr);
  KEL(library, KelFinalize)();  // without KelInitialize: only its trace lines
}

// One pass through the library with the log on, all of it on this thread.
void LogLinesHaveTheTimestampShape(const std::wstring& dllPath) {
  LogFolderScope logFolder;
  const std::wstring& logPath = logFolder.logPath;
  SetDwordSetting(L"DebugLog", 1);

  Library library(dllPath);
  {
    RefreshThreadBlocker noRefreshThread;
    KEL(library, KelInitialize)();  // E_FAIL: it could not create the stop event
    ExpectResult(KEL(library, KelLaunchByProtocolW)(nullptr), E_POINTER, "KelLaunchByProtocolW(NULL)");
    KEL(library, KelFinalize)();
  }

  std::string log = ReadBytes(logPath);
  if (log.empty()) Fail("no log written to " + Narrow(logPath));
  if (log.find("CKELPackageManager::RefreshThread") != std::string::npos)
    Fail("the refresh thread ran although the name of its stop event was taken", LogDetail(log));
  if (log.back() != '\n') Fail("the log does not end with a line end", LogDetail(log));
  for (const std::string& line : SplitLines(log)) {
    if (!HasTimestamp(line))
      Fail("line without a [yyyy/mm/dd hh:mm:ss.mmm] timestamp: " + Quoted(line), LogDetail(log));
    char first = line.size() > kTimestampLength ? line[kTimestampLength] : '\0';
    if (first == '\0' || first == '\r' || first == '\n' || first == ' ')
      Fail("the timestamp is not followed at once by text: " + Quoted(line), LogDetail(log));
    if (line.size() < 2 || line.compare(line.size() - 2, 2, "\r\n") != 0)
      Fail("line does not end in \\r\\n: " + Quoted(line), LogDetail(log));
  }
  ExpectMessagesInOrder(LogMessages(log),
                        {"KelInitialize IN\r\n", "KelLaunchByProtocolW((null)) IN\r\n",
                         "KelLaunchByProtocolW OUT(0x80004003)\r\n", "KelFinalize IN\r\n", "KelFinalize OUT\r\n"},
                        log);
}

void LogStaysSilentWhenSwitchOff(const std::wstring& dllPath) {
  LogFolderScope logFolder;  // DebugLog absent
  const std::wstring& logPath = logFolder.logPath;

  Library library(dllPath);
  ExpectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize");
  ExpectResult(KEL(library, KelLaunchByProtocolW)(nullptr), E_POINTER, "KelLaunchByProtocolW(NULL)");
  KEL(library, KelFinalize)();

  if (FileExists(logPath)) Fail("a log file was written although DebugLog is absent", LogDetail(ReadBytes(logPath)));
}

// Runs KelInitialize and KelFinalize once with the log on and returns the value
// that the refresh thread's "CKELReg::GetRefreshInterval OUT(%d)" line shows.
std::string RefreshIntervalSeenByTheRefreshThread(const Library& library, const std::wstring& logPath) {
  const std::string marker = "CKELReg::GetRefreshInterval OUT(";
  size_t linesBefore = LogMessages(ReadBytes(logPath)).size();
  {
    // KelInitialize writes its last lines after starting the thread; the
    // thread's own lines wait until the lock is released.
    LoaderLockHold holdTheRefreshThread;
    ExpectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize");
  }
  // With the log already on, KelInitialize traces its re-read of the switch.
  std::string log = ReadBytes(logPath);
  ExpectMessagesInOrder(LogMessages(log),
                        {"CKELReg::IsDebugLogOn IN\r\n", "CKELReg::IsDebugLogOn OUT(1)\r\n", "KelInitialize IN\r\n",
                         "KelInitialize OUT(0x00000000)\r\n"},
                        log, linesBefore);
  // The thread reads the interval right after it starts. Only reads of the
  // log happen on this thread meanwhile.
  bool seen = WaitUntil(
      [&] {
        std::vector<std::string> messages = LogMessages(ReadBytes(logPath));
        for (size_t i = linesBefore; i < messages.size(); ++i)
          if (messages[i].compare(0, marker.size(), marker) == 0) return true;
        return false;
      },
      10000, 100);
  log = ReadBytes(logPath);
  KEL(library, KelFinalize)();
  if (!seen)
    Fail("within 10 s the refresh thread logged no " + Quoted(marker + "...") +
             " line (does KelInitialize start the refresh thread?)",
         LogDetail(log));

  std::vector<std::string> messages = LogMessages(log);
  for (size_t i = linesBefore; i < messages.size(); ++i)
    if (messages[i].compare(0, marker.size(), marker) == 0)
      return messages[i].substr(marker.size(), messages[i].find(')') - marker.size());
  return std::string();
}

void SettingsAreReadFromTheRegistry(const std::wstring& dllPath) {
  LogFolderScope logFolder;
  const std::wstring& logPath = logFolder.logPath;
  Library library(dllPath);
  auto launchStore = KEL(library, KelLaunchStoreW);

  // DebugLog 0: KelInitialize reads the switch as off; nothing is logged, not
  // by the export and not by the refresh thread it starts.
  SetDwordSetting(L"DebugLog", 0);
  ExpectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize");
  KEL(library, KelFinalize)();
  if (FileExists(logPath)) Fail("DebugLog=0 but KelInitialize/KelFinalize wrote a log", LogDetail(ReadBytes(logPath)));

  // A DebugLog that is not a REG_DWORD counts as off.
  SetStringSetting(L"DebugLog", L"1");
  ExpectResult(launchStore(L""), E_INVALIDARG, "KelLaunchStoreW(L\"\")");
  if (FileExists(logPath)) Fail("DebugLog as REG_SZ \"1\" turned the log on", LogDetail(ReadBytes(logPath)));

  // DebugLog 1: KelLaunchStoreW re-reads the switch before its entry line.
  // The re-read itself is traced under the switch as it was (off), so no
  // CKELReg line comes first.
  SetDwordSetting(L"DebugLog", 1);
  ExpectResult(launchStore(L""), E_INVALIDARG, "KelLaunchStoreW(L\"\")");
  std::string log = ReadBytes(logPath);
  std::vector<std::string> messages = LogMessages(log);
  size_t next =
      ExpectMessagesInOrder(messages, {"KelLaunchStoreW() IN\r\n", "KelLaunchStoreW OUT(0x80070057)\r\n"}, log);
  if (ContainsMessage(messages, "CKELReg::IsDebugLogOn IN\r\n"))
    Fail("the re-read that turned the log on was itself logged", LogDetail(log));

  // With the log on, the next re-read is traced.
  ExpectResult(launchStore(L""), E_INVALIDARG, "KelLaunchStoreW(L\"\")");
  log = ReadBytes(logPath);
  messages = LogMessages(log);
  ExpectMessagesInOrder(messages,
                        {"CKELReg::IsDebugLogOn IN\r\n", "CKELReg::IsDebugLogOn OUT(1)\r\n", "KelLaunchStoreW() IN\r\n",
                         "KelLaunchStoreW OUT(0x80070057)\r\n"},
                        log, next);

  // DebugLog 0 again: KelInitialize's re-read is still traced (the log was on
  // when it began), then nothing more is written.
  SetDwordSetting(L"DebugLog", 0);
  size_t linesBefore = messages.size();
  ExpectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize");
  KEL(library, KelFinalize)();
  log = ReadBytes(logPath);
  messages = LogMessages(log);
  ExpectMessagesInOrder(messages, {"CKELReg::IsDebugLogOn OUT(0)\r\n"}, log, linesBefore);
  if (messages.empty() || messages.back() != "CKELReg::IsDebugLogOn OUT(0)\r\n")
    Fail("lines were logged after DebugLog was read as 0", LogDetail(log));
}

// RefreshInterval: 720 minutes when absent, else the stored value, as the
// refresh thread reads it once it starts.
void RefreshThreadReadsTheRefreshInterval(const std::wstring& dllPath) {
  LogFolderScope logFolder;
  const std::wstring& logPath = logFolder.logPath;
  Library library(dllPath);
  SetDwordSetting(L"DebugLog", 1);
  // An export re-reads the switch, so the log is on before the thread starts.
  ExpectResult(KEL(library, KelLaunchStoreW)(L""), E_INVALIDARG, "KelLaunchStoreW(L\"\")");
  std::string interval = RefreshIntervalSeenByTheRefreshThread(library, logPath);
  if (interval != "720")
    Fail("with RefreshInterval absent the refresh thread read " + Quoted(interval) + ", expected 720",
         LogDetail(ReadBytes(logPath)));
  SetDwordSetting(L"RefreshInterval", 7);
  interval = RefreshIntervalSeenByTheRefreshThread(library, logPath);
  if (interval != "7")
    Fail("with RefreshInterval 7 the refresh thread read " + Quoted(interval), LogDetail(ReadBytes(logPath)));
}

void ExpectRecorded(const std::wstring& recorderLog, const std::string& line) {
  bool seen = WaitUntil(
      [&] {
        for (const std::string& recorded : CompleteLines(ReadBytes(recorderLog)))
          if (recorded == line) return true;
        return false;
      },
      10000, 100);
  if (!seen) {
    std::string detail = "recorder file content:\n";
    for (const std::string& recorded : CompleteLines(ReadBytes(recorderLog)))
      detail += "  | " + Quoted(recorded) + "\n";
    Fail("within 10 s the kelrec handler did not record " + Quoted(line), detail);
  }
}

void ProtocolLaunchReachesTheRegisteredHandler(const std::wstring& dllPath) {
  TempFolder folder(kTempPrefix);
  std::wstring recorderLog = folder.Path() + L"\\recorder.txt";
  // The handler started by the shell inherits this process's environment.
  SetEnvironment(L"KEL_RECORDER_LOG", recorderLog);

  Library library(dllPath);
  HRESULT hr = KEL(library, KelLaunchByProtocolW)(L"kelrec:hello?a=1&b=2");
  if (hr != S_OK)
    Fail(
        Format("KelLaunchByProtocolW(L\"kelrec:hello?a=1&b=2\") returned 0x%08lX, expected S_OK "
               "(is kelrec registered? run wine_prefix.sh setup)",
               static_cast<unsigned long>(hr)));
  ExpectRecorded(recorderLog, "kelrec:hello?a=1&b=2");

  ExpectResult(KEL(library, KelLaunchByProtocolW)(L"kelnothere:x"), E_FAIL, "KelLaunchByProtocolW(L\"kelnothere:x\")");

  ExpectResult(KEL(library, KelLaunchByProtocolA)("kelrec:narrow"), S_OK, "KelLaunchByProtocolA(\"kelrec:narrow\")");
  ExpectRecorded(recorderLog, "kelrec:narrow");

  // Shift JIS katakana "tesuto" arrives as the same text in Unicode.
  ExpectResult(KEL(library, KelLaunchByProtocolA)("kelrec:\x83\x65\x83\x58\x83\x67"), S_OK,
               "KelLaunchByProtocolA(\"kelrec:<Shift JIS katakana>\")");
  ExpectRecorded(recorderLog, "kelrec:\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88");
}

// ---------------------------------------------------------------------------
// Runner

struct Test {
  const char* name;
  void (*run)(const std::wstring& dllPath);
};

const Test kTests[] = {
    {"ExportsResolveByNameAndOrdinal", ExportsResolveByNameAndOrdinal},
    {"NullAndEmptyArgumentsGiveTheirResults", NullAndEmptyArgumentsGiveTheirResults},
    {"LogLinesHaveTheTimestampShape", LogLinesHaveTheTimestampShape},
    {"LogStaysSilentWhenSwitchOff", LogStaysSilentWhenSwitchOff},
    {"SettingsAreReadFromTheRegistry", SettingsAreReadFromTheRegistry},
    {"RefreshThreadReadsTheRefreshInterval", RefreshThreadReadsTheRefreshInterval},
    {"ProtocolLaunchReachesTheRegisteredHandler", ProtocolLaunchReachesTheRegisteredHandler},
};

const char kUsage[] = "host_tests.exe DLLPATH TESTNAME";

}  // namespace

int main() { return RunDllTestNamedOnCommandLine(kUsage, kTests); }
