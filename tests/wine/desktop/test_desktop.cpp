// test_desktop.exe: a stand-in for the parts of the Windows 8 shell that the
// library talks to, for running the library end to end under Wine.
//
//   test_desktop.exe [--events PATH]   run until told to stop
//   test_desktop.exe --stop            tell the running desktop to stop and wait for it
//
// What it plays:
//   - the search charm: Windows+Q (a hot key) shows a top-level window of
//     class "SearchPane" with an edit box, brings it to the foreground and
//     focuses the edit box. What is pasted into the edit box and what is
//     submitted with Enter is recorded; Enter hides the pane unless it is
//     told to stay in front.
//   - the Start screen: the Windows key pressed and released with no other
//     key between (seen through a low-level keyboard hook) marks the launcher
//     as shown, which app_visibility_server.dll then reports.
//
// It is driven through values under HKCU\Software\KelbrookTestDesktop, read
// at the moment they matter, so a test can change them while it runs:
//   LauncherVisible   DWORD 0/1; set to 1 by the desktop on the Windows key
//                     alone, set to 0 when Enter hides the pane
//   AppVisibility     DWORD, read by the app visibility server only
//   PaneAppears       DWORD, default 1; 0: Windows+Q shows nothing
//   PaneClass         REG_SZ, default "SearchPane": the pane's window class
//   PaneStaysInFront  DWORD, default 0: the number of further Enters the pane
//                     stays in front for (each one decrements it);
//                     0xFFFFFFFF: every Enter, never decremented
//
// Events are written to PATH (created anew, UTF-8, one event a line ending
// in "\n"): "ready", "hotkey win+q", "launcher shown", "pane shown CLASS",
// "pane not shown", "paste TEXT", "submit TEXT", "pane hidden", "stopped",
// "error TEXT". docs/test-desktop.md describes them.
//
// Only one desktop runs at a time (named mutex "KelbrookTestDesktop.Instance").
// When it is up it sets the named manual-reset event "KelbrookTestDesktop.Ready"
// (and writes "ready"); it stops when the named event "KelbrookTestDesktop.Stop"
// is set. Exit codes: 0 stopped as asked, 2 bad usage, 3 another desktop is
// running, 4 could not set itself up (the reason is in the events file),
// 5 (--stop) no desktop was running, 6 (--stop) it did not stop within 10 s.

#include "support/wine_test_support.h"

#include <shellapi.h>

#include <string>

namespace {

using wine_test::kControlKey;
using wine_test::kDesktopReadyEvent;
using wine_test::kDesktopStopEvent;
using wine_test::Narrow;
using wine_test::ReadControl;

const wchar_t kInstanceMutexName[] = L"KelbrookTestDesktop.Instance";
const wchar_t kDefaultPaneClass[] = L"SearchPane";

const int kHotKeyWinQ = 1;
const int kEditId = 100;
const DWORD kStayForever = 0xFFFFFFFF;

// Posted to the main thread by the keyboard hook.
const UINT kMsgWindowsKeyAlone = WM_APP + 1;

// ---------------------------------------------------------------------------
// The control values

std::wstring ReadString(const wchar_t* name, const wchar_t* fallback) {
  wchar_t buffer[512];
  DWORD size = sizeof buffer;
  if (RegGetValueW(HKEY_CURRENT_USER, kControlKey, name, RRF_RT_REG_SZ, nullptr, buffer, &size) != ERROR_SUCCESS)
    return fallback;
  return buffer;
}

void WriteDword(const wchar_t* name, DWORD value) {
  HKEY key = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, kControlKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr) !=
      ERROR_SUCCESS)
    return;
  RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
  RegCloseKey(key);
}

// ---------------------------------------------------------------------------
// The events file

HANDLE g_events = INVALID_HANDLE_VALUE;

