// launch_logic_tests.exe: the library's keyboard, clipboard, Start screen and
// search pane code against the test desktop, under Wine.
//
//   launch_logic_tests.exe TESTNAME DLLPATH DESKTOPEXE
//
// The program links the library's own objects and installs the real Windows
// platform itself, so it can call CKELMonitorMode, CKELKeyEmulate and
// CKELClipboard directly; the monitor mode is read through the built DLL's
// KelGetMonitorMode. Tests that need the shell start test_desktop.exe
// (DESKTOPEXE) with an events file of their own and stop it at the end.
// Prints "PASS name" or "FAIL name: reason"; exit code 0 on PASS, 1 on FAIL,
// 2 on bad usage.
//
// Every test sets the values it needs under HKCU\Software\KelbrookTestDesktop
// and removes the key at its start and end; the tests share the keyboard, the
// foreground window and the clipboard, so they run one at a time.

// The library's headers first: the seam's constants share names with Windows
// macros, which must not be defined while they are read.
#include "launch/clipboard.h"
#include "launch/key_emulate.h"
#include "launch/monitor_mode.h"
#include "platform/win32/win32_platform.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef UNICODE
#define UNICODE
#endif
#include <windows.h>
#include <shellapi.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace {

// ---------------------------------------------------------------------------
// Failure reporting

const char* g_currentTest = "";

struct TestFailure {
    std::string reason;
    std::string detail;  // printed under the FAIL line, may be empty
};

std::string format(const char* fmt, ...)
{
    char buffer[2048];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return buffer;
}

[[noreturn]] void fail(const std::string& reason, const std::string& detail = std::string())
{
    throw TestFailure{reason, detail};
}

std::string hex(HRESULT value)
{
    return format("0x%08lX", static_cast<unsigned long>(value));
}

void expectResult(HRESULT actual, HRESULT expected, const std::string& call)
{
    if (actual != expected)
        fail(call + " returned " + hex(actual) + ", expected " + hex(expected));
}

// ---------------------------------------------------------------------------
// Strings, files, waiting

std::string narrow(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0,
                                    nullptr, nullptr);
    std::string result(bytes, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &result[0], bytes, nullptr,
                        nullptr);
    return result;
}

std::string narrow(const char16_t* text)
{
    return narrow(std::wstring(reinterpret_cast<const wchar_t*>(text)));
}

bool fileExists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The whole file; empty when it cannot be opened. Full sharing, so that the
// desktop writing it is not disturbed.
std::string readFile(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return std::string();
    std::string content;
    char buffer[4096];
    DWORD read = 0;
    while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0)
        content.append(buffer, read);
    CloseHandle(file);
    return content;
}

// Calls `done` every 50 ms until it answers true or `timeoutMs` has passed.
bool waitUntil(const std::function<bool()>& done, DWORD timeoutMs)
{
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    for (;;) {
        if (done())
            return true;
        if (GetTickCount64() >= deadline)
            return done();
        Sleep(50);
    }
}

