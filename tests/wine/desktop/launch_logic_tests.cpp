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
#include "frame/lifecycle.h"
#include "launch/clipboard.h"
#include "launch/key_emulate.h"
#include "launch/monitor_mode.h"
#include "platform/win32/win32_platform.h"

#include "support/wine_test_support.h"

#include <shellapi.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace wine_test;

namespace {

// ---------------------------------------------------------------------------
// The test desktop

const wchar_t kTempPrefix[] = L"kellaunch";  // of the test's temporary folders

// The test's temporary folder, made before the desktop that records into it
// and removed after the desktop has ended.
struct EventsFolder {
  TempFolder folder{kTempPrefix};
};

// The test desktop for one test, recording its events to a file in a
// temporary folder of its own.
class TestDesktop : private EventsFolder, public Desktop {
 public:
  explicit TestDesktop(const std::wstring& exePath) : Desktop(exePath, folder.Path() + L"\\events.txt") {}
};

// ---------------------------------------------------------------------------
// The foreground window

std::string ForegroundDescription() {
  HWND window = GetForegroundWindow();
  if (window == nullptr) return "no foreground window";
  return "the foreground window has class \"" + Narrow(ClassOf(window)) + "\"";
}

// Waits (bounded) until the foreground window has exactly this class name.
void WaitForForegroundClass(const Desktop& desktop, const std::wstring& className) {
  if (!WaitUntil([&] { return ClassOf(GetForegroundWindow()) == className; }, 10000))
    Fail("no window of class \"" + Narrow(className) + "\" came to the foreground within 10 s; " +
             ForegroundDescription(),
         desktop.EventsDetail());
}

// ---------------------------------------------------------------------------
// The built DLL

using KelGetMonitorModeFunction = HRESULT(WINAPI*)(UINT*);

// The built DLL's KelGetMonitorMode, with the checks of its answers.
class MonitorModeLibrary {
 public:
  explicit MonitorModeLibrary(const std::wstring& path)
      : library_(path), getMonitorMode_(library_.get<KelGetMonitorModeFunction>("KelGetMonitorMode")) {}

  // Fails unless KelGetMonitorMode gives S_OK and `expected`.
  void ExpectMode(UINT expected, const std::string& situation) const {
    UINT mode = 0xC0FFEE;
    HRESULT hr = getMonitorMode_(&mode);
    if (hr != S_OK) Fail("KelGetMonitorMode returned " + Hex(hr) + " with " + situation + ", expected S_OK");
    if (mode != expected)
      Fail(Format("KelGetMonitorMode gave mode %u with %s, expected %u", mode, situation.c_str(), expected));
  }

  // Fails unless KelGetMonitorMode gives `expected` and leaves the output as it was.
  void ExpectFailure(HRESULT expected, const std::string& situation) const {
    const UINT untouched = 0xC0FFEE;
    UINT mode = untouched;
    HRESULT hr = getMonitorMode_(&mode);
    if (hr != expected)
      Fail("KelGetMonitorMode returned " + Hex(hr) + " with " + situation + ", expected " + Hex(expected));
    if (mode != untouched) Fail(Format("KelGetMonitorMode changed its output to %u with %s", mode, situation.c_str()));
  }

 private:
  Library library_;
  KelGetMonitorModeFunction getMonitorMode_;
};

struct Paths {
  std::wstring dll;
  std::wstring desktop;
};

// The test desktop with the launcher hidden and this app visibility, for the
// test's lifetime.
class LauncherHiddenScope {
 public:
  explicit LauncherHiddenScope(DWORD appVisibility) {
    SetControl(L"LauncherVisible", 0);
    SetControl(L"AppVisibility", appVisibility);
  }

