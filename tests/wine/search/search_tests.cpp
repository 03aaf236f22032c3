// search_tests.exe: the search and browser launches of the built Kelbrook.dll,
// end to end under Wine, against the test desktop (docs/test-desktop.md) and,
// for the package launch, the deployment service double (docs/wine-doubles.md).
//
//   search_tests.exe DLLPATH DESKTOPEXE TESTNAME
//
// Every test runs in a host of its own: the program creates a private folder
// under %TEMP%, copies itself there as host\KelSearchHost.exe and runs that
// copy, which runs the one named test and writes "PASS name" or
// "FAIL name: reason" (and details) to a report file that this program then
// prints. So each test has its own host folder (where the library looks for
// PresetAppNameList.xml), its own data folder (named after the host,
// %LOCALAPPDATA%\Osk\Kelbrook\KelSearchHost) and a freshly loaded library; the
// folder goes away afterwards (unless KEL_SEARCH_KEEP is 1). Exit code 0 on
// PASS, 1 on FAIL, 2 on bad usage.
//
// The host points LOCALAPPDATA, ALLUSERSPROFILE and APPDATA into the private
// folder, writes the catalogue's sources there (the preset list, Start menu
// shortcuts, for the package launch the packages and the doubles' fixture),
// turns the library's log on, starts the test desktop with an events file of
// its own and calls the exports. What the search pane received is read from
// the desktop's events ("paste TEXT", "submit TEXT").
//
// The program's manifest declares Windows 8.1. For the Messaging test the
// parent sets the Windows version of the host's executable name to 8.1
// (HKCU\Software\Wine\AppDefaults\KelSearchHost.exe, Version "win81") before
// it starts the host and removes that key afterwards; the rest of the prefix
// keeps its version.
//
// The tests share the keyboard, the foreground window, the clipboard, the
// desktop's control key and the library's settings, so they run one at a
// time.
//
// The tests live in search_tests_*.cpp, one file per concern (search_tests.h
// lists them); this file has what they share and the runner.

#include "search_tests.h"

#include <optional>
#include <string>
#include <vector>