// A new, empty folder under the temporary folder, removed again at the end.
class TempFolder {
public:
    TempFolder()
    {
        wchar_t temp[MAX_PATH + 1];
        DWORD length = GetTempPathW(MAX_PATH + 1, temp);
        if (length == 0 || length > MAX_PATH)
            fail("GetTempPathW failed");
        for (unsigned attempt = 0; attempt < 100; ++attempt) {
            wchar_t name[64];
            swprintf(name, 64, L"kellaunch-%lu-%llu-%u", GetCurrentProcessId(),
                     static_cast<unsigned long long>(GetTickCount64()), attempt);
            path_ = std::wstring(temp) + name;
            if (CreateDirectoryW(path_.c_str(), nullptr))
                return;
        }
        fail("cannot create a temporary folder under " + narrow(temp));
    }
    ~TempFolder()
    {
        WIN32_FIND_DATAW entry;
        HANDLE find = FindFirstFileW((path_ + L"\\*").c_str(), &entry);
        if (find != INVALID_HANDLE_VALUE) {
            do {
                if (!(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                    DeleteFileW((path_ + L"\\" + entry.cFileName).c_str());
            } while (FindNextFileW(find, &entry));
            FindClose(find);
        }
        RemoveDirectoryW(path_.c_str());
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::wstring& path() const { return path_; }

private:
    std::wstring path_;
};

// ---------------------------------------------------------------------------
// The test desktop's control values

const wchar_t kControlKey[] = L"Software\\KelbrookTestDesktop";

void setDword(const wchar_t* name, DWORD value)
{
    HKEY key = nullptr;
    LONG status = RegCreateKeyExW(HKEY_CURRENT_USER, kControlKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                                  nullptr);
    if (status != ERROR_SUCCESS)
        fail(format("RegCreateKeyExW(HKCU\\Software\\KelbrookTestDesktop) failed with %ld", status));
    status = RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
    RegCloseKey(key);
    if (status != ERROR_SUCCESS)
        fail(format("RegSetValueExW(%s) failed with %ld", narrow(name).c_str(), status));
}

void setString(const wchar_t* name, const wchar_t* value)
{
    HKEY key = nullptr;
    LONG status = RegCreateKeyExW(HKEY_CURRENT_USER, kControlKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                                  nullptr);
    if (status != ERROR_SUCCESS)
        fail(format("RegCreateKeyExW(HKCU\\Software\\KelbrookTestDesktop) failed with %ld", status));
    status = RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                            static_cast<DWORD>((wcslen(value) + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
    if (status != ERROR_SUCCESS)
        fail(format("RegSetValueExW(%s) failed with %ld", narrow(name).c_str(), status));
}

// The value, or `fallback` when it is absent.
DWORD readDword(const wchar_t* name, DWORD fallback)
{
    DWORD value = 0;
    DWORD size = sizeof value;
    if (RegGetValueW(HKEY_CURRENT_USER, kControlKey, name, RRF_RT_REG_DWORD, nullptr, &value, &size) !=
        ERROR_SUCCESS)
        return fallback;
    return value;
}

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

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            break;  // a line still being written
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// Runs test_desktop.exe for the length of a test, recording to a file of its own.
class Desktop {
public:
    Desktop(const std::wstring& exePath, const std::wstring& folder) : eventsPath_(folder + L"\\events.txt")
    {
        // Created before the desktop starts so that a signal from an earlier
        // desktop cannot count.
        ready_ = CreateEventW(nullptr, TRUE, FALSE, L"KelbrookTestDesktop.Ready");
        if (ready_ == nullptr)
            fail(format("CreateEventW(KelbrookTestDesktop.Ready) failed with %lu", GetLastError()));
        ResetEvent(ready_);

        std::wstring commandLine = L"\"" + exePath + L"\" --events \"" + eventsPath_ + L"\"";
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process = {};
        if (!CreateProcessW(exePath.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                            &startup, &process)) {
            DWORD error = GetLastError();
            CloseHandle(ready_);
            fail(format("cannot start %s: CreateProcessW failed with %lu", narrow(exePath).c_str(), error));
        }
        CloseHandle(process.hThread);
        process_ = process.hProcess;

        HANDLE waitFor[] = {ready_, process_};
        DWORD woken = WaitForMultipleObjects(2, waitFor, FALSE, 30000);
        if (woken == WAIT_OBJECT_0 + 1) {
            DWORD code = 0;
            GetExitCodeProcess(process_, &code);
            std::string detail = eventsDetail();
            close();
            fail(format("the test desktop ended during its start with exit code %lu (3: another one runs, "
                        "4: it could not set itself up)",
                        code),
                 detail);
        }
        if (woken != WAIT_OBJECT_0) {
            std::string detail = eventsDetail();
            terminate();
            fail("the test desktop did not signal ready within 30 s", detail);
        }
    }

    ~Desktop() { terminate(); }
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    // Asks the desktop to stop and checks that it did, cleanly.
    void stop()
    {
        HANDLE stopEvent = OpenEventW(EVENT_MODIFY_STATE, FALSE, L"KelbrookTestDesktop.Stop");
        if (stopEvent == nullptr)
            fail(format("OpenEventW(KelbrookTestDesktop.Stop) failed with %lu", GetLastError()), eventsDetail());
        SetEvent(stopEvent);
        CloseHandle(stopEvent);
        if (WaitForSingleObject(process_, 10000) != WAIT_OBJECT_0) {
            std::string detail = eventsDetail();
            terminate();
            fail("the test desktop did not stop within 10 s", detail);
        }
        DWORD code = 0;
        GetExitCodeProcess(process_, &code);
        close();
        if (code != 0)
            fail(format("the test desktop stopped with exit code %lu", code), eventsDetail());
    }

    std::vector<std::string> events() const { return splitLines(readFile(eventsPath_)); }

    std::string eventsDetail() const
    {
        std::string detail = "test desktop events:\n";
        for (const std::string& line : events())
            detail += "  | " + line + "\n";
        return detail;
    }

    // Waits (bounded) for `wanted` at or after index `from`; returns the index
    // after it.
    size_t waitForEvent(const std::string& wanted, size_t from = 0, DWORD timeoutMs = 10000) const
    {
        size_t found = 0;
        bool seen = waitUntil(
            [&] {
                std::vector<std::string> lines = events();
                for (size_t i = from; i < lines.size(); ++i) {
                    if (lines[i] == wanted) {
                        found = i + 1;
                        return true;
                    }
                }
                return false;
            },
            timeoutMs);
        if (!seen)
            fail(format("the test desktop did not record \"%s\" within %lu ms", wanted.c_str(),
                        static_cast<unsigned long>(timeoutMs)),
                 eventsDetail());
        return found;
    }

    // Checks that the events are exactly `expected` (after "ready").
    void expectEvents(const std::vector<std::string>& expected) const
    {
        std::vector<std::string> lines = events();
        if (lines.empty() || lines.front() != "ready")
            fail("the test desktop's events do not begin with \"ready\"", eventsDetail());
        lines.erase(lines.begin());
        if (lines != expected) {
            std::string wanted = "expected events:\n";
            for (const std::string& line : expected)
                wanted += "  | " + line + "\n";
            fail("the test desktop recorded other events than expected", eventsDetail() + wanted);
        }
    }

private:
    void close()
    {
        if (process_ != nullptr)
            CloseHandle(process_);
        if (ready_ != nullptr)
            CloseHandle(ready_);
        process_ = ready_ = nullptr;
    }

    void terminate()
    {
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

// ---------------------------------------------------------------------------
// The foreground window

std::wstring classOf(HWND window)
{
    wchar_t name[260] = L"";
    if (window == nullptr || GetClassNameW(window, name, 260) == 0)
        return L"";
    return name;
}

std::string foregroundDescription()
{
    HWND window = GetForegroundWindow();
    if (window == nullptr)
        return "no foreground window";
    return "the foreground window has class \"" + narrow(classOf(window)) + "\"";
}

// Waits (bounded) until the foreground window has exactly this class name.
void waitForForegroundClass(const Desktop& desktop, const std::wstring& className)
{
    if (!waitUntil([&] { return classOf(GetForegroundWindow()) == className; }, 10000))
        fail("no window of class \"" + narrow(className) + "\" came to the foreground within 10 s; " +
                 foregroundDescription(),
             desktop.eventsDetail());
}

// ---------------------------------------------------------------------------
// The built DLL

using KelGetMonitorModeFunction = HRESULT(WINAPI*)(UINT*);

// Loaded once for the test and never unloaded; the process ends soon anyway.
class Library {
public:
    explicit Library(const std::wstring& path)
    {
        module_ = LoadLibraryW(path.c_str());
        if (module_ == nullptr)
            fail(format("LoadLibraryW(%s) failed with error %lu", narrow(path).c_str(), GetLastError()));
        getMonitorMode_ = reinterpret_cast<KelGetMonitorModeFunction>(
            reinterpret_cast<void*>(GetProcAddress(module_, "KelGetMonitorMode")));
        if (getMonitorMode_ == nullptr)
            fail("GetProcAddress(KelGetMonitorMode) failed");
    }

    // Fails unless KelGetMonitorMode gives S_OK and `expected`.
    void expectMode(UINT expected, const std::string& situation) const
    {
        UINT mode = 0xC0FFEE;
        HRESULT hr = getMonitorMode_(&mode);
        if (hr != S_OK)
            fail("KelGetMonitorMode returned " + hex(hr) + " with " + situation + ", expected S_OK");
        if (mode != expected)
            fail(format("KelGetMonitorMode gave mode %u with %s, expected %u", mode, situation.c_str(), expected));
    }

    // Fails unless KelGetMonitorMode gives `expected` and leaves the output as it was.
    void expectFailure(HRESULT expected, const std::string& situation) const
    {
        const UINT untouched = 0xC0FFEE;
        UINT mode = untouched;
        HRESULT hr = getMonitorMode_(&mode);
        if (hr != expected)
            fail("KelGetMonitorMode returned " + hex(hr) + " with " + situation + ", expected " + hex(expected));
        if (mode != untouched)
            fail(format("KelGetMonitorMode changed its output to %u with %s", mode, situation.c_str()));
    }

private:
    HMODULE module_ = nullptr;
    KelGetMonitorModeFunction getMonitorMode_ = nullptr;
};

struct Paths {
    std::wstring dll;
    std::wstring desktop;
};

// ---------------------------------------------------------------------------
// Tests: the monitor mode through the DLL

void MonitorModeIsDesktopWithoutVisibleApp(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 0);
    setDword(L"AppVisibility", 1);  // MAV_NO_APP_VISIBLE
    Library library(paths.dll);
    library.expectMode(0, "the launcher hidden and MAV_NO_APP_VISIBLE");
}

void MonitorModeIsStoreAppWithVisibleApp(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 0);
    setDword(L"AppVisibility", 2);  // MAV_APP_VISIBLE
    Library library(paths.dll);
    library.expectMode(1, "the launcher hidden and MAV_APP_VISIBLE");
}

void MonitorModeIsStartScreenWithVisibleLauncher(const Paths& paths)
{
    ControlScope control;
    Library library(paths.dll);
    setDword(L"LauncherVisible", 1);
    for (DWORD visibility : {0u, 1u, 2u}) {
        setDword(L"AppVisibility", visibility);
        library.expectMode(2, format("the launcher visible and app visibility %lu", visibility));
    }

    // The Windows key alone brings the Start screen up on the test desktop.
    setDword(L"LauncherVisible", 0);
    setDword(L"AppVisibility", 2);
    library.expectMode(1, "the launcher hidden and MAV_APP_VISIBLE");
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());
    kel::CKELKeyEmulate::Sendinput_Win();
    desktop.waitForEvent("launcher shown");
    library.expectMode(2, "the launcher shown by the Windows key");
    desktop.stop();
    desktop.expectEvents({"launcher shown", "stopped"});
}

void MonitorModeUnknownVisibilityFails(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 0);
    setDword(L"AppVisibility", 0);  // MAV_UNKNOWN
    Library library(paths.dll);
    library.expectFailure(E_FAIL, "the launcher hidden and MAV_UNKNOWN");
}

void MonitorModePassesShellFailuresOn(const Paths& paths)
{
    ControlScope control;
    Library library(paths.dll);
    setDword(L"AppVisibilityResult", static_cast<DWORD>(E_ACCESSDENIED));
    library.expectFailure(E_ACCESSDENIED, "GetAppVisibilityOnMonitor failing with E_ACCESSDENIED");
    setDword(L"AppVisibilityResult", 0);
    setDword(L"LauncherResult", static_cast<DWORD>(E_UNEXPECTED));
    library.expectFailure(E_UNEXPECTED, "IsLauncherVisible failing with E_UNEXPECTED");
}

// ---------------------------------------------------------------------------
// Tests: the search pane

void SearchPaneOpensFromTheDesktop(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 0);
    setDword(L"AppVisibility", 1);
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());

    expectResult(kel::CKELMonitorMode::OpenAppSearchUI(), S_OK, "OpenAppSearchUI");
    if (classOf(GetForegroundWindow()) != L"SearchPane")
        fail("OpenAppSearchUI returned S_OK but " + foregroundDescription(), desktop.eventsDetail());
    // The Start screen first (the Windows key alone), then Windows+Q.
    desktop.stop();
    desktop.expectEvents({"launcher shown", "hotkey win+q", "pane shown SearchPane", "stopped"});
}

void SearchPaneOpensStraightFromTheStartScreen(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 1);
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());

    expectResult(kel::CKELMonitorMode::OpenAppSearchUI(), S_OK, "OpenAppSearchUI");
    if (classOf(GetForegroundWindow()) != L"SearchPane")
        fail("OpenAppSearchUI returned S_OK but " + foregroundDescription(), desktop.eventsDetail());
    // No Windows key alone: the Start screen already shows.
    desktop.stop();
    desktop.expectEvents({"hotkey win+q", "pane shown SearchPane", "stopped"});
}