 private:
  ControlScope control_;
};

// ---------------------------------------------------------------------------
// Tests: the monitor mode through the DLL

void MonitorModeIsDesktopWithoutVisibleApp(const Paths& paths) {
  LauncherHiddenScope desktopState(1);  // MAV_NO_APP_VISIBLE
  MonitorModeLibrary library(paths.dll);
  library.ExpectMode(0, "the launcher hidden and MAV_NO_APP_VISIBLE");
}

void MonitorModeIsStoreAppWithVisibleApp(const Paths& paths) {
  LauncherHiddenScope desktopState(2);  // MAV_APP_VISIBLE
  MonitorModeLibrary library(paths.dll);
  library.ExpectMode(1, "the launcher hidden and MAV_APP_VISIBLE");
}

void MonitorModeIsStartScreenWithVisibleLauncher(const Paths& paths) {
  ControlScope control;
  MonitorModeLibrary library(paths.dll);
  SetControl(L"LauncherVisible", 1);
  for (DWORD visibility : {0u, 1u, 2u}) {
    SetControl(L"AppVisibility", visibility);
    library.ExpectMode(2, Format("the launcher visible and app visibility %lu", visibility));
  }

  // The Windows key alone brings the Start screen up on the test desktop.
  SetControl(L"LauncherVisible", 0);
  SetControl(L"AppVisibility", 2);
  library.ExpectMode(1, "the launcher hidden and MAV_APP_VISIBLE");
  TestDesktop desktop(paths.desktop);
  kel::CKELKeyEmulate::Sendinput_Win();
  desktop.WaitForEvent("launcher shown");
  library.ExpectMode(2, "the launcher shown by the Windows key");
  desktop.Stop();
  desktop.ExpectEvents({"launcher shown", "stopped"});
}

void MonitorModeUnknownVisibilityFails(const Paths& paths) {
  LauncherHiddenScope desktopState(0);  // MAV_UNKNOWN
  MonitorModeLibrary library(paths.dll);
  library.ExpectFailure(E_FAIL, "the launcher hidden and MAV_UNKNOWN");
}

void MonitorModePassesShellFailuresOn(const Paths& paths) {
  ControlScope control;
  MonitorModeLibrary library(paths.dll);
  SetControl(L"AppVisibilityResult", static_cast<DWORD>(E_ACCESSDENIED));
  library.ExpectFailure(E_ACCESSDENIED, "GetAppVisibilityOnMonitor failing with E_ACCESSDENIED");
  SetControl(L"AppVisibilityResult", 0);
  SetControl(L"LauncherResult", static_cast<DWORD>(E_UNEXPECTED));
  library.ExpectFailure(E_UNEXPECTED, "IsLauncherVisible failing with E_UNEXPECTED");
}

// A failing first launcher query ends the switch before the Windows key: the
// app visibility object is released and no exit line of the switch follows.
void SwitchWithAFailingLauncherQueryEndsWithoutAnExitLine(const Paths&) {
  ControlScope control;
  LogOnSettingsScope settings;
  TempFolder localAppData(kTempPrefix);
  SetEnvironment(L"LOCALAPPDATA", localAppData.Path());
  MakeFolders(localAppData.Path() + L"\\Osk\\Kelbrook");
  const std::wstring logPath = localAppData.Path() + L"\\Osk\\Kelbrook\\KelbrookLogFS.txt";
  SetControl(L"LauncherResult", static_cast<DWORD>(E_UNEXPECTED));
  kel::RereadLogSwitch();
  const HRESULT hr = kel::CKELMonitorMode::SwitchToStartScreen();
  ExpectResult(hr, E_UNEXPECTED, "SwitchToStartScreen with IsLauncherVisible failing");

  std::vector<std::string> messages;
  const std::string log = ReadBytes(logPath);
  for (const std::string& line : CompleteLines(log)) {
    const size_t stampEnd = line.find(']');
    messages.push_back(stampEnd == std::string::npos ? line : line.substr(stampEnd + 1));
  }
  const std::vector<std::string> expected = {
      "CKELMonitorMode::SwitchToStartScreen IN", "CKELMonitorMode::GetIMetroMode IN",
      "CKELMonitorMode::GetIMetroMode OUT(0x00000000)", "CKELMonitorMode::ReleaseIMetroMode IN",
      "CKELMonitorMode::ReleaseIMetroMode OUT"};
  if (messages != expected)
    Fail("the switch's log is not the creation, the release and nothing else",
         Indented("expected", expected) + Indented("log", messages));
}

// ---------------------------------------------------------------------------
// Tests: the search pane

// OpenAppSearchUI brings the search pane to the front, and the test desktop
// records `events` up to its stop.
void ExpectSearchPaneOpens(const Paths& paths, const std::vector<std::string>& events) {
  TestDesktop desktop(paths.desktop);

  ExpectResult(kel::CKELMonitorMode::OpenAppSearchUI(), S_OK, "OpenAppSearchUI");
  if (ClassOf(GetForegroundWindow()) != L"SearchPane")
    Fail("OpenAppSearchUI returned S_OK but " + ForegroundDescription(), desktop.EventsDetail());
  desktop.Stop();
  desktop.ExpectEvents(events);
}

void SearchPaneOpensFromTheDesktop(const Paths& paths) {
  LauncherHiddenScope desktopState(1);
  // The Start screen first (the Windows key alone), then Windows+Q.
  ExpectSearchPaneOpens(paths, {"launcher shown", "hotkey win+q", "pane shown SearchPane", "stopped"});
}

void SearchPaneOpensStraightFromTheStartScreen(const Paths& paths) {
  ControlScope control;
  SetControl(L"LauncherVisible", 1);
  // No Windows key alone: the Start screen already shows.
  ExpectSearchPaneOpens(paths, {"hotkey win+q", "pane shown SearchPane", "stopped"});
}

void SearchPaneThatNeverAppearsGivesEFail(const Paths& paths) {
  ControlScope control;
  SetControl(L"LauncherVisible", 1);
  SetControl(L"PaneAppears", 0);
  TestDesktop desktop(paths.desktop);

  const ULONGLONG start = GetTickCount64();
  ExpectResult(kel::CKELMonitorMode::OpenAppSearchUI(), E_FAIL, "OpenAppSearchUI without a search pane");
  const ULONGLONG elapsed = GetTickCount64() - start;
  // 200 polls 100 ms apart, then 200 ms: the bound cannot pass sooner.
  if (elapsed < 20000)
    Fail(Format("OpenAppSearchUI gave up after %llu ms, before its bound of 200 polls 100 ms apart",
                static_cast<unsigned long long>(elapsed)));
  if (kel::CKELMonitorMode::IsSearchPaneForeground())
    Fail("IsSearchPaneForeground is TRUE although no pane was shown; " + ForegroundDescription());
  desktop.Stop();
  desktop.ExpectEvents({"hotkey win+q", "pane not shown", "stopped"});
  printf("OpenAppSearchUI gave E_FAIL after %llu ms\n", static_cast<unsigned long long>(elapsed));
}

// Shows a pane of the class `className` with Windows+Q and asks the library
// whether the search pane is in front.
void CheckPaneClass(const Paths& paths, const wchar_t* className, bool recognised) {
  ControlScope control;
  SetControlString(L"PaneClass", className);
  TestDesktop desktop(paths.desktop);

  kel::CKELKeyEmulate::SendInput_Win_Q();
  desktop.WaitForEvent("pane shown " + Narrow(className));
  WaitForForegroundClass(desktop, className);
  BOOL answer = kel::CKELMonitorMode::IsSearchPaneForeground();
  if ((answer != 0) != recognised)
    Fail(Format("IsSearchPaneForeground is %s with a foreground window of class \"%s\"", answer ? "TRUE" : "FALSE",
                Narrow(className).c_str()));
  desktop.Stop();
  desktop.ExpectEvents({"hotkey win+q", "pane shown " + Narrow(className), "stopped"});
}

void SearchPaneRecognisedByItsClass(const Paths& paths) { CheckPaneClass(paths, L"SearchPane", true); }

void SearchPaneClassWithSuffixNotRecognised(const Paths& paths) { CheckPaneClass(paths, L"SearchPaneX", false); }

void SearchPaneClassInOtherCaseNotRecognised(const Paths& paths) { CheckPaneClass(paths, L"searchpane", false); }

// ---------------------------------------------------------------------------
// Tests: typing into the pane

// Brings the pane up with the library's Windows+Q and waits until it has the keyboard.
void OpenPane(const Desktop& desktop) {
  kel::CKELKeyEmulate::SendInput_Win_Q();
  desktop.WaitForEvent("pane shown SearchPane");
  WaitForForegroundClass(desktop, L"SearchPane");
}

void PutOnClipboard(const char16_t* text) {
  ExpectResult(kel::CKELClipboard::SetClipboardData(text), S_OK,
               "CKELClipboard::SetClipboardData(\"" + Narrow(text) + "\")");
}

void ShiftInsertPastesTheClipboard(const Paths& paths) {
  ControlScope control;
  TestDesktop desktop(paths.desktop);
  OpenPane(desktop);

  const char16_t text[] = u"\"Kelbrook \u691C\u7D22 \u00FC\" NOT(\"a\" OR \"b\")";
  PutOnClipboard(text);
  kel::CKELKeyEmulate::SendInput_Shift_Insert();
  desktop.WaitForEvent("paste " + Narrow(text));
  if (Narrow(PaneText()) != Narrow(text))
    Fail("the edit box holds \"" + Narrow(PaneText()) + "\" after the paste, expected \"" + Narrow(text) + "\"",
         desktop.EventsDetail());
  desktop.Stop();
  desktop.ExpectEvents({"hotkey win+q", "pane shown SearchPane", "paste " + Narrow(text), "stopped"});
}

void EnterSubmitsAndThePaneStaysAsTold(const Paths& paths) {
  ControlScope control;
  SetControl(L"LauncherVisible", 1);
  SetControl(L"PaneStaysInFront", 2);
  TestDesktop desktop(paths.desktop);
  OpenPane(desktop);

  PutOnClipboard(u"first");
  kel::CKELKeyEmulate::SendInput_Shift_Insert();
  size_t next = desktop.WaitForEvent("paste first");
  kel::CKELKeyEmulate::SendInput_Enter();
  next = desktop.WaitForEvent("submit first", next);
  if (!kel::CKELMonitorMode::IsSearchPaneForeground())
    Fail("the pane left the front after the first Enter; " + ForegroundDescription(), desktop.EventsDetail());
  if (ReadControl(L"PaneStaysInFront", 0) != 1)
    Fail(Format("PaneStaysInFront is %lu after one Enter, expected 1", ReadControl(L"PaneStaysInFront", 0)));

  // The submitted text stays selected, so the next paste replaces it.
  PutOnClipboard(u"second");
  kel::CKELKeyEmulate::SendInput_Shift_Insert();
  next = desktop.WaitForEvent("paste second", next);
  kel::CKELKeyEmulate::SendInput_Enter();
  next = desktop.WaitForEvent("submit second", next);
  if (!kel::CKELMonitorMode::IsSearchPaneForeground())
    Fail("the pane left the front after the second Enter; " + ForegroundDescription(), desktop.EventsDetail());

  kel::CKELKeyEmulate::SendInput_Enter();
  desktop.WaitForEvent("pane hidden", next);
  if (!WaitUntil([] { return !kel::CKELMonitorMode::IsSearchPaneForeground(); }, 10000))
    Fail("the search pane is still in front 10 s after it was hidden", desktop.EventsDetail());
  if (ReadControl(L"LauncherVisible", 1) != 0) Fail("LauncherVisible is still set after the pane hid on Enter");
  desktop.Stop();
  desktop.ExpectEvents({"hotkey win+q", "pane shown SearchPane", "paste first", "submit first", "paste second",
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
    {"SwitchWithAFailingLauncherQueryEndsWithoutAnExitLine", SwitchWithAFailingLauncherQueryEndsWithoutAnExitLine},
    {"SearchPaneOpensFromTheDesktop", SearchPaneOpensFromTheDesktop},
    {"SearchPaneOpensStraightFromTheStartScreen", SearchPaneOpensStraightFromTheStartScreen},
    {"SearchPaneThatNeverAppearsGivesEFail", SearchPaneThatNeverAppearsGivesEFail},
    {"SearchPaneRecognisedByItsClass", SearchPaneRecognisedByItsClass},
    {"SearchPaneClassWithSuffixNotRecognised", SearchPaneClassWithSuffixNotRecognised},
    {"SearchPaneClassInOtherCaseNotRecognised", SearchPaneClassInOtherCaseNotRecognised},
    {"ShiftInsertPastesTheClipboard", ShiftInsertPastesTheClipboard},
    {"EnterSubmitsAndThePaneStaysAsTold", EnterSubmitsAndThePaneStaysAsTold},
};

const char kUsage[] = "launch_logic_tests.exe TESTNAME DLLPATH DESKTOPEXE";

}  // namespace

int main() {
  // The library's calls go to Windows itself, as inside the DLL.
  static kel::platform::win32::Win32Platform platform;
  kel::platform::Install(&platform);

  const std::vector<std::wstring> arguments = CommandLineArguments(3);
  const Test* test = NamedTest(kTests, arguments, 0);
  if (test == nullptr) return Usage(kUsage, kTests);
  const Paths paths{UsablePath(arguments[1]), UsablePath(arguments[2])};
  return RunTest(test->name, [&] { test->run(paths); });
}
