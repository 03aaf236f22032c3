// What the Wine test programs share: failure reports, strings and files,
// temporary folders, bounded waits, the library's registry settings, the test
// desktop's control values and process, the loaded DLL, and the runner that
// picks one named test and runs it in this process or in a private copy of
// the program.
//
// Header only, every function inline, everything in namespace wine_test. The
// test desktop's own programs (test_desktop.exe, app_visibility_server.dll)
// take only the control values, the desktop's event names and narrow().
#pragma once

// Unicode declarations, and no min and max macros in the way of <algorithm>.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef UNICODE
#define UNICODE
#endif
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace wine_test {

// ---------------------------------------------------------------------------
// Failure reporting

// Thrown by a failed check: the reason goes on the FAIL line, the detail
// under it.
struct TestFailure {
  std::string reason;
  std::string detail;  // may be empty
};

inline std::string format(const char* fmt, ...) {
  char buffer[4096];
  va_list args;
  va_start(args, fmt);
  vsnprintf(buffer, sizeof buffer, fmt, args);
  va_end(args);
  return buffer;
}

[[noreturn]] inline void fail(const std::string& reason, const std::string& detail = std::string()) {
  throw TestFailure{reason, detail};
}

inline std::string hex(HRESULT value) { return format("0x%08lX", static_cast<unsigned long>(value)); }

// `detail`, when given, is asked for only when the check fails.
inline void expectResult(HRESULT actual, HRESULT expected, const std::string& call,
                         const std::function<std::string()>& detail = nullptr) {
  if (actual != expected) {
    fail(call + " returned " + hex(actual) + ", expected " + hex(expected), detail ? detail() : std::string());
  }
}

// ---------------------------------------------------------------------------
// Strings

inline std::string narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string result(bytes, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &result[0], bytes, nullptr, nullptr);
  return result;
}

// The library's own strings are UTF-16 in char16_t, as wchar_t is on Windows.
inline std::string narrow(const char16_t* text) { return narrow(std::wstring(reinterpret_cast<const wchar_t*>(text))); }

// In double quotes, line ends and tabs made visible.
inline std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '\r') {
      result += "\\r";
    } else if (c == '\n') {
      result += "\\n";
    } else if (c == '\t') {
      result += "\\t";
    } else {
      result += c;
    }
  }
  return result + "\"";
}

// The lines of a text file, without their line ends; a last line that has
// no "\n" yet (still being written) is left out.
inline std::vector<std::string> completeLines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find('\n', start);
    if (end == std::string::npos) break;
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

// A titled block of lines for a failure report; with `last`, only that many
// of the last lines.
inline std::string indented(const std::string& title, const std::vector<std::string>& lines, std::size_t last = 0) {
  std::string detail = title + ":\n";
  const std::size_t first = last != 0 && lines.size() > last ? lines.size() - last : 0;
  if (first > 0) detail += format("  | ... (%u lines before)\n", static_cast<unsigned>(first));
  for (std::size_t i = first; i < lines.size(); ++i) detail += "  | " + lines[i] + "\n";
  if (lines.empty()) detail += "  (empty)\n";
  return detail;
}

// ---------------------------------------------------------------------------
// Files and folders

inline bool fileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// The whole file as bytes; empty when it cannot be opened. Opened with full
// sharing so that a writer holding it open is not disturbed.
inline std::string readFile(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return std::string();
  std::string content;
  char buffer[4096];
  DWORD read = 0;
  while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) content.append(buffer, read);
  CloseHandle(file);
  return content;
}

inline void writeFile(const std::wstring& path, const std::string& bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) fail(format("cannot create %s (error %lu)", narrow(path).c_str(), GetLastError()));
  DWORD written = 0;
  const BOOL ok = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
  if (!ok || written != bytes.size()) fail("cannot write " + narrow(path));
}

// UTF-8, without a byte order mark.
inline void writeText(const std::wstring& path, const std::wstring& text) { writeFile(path, narrow(text)); }

// Creates the folder and any missing parent.
inline void makeFolders(const std::wstring& path) {
  for (std::size_t i = 3; i <= path.size(); ++i) {
    if (i == path.size() || path[i] == L'\\') {
      const std::wstring part = path.substr(0, i);
      if (!CreateDirectoryW(part.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
        fail(format("cannot create folder %s (error %lu)", narrow(part).c_str(), GetLastError()));
      }
    }
  }
}

// Removes the folder with everything in it; gives whether it is gone.
inline bool removeTree(const std::wstring& folder) {
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW((folder + L"\\*").c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L"..") continue;
      const std::wstring path = folder + L"\\" + name;
      if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        removeTree(path);
      } else {
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileW(path.c_str());
      }
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }
  return RemoveDirectoryW(folder.c_str()) || !fileExists(folder);
}