void SearchPaneThatNeverAppearsGivesEFail(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 1);
    setDword(L"PaneAppears", 0);
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());

    const ULONGLONG start = GetTickCount64();
    expectResult(kel::CKELMonitorMode::OpenAppSearchUI(), E_FAIL, "OpenAppSearchUI without a search pane");
    const ULONGLONG elapsed = GetTickCount64() - start;
    // 200 polls 100 ms apart, then 200 ms: the bound cannot pass sooner.
    if (elapsed < 20000)
        fail(format("OpenAppSearchUI gave up after %llu ms, before its bound of 200 polls 100 ms apart",
                    static_cast<unsigned long long>(elapsed)));
    if (kel::CKELMonitorMode::IsSearchPaneForeground())
        fail("IsSearchPaneForeground is TRUE although no pane was shown; " + foregroundDescription());
    desktop.stop();
    desktop.expectEvents({"hotkey win+q", "pane not shown", "stopped"});
    printf("OpenAppSearchUI gave E_FAIL after %llu ms\n", static_cast<unsigned long long>(elapsed));
}

// Shows a pane of the class `className` with Windows+Q and asks the library
// whether the search pane is in front.
void checkPaneClass(const Paths& paths, const wchar_t* className, bool recognised)
{
    ControlScope control;
    setString(L"PaneClass", className);
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());

    kel::CKELKeyEmulate::SendInput_Win_Q();
    desktop.waitForEvent("pane shown " + narrow(className));
    waitForForegroundClass(desktop, className);
    BOOL answer = kel::CKELMonitorMode::IsSearchPaneForeground();
    if ((answer != 0) != recognised)
        fail(format("IsSearchPaneForeground is %s with a foreground window of class \"%s\"",
                    answer ? "TRUE" : "FALSE", narrow(className).c_str()));
    desktop.stop();
    desktop.expectEvents({"hotkey win+q", "pane shown " + narrow(className), "stopped"});
}

