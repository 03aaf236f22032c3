// The test desktop (docs/test-desktop.md): its process for the length of a
// test, its recorded events and its search pane.
#pragma once

#include "support/windows_headers.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "support/failure.h"
#include "support/files.h"
#include "support/registry.h"
#include "support/text.h"

namespace wine_test {

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
    if (ready_ == nullptr) Fail(Format("CreateEventW(KelbrookTestDesktop.Ready) failed with %lu", GetLastError()));
    ResetEvent(ready_);
    Start(exePath);
    WaitForReady();
  }

  ~Desktop() { Terminate(); }
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  // Asks the desktop to stop and checks that it did, cleanly.
  void Stop() {
    HANDLE stopEvent = OpenEventW(EVENT_MODIFY_STATE, FALSE, kDesktopStopEvent);
    if (stopEvent == nullptr) {
      Fail(Format("OpenEventW(KelbrookTestDesktop.Stop) failed with %lu", GetLastError()), EventsDetail());
    }
    SetEvent(stopEvent);
    CloseHandle(stopEvent);
    if (WaitForSingleObject(process_, 10000) != WAIT_OBJECT_0) {
      const std::string detail = EventsDetail();
      Terminate();
      Fail("the test desktop did not stop within 10 s", detail);
    }
    DWORD code = 0;
    GetExitCodeProcess(process_, &code);
    Close();
    if (code != 0) Fail(Format("the test desktop stopped with exit code %lu", code), EventsDetail());
  }

  // The events after "ready".
  [[nodiscard]] std::vector<std::string> Events() const {
    std::vector<std::string> lines = CompleteLines(ReadBytes(eventsPath_));
    if (!lines.empty() && lines.front() == "ready") lines.erase(lines.begin());
    return lines;
  }

  [[nodiscard]] std::string EventsDetail() const { return Indented("test desktop events", Events()); }

  // Waits (bounded) for `wanted` at or after index `from` of events(); returns
  // the index after it.
  std::size_t WaitForEvent(const std::string& wanted, std::size_t from = 0, DWORD timeoutMs = 10000,
                           const std::function<std::string()>& detail = nullptr) const {
    std::size_t found = 0;
    const bool seen = WaitUntil(
        [&] {
          const std::vector<std::string> lines = Events();
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
      Fail(Format("the test desktop did not record %s within %lu ms", Quoted(wanted).c_str(),
                  static_cast<unsigned long>(timeoutMs)),
           EventsDetail() + (detail ? detail() : std::string()));
    }
    return found;
  }

  // Checks, once the desktop has stopped, that its events are "ready" and
  // then exactly `expected`.
  void ExpectEvents(const std::vector<std::string>& expected) const {
    std::vector<std::string> lines = CompleteLines(ReadBytes(eventsPath_));
    if (lines.empty() || lines.front() != "ready") {
      Fail("the test desktop's events do not begin with \"ready\"", EventsDetail());
    }
    lines.erase(lines.begin());
    if (lines != expected) {
      Fail("the test desktop recorded other events than expected",
           EventsDetail() + Indented("expected events", expected));
    }
  }

  // Checks that the events from index `from` on are exactly `expected`. The
  // desktop records each event just after the change it reports (the pane
  // hides, then "pane hidden" is written), so the count is waited for
  // (bounded) before the events are compared.
  void ExpectEventsFrom(std::size_t from, const std::vector<std::string>& expected, const std::string& situation,
                        const std::function<std::string()>& detail) const {
    WaitUntil([&] { return Events().size() >= from + expected.size(); }, 10000);
    const std::vector<std::string> lines = Events();
    const std::vector<std::string> got(lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size())),
                                       lines.end());
    if (got != expected) {
      Fail("the test desktop recorded other events than expected " + situation,
           EventsDetail() + Indented(Format("expected from event %u on", static_cast<unsigned>(from)), expected) +
               detail());
    }
  }

 private:
  void Start(const std::wstring& exePath) {
    std::wstring commandLine = L"\"" + exePath + L"\" --events \"" + eventsPath_ + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(exePath.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process)) {
      const DWORD error = GetLastError();
      Close();
      Fail(Format("cannot start %s: CreateProcessW failed with %lu", Narrow(exePath).c_str(), error));
    }
    CloseHandle(process.hThread);
    process_ = process.hProcess;
  }

  void WaitForReady() {
    HANDLE waitFor[] = {ready_, process_};
    const DWORD woken = WaitForMultipleObjects(2, waitFor, FALSE, 30000);
    if (woken == WAIT_OBJECT_0 + 1) {
      DWORD code = 0;
      GetExitCodeProcess(process_, &code);
      const std::string detail = EventsDetail();
      Close();
      Fail(Format("the test desktop ended during its start with exit code %lu (3: another one runs, "
                  "4: it could not set itself up)",
                  code),
           detail);
    }
    if (woken != WAIT_OBJECT_0) {
      const std::string detail = EventsDetail();
      Terminate();
      Fail("the test desktop did not signal ready within 30 s", detail);
    }
  }

  void Close() {
    if (process_ != nullptr) CloseHandle(process_);
    if (ready_ != nullptr) CloseHandle(ready_);
    process_ = ready_ = nullptr;
  }

  void Terminate() {
    if (process_ != nullptr && WaitForSingleObject(process_, 0) == WAIT_TIMEOUT) {
      TerminateProcess(process_, 9);
      WaitForSingleObject(process_, 10000);
    }
    Close();
  }

  std::wstring eventsPath_;
  HANDLE ready_ = nullptr;
  HANDLE process_ = nullptr;
};

inline std::wstring ClassOf(HWND window) {
  wchar_t name[260] = L"";
  if (window == nullptr || GetClassNameW(window, name, 260) == 0) return L"";
  return name;
}

// The text of the search pane's edit box, asked across the process boundary.
inline std::wstring PaneText() {
  HWND pane = FindWindowW(L"SearchPane", nullptr);
  HWND edit = pane != nullptr ? FindWindowExW(pane, nullptr, L"Edit", nullptr) : nullptr;
  if (edit == nullptr) Fail("cannot find the search pane's edit box");
  wchar_t text[4096] = L"";
  SendMessageW(edit, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(text));
  return text;
}

}  // namespace wine_test