// One line, written at once with a single WriteFile so that a reader polling
// the file sees whole lines only.
void Record(const std::wstring& event) {
  if (g_events == INVALID_HANDLE_VALUE) return;
  std::string line = Narrow(event) + "\n";
  DWORD written = 0;
  WriteFile(g_events, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

// ---------------------------------------------------------------------------
// The Windows key alone, seen by a low-level keyboard hook

DWORD g_mainThread = 0;
bool g_windowsKeyDown = false;
bool g_otherKeySinceWindowsKey = false;

bool IsWindowsKey(DWORD vk) { return vk == VK_LWIN || vk == VK_RWIN; }

LRESULT CALLBACK KeyboardHook(int code, WPARAM wParam, LPARAM lParam) {
  if (code == HC_ACTION) {
    auto key = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lParam);
    bool down = wParam == WM_KEYDOWN || wParam == WM_SYSKEYDOWN;
    if (IsWindowsKey(key->vkCode)) {
      if (down && !g_windowsKeyDown) {
        g_windowsKeyDown = true;
        g_otherKeySinceWindowsKey = false;
      } else if (!down && g_windowsKeyDown) {
        g_windowsKeyDown = false;
        if (!g_otherKeySinceWindowsKey) PostThreadMessageW(g_mainThread, kMsgWindowsKeyAlone, 0, 0);
      }
    } else if (down && g_windowsKeyDown) {
      g_otherKeySinceWindowsKey = true;
    }
  }
  return CallNextHookEx(nullptr, code, wParam, lParam);
}

// ---------------------------------------------------------------------------
// The search pane

HINSTANCE g_instance = nullptr;
HWND g_pane = nullptr;
HWND g_edit = nullptr;
std::wstring g_paneClass;  // the class g_pane was made with, as registered
WNDPROC g_editProc = nullptr;
bool g_inPaste = false;

std::wstring WindowText(HWND window) {
  int length = GetWindowTextLengthW(window);
  std::wstring text(static_cast<size_t>(length) + 1, L'\0');
  length = GetWindowTextW(window, &text[0], length + 1);
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

// Every event is recorded after the change it reports, so that a test that
// has seen the event also sees the change.

void HidePane() {
  ShowWindow(g_pane, SW_HIDE);
  // The search result takes the screen: the Start screen is gone as well.
  WriteDword(L"LauncherVisible", 0);
  Record(L"pane hidden");
}

// Enter submits the edit box's text. The pane then hides, unless it is to
// stay in front, in which case the text is selected so that the next paste
// replaces it.
void Submit() {
  std::wstring text = WindowText(g_edit);
  DWORD stays = ReadControl(L"PaneStaysInFront", 0);
  if (stays == 0) {
    Record(L"submit " + text);
    HidePane();
    return;
  }
  if (stays != kStayForever) WriteDword(L"PaneStaysInFront", stays - 1);
  SendMessageW(g_edit, EM_SETSEL, 0, -1);
  Record(L"submit " + text);
}

// Runs a paste gesture through the edit box and records the text it
// inserted: from where the selection started to where the caret ends up.
LRESULT Paste(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) {
  if (g_inPaste)  // the edit box may turn one gesture into another
    return CallWindowProcW(g_editProc, edit, message, wParam, lParam);
  g_inPaste = true;
  DWORD start = 0;
  SendMessageW(edit, EM_GETSEL, reinterpret_cast<WPARAM>(&start), 0);
  LRESULT result = CallWindowProcW(g_editProc, edit, message, wParam, lParam);
  DWORD caret = 0;
  SendMessageW(edit, EM_GETSEL, 0, reinterpret_cast<LPARAM>(&caret));
  std::wstring text = WindowText(edit);
  std::wstring inserted;
  if (start <= caret && caret <= text.size()) inserted = text.substr(start, caret - start);
  Record(L"paste " + inserted);
  g_inPaste = false;
  return result;
}

LRESULT CALLBACK EditProc(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_KEYDOWN:
      if (wParam == VK_RETURN) {
        Submit();
        return 0;
      }
      if (wParam == VK_INSERT && (GetKeyState(VK_SHIFT) & 0x8000) != 0) return Paste(edit, message, wParam, lParam);
      break;
    case WM_CHAR:
      if (wParam == L'\r')  // taken at WM_KEYDOWN; a single-line edit box would only beep
        return 0;
      if (wParam == 0x16)  // Ctrl+V
        return Paste(edit, message, wParam, lParam);
      break;
    case WM_PASTE:
      return Paste(edit, message, wParam, lParam);
    default:
      break;
  }
  return CallWindowProcW(g_editProc, edit, message, wParam, lParam);
}

LRESULT CALLBACK PaneProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_ACTIVATE:
      // Keep the keyboard in the edit box whenever the pane is activated.
      if (LOWORD(wParam) != WA_INACTIVE && g_edit != nullptr) SetFocus(g_edit);
      return 0;
    case WM_CLOSE:
      ShowWindow(window, SW_HIDE);
      return 0;
    default:
      return DefWindowProcW(window, message, wParam, lParam);
  }
}