void SearchPaneRecognisedByItsClass(const Paths& paths)
{
    checkPaneClass(paths, L"SearchPane", true);
}

void SearchPaneClassWithSuffixNotRecognised(const Paths& paths)
{
    checkPaneClass(paths, L"SearchPaneX", false);
}

void SearchPaneClassInOtherCaseNotRecognised(const Paths& paths)
{
    checkPaneClass(paths, L"searchpane", false);
}

// ---------------------------------------------------------------------------
// Tests: typing into the pane

// Brings the pane up with the library's Windows+Q and waits until it has the keyboard.
void openPane(const Desktop& desktop)
{
    kel::CKELKeyEmulate::SendInput_Win_Q();
    desktop.waitForEvent("pane shown SearchPane");
    waitForForegroundClass(desktop, L"SearchPane");
}

void putOnClipboard(const char16_t* text)
{
    expectResult(kel::CKELClipboard::SetClipboardData(text), S_OK,
                 "CKELClipboard::SetClipboardData(\"" + narrow(text) + "\")");
}

// The text of the pane's edit box, asked across the process boundary.
std::string paneText()
{
    HWND pane = FindWindowW(L"SearchPane", nullptr);
    HWND edit = pane != nullptr ? FindWindowExW(pane, nullptr, L"Edit", nullptr) : nullptr;
    if (edit == nullptr)
        fail("cannot find the search pane's edit box");
    wchar_t text[1024] = L"";
    SendMessageW(edit, WM_GETTEXT, 1024, reinterpret_cast<LPARAM>(text));
    return narrow(text);
}