// A new, empty folder under the temporary folder: PREFIX-PROCESS-TICKS-ATTEMPT,
// so that neither another test program nor an earlier run can have it.
inline std::wstring createTempFolder(const wchar_t* prefix) {
  wchar_t temp[MAX_PATH + 1];
  const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
  if (length == 0 || length > MAX_PATH) fail("GetTempPathW failed");
  for (unsigned attempt = 0; attempt < 100; ++attempt) {
    const std::wstring path = std::wstring(temp) + prefix + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                              std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(attempt);
    if (CreateDirectoryW(path.c_str(), nullptr)) return path;
  }
  fail("cannot create a temporary folder under " + narrow(temp));
}

// A folder from createTempFolder, removed again at the end.
class TempFolder {
 public:
  explicit TempFolder(const wchar_t* prefix) : path_(createTempFolder(prefix)) {}
  ~TempFolder() { removeTree(path_); }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
};

// ---------------------------------------------------------------------------
// The environment

// The variable's value; empty when it is not set.
inline std::wstring environmentValue(const wchar_t* name) {
  std::wstring buffer(32768, L'\0');
  const DWORD length = GetEnvironmentVariableW(name, &buffer[0], 32768);
  return length > 0 && length < 32768 ? buffer.substr(0, length) : std::wstring();
}

// Processes started from here on inherit it.
inline void setEnvironment(const wchar_t* name, const std::wstring& value) {
  if (!SetEnvironmentVariableW(name, value.c_str())) fail("SetEnvironmentVariableW(" + narrow(name) + ") failed");
}

// ---------------------------------------------------------------------------
// Waiting

// Calls `done` every `intervalMs` until it answers true or `timeoutMs` has
// passed; one last call decides at the deadline.
inline bool waitUntil(const std::function<bool()>& done, DWORD timeoutMs, DWORD intervalMs = 50) {
  const ULONGLONG deadline = GetTickCount64() + timeoutMs;
  for (;;) {
    if (done()) return true;
    if (GetTickCount64() >= deadline) return done();
    Sleep(intervalMs);
  }
}

// ---------------------------------------------------------------------------
// Values under HKEY_CURRENT_USER

inline void writeUserValue(const wchar_t* keyName, const wchar_t* name, DWORD type, const void* data, DWORD size) {
  HKEY key = nullptr;
  LONG status = RegCreateKeyExW(HKEY_CURRENT_USER, keyName, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  if (status != ERROR_SUCCESS) fail(format("RegCreateKeyExW(HKCU\\%s) failed with %ld", narrow(keyName).c_str(), status));
  status = RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), size);
  RegCloseKey(key);
  if (status != ERROR_SUCCESS) fail(format("RegSetValueExW(%s) failed with %ld", narrow(name).c_str(), status));
}

inline void writeUserString(const wchar_t* keyName, const wchar_t* name, const wchar_t* value) {
  writeUserValue(keyName, name, REG_SZ, value, static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t)));
}

// ---------------------------------------------------------------------------
// The library's registry settings

inline constexpr wchar_t kSettingsKey[] = L"Software\\Osk\\Kelbrook";

inline void setDwordSetting(const wchar_t* name, DWORD value) {
  writeUserValue(kSettingsKey, name, REG_DWORD, &value, sizeof value);
}

inline void setStringSetting(const wchar_t* name, const wchar_t* value) { writeUserString(kSettingsKey, name, value); }

inline void deleteSetting(const wchar_t* name) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_SET_VALUE, &key) == ERROR_SUCCESS) {
    RegDeleteValueW(key, name);
    RegCloseKey(key);
  }
}

// Removes the library's settings when the test starts and when it ends
// (whether it passed or not), so that no test sees another one's values.
class SettingsScope {
 public:
  SettingsScope() { clear(); }
  ~SettingsScope() { clear(); }
  SettingsScope(const SettingsScope&) = delete;
  SettingsScope& operator=(const SettingsScope&) = delete;

 private:
  static void clear() {
    for (const wchar_t* name : {L"DebugLog", L"RefreshInterval", L"ManifestReaderSetting", L"ClearClipboardWaitTime",
                                L"RestoreRegistryWaitTime"}) {
      deleteSetting(name);
    }
  }
};