void DestroyPane() {
  if (g_pane == nullptr) return;
  DestroyWindow(g_pane);
  // Window class names compare without regard to case: "searchpane" could
  // not be registered while "SearchPane" is.
  UnregisterClassW(g_paneClass.c_str(), g_instance);
  g_pane = g_edit = nullptr;
  g_paneClass.clear();
}

bool CreatePane(const std::wstring& className) {
  WNDCLASSEXW windowClass = {};
  windowClass.cbSize = sizeof windowClass;
  windowClass.lpfnWndProc = PaneProc;
  windowClass.hInstance = g_instance;
  windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  windowClass.lpszClassName = className.c_str();
  if (RegisterClassExW(&windowClass) == 0) {
    Record(L"error RegisterClassExW(" + className + L") failed with " + std::to_wstring(GetLastError()));
    return false;
  }
  // Wide enough for a query with a few exclusions to show whole (on the
  // 1024-pixel screen of the tests' Xvfb).
  g_pane = CreateWindowExW(WS_EX_TOPMOST, className.c_str(), L"Search", WS_POPUP | WS_CAPTION | WS_BORDER, 40, 40, 940,
                           120, nullptr, nullptr, g_instance, nullptr);
  if (g_pane == nullptr) {
    Record(L"error CreateWindowExW(" + className + L") failed with " + std::to_wstring(GetLastError()));
    UnregisterClassW(className.c_str(), g_instance);
    return false;
  }
  g_paneClass = className;
  g_edit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE | WS_BORDER | ES_AUTOHSCROLL, 10, 10, 910, 28, g_pane,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(kEditId)), g_instance, nullptr);
  if (g_edit == nullptr) {
    Record(L"error CreateWindowExW(EDIT) failed with " + std::to_wstring(GetLastError()));
    DestroyPane();
    return false;
  }
  g_editProc = reinterpret_cast<WNDPROC>(SetWindowLongPtrW(g_edit, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(EditProc)));
  return true;
}

// Windows+Q: the pane comes up in front with an empty edit box that has the
// keyboard; if it is already up it is only brought to the front again.
void ShowPane() {
  if (ReadControl(L"PaneAppears", 1) == 0) {
    Record(L"pane not shown");
    return;
  }
  std::wstring className = ReadString(L"PaneClass", kDefaultPaneClass);
  if (className.empty()) className = kDefaultPaneClass;
  if (g_pane != nullptr && g_paneClass != className) DestroyPane();
  if (g_pane == nullptr && !CreatePane(className)) return;
  if (!IsWindowVisible(g_pane)) SetWindowTextW(g_edit, L"");
  ShowWindow(g_pane, SW_SHOW);
  SetForegroundWindow(g_pane);
  SetActiveWindow(g_pane);
  SetFocus(g_edit);
  Record(L"pane shown " + className);
}

// ---------------------------------------------------------------------------
// Running

struct Options {
  bool stop = false;
  std::wstring eventsPath;
};

bool ParseOptions(Options& options) {
  int argc = 0;
  LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argv == nullptr) return false;
  bool ok = true;
  for (int i = 1; i < argc && ok; ++i) {
    std::wstring argument = argv[i];
    if (argument == L"--stop")
      options.stop = true;
    else if (argument == L"--events" && i + 1 < argc)
      options.eventsPath = argv[++i];
    else
      ok = false;
  }
  LocalFree(argv);
  return ok && !(options.stop && !options.eventsPath.empty());
}