void ShiftInsertPastesTheClipboard(const Paths& paths)
{
    ControlScope control;
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());
    openPane(desktop);

    const char16_t text[] = u"\"Kelbrook \u691C\u7D22 \u00FC\" NOT(\"a\" OR \"b\")";
    putOnClipboard(text);
    kel::CKELKeyEmulate::SendInput_Shift_Insert();
    desktop.waitForEvent("paste " + narrow(text));
    if (paneText() != narrow(text))
        fail("the edit box holds \"" + paneText() + "\" after the paste, expected \"" + narrow(text) + "\"",
             desktop.eventsDetail());
    desktop.stop();
    desktop.expectEvents({"hotkey win+q", "pane shown SearchPane", "paste " + narrow(text), "stopped"});
}

void EnterSubmitsAndThePaneStaysAsTold(const Paths& paths)
{
    ControlScope control;
    setDword(L"LauncherVisible", 1);
    setDword(L"PaneStaysInFront", 2);
    TempFolder folder;
    Desktop desktop(paths.desktop, folder.path());
    openPane(desktop);

    putOnClipboard(u"first");
    kel::CKELKeyEmulate::SendInput_Shift_Insert();
    size_t next = desktop.waitForEvent("paste first");
    kel::CKELKeyEmulate::SendInput_Enter();
    next = desktop.waitForEvent("submit first", next);
    if (!kel::CKELMonitorMode::IsSearchPaneForeground())
        fail("the pane left the front after the first Enter; " + foregroundDescription(), desktop.eventsDetail());
    if (readDword(L"PaneStaysInFront", 0) != 1)
        fail(format("PaneStaysInFront is %lu after one Enter, expected 1", readDword(L"PaneStaysInFront", 0)));

    // The submitted text stays selected, so the next paste replaces it.
    putOnClipboard(u"second");
    kel::CKELKeyEmulate::SendInput_Shift_Insert();
    next = desktop.waitForEvent("paste second", next);
    kel::CKELKeyEmulate::SendInput_Enter();
    next = desktop.waitForEvent("submit second", next);
    if (!kel::CKELMonitorMode::IsSearchPaneForeground())
        fail("the pane left the front after the second Enter; " + foregroundDescription(), desktop.eventsDetail());

    kel::CKELKeyEmulate::SendInput_Enter();
    desktop.waitForEvent("pane hidden", next);
    if (!waitUntil([] { return !kel::CKELMonitorMode::IsSearchPaneForeground(); }, 10000))
        fail("the search pane is still in front 10 s after it was hidden", desktop.eventsDetail());
    if (readDword(L"LauncherVisible", 1) != 0)
        fail("LauncherVisible is still set after the pane hid on Enter");
    desktop.stop();
    desktop.expectEvents({"hotkey win+q", "pane shown SearchPane", "paste first", "submit first", "paste second",
                          "submit second", "submit second", "pane hidden", "stopped"});
}