// The same with the log on (DebugLog 1) in between: the other settings at
// their defaults for the test's lifetime.
class LogOnSettingsScope : public SettingsScope {
 public:
  LogOnSettingsScope() { setDwordSetting(L"DebugLog", 1); }
};

// ---------------------------------------------------------------------------
// The test desktop's control values (docs/test-desktop.md)

inline constexpr wchar_t kControlKey[] = L"Software\\KelbrookTestDesktop";

// The value, or `fallback` when it is absent or no DWORD.
inline DWORD readControl(const wchar_t* name, DWORD fallback) {
  DWORD value = 0;
  DWORD size = sizeof value;
  if (RegGetValueW(HKEY_CURRENT_USER, kControlKey, name, RRF_RT_REG_DWORD, nullptr, &value, &size) != ERROR_SUCCESS) {
    return fallback;
  }
  return value;
}

inline void setControl(const wchar_t* name, DWORD value) {
  writeUserValue(kControlKey, name, REG_DWORD, &value, sizeof value);
}

inline void setControlString(const wchar_t* name, const wchar_t* value) { writeUserString(kControlKey, name, value); }

// Removes the control key when the test starts and when it ends, so that no
// test sees another one's values.
class ControlScope {
 public:
  ControlScope() { clear(); }
  ~ControlScope() { clear(); }
  ControlScope(const ControlScope&) = delete;
  ControlScope& operator=(const ControlScope&) = delete;

 private:
  static void clear() { RegDeleteTreeW(HKEY_CURRENT_USER, kControlKey); }
};

// ---------------------------------------------------------------------------
// The test desktop

// Set by the desktop once it is up; the desktop stops when the other is set.
inline constexpr wchar_t kDesktopReadyEvent[] = L"KelbrookTestDesktop.Ready";
inline constexpr wchar_t kDesktopStopEvent[] = L"KelbrookTestDesktop.Stop";

// Runs test_desktop.exe for the length of a test, recording to a file of its own.
class Desktop {
 public:
  Desktop(const std::wstring& exePath, const std::wstring& eventsPath) : eventsPath_(eventsPath) {
    // Created and reset before the desktop starts, so that a signal from an
    // earlier desktop cannot count.
    ready_ = CreateEventW(nullptr, TRUE, FALSE, kDesktopReadyEvent);
    if (ready_ == nullptr) fail(format("CreateEventW(KelbrookTestDesktop.Ready) failed with %lu", GetLastError()));
    ResetEvent(ready_);
    start(exePath);
    waitForReady();
  }

  ~Desktop() { terminate(); }
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  // Asks the desktop to stop and checks that it did, cleanly.
  void stop() {
    HANDLE stopEvent = OpenEventW(EVENT_MODIFY_STATE, FALSE, kDesktopStopEvent);
    if (stopEvent == nullptr) {
      fail(format("OpenEventW(KelbrookTestDesktop.Stop) failed with %lu", GetLastError()), eventsDetail());
    }
    SetEvent(stopEvent);
    CloseHandle(stopEvent);
    if (WaitForSingleObject(process_, 10000) != WAIT_OBJECT_0) {
      const std::string detail = eventsDetail();
      terminate();
      fail("the test desktop did not stop within 10 s", detail);
    }
    DWORD code = 0;
    GetExitCodeProcess(process_, &code);
    close();
    if (code != 0) fail(format("the test desktop stopped with exit code %lu", code), eventsDetail());
  }

  // The events after "ready".
  std::vector<std::string> events() const {
    std::vector<std::string> lines = completeLines(readFile(eventsPath_));
    if (!lines.empty() && lines.front() == "ready") lines.erase(lines.begin());
    return lines;
  }

  std::string eventsDetail() const { return indented("test desktop events", events()); }

  // Waits (bounded) for `wanted` at or after index `from` of events(); returns
  // the index after it.
  std::size_t waitForEvent(const std::string& wanted, std::size_t from = 0, DWORD timeoutMs = 10000,
                           const std::function<std::string()>& detail = nullptr) const {
    std::size_t found = 0;
    const bool seen = waitUntil(
        [&] {
          const std::vector<std::string> lines = events();
          for (std::size_t i = from; i < lines.size(); ++i) {
            if (lines[i] == wanted) {
              found = i + 1;
              return true;
            }
          }
          return false;
        },
        timeoutMs);
    if (!seen) {
      fail(format("the test desktop did not record %s within %lu ms", quoted(wanted).c_str(),
                  static_cast<unsigned long>(timeoutMs)),
           eventsDetail() + (detail ? detail() : std::string()));
    }
    return found;
  }

