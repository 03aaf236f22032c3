// search_tests.exe: the Messaging keyword, answered with a notice on
// Windows 8.1 and searched for like any other before it.

#include "search_tests.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace search_tests {

namespace {

// ---------------------------------------------------------------------------
// Tests: the Messaging keyword

const wchar_t kMessaging[] = L"\u30E1\u30C3\u30BB\u30FC\u30B8\u30F3\u30B0";
const wchar_t kMessagingNotice[] =
    L"\u3053\u306E\u30D0\u30FC\u30B8\u30E7\u30F3\u306EWindows\u3067\u306F\u3001\u30E1\u30C3\u30BB\u30FC\u30B8\u30F3"
    L"\u30B0\u306F\u5229\u7528\u3067\u304D\u307E\u305B\u3093\u3002";

OSVERSIONINFOEXW ReportedVersion() {
  OSVERSIONINFOEXW version = {};
  version.dwOSVersionInfoSize = sizeof version;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version));
#pragma GCC diagnostic pop
  return version;
}

// Fails unless the version the prefix reports to the host `fits`; `otherwise`
// follows the reported version in the failure.
template <typename Fits>
void ExpectReportedVersion(Fits fits, const char* otherwise) {
  const OSVERSIONINFOEXW version = ReportedVersion();
  if (!fits(version)) {
    Fail(Format("the host is told it runs Windows %lu.%lu%s", version.dwMajorVersion, version.dwMinorVersion,
                otherwise));
  }
}

// A top-level window of this process holding a child with the notice's text.
struct NoticeWindow {
  HWND window = nullptr;
  std::wstring caption;
  HICON icon = nullptr;
  std::vector<std::pair<int, std::wstring>> visibleButtons;  // control ID, text
};

BOOL CALLBACK FindTextChild(HWND child, LPARAM found) {
  wchar_t text[512] = L"";
  GetWindowTextW(child, text, 512);
  if (wcscmp(text, kMessagingNotice) == 0) {
    *reinterpret_cast<bool*>(found) = true;
    return FALSE;
  }
  return TRUE;
}

BOOL CALLBACK FindNotice(HWND window, LPARAM result) {
  DWORD process = 0;
  GetWindowThreadProcessId(window, &process);
  if (process != GetCurrentProcessId() || !IsWindowVisible(window)) return TRUE;
  bool found = false;
  EnumChildWindows(window, FindTextChild, reinterpret_cast<LPARAM>(&found));
  if (!found) return TRUE;
  *reinterpret_cast<HWND*>(result) = window;
  return FALSE;
}

BOOL CALLBACK CollectButton(HWND child, LPARAM result) {
  if (ClassOf(child) == L"Button" && IsWindowVisible(child)) {
    wchar_t text[128] = L"";
    GetWindowTextW(child, text, 128);
    reinterpret_cast<NoticeWindow*>(result)->visibleButtons.emplace_back(GetDlgCtrlID(child), text);
  }
  return TRUE;
}

NoticeWindow FindNoticeWindow() {
  NoticeWindow notice;
  EnumWindows(FindNotice, reinterpret_cast<LPARAM>(&notice.window));
  if (notice.window == nullptr) return notice;
  wchar_t caption[256] = L"";
  GetWindowTextW(notice.window, caption, 256);
  notice.caption = caption;
  // The message box's icon control has the ID stc1 (0x440).
  notice.icon = reinterpret_cast<HICON>(SendDlgItemMessageW(notice.window, 0x440, STM_GETICON, 0, 0));
  EnumChildWindows(notice.window, CollectButton, reinterpret_cast<LPARAM>(&notice));
  return notice;
}

struct SearchCall {
  decltype(&KelLaunchBySearchW) search;
  const wchar_t* keyword;
  HRESULT result = E_UNEXPECTED;
};

DWORD WINAPI RunSearchCall(void* parameter) {
  auto call = static_cast<SearchCall*>(parameter);
  call->result = call->search(call->keyword, KEL_SEARCH_SUBMIT_QUERY, 0);
  return 0;
}

}  // namespace