// ---------------------------------------------------------------------------
// Runner

struct Test {
    const char* name;
    void (*run)(const Paths& paths);
};

const Test kTests[] = {
    {"MonitorModeIsDesktopWithoutVisibleApp", MonitorModeIsDesktopWithoutVisibleApp},
    {"MonitorModeIsStoreAppWithVisibleApp", MonitorModeIsStoreAppWithVisibleApp},
    {"MonitorModeIsStartScreenWithVisibleLauncher", MonitorModeIsStartScreenWithVisibleLauncher},
    {"MonitorModeUnknownVisibilityFails", MonitorModeUnknownVisibilityFails},
    {"MonitorModePassesShellFailuresOn", MonitorModePassesShellFailuresOn},
    {"SearchPaneOpensFromTheDesktop", SearchPaneOpensFromTheDesktop},
    {"SearchPaneOpensStraightFromTheStartScreen", SearchPaneOpensStraightFromTheStartScreen},
    {"SearchPaneThatNeverAppearsGivesEFail", SearchPaneThatNeverAppearsGivesEFail},
    {"SearchPaneRecognisedByItsClass", SearchPaneRecognisedByItsClass},
    {"SearchPaneClassWithSuffixNotRecognised", SearchPaneClassWithSuffixNotRecognised},
    {"SearchPaneClassInOtherCaseNotRecognised", SearchPaneClassInOtherCaseNotRecognised},
    {"ShiftInsertPastesTheClipboard", ShiftInsertPastesTheClipboard},
    {"EnterSubmitsAndThePaneStaysAsTold", EnterSubmitsAndThePaneStaysAsTold},
};

