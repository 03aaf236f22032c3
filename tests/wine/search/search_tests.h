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

bool paneInFront();
bool clipboardHasText();

// ---------------------------------------------------------------------------
// The world a test runs in

// Every test runs in a private copy of this program, KelSearchHost.exe.
const PrivateHost kPrivateHost = {L"kelsearch", L"KelSearchHost.exe", L"KEL_SEARCH_ROOT", L"KEL_SEARCH_REPORT",
                                  L"KEL_SEARCH_KEEP", 150000};

class World : public HostWorld {
 public:
  World() : HostWorld(kPrivateHost, "search_tests.exe DLLPATH DESKTOPEXE TESTNAME") {}

  std::wstring eventsFile() const { return root() + L"\\events.txt"; }
  std::wstring journal() const { return root() + L"\\journal.txt"; }

  // A Start menu shortcut: an empty file is enough, the library reads only
  // the names.
  void shortcut(const std::wstring& folder, const std::wstring& relativePath) const {
    const std::wstring path = folder + L"\\" + relativePath;
    makeFolders(path.substr(0, path.find_last_of(L'\\')));
    writeFile(path, std::string());
  }

  // The packages' installed folders with their manifests, and the fixture
  // that makes the deployment double serve them.
  void installPackages() const;

  // The end of the log, the catalogue file and the doubles' journal, for a
  // failure report.
  std::string detail() const {
    std::string text = indented("library log, last lines (" + narrow(logFile()) + ")", logLines(), 60);
    if (fileExists(dataFile())) text += indented("catalogue file", completeLines(readFile(dataFile())));
    if (fileExists(journal())) text += indented("journal of the deployment double", completeLines(readFile(journal())));
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

void writePhotoCatalogue(const World& world);

// KelInitialize, then waits (bounded) until the first refresh pass has
// written the whole catalogue file and checks that it names `expected`.
void startLibrary(const Library& library, const World& world, const std::vector<std::wstring>& expected);

// Everything a search test needs: the settings and the desktop's control key
// cleaned up, the world, the library and the running desktop.
struct SearchSession {
  SearchSession(const std::wstring& dllPath, const std::wstring& desktopPath,
                const std::function<void(const World&)>& prepare = nullptr)
      : library(dllPath) {
    if (prepare) prepare(world);
    desktop.reset(new Desktop(desktopPath, world.eventsFile()));
  }
  ~SearchSession() {
    if (initialized) KEL(library, KelFinalize)();
  }

  void start(const std::vector<std::wstring>& expected) {
    startLibrary(library, world, expected);
    initialized = true;
  }

  std::function<std::string()> detail() const {
    return [this] { return world.detail(); };
  }

  void expectResult(HRESULT actual, HRESULT expected, const std::string& call) const {
    if (actual != expected) {
      fail(call + " returned " + hex(actual) + ", expected " + hex(expected), desktop->eventsDetail() + world.detail());
    }
  }

  // The log holds a line with this text.
  void expectLogLine(const std::string& text, const std::string& what) const {
    for (const std::string& line : world.logLines()) {
      if (line.find(text) != std::string::npos) return;
    }
    fail("the log has no line with " + quoted(text) + " (" + what + ")", world.detail());
  }

  void expectClipboardCleared(const std::string& after) const {
    if (!waitUntil([] { return !clipboardHasText(); }, 5000)) {
      fail("the clipboard still holds text 5 s after " + after, world.detail());
    }
  }

  void stopDesktop(const std::vector<std::string>& expected) {
    desktop->stop();
    desktop->expectEventsFrom(0, expected, "over the whole test", detail());
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
std::vector<std::string> searchEvents(const std::wstring& text, int submits);
std::vector<std::string> withStopped(std::vector<std::string> events);

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
