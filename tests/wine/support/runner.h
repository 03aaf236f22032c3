// Running one named test of a program's table: in this process, or in a
// private copy of the program (PrivateHost) with a folder of its own.
#pragma once

#include "support/windows_headers.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "support/failure.h"
#include "support/files.h"
#include "support/text.h"

namespace wine_test {

// ---------------------------------------------------------------------------
// Running one named test

inline const char* g_currentTest = "";  // for reports made outside the test's own flow

// Where reports go: a file the parent of a private host prints, or, when
// empty, the output.
inline std::wstring& ReportPath() {
  static std::wstring path;
  return path;
}

inline void Report(const std::string& text) {
  if (ReportPath().empty()) {
    printf("%s", text.c_str());
    fflush(stdout);
    return;
  }
  HANDLE file = CreateFileW(ReportPath().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
  }
}

// A crash in the library still gives a FAIL line before the process ends.
inline LONG WINAPI ReportCrash(EXCEPTION_POINTERS* info) {
  Report(Format("FAIL %s: crashed with exception 0x%08lX\n", g_currentTest,
                static_cast<unsigned long>(info->ExceptionRecord->ExceptionCode)));
  return EXCEPTION_EXECUTE_HANDLER;
}

// Runs the test and reports "PASS name", or "FAIL name: reason" with the
// detail under it. Exit code 0 on PASS, 1 on FAIL.
inline int RunTest(const char* name, const std::function<void()>& test) {
  g_currentTest = name;
  SetUnhandledExceptionFilter(ReportCrash);
  try {
    test();
  } catch (const TestFailure& failure) {
    Report("FAIL " + std::string(name) + ": " + failure.reason + "\n" + failure.detail);
    return 1;
  } catch (const std::exception& exception) {
    Report("FAIL " + std::string(name) + ": exception " + exception.what() + "\n");
    return 1;
  }
  Report("PASS " + std::string(name) + "\n");
  return 0;
}

// The test of this name in a program's table; an unknown name is reported
// and gives null.
template <typename Test, std::size_t N>
const Test* FindTest(const Test (&tests)[N], const std::string& name) {
  for (const Test& test : tests) {
    if (name == test.name) return &test;
  }
  printf("unknown test %s\n", name.c_str());
  return nullptr;
}

// The arguments after the program's name when there are exactly `count` of
// them; none otherwise.
inline std::vector<std::wstring> CommandLineArguments(std::size_t count) {
  int argc = 0;
  LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  std::vector<std::wstring> arguments;
  if (argv != nullptr && static_cast<std::size_t>(argc) == count + 1) arguments.assign(argv + 1, argv + argc);
  LocalFree(argv);
  return arguments;
}

// The test of a program's table that argument `nameAt` names; null when
// there is no such argument or test.
template <typename Test, std::size_t N>
const Test* NamedTest(const Test (&tests)[N], const std::vector<std::wstring>& arguments, std::size_t nameAt) {
  return nameAt < arguments.size() ? FindTest(tests, Narrow(arguments[nameAt])) : nullptr;
}

// Exit code 2, for bad usage.
template <typename Test, std::size_t N>
int Usage(const char* synopsis, const Test (&tests)[N]) {
  printf("usage: %s\ntests:\n", synopsis);
  for (const Test& test : tests) printf("  %s\n", test.name);
  return 2;
}

// Wine maps the Unix root to drive Z:, so a Unix path from the build system
// is reachable as Z:<path>.
inline std::wstring UsablePath(const std::wstring& path) {
  if (!path.empty() && path[0] == L'/' && !FileExists(path) && FileExists(L"Z:" + path)) return L"Z:" + path;
  return path;
}

// The whole main of a program whose tests take the DLL's path:
// `PROGRAM DLLPATH TESTNAME`. Runs the named test of `tests` (each with a
// `name` and a `run(const std::wstring& dllPath)`), or reports bad usage.
template <typename Test, std::size_t N>
int RunDllTestNamedOnCommandLine(const char* synopsis, const Test (&tests)[N]) {
  const std::vector<std::wstring> arguments = CommandLineArguments(2);
  const Test* test = NamedTest(tests, arguments, 1);
  if (test == nullptr) return Usage(synopsis, tests);
  const std::wstring dllPath = UsablePath(arguments[0]);
  return RunTest(test->name, [&] { test->run(dllPath); });
}

// The path of this program's executable.
inline std::wstring ProgramPath() {
  wchar_t path[MAX_PATH + 1] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

// The folder the executable is in, where a host keeps its preset files.
inline std::wstring ProgramFolder() {
  const std::wstring path = ProgramPath();
  return path.substr(0, path.find_last_of(L'\\'));
}

// For a test that runs in another folder.
inline std::wstring AbsolutePath(const std::wstring& path) {
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
inline int RunInHost(const PrivateHost& host, const char* name, const std::function<void()>& test) {
  ReportPath() = EnvironmentValue(host.reportVariable);
  return RunTest(name, test);
}

// Starts the copy in its folder and waits for it (bounded); gives whether it
// ended in time, and then its exit code.
inline bool RunCopy(const std::wstring& exe, std::wstring commandLine, const std::wstring& folder, DWORD limitMs,
                    DWORD& code) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(exe.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(), &startup,
                      &process)) {
    Fail(Format("cannot start %s (error %lu)", Narrow(exe).c_str(), GetLastError()));
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

inline void RemovePrivateFolder(const PrivateHost& host, const std::wstring& root) {
  if (EnvironmentValue(host.keepVariable) == L"1") {
    printf("kept %s\n", Narrow(root).c_str());
    fflush(stdout);
    return;
  }
  // A handler started by the shell may still be closing its file: a few tries.
  if (!WaitUntil([&] { return RemoveTree(root); }, 5000)) printf("note: could not remove %s\n", Narrow(root).c_str());
  fflush(stdout);
}

// In the parent: creates the private folder, runs the test in a copy of this
// program there with `arguments` and the test's name, prints its report and
// removes the folder. `beforeStart` runs once the folder is ready; when the
// copy has passed, `afterExit` looks at the private folder and gives what is
// wrong, or nothing.
inline int RunInPrivateHost(const PrivateHost& host, const char* name, const std::wstring& arguments,
                            const std::function<void()>& beforeStart = nullptr,
                            const std::function<std::string(const std::wstring& root)>& afterExit = nullptr) {
  std::wstring root;
  try {
    root = CreateTempFolder(host.folderPrefix);
  } catch (const TestFailure& failure) {
    printf("FAIL %s: %s\n", name, failure.reason.c_str());
    return 1;
  }
  int exitCode = 1;
  try {
    const std::wstring hostFolder = root + L"\\host";
    MakeFolders(hostFolder);
    const std::wstring exe = hostFolder + L"\\" + host.exeName;
    if (!CopyFileW(ProgramPath().c_str(), exe.c_str(), FALSE))
      Fail(Format("cannot copy the test program (error %lu)", GetLastError()));
    const std::wstring reportFile = root + L"\\report.txt";
    SetEnvironment(host.rootVariable, root);
    SetEnvironment(host.reportVariable, reportFile);
    if (beforeStart) beforeStart();

    DWORD code = 1;
    const std::wstring commandLine = L"\"" + exe + L"\" " + arguments + L" " + std::wstring(name, name + strlen(name));
    const bool ended = RunCopy(exe, commandLine, hostFolder, host.limitMs, code);
    const std::string text = ReadBytes(reportFile);
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
  RemovePrivateFolder(host, root);
  return exitCode;
}

}  // namespace wine_test