  // Checks, once the desktop has stopped, that its events are "ready" and
  // then exactly `expected`.
  void expectEvents(const std::vector<std::string>& expected) const {
    std::vector<std::string> lines = completeLines(readFile(eventsPath_));
    if (lines.empty() || lines.front() != "ready") {
      fail("the test desktop's events do not begin with \"ready\"", eventsDetail());
    }
    lines.erase(lines.begin());
    if (lines != expected) {
      fail("the test desktop recorded other events than expected", eventsDetail() + indented("expected events", expected));
    }
  }

  // Checks that the events from index `from` on are exactly `expected`. The
  // desktop records each event just after the change it reports (the pane
  // hides, then "pane hidden" is written), so the count is waited for
  // (bounded) before the events are compared.
  void expectEventsFrom(std::size_t from, const std::vector<std::string>& expected, const std::string& situation,
                        const std::function<std::string()>& detail) const {
    waitUntil([&] { return events().size() >= from + expected.size(); }, 10000);
    const std::vector<std::string> lines = events();
    const std::vector<std::string> got(lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size())),
                                       lines.end());
    if (got != expected) {
      fail("the test desktop recorded other events than expected " + situation,
           eventsDetail() + indented(format("expected from event %u on", static_cast<unsigned>(from)), expected) +
               detail());
    }
  }

 private:
  void start(const std::wstring& exePath) {
    std::wstring commandLine = L"\"" + exePath + L"\" --events \"" + eventsPath_ + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(exePath.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
      const DWORD error = GetLastError();
      close();
      fail(format("cannot start %s: CreateProcessW failed with %lu", narrow(exePath).c_str(), error));
    }
    CloseHandle(process.hThread);
    process_ = process.hProcess;
  }

  void waitForReady() {
    HANDLE waitFor[] = {ready_, process_};
    const DWORD woken = WaitForMultipleObjects(2, waitFor, FALSE, 30000);
    if (woken == WAIT_OBJECT_0 + 1) {
      DWORD code = 0;
      GetExitCodeProcess(process_, &code);
      const std::string detail = eventsDetail();
      close();
      fail(format("the test desktop ended during its start with exit code %lu (3: another one runs, "
                  "4: it could not set itself up)",
                  code),
           detail);
    }
    if (woken != WAIT_OBJECT_0) {
      const std::string detail = eventsDetail();
      terminate();
      fail("the test desktop did not signal ready within 30 s", detail);
    }
  }

  void close() {
    if (process_ != nullptr) CloseHandle(process_);
    if (ready_ != nullptr) CloseHandle(ready_);
    process_ = ready_ = nullptr;
  }

  void terminate() {
    if (process_ != nullptr && WaitForSingleObject(process_, 0) == WAIT_TIMEOUT) {
      TerminateProcess(process_, 9);
      WaitForSingleObject(process_, 10000);
    }
    close();
  }

  std::wstring eventsPath_;
  HANDLE ready_ = nullptr;
  HANDLE process_ = nullptr;
};

inline std::wstring classOf(HWND window) {
  wchar_t name[260] = L"";
  if (window == nullptr || GetClassNameW(window, name, 260) == 0) return L"";
  return name;
}

// The text of the search pane's edit box, asked across the process boundary.
inline std::wstring paneText() {
  HWND pane = FindWindowW(L"SearchPane", nullptr);
  HWND edit = pane != nullptr ? FindWindowExW(pane, nullptr, L"Edit", nullptr) : nullptr;
  if (edit == nullptr) fail("cannot find the search pane's edit box");
  wchar_t text[4096] = L"";
  SendMessageW(edit, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(text));
  return text;
}

// ---------------------------------------------------------------------------
// The library under test

// Loaded once per test and never unloaded: a refresh thread that outlived
// KelFinalize must not find its code gone; the process ends soon anyway.
class Library {
 public:
  explicit Library(const std::wstring& path) {
    module_ = LoadLibraryW(path.c_str());
    if (module_ == nullptr) fail(format("LoadLibraryW(%s) failed with error %lu", narrow(path).c_str(), GetLastError()));
  }

  HMODULE module() const { return module_; }

  template <typename Function>
  Function get(const char* name) const {
    FARPROC address = GetProcAddress(module_, name);
    if (address == nullptr) fail(format("GetProcAddress(%s) failed", name));
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
  }

 private:
  HMODULE module_ = nullptr;
};

