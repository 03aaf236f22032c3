// What the files of search_tests.exe share: the world a test runs in, the
// catalogue of the exclusion tests, the search session (settings, library
// and test desktop), the events a search launch leaves on the desktop, and
// the tests the runner (search_tests.cpp) picks from, one file per concern.
#pragma once

#include "support/wine_test_support.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kelbrook.h"

namespace search_tests {

using namespace wine_test;

// ---------------------------------------------------------------------------
// The test desktop

bool PaneInFront();
bool ClipboardHasText();

// ---------------------------------------------------------------------------
// The world a test runs in

// Every test runs in a private copy of this program, KelSearchHost.exe.
const PrivateHost kPrivateHost = {L"kelsearch",         L"KelSearchHost.exe", L"KEL_SEARCH_ROOT",
                                  L"KEL_SEARCH_REPORT", L"KEL_SEARCH_KEEP",   150000};

class World : public HostWorld {
 public:
  World() : HostWorld(kPrivateHost, "search_tests.exe DLLPATH DESKTOPEXE TESTNAME") {}

  [[nodiscard]] std::wstring EventsFile() const { return Root() + L"\\events.txt"; }
  [[nodiscard]] std::wstring Journal() const { return Root() + L"\\journal.txt"; }

  // A Start menu shortcut: an empty file is enough, the library reads only
  // the names.
  void Shortcut(const std::wstring& folder, const std::wstring& relativePath) const {
    const std::wstring path = folder + L"\\" + relativePath;
    MakeFolders(path.substr(0, path.find_last_of(L'\\')));
    WriteBytes(path, std::string());
  }

  // The packages' installed folders with their manifests, and the fixture
  // that makes the deployment double serve them.
  void InstallPackages() const;

  // The end of the log, the catalogue file and the doubles' journal, for a
  // failure report.
  [[nodiscard]] std::string Detail() const {
    std::string text = Indented("library log, last lines (" + Narrow(LogFile()) + ")", LogLines(), 60);
    if (FileExists(DataFile())) text += Indented("catalogue file", CompleteLines(ReadBytes(DataFile())));
    if (FileExists(Journal()))
      text += Indented("journal of the deployment double", CompleteLines(ReadBytes(Journal())));
    return text;
  }
};

// The catalogue of the exclusion tests. The preset beside the host names
// four desktop apps: one under its display name, one under its localised
// name, one whose reading (ruby) holds the word, and a reserved one whose
// shortcut is gone. The Start menu folders add more shortcuts, among them
// the preset's first three again (not added twice) and "Photo", which the
// word names exactly.
//
// For the word "Photo" the query leaves out, in catalogue order, the names
// that contain the word without being contained in it:
extern const wchar_t kPhotoQuery[];

void WritePhotoCatalogue(const World& world);

// KelInitialize, then waits (bounded) until the first refresh pass has
// written the whole catalogue file and checks that it names `expected`.
void StartLibrary(const Library& library, const World& world, const std::vector<std::wstring>& expected);

// Everything a search test needs: the settings and the desktop's control key
// cleaned up, the world, the library and the running desktop.
struct SearchSession {
  SearchSession(const std::wstring& dllPath, const std::wstring& desktopPath,
                const std::function<void(const World&)>& prepare = nullptr)
      : library(dllPath) {
    if (prepare) prepare(world);
    desktop.reset(new Desktop(desktopPath, world.EventsFile()));
  }
  ~SearchSession() {
    if (initialized) KEL(library, KelFinalize)();
  }

  void Start(const std::vector<std::wstring>& expected) {
    StartLibrary(library, world, expected);
    initialized = true;
  }

  [[nodiscard]] std::function<std::string()> Detail() const {
    return [this] { return world.Detail(); };
  }

  void ExpectResult(HRESULT actual, HRESULT expected, const std::string& call) const {
    if (actual != expected) {
      Fail(call + " returned " + Hex(actual) + ", expected " + Hex(expected), desktop->EventsDetail() + world.Detail());
    }
  }

  // The log holds a line with this text.
  void ExpectLogLine(const std::string& text, const std::string& what) const {
    for (const std::string& line : world.LogLines()) {
      if (line.find(text) != std::string::npos) return;
    }
    Fail("the log has no line with " + Quoted(text) + " (" + what + ")", world.Detail());
  }

  void ExpectClipboardCleared(const std::string& after) const {
    if (!WaitUntil([] { return !ClipboardHasText(); }, 5000)) {
      Fail("the clipboard still holds text 5 s after " + after, world.Detail());
    }
  }

  void StopDesktop(const std::vector<std::string>& expected) {
    desktop->Stop();
    desktop->ExpectEventsFrom(0, expected, "over the whole test", Detail());
  }

  LogOnSettingsScope settings;
  ControlScope control;
  World world;
  Library library;
  std::unique_ptr<Desktop> desktop;
  bool initialized = false;
};

// What the desktop records for one search launch from the desktop (the
// Windows key alone, then Windows+Q), pasting `text` and, when `submits` > 0,
// submitting it that many times before the pane hides.
std::vector<std::string> SearchEvents(const std::wstring& text, int submits);
std::vector<std::string> WithStopped(std::vector<std::string> events);

struct Paths {
  std::wstring dll;
  std::wstring desktop;
};

// ---------------------------------------------------------------------------
// The tests

// search_tests_query.cpp: the query the search pane receives.
void QuotedKeywordIsSubmittedWithoutOption(const Paths& paths);
void ExclusionQueryLeavesOutPartlyMatchedNames(const Paths& paths);
void LaunchByPFNSearchesForTheDisplayName(const Paths& paths);

// search_tests_modes.cpp: pasting, submitting, and a pane that stays.
void ModeOnePastesTheBareKeywordWithoutEnter(const Paths& paths);
void ModeTwoSubmitsUnlessTheKeywordNamesAnApp(const Paths& paths);
void PaneInFrontReceivesTheQueryAgain(const Paths& paths);

// search_tests_messaging.cpp: the Messaging keyword by Windows version.
void MessagingKeywordShowsTheNoticeOnWindows81(const Paths& paths);
void MessagingKeywordIsSearchedBeforeWindows81(const Paths& paths);

// search_tests_browser.cpp: Internet Explorer's values around the browser
// launches.
void BrowserLaunchLeavesTheAssociationValueAsFound(const Paths& paths);
void IESearchLeavesTheTileValueAsFound(const Paths& paths);

}  // namespace search_tests