namespace search_tests {

bool PaneInFront() { return ClassOf(GetForegroundWindow()) == L"SearchPane"; }

bool ClipboardHasText() {
  if (!OpenClipboard(nullptr)) return true;  // busy: somebody is still at it
  const bool hasText = IsClipboardFormatAvailable(CF_UNICODETEXT) != 0;
  CloseClipboard();
  return hasText;
}

const wchar_t kPhotoQuery[] =
    L"\"Photo\" NOT(\"photo album\" OR \"photo camera\" OR \"\u5199\u771F\" OR \"photo editor\" OR "
    L"\"kel photo viewer\")";

void WritePhotoCatalogue(const World& world) {
  WriteText(world.PresetPath(),
            L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
            L"<Applications>\r\n"
            L"  <MetroApps />\r\n"
            L"  <DesktopApps>\r\n"
            L"    <DesktopApp DisplayName=\"Photo Album\" LnkFileName=\"%ALLUSERSPROFILE%" +
                std::wstring(kStartMenuPrograms) +
                L"\\Photo Album.lnk\" />\r\n"
                L"    <DesktopApp DisplayName=\"Camera\" LocalizeName=\"photo camera\" LnkFileName=\"%APPDATA%" +
                kStartMenuPrograms +
                L"\\Camera.lnk\" />\r\n"
                L"    <DesktopApp DisplayName=\"\u5199\u771F\" RubyDisplayName=\"photo shashin\" "
                L"LnkFileName=\"%APPDATA%" +
                kStartMenuPrograms +
                L"\\\u5199\u771F.lnk\" />\r\n"
                L"    <DesktopApp DisplayName=\"Photo Gone\" LnkFileName=\"%ALLUSERSPROFILE%" +
                kStartMenuPrograms +
                L"\\Photo Gone.lnk\" NeedReserve=\"1\" />\r\n"
                L"  </DesktopApps>\r\n"
                L"</Applications>\r\n");
  world.Shortcut(world.CommonPrograms(), L"Music Player.lnk");
  world.Shortcut(world.CommonPrograms(), L"Photo Album.lnk");
  world.Shortcut(world.CommonPrograms(), L"Photo.lnk");
  world.Shortcut(world.CommonPrograms(), L"Tools\\Photo Editor.lnk");
  world.Shortcut(world.UserPrograms(), L"Camera.lnk");
  world.Shortcut(world.UserPrograms(), L"\u5199\u771F.lnk");
  world.Shortcut(world.UserPrograms(), L"Kel Photo Viewer.url");
}

// KelInitialize, then waits (bounded) until the first refresh pass has
// written the whole catalogue file and checks that it names `expected`.
void StartLibrary(const Library& library, const World& world, const std::vector<std::wstring>& expected) {
  const HRESULT hr = KEL(library, KelInitialize)();
  if (hr != S_OK) Fail("KelInitialize returned " + Hex(hr) + ", expected S_OK", world.Detail());
  // The writer ends the file with the end of "DesktopApps" and flushes once.
  const auto complete = [&] {
    const std::string text = ReadBytes(world.DataFile());
    return text.find("</DesktopApps>") != std::string::npos || text.find("<DesktopApps />") != std::string::npos;
  };
  if (!WaitUntil(complete, 30000)) {
    Fail("within 30 s of KelInitialize the first refresh pass wrote no complete " + Narrow(world.DataFile()),
         world.Detail());
  }
  const std::string catalogue = ReadBytes(world.DataFile());
  for (const std::wstring& name : expected) {
    if (catalogue.find(Narrow(name)) == std::string::npos) {
      Fail("the catalogue file does not name " + Quoted(Narrow(name)), world.Detail());
    }
  }
}

std::vector<std::string> SearchEvents(const std::wstring& text, int submits) {
  std::vector<std::string> events = {"launcher shown", "hotkey win+q", "pane shown SearchPane"};
  const std::string t = Narrow(text);
  events.push_back("paste " + t);
  for (int i = 0; i < submits; ++i) {
    if (i > 0) events.push_back("paste " + t);
    events.push_back("submit " + t);
  }
  if (submits > 0) events.push_back("pane hidden");
  return events;
}

std::vector<std::string> WithStopped(std::vector<std::string> events) {
  events.push_back("stopped");
  return events;
}

// ---------------------------------------------------------------------------
// Runner

namespace {

struct Test {
  const char* name;
  void (*run)(const Paths& paths);
  bool windows81 = false;  // the parent sets Version win81 for the host's name
};

const Test kTests[] = {
    {"QuotedKeywordIsSubmittedWithoutOption", QuotedKeywordIsSubmittedWithoutOption},
    {"ExclusionQueryLeavesOutPartlyMatchedNames", ExclusionQueryLeavesOutPartlyMatchedNames},
    {"ModeOnePastesTheBareKeywordWithoutEnter", ModeOnePastesTheBareKeywordWithoutEnter},
    {"ModeTwoSubmitsUnlessTheKeywordNamesAnApp", ModeTwoSubmitsUnlessTheKeywordNamesAnApp},
    {"PaneInFrontReceivesTheQueryAgain", PaneInFrontReceivesTheQueryAgain},
    {"MessagingKeywordShowsTheNoticeOnWindows81", MessagingKeywordShowsTheNoticeOnWindows81, true},
    {"MessagingKeywordIsSearchedBeforeWindows81", MessagingKeywordIsSearchedBeforeWindows81},
    {"LaunchByPFNSearchesForTheDisplayName", LaunchByPFNSearchesForTheDisplayName},
    {"BrowserLaunchLeavesTheAssociationValueAsFound", BrowserLaunchLeavesTheAssociationValueAsFound},
    {"IESearchLeavesTheTileValueAsFound", IESearchLeavesTheTileValueAsFound},
};

const char kUsage[] = "search_tests.exe DLLPATH DESKTOPEXE TESTNAME";

const wchar_t kHostVersionKey[] = L"Software\\Wine\\AppDefaults\\KelSearchHost.exe";

// Wine reads the version at the start of a process: set for the host's
// executable name only, while the host runs.
class HostVersionScope {
 public:
  explicit HostVersionScope(bool windows81) : set_(windows81) {
    RegDeleteTreeW(HKEY_CURRENT_USER, kHostVersionKey);
    if (set_) WriteUserString(kHostVersionKey, L"Version", L"win81");
  }
  ~HostVersionScope() { RegDeleteTreeW(HKEY_CURRENT_USER, kHostVersionKey); }
  HostVersionScope(const HostVersionScope&) = delete;
  HostVersionScope& operator=(const HostVersionScope&) = delete;

 private:
  bool set_;
};

}  // namespace

}  // namespace search_tests

using namespace search_tests;

int main() {
  const std::vector<std::wstring> arguments = CommandLineArguments(3);
  const Test* test = NamedTest(kTests, arguments, 2);
  if (test == nullptr) return Usage(kUsage, kTests);
  // The test runs in another folder: the paths are made absolute.
  const Paths paths{AbsolutePath(UsablePath(arguments[0])), AbsolutePath(UsablePath(arguments[1]))};
  if (EnvironmentValue(kPrivateHost.rootVariable).empty()) {
    std::optional<HostVersionScope> version;  // while the host runs
    return RunInPrivateHost(kPrivateHost, test->name, L"\"" + paths.dll + L"\" \"" + paths.desktop + L"\"",
                            [&] { version.emplace(test->windows81); });
  }
  return RunInHost(kPrivateHost, test->name, [&] { test->run(paths); });
}