// KEL(lib, KelInitialize) gives the export typed like its declaration in Kelbrook.h.
#define KEL(lib, name) ((lib).get<decltype(&name)>(#name))

// ---------------------------------------------------------------------------
// Running one named test

inline const char* g_currentTest = "";  // for reports made outside the test's own flow

// Where reports go: a file the parent of a private host prints, or, when
// empty, the output.
inline std::wstring& reportPath() {
  static std::wstring path;
  return path;
}

inline void report(const std::string& text) {
  if (reportPath().empty()) {
    printf("%s", text.c_str());
    fflush(stdout);
    return;
  }
  HANDLE file = CreateFileW(reportPath().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
  }
}

// A crash in the library still gives a FAIL line before the process ends.
inline LONG WINAPI reportCrash(EXCEPTION_POINTERS* info) {
  report(format("FAIL %s: crashed with exception 0x%08lX\n", g_currentTest,
                static_cast<unsigned long>(info->ExceptionRecord->ExceptionCode)));
  return EXCEPTION_EXECUTE_HANDLER;
}

// Runs the test and reports "PASS name", or "FAIL name: reason" with the
// detail under it. Exit code 0 on PASS, 1 on FAIL.
inline int runTest(const char* name, const std::function<void()>& test) {
  g_currentTest = name;
  SetUnhandledExceptionFilter(reportCrash);
  try {
    test();
  } catch (const TestFailure& failure) {
    report("FAIL " + std::string(name) + ": " + failure.reason + "\n" + failure.detail);
    return 1;
  } catch (const std::exception& exception) {
    report("FAIL " + std::string(name) + ": exception " + exception.what() + "\n");
    return 1;
  }
  report("PASS " + std::string(name) + "\n");
  return 0;
}

// The test of this name in a program's table; an unknown name is reported
// and gives null.
template <typename Test, std::size_t N>
const Test* findTest(const Test (&tests)[N], const std::string& name) {
  for (const Test& test : tests) {
    if (name == test.name) return &test;
  }
  printf("unknown test %s\n", name.c_str());
  return nullptr;
}

// Exit code 2, for bad usage.
template <typename Test, std::size_t N>
int usage(const char* synopsis, const Test (&tests)[N]) {
  printf("usage: %s\ntests:\n", synopsis);
  for (const Test& test : tests) printf("  %s\n", test.name);
  return 2;
}

// Wine maps the Unix root to drive Z:, so a Unix path from the build system
// is reachable as Z:<path>.
inline std::wstring usablePath(const std::wstring& path) {
  if (!path.empty() && path[0] == L'/' && !fileExists(path) && fileExists(L"Z:" + path)) return L"Z:" + path;
  return path;
}

// The whole main of a program whose tests take the DLL's path:
// `PROGRAM DLLPATH TESTNAME`. Runs the named test of `tests` (each with a
// `name` and a `run(const std::wstring& dllPath)`), or reports bad usage.
template <typename Test, std::size_t N>
int runDllTestNamedOnCommandLine(const char* synopsis, const Test (&tests)[N]) {
  int argc = 0;
  LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argv == nullptr || argc != 3) return usage(synopsis, tests);
  const std::wstring dllPath = usablePath(argv[1]);
  const std::string name = narrow(argv[2]);
  LocalFree(argv);
  const Test* test = findTest(tests, name);
  if (test == nullptr) return usage(synopsis, tests);
  return runTest(test->name, [&] { test->run(dllPath); });
}