// On Windows 8.1 (the host declares it and the prefix reports it for the
// host) the Messaging keyword is answered with a notice instead of a search:
// a message box without caption, with the notice's text, the information
// icon and one OK button. The call returns S_OK once the box is closed; no key reaches the
// desktop and the log has no exit line.
void MessagingKeywordShowsTheNoticeOnWindows81(const Paths& paths) {
  ExpectReportedVersion(
      [](const OSVERSIONINFOEXW& version) { return version.dwMajorVersion == 6 && version.dwMinorVersion == 3; },
      ", expected 6.3 (the manifest declares 8.1 and the parent sets Version win81 for the host's name)");
  SearchSession s(paths.dll, paths.desktop);
  s.Start({});
  SearchCall call{KEL(s.library, KelLaunchBySearchW), kMessaging};

  // The box blocks the calling thread, so the call runs on a thread of its
  // own while this one looks for the box and closes it.
  HANDLE thread = CreateThread(nullptr, 0, RunSearchCall, &call, 0, nullptr);
  if (thread == nullptr) Fail(Format("CreateThread failed with %lu", GetLastError()));
  NoticeWindow notice;
  const bool shown = WaitUntil(
      [&] {
        notice = FindNoticeWindow();
        return notice.window != nullptr || WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
      },
      30000);
  if (notice.window != nullptr) PostMessageW(notice.window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
  if (WaitForSingleObject(thread, 10000) != WAIT_OBJECT_0) {
    // The thread is blocked in the library for good: end the host.
    Report(Format("FAIL %s: KelLaunchBySearchW did not return within 10 s of %s\n", g_currentTest,
                  notice.window != nullptr ? "the notice being closed" : "the search for the notice"));
    TerminateProcess(GetCurrentProcess(), 1);
  }
  CloseHandle(thread);
  if (!shown || notice.window == nullptr) {
    Fail("no window with the text " + Quoted(Narrow(kMessagingNotice)) + " appeared; KelLaunchBySearchW returned " +
             Hex(call.result),
         s.desktop->EventsDetail() + s.world.Detail());
  }
  s.ExpectResult(call.result, S_OK, "KelLaunchBySearchW(" + Narrow(kMessaging) + ", 0, 0)");
  if (!notice.caption.empty()) Fail("the notice has the caption " + Quoted(Narrow(notice.caption)) + ", expected none");
  // Wine's message box ignores MB_TOPMOST (the flag itself is checked by the
  // native unit tests); the information icon it does show.
  const HICON information = LoadIconW(nullptr, MAKEINTRESOURCEW(32516));  // IDI_INFORMATION
  if (notice.icon == nullptr || notice.icon != information) {
    Fail("the notice does not show the information icon");
  }
  if (notice.visibleButtons.size() != 1 || notice.visibleButtons[0].first != IDOK) {
    std::string buttons;
    for (const auto& button : notice.visibleButtons)
      buttons += Format(" [%d %s]", button.first, Narrow(button.second).c_str());
    Fail("the notice should have one button, OK; it has:" + (buttons.empty() ? std::string(" none") : buttons));
  }
  if (!WaitUntil([] { return FindNoticeWindow().window == nullptr; }, 10000))
    Fail("the notice is still up 10 s after OK");

  // No key was sent: the desktop saw nothing. No exit line follows the entry line.
  s.ExpectLogLine("KelLaunchBySearchW(" + Narrow(kMessaging) + ", 0, 0) IN", "the entry line");
  for (const std::string& line : s.world.LogLines()) {
    if (line.find("KelLaunchBySearchW OUT") != std::string::npos || line.find("szKeyword") != std::string::npos) {
      Fail("the log has " + Quoted(line) + " although the notice is the whole answer", s.world.Detail());
    }
  }
  s.StopDesktop({"stopped"});
}

// Before Windows 8.1 the Messaging keyword is searched for like any other;
// here through the narrow export, in Shift JIS.
void MessagingKeywordIsSearchedBeforeWindows81(const Paths& paths) {
  ExpectReportedVersion([](const OSVERSIONINFOEXW& version) { return version.dwMinorVersion < 3; },
                        "; this test needs a prefix that reports a minor version below 3 (Windows 7 or 8, or 10)");
  SearchSession s(paths.dll, paths.desktop);
  s.Start({});
  auto search = KEL(s.library, KelLaunchBySearchA);
  char keyword[64] = "";
  if (WideCharToMultiByte(932, 0, kMessaging, -1, keyword, sizeof keyword, nullptr, nullptr) == 0) {
    Fail(Format("cannot convert the keyword to Shift JIS (error %lu)", GetLastError()));
  }
  s.ExpectResult(search(keyword, KEL_SEARCH_SUBMIT_QUERY, 0), S_OK, "KelLaunchBySearchA(Messaging in Shift JIS, 0, 0)");
  const std::vector<std::string> expected = SearchEvents(L"\"" + std::wstring(kMessaging) + L"\"", 1);
  s.desktop->ExpectEventsFrom(0, expected, "for the Messaging keyword before Windows 8.1", s.Detail());
  if (FindNoticeWindow().window != nullptr) Fail("the Messaging notice is up before Windows 8.1");
  s.StopDesktop(WithStopped(expected));
}

}  // namespace search_tests