LONG WINAPI reportCrash(EXCEPTION_POINTERS* info)
{
    printf("FAIL %s: crashed with exception 0x%08lX\n", g_currentTest,
           static_cast<unsigned long>(info->ExceptionRecord->ExceptionCode));
    fflush(stdout);
    return EXCEPTION_EXECUTE_HANDLER;
}

int usage()
{
    printf("usage: launch_logic_tests.exe TESTNAME DLLPATH DESKTOPEXE\ntests:\n");
    for (const Test& test : kTests)
        printf("  %s\n", test.name);
    return 2;
}

// Wine maps the Unix root to drive Z:, so a Unix path from the build system
// is reachable as Z:<path>.
std::wstring usablePath(const std::wstring& path)
{
    if (!path.empty() && path[0] == L'/' && fileExists(L"Z:" + path))
        return L"Z:" + path;
    return path;
}

} // namespace

int main()
{
    // The library's calls go to Windows itself, as inside the DLL.
    static kel::platform::win32::Win32Platform platform;
    kel::platform::Install(&platform);

    int argc = 0;
    LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argv == nullptr || argc != 4)
        return usage();
    std::string name = narrow(argv[1]);
    Paths paths{usablePath(argv[2]), usablePath(argv[3])};
    LocalFree(argv);

    for (const Test& test : kTests) {
        if (name != test.name)
            continue;
        g_currentTest = test.name;
        SetUnhandledExceptionFilter(reportCrash);
        try {
            test.run(paths);
        } catch (const TestFailure& failure) {
            printf("FAIL %s: %s\n%s", test.name, failure.reason.c_str(), failure.detail.c_str());
            fflush(stdout);
            return 1;
        } catch (const std::exception& exception) {
            printf("FAIL %s: exception %s\n", test.name, exception.what());
            fflush(stdout);
            return 1;
        }
        printf("PASS %s\n", test.name);
        fflush(stdout);
        return 0;
    }
    printf("unknown test %s\n", name.c_str());
    return usage();
}