// The path of this program's executable.
inline std::wstring programPath() {
  wchar_t path[MAX_PATH + 1] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

// The folder the executable is in, where a host keeps its preset files.
inline std::wstring programFolder() {
  const std::wstring path = programPath();
  return path.substr(0, path.find_last_of(L'\\'));
}

// For a test that runs in another folder.
inline std::wstring absolutePath(const std::wstring& path) {
  wchar_t full[MAX_PATH + 1];
  const DWORD length = GetFullPathNameW(path.c_str(), MAX_PATH + 1, full, nullptr);
  return length > 0 && length <= MAX_PATH ? std::wstring(full) : path;
}

// ---------------------------------------------------------------------------
// Tests in a private host

// A program whose every test runs in a host of its own: the parent creates a
// private folder under %TEMP%, copies the program there as host\<exeName> and
// runs that copy in its folder; the copy runs the one named test and writes
// its report to a file that the parent then prints. The private folder and
// the report file reach the copy through environment variables. So each test
// has its own host folder, host name and freshly loaded library, and the
// folder goes away afterwards.
struct PrivateHost {
  const wchar_t* folderPrefix;    // of the private folder's name
  const wchar_t* exeName;         // the copy's file name
  const wchar_t* rootVariable;    // names the private folder to the copy
  const wchar_t* reportVariable;  // names the report file to the copy
  const wchar_t* keepVariable;    // 1 keeps the folder for a look at what the test left
  DWORD limitMs;                  // the copy is stopped after this long
};

// In the copy: the test itself, reported to the parent's file.
inline int runInHost(const PrivateHost& host, const char* name, const std::function<void()>& test) {
  reportPath() = environmentValue(host.reportVariable);
  return runTest(name, test);
}

// Starts the copy in its folder and waits for it (bounded); gives whether it
// ended in time, and then its exit code.
inline bool runCopy(const std::wstring& exe, std::wstring commandLine, const std::wstring& folder, DWORD limitMs,
                    DWORD& code) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(exe.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(), &startup,
                      &process)) {
    fail(format("cannot start %s (error %lu)", narrow(exe).c_str(), GetLastError()));
  }
  CloseHandle(process.hThread);
  const bool ended = WaitForSingleObject(process.hProcess, limitMs) == WAIT_OBJECT_0;
  code = 1;
  if (ended) {
    GetExitCodeProcess(process.hProcess, &code);
  } else {
    TerminateProcess(process.hProcess, 1);
    WaitForSingleObject(process.hProcess, 10000);
  }
  CloseHandle(process.hProcess);
  return ended;
}

inline void removePrivateFolder(const PrivateHost& host, const std::wstring& root) {
  if (environmentValue(host.keepVariable) == L"1") {
    printf("kept %s\n", narrow(root).c_str());
    fflush(stdout);
    return;
  }
  // A handler started by the shell may still be closing its file: a few tries.
  if (!waitUntil([&] { return removeTree(root); }, 5000)) printf("note: could not remove %s\n", narrow(root).c_str());
  fflush(stdout);
}

// In the parent: creates the private folder, runs the test in a copy of this
// program there with `arguments` and the test's name, prints its report and
// removes the folder. `beforeStart` runs once the folder is ready; when the
// copy has passed, `afterExit` looks at the private folder and gives what is
// wrong, or nothing.
inline int runInPrivateHost(const PrivateHost& host, const char* name, const std::wstring& arguments,
                            const std::function<void()>& beforeStart = nullptr,
                            const std::function<std::string(const std::wstring& root)>& afterExit = nullptr) {
  std::wstring root;
  try {
    root = createTempFolder(host.folderPrefix);
  } catch (const TestFailure& failure) {
    printf("FAIL %s: %s\n", name, failure.reason.c_str());
    return 1;
  }
  int exitCode = 1;
  try {
    const std::wstring hostFolder = root + L"\\host";
    makeFolders(hostFolder);
    const std::wstring exe = hostFolder + L"\\" + host.exeName;
    if (!CopyFileW(programPath().c_str(), exe.c_str(), FALSE)) fail(format("cannot copy the test program (error %lu)", GetLastError()));
    const std::wstring reportFile = root + L"\\report.txt";
    setEnvironment(host.rootVariable, root);
    setEnvironment(host.reportVariable, reportFile);
    if (beforeStart) beforeStart();

    DWORD code = 1;
    const std::wstring commandLine = L"\"" + exe + L"\" " + arguments + L" " + std::wstring(name, name + strlen(name));
    const bool ended = runCopy(exe, commandLine, hostFolder, host.limitMs, code);
    const std::string text = readFile(reportFile);
    const std::string problem = ended && code == 0 && !text.empty() && afterExit ? afterExit(root) : std::string();
    if (!ended) {
      printf("%sFAIL %s: the test did not end within %lu s and was stopped\n", text.c_str(), name,
             static_cast<unsigned long>(host.limitMs / 1000));
    } else if (text.empty()) {
      printf("FAIL %s: the test ended with exit code %lu and wrote no report\n", name, code);
    } else if (!problem.empty()) {
      printf("FAIL %s: after the host ended: %s", name, problem.c_str());
    } else {
      printf("%s", text.c_str());
      exitCode = static_cast<int>(code);
    }
  } catch (const TestFailure& failure) {
    printf("FAIL %s: %s\n%s", name, failure.reason.c_str(), failure.detail.c_str());
    exitCode = 1;
  }
  removePrivateFolder(host, root);
  return exitCode;
}

}  // namespace wine_test