int StopRunningDesktop() {
  HANDLE instance = OpenMutexW(SYNCHRONIZE, FALSE, kInstanceMutexName);
  HANDLE stop = OpenEventW(EVENT_MODIFY_STATE, FALSE, kDesktopStopEvent);
  if (instance == nullptr || stop == nullptr) {
    if (instance != nullptr) CloseHandle(instance);
    if (stop != nullptr) CloseHandle(stop);
    return 5;
  }
  SetEvent(stop);
  // The desktop holds the mutex until it ends.
  DWORD waited = WaitForSingleObject(instance, 10000);
  if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED) ReleaseMutex(instance);
  CloseHandle(stop);
  CloseHandle(instance);
  return waited == WAIT_TIMEOUT ? 6 : 0;
}

int Run(const Options& options) {
  HANDLE instance = CreateMutexW(nullptr, TRUE, kInstanceMutexName);
  if (instance == nullptr || GetLastError() == ERROR_ALREADY_EXISTS) {
    if (instance != nullptr) CloseHandle(instance);
    return 3;
  }

  if (!options.eventsPath.empty()) {
    g_events =
        CreateFileW(options.eventsPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (g_events == INVALID_HANDLE_VALUE) {
      ReleaseMutex(instance);
      CloseHandle(instance);
      return 4;
    }
  }

  g_instance = GetModuleHandleW(nullptr);
  g_mainThread = GetCurrentThreadId();
  // Make sure this thread has a message queue before anything is posted to it.
  MSG message;
  PeekMessageW(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);

  HANDLE stop = CreateEventW(nullptr, TRUE, FALSE, kDesktopStopEvent);
  HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, kDesktopReadyEvent);
  int exitCode = 0;
  HHOOK hook = nullptr;
  bool hotKey = false;
  if (stop == nullptr || ready == nullptr) {
    Record(L"error CreateEventW failed with " + std::to_wstring(GetLastError()));
    exitCode = 4;
  } else if (!(hotKey = RegisterHotKey(nullptr, kHotKeyWinQ, MOD_WIN, 'Q'))) {
    Record(L"error RegisterHotKey(MOD_WIN, Q) failed with " + std::to_wstring(GetLastError()));
    exitCode = 4;
  } else if ((hook = SetWindowsHookExW(WH_KEYBOARD_LL, KeyboardHook, g_instance, 0)) == nullptr) {
    Record(L"error SetWindowsHookExW(WH_KEYBOARD_LL) failed with " + std::to_wstring(GetLastError()));
    exitCode = 4;
  } else {
    // A stop request left over from an earlier desktop does not count.
    ResetEvent(stop);
    Record(L"ready");
    SetEvent(ready);

    bool running = true;
    while (running) {
      DWORD woken = MsgWaitForMultipleObjects(1, &stop, FALSE, INFINITE, QS_ALLINPUT);
      if (woken == WAIT_OBJECT_0) break;
      while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
          running = false;
          break;
        }
        if (message.hwnd == nullptr && message.message == WM_HOTKEY && message.wParam == kHotKeyWinQ) {
          Record(L"hotkey win+q");
          ShowPane();
          continue;
        }
        if (message.hwnd == nullptr && message.message == kMsgWindowsKeyAlone) {
          WriteDword(L"LauncherVisible", 1);
          Record(L"launcher shown");
          continue;
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
      }
    }
    ResetEvent(ready);
    Record(L"stopped");
  }

  DestroyPane();
  if (hook != nullptr) UnhookWindowsHookEx(hook);
  if (hotKey) UnregisterHotKey(nullptr, kHotKeyWinQ);
  if (ready != nullptr) CloseHandle(ready);
  if (stop != nullptr) CloseHandle(stop);
  if (g_events != INVALID_HANDLE_VALUE) CloseHandle(g_events);
  ReleaseMutex(instance);
  CloseHandle(instance);
  return exitCode;
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  Options options;
  if (!ParseOptions(options)) return 2;
  return options.stop ? StopRunningDesktop() : Run(options);
}
