// discovery_tests.exe: the package discovery of the built Kelbrook.dll, run
// end to end under Wine against the test doubles of the deployment service
// and the application activation manager (docs/wine-doubles.md).
//
//   discovery_tests.exe DLLPATH TESTNAME
//
// Every test runs in a host of its own: the program creates a private folder
// under %TEMP%, copies itself there as host\Kel.Launcher.exe and runs that
// copy, which runs the one named test and writes "PASS name" or
// "FAIL name: reason" (and details) to a report file that this program then
// prints. So each test has its own host folder (where the library looks for
// PresetAppNameList.xml), its own host name (the data folder is named after
// it: "Kel", the name cut at its first dot) and a freshly loaded library, and
// the folder goes away afterwards (unless KEL_DISCOVERY_KEEP is 1). Exit
// code 0 on PASS, 1 on FAIL, 2 on bad usage.
//
// The test points LOCALAPPDATA, ALLUSERSPROFILE and APPDATA into its private
// folder, creates the packages (installed folders with their manifests) and
// the Start menu shortcuts there, and writes the fixture file that tells the
// doubles what to answer (KEL_DEPLOYMENT_FIXTURE). It turns the library's
// log on (HKCU\Software\Osk\Kelbrook DebugLog) and removes the value again,
// so these tests must not run at the same time as other tests of the prefix.

#include "support/wine_test_support.h"

#include <objbase.h>
#include <roapi.h>
#include <shellapi.h>
#include <shobjidl.h>
#include <winstring.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Kelbrook.h"
#include "deployment_abi.h"
#include "double_fixture.h"

using namespace wine_test;

namespace {

// Every test runs in a private copy of this program, Kel.Launcher.exe.
const PrivateHost kPrivateHost = {L"keldisc", L"Kel.Launcher.exe", L"KEL_DISCOVERY_ROOT", L"KEL_DISCOVERY_REPORT",
                                  L"KEL_DISCOVERY_KEEP", 90000};

// ---------------------------------------------------------------------------
// The world a test runs in: folders, packages, shortcuts and the fixture

const wchar_t kReader[] = L"Kel.Reader_1a2b3c4d5e6f7";
const wchar_t kTwins[] = L"Kel.Twins_8h9j0k1m2n3p4";
const wchar_t kResource[] = L"Kel.Resource_5q6r7s8t9v0w1";
const wchar_t kPinned[] = L"Kel.Pinned_3x4y5z6a7b8c9";
const wchar_t kUnknown[] = L"Kel.Unknown_0a0a0a0a0a0a0";
const wchar_t kReaderApp[] = L"Kel.Reader_1a2b3c4d5e6f7!App";
const wchar_t kTwinsLeftApp[] = L"Kel.Twins_8h9j0k1m2n3p4!Left";
const wchar_t kUnknownApp[] = L"Kel.Unknown_0a0a0a0a0a0a0!App";
const HRESULT kUnknownAppResult = static_cast<HRESULT>(0x80270254L);  // the fixture's choice

// The installed test packages, in the order the deployment service lists
// them.
const std::vector<TestPackage>& fixturePackages() {
  static const std::vector<TestPackage> packages = {
      {kReader, L"Kel.Reader_1.2.3.4_x64__1a2b3c4d5e6f7", L"Kel.Reader", L"1.2.3.4", L"Reader",
       {{L"App1", L"Kel Reader", L"Reader"}}},
      {kTwins, L"Kel.Twins_2.0.0.5_x64__8h9j0k1m2n3p4", L"Kel.Twins", L"2.0.0.5", L"Twins",
       {{L"App1", L"Twin Left", L"Left"}, {L"App2", L"Twin Right", L"Right"}}},
      {kResource, L"Kel.Resource_3.1.0.0_neutral__5q6r7s8t9v0w1", L"Kel.Resource", L"3.1.0.0", L"Resource",
       {{L"App1", L"ms-resource:AppName", L"ms-resource:ShortName"}}},
      {kPinned, L"Kel.Pinned_2.0.0.0_x64__3x4y5z6a7b8c9", L"Kel.Pinned", L"2.0.0.0", L"Pinned",
       {{L"App1", L"Pinned New", L"New"}}},
  };
  return packages;
}

class World : public HostWorld {
 public:
  World() : HostWorld(kPrivateHost, "discovery_tests.exe DLLPATH TESTNAME") {
    for (const TestPackage& package : fixturePackages()) installPackage(package);
    useJournal(L"journal.txt");

    currentUserSid_ = deployment_double::CurrentUserSid();
    if (currentUserSid_.empty()) fail("cannot find the current user's SID (GetUserNameW/LookupAccountNameW)");
  }

  // Writes the fixture file with a journal of this name under the root.
  void useJournal(const std::wstring& name) {
    journal_ = root() + L"\\" + name;
    std::wstring text = fixtureHeader(L"The deployment service and the activation manager of the test.", journal_);
    for (const TestPackage& package : fixturePackages()) {
      text += fixturePackageSection(package, packageFolder(package));
    }
    text += L"[Application]\r\nAppUserModelId=" + std::wstring(kReaderApp) + L"\r\nResult=0\r\nProcessId=4242\r\n\r\n";
    text += L"[Application]\r\nAppUserModelId=" + std::wstring(kTwinsLeftApp) + L"\r\nResult=0\r\nProcessId=4343\r\n\r\n";
    text += L"[Activation]\r\nUnknownResult=0x80270254\r\n";
    if (serviceFailure_ != S_OK) {
      const std::string code = hex(serviceFailure_);
      text += L"\r\n[Service]\r\nFindResult=" + std::wstring(code.begin(), code.end()) + L"\r\n";
    }
    writeFixture(text);
  }

  // From now on every query of the deployment service fails with `failure`.
  void failServiceWith(HRESULT failure) {
    serviceFailure_ = failure;
    useJournal(journal_.substr(root().size() + 1));
  }

  // The Start menu shortcuts: empty files are enough, the library reads
  // only their names.
  void createShortcuts() const {
    const std::wstring common = commonPrograms();
    const std::wstring user = userPrograms();
    makeFolders(common + L"\\Accessories");
    for (const std::wstring& path :
         {common + L"\\A Tool.lnk", common + L"\\Web Link.url", common + L"\\Name.lnk2", common + L"\\Readme.txt",
          common + L"\\Accessories\\Calc.lnk", user + L"\\Mine.lnk", user + L"\\Notes.url"}) {
      writeFile(path, std::string());
    }
  }

  const std::wstring& journal() const { return journal_; }
  const std::wstring& currentUserSid() const { return currentUserSid_; }

  std::vector<std::string> journalLines() const { return completeLines(readFile(journal_)); }

  // The log and the journal, for a failure report.
  std::string detail() const {
    return indented("journal of the doubles (" + narrow(journal_) + ")", journalLines()) +
           indented("library log, last lines (" + narrow(logFile()) + ")", logLines(), 60);
  }

 private:
  std::wstring journal_;
  std::wstring currentUserSid_;
  HRESULT serviceFailure_ = S_OK;
};

bool contains(const std::vector<std::string>& lines, const std::string& wanted) {
  for (const std::string& line : lines) {
    if (line == wanted) return true;
  }
  return false;
}

std::size_t countStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
  std::size_t count = 0;
  for (const std::string& line : lines) {
    if (line.compare(0, prefix.size(), prefix) == 0) ++count;
  }
  return count;
}

// Waits (bounded) until the journal holds `line`.
void expectJournalLine(const World& world, const std::string& line, const std::string& what) {
  if (!waitUntil([&] { return contains(world.journalLines(), line); }, 10000)) {
    fail(what + ": within 10 s the journal of the doubles got no line " + quoted(line), world.detail());
  }
}

void expectNoSidMismatch(const World& world) {
  if (countStartingWith(world.journalLines(), "SidMismatch\t") != 0) {
    fail("the deployment service was asked for another user's packages (SidMismatch in the journal); the current "
         "user is " + narrow(world.currentUserSid()),
         world.detail());
  }
}

// ---------------------------------------------------------------------------
// The tests

// The preset list beside the host: packages and shortcuts as the host ships
// them. Names in mixed case (the catalogue lower-cases display and short
// names), shortcut paths with environment references (expanded on reading).
const char kPresetAppNameList[] =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<Applications>\r\n"
    "  <MetroApps>\r\n"
    "    <Package PackageFamilyName=\"Kel.Reserved_5t6y7u8i9o0p1\" Version=\"1.0.0.0\" NeedReserve=\"1\">\r\n"
    "      <MetroApp DisplayName=\"Reserved App\" ShortName=\"Reserved\" RubyDisplayName=\"Ruby Reserved\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Kel.Gone_2w3e4r5t6y7u8\" Version=\"4.0.0.0\">\r\n"
    "      <MetroApp DisplayName=\"Gone App\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Kel.Reader_1a2b3c4d5e6f7\" Version=\"1.0.0.0\">\r\n"
    "      <MetroApp DisplayName=\"Old Reader\" ShortName=\"Old\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Kel.Pinned_3x4y5z6a7b8c9\" Version=\"1.0.0.0\" NeedReserve=\"1\">\r\n"
    "      <MetroApp DisplayName=\"Pinned Old\" ShortName=\"Old\" />\r\n"
    "    </Package>\r\n"
    "  </MetroApps>\r\n"
    "  <DesktopApps>\r\n"
    "    <DesktopApp DisplayName=\"Reserved Tool\" LnkFileName=\"%ALLUSERSPROFILE%\\Microsoft\\Windows\\Start "
    "Menu\\Programs\\Reserved Tool.lnk\" LocalizeName=\"Reserved Tool (Local)\" NeedReserve=\"1\" />\r\n"
    "    <DesktopApp DisplayName=\"Gone Tool\" LnkFileName=\"%APPDATA%\\Microsoft\\Windows\\Start "
    "Menu\\Programs\\Gone Tool.lnk\" />\r\n"
    "    <DesktopApp DisplayName=\"My Own Name\" LnkFileName=\"%APPDATA%\\microsoft\\windows\\start "
    "menu\\programs\\MINE.LNK\" />\r\n"
    "  </DesktopApps>\r\n"
    "</Applications>\r\n";

// What the first refresh pass writes from the preset list and what the
// doubles and the Start menu folders hold: line by line, CRLF between lines
// and none after the last.
std::vector<std::string> expectedAppNameList(const World& world) {
  const std::string common = narrow(world.allUsersProfile()) + narrow(kStartMenuPrograms);
  const std::string user = narrow(world.appData()) + narrow(kStartMenuPrograms);
  return std::vector<std::string>{
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
      "<Applications>",
      "  <MetroApps>",
      // Reserved and not installed: kept, marked as not installed.
      "    <Package PackageFamilyName=\"Kel.Reserved_5t6y7u8i9o0p1\" Version=\"1.0.0.0\" NeedReserve=\"1\" "
      "IsInstalled=\"0\">",
      "      <MetroApp DisplayName=\"reserved app\" ShortName=\"reserved\" RubyDisplayName=\"Ruby Reserved\" />",
      "    </Package>",
      // Kel.Gone: neither installed nor reserved, dropped.
      // Installed in a newer version: its applications come from the manifest.
      "    <Package PackageFamilyName=\"Kel.Reader_1a2b3c4d5e6f7\" Version=\"1.2.3.4\">",
      "      <MetroApp DisplayName=\"kel reader\" ShortName=\"reader\" />",
      "    </Package>",
      // Reserved and installed in a newer version: left as the preset has it.
      "    <Package PackageFamilyName=\"Kel.Pinned_3x4y5z6a7b8c9\" Version=\"1.0.0.0\" NeedReserve=\"1\">",
      "      <MetroApp DisplayName=\"pinned old\" ShortName=\"old\" />",
      "    </Package>",
      // New packages, in the order the deployment service gives them.
      "    <Package PackageFamilyName=\"Kel.Twins_8h9j0k1m2n3p4\" Version=\"2.0.0.5\">",
      "      <MetroApp DisplayName=\"twin left\" ShortName=\"left\" />",
      "      <MetroApp DisplayName=\"twin right\" ShortName=\"right\" />",
      "    </Package>",
      // Resource references stay as they are where nothing resolves them.
      "    <Package PackageFamilyName=\"Kel.Resource_5q6r7s8t9v0w1\" Version=\"3.1.0.0\">",
      "      <MetroApp DisplayName=\"ms-resource:appname\" ShortName=\"ms-resource:shortname\" />",
      "    </Package>",
      "  </MetroApps>",
      "  <DesktopApps>",
      "    <DesktopApp DisplayName=\"reserved tool\" LnkFileName=\"" + common +
          "\\Reserved Tool.lnk\" LocalizeName=\"Reserved Tool (Local)\" NeedReserve=\"1\" IsInstalled=\"0\" />",
      // Gone Tool: shortcut missing, not reserved, dropped. My Own Name:
      // its shortcut exists (the path differs in case only) and discovery
      // does not add it again.
      "    <DesktopApp DisplayName=\"my own name\" LnkFileName=\"" + narrow(world.appData()) +
          "\\microsoft\\windows\\start menu\\programs\\MINE.LNK\" />",
      // All users' folder first: *.lnk (Name.lnk2 matches through its short
      // name), then *.url, then the subfolders.
      "    <DesktopApp DisplayName=\"a tool\" LnkFileName=\"" + common + "\\A Tool.lnk\" />",
      "    <DesktopApp DisplayName=\"name.\" LnkFileName=\"" + common + "\\Name.lnk2\" />",
      "    <DesktopApp DisplayName=\"web link\" LnkFileName=\"" + common + "\\Web Link.url\" />",
      "    <DesktopApp DisplayName=\"calc\" LnkFileName=\"" + common + "\\Accessories\\Calc.lnk\" />",
      // Then the user's own folder.
      "    <DesktopApp DisplayName=\"notes\" LnkFileName=\"" + user + "\\Notes.url\" />",
      "  </DesktopApps>",
  };
}

std::string joinCrLf(const std::vector<std::string>& lines) {
  std::string text;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i != 0) text += "\r\n";
    text += lines[i];
  }
  return text;
}

// A line-by-line account of where two texts part.
std::string difference(const std::string& expected, const std::string& actual) {
  std::vector<std::string> want, got;
  for (const std::string* text : {&expected, &actual}) {
    std::vector<std::string>& lines = text == &expected ? want : got;
    std::size_t start = 0;
    for (;;) {
      const std::size_t end = text->find("\r\n", start);
      lines.push_back(text->substr(start, end == std::string::npos ? std::string::npos : end - start));
      if (end == std::string::npos) break;
      start = end + 2;
    }
  }
  std::string detail;
  const std::size_t count = want.size() > got.size() ? want.size() : got.size();
  for (std::size_t i = 0; i < count; ++i) {
    const std::string* w = i < want.size() ? &want[i] : nullptr;
    const std::string* g = i < got.size() ? &got[i] : nullptr;
    if (w != nullptr && g != nullptr && *w == *g) {
      detail += "    " + quoted(*w) + "\n";
      continue;
    }
    if (w != nullptr) detail += "  - " + quoted(*w) + "\n";
    if (g != nullptr) detail += "  + " + quoted(*g) + "\n";
  }
  if (expected.size() >= 2 && actual.size() >= 2 &&
      (expected.compare(expected.size() - 2, 2, "\r\n") == 0) != (actual.compare(actual.size() - 2, 2, "\r\n") == 0)) {
    detail += "  (the texts differ in a line end after the last line)\n";
  }
  return "expected (-) and written (+), lines split at CRLF:\n" + detail;
}

// The same pass when every query of the deployment service fails: no package
// counts as installed, so only the reserved ones stay (marked as not
// installed), and the shortcuts are written as before.
std::vector<std::string> expectedAppNameListWithoutService(const World& world) {
  std::vector<std::string> lines;
  bool skipping = false;
  for (const std::string& line : expectedAppNameList(world)) {
    if (line.find("<Package ") != std::string::npos) skipping = line.find("NeedReserve=\"1\"") == std::string::npos;
    if (skipping) {
      if (line.find("</Package>") != std::string::npos) skipping = false;
      continue;
    }
    if (line.find("Kel.Pinned_3x4y5z6a7b8c9") != std::string::npos) {
      lines.push_back(line.substr(0, line.size() - 1) + " IsInstalled=\"0\">");
      continue;
    }
    lines.push_back(line);
  }
  return lines;
}

// The text the library logs for a failure code: the system's message without
// its trailing line end.
std::string systemMessage(HRESULT code) {
  wchar_t* text = nullptr;
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
  std::wstring message = length != 0 && text != nullptr ? std::wstring(text, length) : std::wstring();
  if (text != nullptr) LocalFree(text);
  while (!message.empty() && (message.back() == L'\r' || message.back() == L'\n' || message.back() == L' ')) {
    message.pop_back();
  }
  return message.empty() ? hex(code) : narrow(message);
}

// Starts the library on the preset catalogue, waits until the first refresh
// pass has written the data file, and stops the library.
void RunFirstRefreshPass(const std::wstring& dllPath, World& world) {
  writeFile(world.presetPath(), kPresetAppNameList);
  Library library(dllPath);
  expectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize", [&] { return world.detail(); });
  const bool written = waitUntil([&] { return fileExists(world.dataFile()); }, 30000);
  KEL(library, KelFinalize)();
  if (!written) {
    fail("within 30 s of KelInitialize the refresh thread wrote no " + narrow(world.dataFile()), world.detail());
  }
}

// KelInitialize loads the preset beside the host (there is no data file yet);
// the first refresh pass, a second later, writes the data file from it, the
// deployment service's packages with their manifests' names, and the Start
// menu shortcuts of both folders.
void FirstRefreshWritesTheCatalogue(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.createShortcuts();
  RunFirstRefreshPass(dllPath, world);

  const std::string expected = joinCrLf(expectedAppNameList(world));
  const std::string actual = readFile(world.dataFile());
  if (actual != expected) {
    fail("the data file " + narrow(world.dataFile()) + " does not hold what the first pass should write",
         difference(expected, actual) + world.detail());
  }

  // The packages were asked for under the current user's SID, once, and the
  // installed marks of the preset's four packages one family at a time.
  const std::string sid = narrow(world.currentUserSid());
  expectJournalLine(world, "FindPackagesByUserSecurityId\t" + sid + "\t4", "the refresh pass");
  for (const char* family : {"Kel.Reserved_5t6y7u8i9o0p1\t0", "Kel.Gone_2w3e4r5t6y7u8\t0",
                             "Kel.Reader_1a2b3c4d5e6f7\t1", "Kel.Pinned_3x4y5z6a7b8c9\t1"}) {
    expectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + family,
                      "the installed marks of the preset's packages");
  }
  expectNoSidMismatch(world);
  if (countStartingWith(world.journalLines(), "FindPackagesByUserSecurityId\t") != 1) {
    fail("the deployment service was asked for all the user's packages more than once in one pass", world.detail());
  }
}

// A deployment service that fails every query does not stop the pass: the
// failure is logged, the shortcuts are still gathered and the file written.
void ServiceFailureDoesNotStopThePass(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.createShortcuts();
  writeFile(world.presetPath(), kPresetAppNameList);
  const HRESULT failure = static_cast<HRESULT>(0x80070005L);  // E_ACCESSDENIED
  world.failServiceWith(failure);
  Library library(dllPath);

  expectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize", [&] { return world.detail(); });
  const bool written = waitUntil([&] { return fileExists(world.dataFile()); }, 30000);
  KEL(library, KelFinalize)();
  if (!written) {
    fail("within 30 s of KelInitialize the refresh thread wrote no " + narrow(world.dataFile()), world.detail());
  }
  const std::string expected = joinCrLf(expectedAppNameListWithoutService(world));
  const std::string actual = readFile(world.dataFile());
  if (actual != expected) {
    fail("with the deployment service failing, the data file does not hold what the pass should write",
         difference(expected, actual) + world.detail());
  }
  const std::string sid = narrow(world.currentUserSid());
  expectJournalLine(world, "FindPackagesByUserSecurityId\t" + sid + "\t" + hex(failure), "the refresh pass");
  const std::vector<std::string> log = completeLines(readFile(world.logFile()));
  for (const std::string& message :
       {"CKELPackageManager::FindPackageByName OUT(" + systemMessage(failure) + ")",
        "CKELPackageManager::RefreshMetroApps OUT(" + systemMessage(failure) + ")",
        std::string("CKELPackageManager::RefreshThread RefreshMetroApps() failed. ErrCode = 0x80004005 ")}) {
    bool found = false;
    for (const std::string& line : log) found = found || line.find(message) != std::string::npos;
    if (!found) fail("the log has no line " + quoted(message), world.detail());
  }
}

// KelFinalize within the first second after KelInitialize stops the refresh
// thread in its first wait: no pass, no data file. Whether the stop came in
// time is measured: KelInitialize to the return of KelFinalize under 1 s
// proves it (the thread's wait began after KelInitialize was called). A
// slower round proves nothing and is run again, up to five times.
void FinalizeInTheFirstSecondWritesNoDataFile(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.createShortcuts();
  writeFile(world.presetPath(), kPresetAppNameList);
  Library library(dllPath);
  auto initialize = KEL(library, KelInitialize);
  auto finalize = KEL(library, KelFinalize);

  std::string slowRounds;
  for (int round = 1; round <= 5; ++round) {
    // A fresh data folder, log and journal for each round.
    world.useLocalAppData(L"LocalAppData" + std::to_wstring(round));
    world.useJournal(L"journal" + std::to_wstring(round) + L".txt");
    const ULONGLONG start = GetTickCount64();
    const HRESULT hr = initialize();
    finalize();
    const ULONGLONG elapsed = GetTickCount64() - start;
    expectResult(hr, S_OK, "KelInitialize", [&] { return world.detail(); });
    if (elapsed >= 1000) {
      slowRounds += format("  round %d: KelInitialize to the end of KelFinalize took %llu ms\n", round, elapsed);
      continue;
    }

    if (!fileExists(world.dataFolder())) {
      fail("KelInitialize did not create the data folder " + narrow(world.dataFolder()), world.detail());
    }
    if (fileExists(world.dataFile())) {
      fail(format("KelFinalize came %llu ms after KelInitialize, yet the data file was written", elapsed),
           world.detail());
    }
    const std::string log = readFile(world.logFile());
    // Two threads tracing at once may overwrite each other's line (the log
    // takes no lock): a round whose thread left no entry line proves
    // nothing either way, and the next round is tried.
    if (log.find("CKELPackageManager::RefreshThread IN") == std::string::npos) {
      slowRounds += format("  round %d: the refresh thread's entry line was overwritten in the log\n", round);
      continue;
    }
    if (log.find("Refresh app name list!") != std::string::npos ||
        log.find("CKELPackageManager::RefreshThread OUT") != std::string::npos) {
      fail(format("KelFinalize came %llu ms after KelInitialize, yet the refresh thread ran a pass", elapsed),
           world.detail());
    }
    if (countStartingWith(world.journalLines(), "FindPackagesByUserSecurityId\t") != 0) {
      fail("the deployment service was asked for the user's packages, yet no pass should have run", world.detail());
    }
    return;
  }
  fail("in none of five rounds did KelFinalize return within 1 s of KelInitialize with the thread's entry line "
       "logged; the test cannot tell",
       slowRounds + world.detail());
}

void IsInstalledAsksTheDeploymentService(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  auto isInstalled = KEL(library, KelIsInstalledW);
  const std::string sid = narrow(world.currentUserSid());

  BOOL installed = 7;
  expectResult(isInstalled(kReader, &installed), S_OK, "KelIsInstalledW(Kel.Reader)", [&] { return world.detail(); });
  if (installed != 1) fail(format("KelIsInstalledW(Kel.Reader) gave %d, expected 1", installed), world.detail());
  expectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + narrow(kReader) + "\t1",
                    "KelIsInstalledW(Kel.Reader)");

  installed = 7;
  expectResult(isInstalled(kUnknown, &installed), S_OK, "KelIsInstalledW(Kel.Unknown)", [&] { return world.detail(); });
  if (installed != 0) fail(format("KelIsInstalledW(Kel.Unknown) gave %d, expected 0", installed), world.detail());
  expectJournalLine(world, "FindPackagesByUserSecurityIdPackageFamilyName\t" + sid + "\t" + narrow(kUnknown) + "\t0",
                    "KelIsInstalledW(Kel.Unknown)");

  // The narrow form reaches the same lookup.
  installed = 7;
  expectResult(KEL(library, KelIsInstalledA)("Kel.Twins_8h9j0k1m2n3p4", &installed), S_OK, "KelIsInstalledA(Kel.Twins)",
               [&] { return world.detail(); });
  if (installed != 1) fail(format("KelIsInstalledA(Kel.Twins) gave %d, expected 1", installed), world.detail());
  expectNoSidMismatch(world);
}

void DisplayNameComesFromTheManifest(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  auto displayName = KEL(library, KelGetAppDisplayNameByPFNW);
  auto release = KEL(library, KelReleaseStringW);
  wchar_t sentinel[] = L"untouched";

  // One application: its display name, lower-cased.
  LPWSTR name = sentinel;
  expectResult(displayName(kReader, &name), S_OK, "KelGetAppDisplayNameByPFNW(Kel.Reader)",
               [&] { return world.detail(); });
  if (name == sentinel || name == nullptr) fail("KelGetAppDisplayNameByPFNW(Kel.Reader) returned no name", world.detail());
  const std::wstring got = name;
  release(name);
  if (got != L"kel reader") {
    fail("KelGetAppDisplayNameByPFNW(Kel.Reader) gave " + quoted(narrow(got)) + ", expected \"kel reader\"",
         world.detail());
  }

  // No such package for the user: E_KEL_PACKAGE_NOT_FOUND, the pointer as it was.
  name = sentinel;
  expectResult(displayName(kUnknown, &name), E_KEL_PACKAGE_NOT_FOUND, "KelGetAppDisplayNameByPFNW(Kel.Unknown)",
               [&] { return world.detail(); });
  if (name != sentinel) fail("KelGetAppDisplayNameByPFNW(Kel.Unknown) changed the out pointer", world.detail());

  // Two applications: E_KEL_MULTIPLE_APPLICATIONS, nothing handed out.
  name = sentinel;
  expectResult(displayName(kTwins, &name), E_KEL_MULTIPLE_APPLICATIONS, "KelGetAppDisplayNameByPFNW(Kel.Twins)",
               [&] { return world.detail(); });
  if (name != sentinel) fail("KelGetAppDisplayNameByPFNW(Kel.Twins) changed the out pointer", world.detail());
  expectNoSidMismatch(world);
}

void StorePageReachesTheStoreHandler(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  expectResult(KEL(library, KelLaunchStoreW)(kReader), S_OK, "KelLaunchStoreW(Kel.Reader)",
               [&] { return world.detail(); });
  const std::string line = "ms-windows-store:PDP?PFN=" + narrow(kReader);
  if (!waitUntil([&] { return contains(completeLines(readFile(world.recorderLog())), line); }, 10000)) {
    fail("within 10 s the ms-windows-store handler did not record " + quoted(line) +
             " (is the protocol registered? run wine_prefix.sh setup)",
         indented("recorder file", completeLines(readFile(world.recorderLog()))) + world.detail());
  }
}

// COM initialised on the calling thread for the test's lifetime: the library
// uses the caller's COM state for activation.
class ComScope {
 public:
  ComScope() {
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr)) fail("CoInitializeEx returned " + hex(hr));
  }
  ~ComScope() { CoUninitialize(); }
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
};

std::string activationLine(const char* server, const std::wstring& id, const wchar_t* arguments, HRESULT result) {
  return "ActivateApplication\t" + std::string(server) + "\t" + narrow(id) + "\t" +
         (arguments != nullptr ? narrow(arguments) : std::string("<null>")) + "\t0\t" + hex(result);
}

// With arguments the library asks for the in-process server (the one
// registered under InprocServer32) and passes the arguments on.
void ActivationWithArgumentsUsesTheInProcessServer(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  Library library(dllPath);
  auto launch = KEL(library, KelLaunchByAppUserModelIdW);

  // The library relies on the caller's COM: without it nothing is activated.
  expectResult(launch(kReaderApp, L"x"), CO_E_NOTINITIALIZED,
               "KelLaunchByAppUserModelIdW(Kel.Reader!App, L\"x\") on a thread without COM",
               [&] { return world.detail(); });
  if (countStartingWith(world.journalLines(), "ActivateApplication\t") != 0) {
    fail("an activation reached the activation manager on a thread without COM", world.detail());
  }

  ComScope com;
  const wchar_t arguments[] = L"--page 2 \"quoted text\"";
  expectResult(launch(kReaderApp, arguments), S_OK, "KelLaunchByAppUserModelIdW(Kel.Reader!App, arguments)",
               [&] { return world.detail(); });
  expectJournalLine(world, activationLine("inproc", kReaderApp, arguments, S_OK), "the activation with arguments");

  // An empty arguments string is still the form with arguments.
  expectResult(launch(kTwinsLeftApp, L""), S_OK, "KelLaunchByAppUserModelIdW(Kel.Twins!Left, L\"\")",
               [&] { return world.detail(); });
  expectJournalLine(world, activationLine("inproc", kTwinsLeftApp, L"", S_OK), "the activation with empty arguments");

  // The activation manager's failure comes back unchanged.
  expectResult(launch(kUnknownApp, L"x"), kUnknownAppResult, "KelLaunchByAppUserModelIdW(Kel.Unknown!App, L\"x\")",
               [&] { return world.detail(); });
  expectJournalLine(world, activationLine("inproc", kUnknownApp, L"x", kUnknownAppResult),
                    "the activation of an unknown application");
  if (countStartingWith(world.journalLines(), "ActivateApplication\tlocalserver\t") != 0) {
    fail("an activation with arguments reached the local server", world.detail());
  }
}

// The in-process server of the activation manager double, as registered.
std::wstring registeredActivationServer() {
  wchar_t path[MAX_PATH + 1] = {};
  LONG size = sizeof path - sizeof(wchar_t);
  const LONG status = RegQueryValueW(
      HKEY_LOCAL_MACHINE, L"Software\\Classes\\CLSID\\{45BA127D-10A8-46EA-8AB7-56EA9078943C}\\InprocServer32", path,
      &size);
  if (status != ERROR_SUCCESS) {
    fail(format("the activation manager double is not registered (RegQueryValueW gave %ld); run "
                "register_doubles.sh register",
                status));
  }
  return path;
}

// Plays the activation manager's own process: the double's local-server
// class object registered with CLSCTX_LOCAL_SERVER in this process.
class LocalActivationServer {
 public:
  LocalActivationServer() {
    const std::wstring path = registeredActivationServer();
    HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr) fail(format("LoadLibraryW(%s) failed with %lu", narrow(path).c_str(), GetLastError()));
    using Create = HRESULT(WINAPI*)(IClassFactory**);
    auto create = reinterpret_cast<Create>(reinterpret_cast<void*>(GetProcAddress(module, "CreateLocalServerClassObject")));
    if (create == nullptr) fail(narrow(path) + " has no CreateLocalServerClassObject");
    HRESULT hr = create(&factory_);
    if (FAILED(hr)) fail("CreateLocalServerClassObject returned " + hex(hr));
    hr = CoRegisterClassObject(CLSID_ApplicationActivationManager, factory_, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                               &cookie_);
    if (FAILED(hr)) {
      factory_->Release();
      fail("CoRegisterClassObject(CLSID_ApplicationActivationManager, CLSCTX_LOCAL_SERVER) returned " + hex(hr));
    }
  }
  ~LocalActivationServer() {
    CoRevokeClassObject(cookie_);
    factory_->Release();
  }
  LocalActivationServer(const LocalActivationServer&) = delete;
  LocalActivationServer& operator=(const LocalActivationServer&) = delete;

 private:
  IClassFactory* factory_ = nullptr;
  DWORD cookie_ = 0;
};

// Without arguments the library asks for the local server (on Windows the
// activation manager's own process), lets it take the foreground and passes
// no arguments.
void ActivationWithoutArgumentsUsesTheLocalServer(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  ComScope com;
  Library library(dllPath);
  auto launch = KEL(library, KelLaunchByAppUserModelIdW);

  // Before the local server is there, the in-process server registered for
  // the class is not taken instead.
  expectResult(launch(kReaderApp, nullptr), REGDB_E_CLASSNOTREG,
               "KelLaunchByAppUserModelIdW(Kel.Reader!App, NULL) without a local server",
               [&] { return world.detail(); });

  {
    LocalActivationServer server;
    expectResult(launch(kReaderApp, nullptr), S_OK, "KelLaunchByAppUserModelIdW(Kel.Reader!App, NULL)",
                 [&] { return world.detail(); });
    expectJournalLine(world, activationLine("localserver", kReaderApp, nullptr, S_OK),
                      "the activation without arguments");

    // The narrow export has no arguments: the same form.
    expectResult(KEL(library, KelLaunchByAppUserModelIdA)("Kel.Twins_8h9j0k1m2n3p4!Left"), S_OK,
                 "KelLaunchByAppUserModelIdA(Kel.Twins!Left)", [&] { return world.detail(); });
    expectJournalLine(world, activationLine("localserver", kTwinsLeftApp, nullptr, S_OK),
                      "the narrow activation");

    expectResult(launch(kUnknownApp, nullptr), kUnknownAppResult, "KelLaunchByAppUserModelIdW(Kel.Unknown!App, NULL)",
                 [&] { return world.detail(); });
    expectJournalLine(world, activationLine("localserver", kUnknownApp, nullptr, kUnknownAppResult),
                      "the activation of an unknown application");
  }
  if (countStartingWith(world.journalLines(), "ActivateApplication\tinproc\t") != 0) {
    fail("an activation without arguments reached the in-process server", world.detail());
  }
  const std::string log = readFile(world.logFile());
  if (log.find("CKELPackageManager::LaunchStoreApp OUT(ActivateApplication hr = 0)") == std::string::npos) {
    fail("the log has no line of the one-argument form's successful activation", world.detail());
  }
}

// The deployment service double itself, driven directly: the packages of the
// fixture for the current user, none for another user. This is what makes
// the library's answers above mean that it asked for the right user.
template <typename Interface>
struct Held {
  Interface* p = nullptr;
  ~Held() {
    if (p != nullptr) p->Release();
  }
};

class RuntimeString {
 public:
  explicit RuntimeString(const std::wstring& text) {
    if (FAILED(WindowsCreateString(text.c_str(), static_cast<UINT32>(text.size()), &value_))) {
      fail("WindowsCreateString failed");
    }
  }
  RuntimeString() = default;
  ~RuntimeString() {
    if (value_ != nullptr) WindowsDeleteString(value_);
  }
  RuntimeString(const RuntimeString&) = delete;
  RuntimeString& operator=(const RuntimeString&) = delete;
  HSTRING get() const { return value_; }
  HSTRING* put() { return &value_; }
  std::wstring text() const {
    UINT32 length = 0;
    const wchar_t* raw = WindowsGetStringRawBuffer(value_, &length);
    return std::wstring(raw != nullptr ? raw : L"", length);
  }

 private:
  HSTRING value_ = nullptr;
};

// Family name and installed location of every package of a collection.
std::vector<std::wstring> describe(deployment_abi::IPackageIterable* found) {
  using namespace deployment_abi;
  Held<IPackageIterable> iterable;
  HRESULT hr = found->QueryInterface(kIidIterableOfPackage, reinterpret_cast<void**>(&iterable.p));
  if (FAILED(hr)) fail("the collection does not answer IIterable<Package>: " + hex(hr));
  Held<IPackageIterator> iterator;
  hr = iterable.p->First(&iterator.p);
  if (FAILED(hr)) fail("IIterable<Package>::First returned " + hex(hr));
  Held<IPackageIterator> checked;
  hr = iterator.p->QueryInterface(kIidIteratorOfPackage, reinterpret_cast<void**>(&checked.p));
  if (FAILED(hr)) fail("the iterator does not answer IIterator<Package>: " + hex(hr));
  std::vector<std::wstring> packages;
  boolean hasCurrent = 0;
  hr = iterator.p->get_HasCurrent(&hasCurrent);
  while (SUCCEEDED(hr) && hasCurrent) {
    Held<IPackage> package;
    hr = iterator.p->get_Current(&package.p);
    if (FAILED(hr)) fail("IIterator<Package>::get_Current returned " + hex(hr));
    Held<IPackageId> id;
    if (FAILED(package.p->get_Id(&id.p))) fail("IPackage::get_Id failed");
    RuntimeString family;
    if (FAILED(id.p->get_FamilyName(family.put()))) fail("IPackageId::get_FamilyName failed");
    Held<IStorageFolder> folder;
    if (FAILED(package.p->get_InstalledLocation(&folder.p))) fail("IPackage::get_InstalledLocation failed");
    Held<IStorageItem> item;
    if (FAILED(folder.p->QueryInterface(kIidStorageItem, reinterpret_cast<void**>(&item.p)))) {
      fail("the installed location does not answer IStorageItem");
    }
    RuntimeString path;
    if (FAILED(item.p->get_Path(path.put()))) fail("IStorageItem::get_Path failed");
    packages.push_back(family.text() + L" " + path.text());
    hr = iterator.p->MoveNext(&hasCurrent);
  }
  if (FAILED(hr)) fail("walking the collection failed with " + hex(hr));
  return packages;
}

void DeploymentDoubleAnswersTheCurrentUserOnly(const std::wstring&) {
  using namespace deployment_abi;
  World world;
  HRESULT hr = RoInitialize(RO_INIT_SINGLETHREADED);
  if (FAILED(hr)) fail("RoInitialize returned " + hex(hr));
  struct Uninitialize {
    ~Uninitialize() { RoUninitialize(); }
  } uninitialize;

  Held<IInspectable> instance;
  {
    RuntimeString className(kPackageManagerClass);
    hr = RoActivateInstance(className.get(), &instance.p);
  }
  if (FAILED(hr)) {
    fail("RoActivateInstance(Windows.Management.Deployment.PackageManager) returned " + hex(hr) +
         " (is the deployment service double registered? run register_doubles.sh register)");
  }
  Held<IPackageManager> manager;
  hr = instance.p->QueryInterface(kIidPackageManager, reinterpret_cast<void**>(&manager.p));
  if (FAILED(hr)) fail("the package manager does not answer IPackageManager: " + hex(hr));

  std::vector<std::wstring> expected;
  for (const TestPackage& package : fixturePackages()) {
    expected.push_back(std::wstring(package.familyName) + L" " + world.packageFolder(package));
  }

  {
    RuntimeString sid(world.currentUserSid());
    Held<IPackageIterable> found;
    hr = manager.p->FindPackagesByUserSecurityId(sid.get(), &found.p);
    if (FAILED(hr)) fail("FindPackagesByUserSecurityId(current user) returned " + hex(hr), world.detail());
    if (describe(found.p) != expected) fail("FindPackagesByUserSecurityId(current user) gave other packages", world.detail());
  }
  {
    RuntimeString sid(world.currentUserSid());
    RuntimeString family(kTwins);
    Held<IPackageIterable> found;
    hr = manager.p->FindPackagesByUserSecurityIdPackageFamilyName(sid.get(), family.get(), &found.p);
    if (FAILED(hr)) fail("FindPackagesByUserSecurityIdPackageFamilyName returned " + hex(hr), world.detail());
    if (describe(found.p) != std::vector<std::wstring>{expected[1]}) {
      fail("FindPackagesByUserSecurityIdPackageFamilyName(current user, Kel.Twins) gave other packages",
           world.detail());
    }
  }
  const std::wstring otherUser = L"S-1-5-21-1111111111-2222222222-3333333333-1001";
  {
    RuntimeString sid(otherUser);
    Held<IPackageIterable> found;
    hr = manager.p->FindPackagesByUserSecurityId(sid.get(), &found.p);
    if (FAILED(hr)) fail("FindPackagesByUserSecurityId(another user) returned " + hex(hr), world.detail());
    if (!describe(found.p).empty()) fail("FindPackagesByUserSecurityId(another user) gave packages", world.detail());
  }
  expectJournalLine(world,
                    "SidMismatch\tFindPackagesByUserSecurityId\t" + narrow(otherUser) + "\t" +
                        narrow(world.currentUserSid()),
                    "a query for another user");
}

// The library logs while it is unloaded (the catalogue is cleared as the
// package manager goes): those lines belong in the log file like any other,
// and nothing else may be written, least of all into the host's folder, the
// current folder of the host here.
void UnloadLogsToTheLogFileOnly(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.createShortcuts();
  writeFile(world.presetPath(), kPresetAppNameList);
  Library library(dllPath);
  expectResult(KEL(library, KelInitialize)(), S_OK, "KelInitialize", [&] { return world.detail(); });
  const bool written = waitUntil([&] { return fileExists(world.dataFile()); }, 30000);
  KEL(library, KelFinalize)();
  if (!written) {
    fail("within 30 s of KelInitialize the refresh thread wrote no " + narrow(world.dataFile()), world.detail());
  }
  // The process ends now, and the library is unloaded with it.
}

std::string NothingStrayAfterUnload(const std::wstring& root) {
  std::string problem;
  const std::wstring host = root + L"\\host";
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW((host + L"\\*").c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L".." || name == L"Kel.Launcher.exe" || name == L"PresetAppNameList.xml") continue;
      const std::string content = readFile(host + L"\\" + name);
      problem += "the host's folder holds a file the test did not write: " + quoted(narrow(name)) + ", " +
                 std::to_string(content.size()) + " bytes\n" + indented("its lines", completeLines(content), 6);
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }
  const std::vector<std::string> log = completeLines(readFile(root + L"\\LocalAppData\\Osk\\Kelbrook\\KelbrookLogFS.txt"));
  const std::string last = log.empty() ? std::string() : log.back();
  const std::string wanted = "CKELAppNameList::Clear OUT";
  if (last.size() < wanted.size() || last.compare(last.size() - wanted.size(), wanted.size(), wanted) != 0) {
    problem += "the log does not end with the catalogue's clearing at unload (" + quoted(wanted) + ")\n" +
               indented("log, last lines", log, 8);
  }
  return problem;
}

// Gives the messages of the log a first refresh pass wrote
// (RunFirstRefreshPass), each without its timestamp.
std::vector<std::string> FirstRefreshPassLog(const std::wstring& dllPath, World& world) {
  RunFirstRefreshPass(dllPath, world);
  std::vector<std::string> log;
  for (const std::string& line : completeLines(readFile(world.logFile()))) {
    const std::size_t close = line.find(']');
    log.push_back(!line.empty() && line[0] == '[' && close != std::string::npos ? line.substr(close + 1) : line);
  }
  return log;
}

// A catalogued package installed in a newer version (Kel.Reader: 1.0.0.0 in
// the preset, 1.2.3.4 installed): its old applications are deleted between
// the readability check and the reading of the new ones, once, and nothing
// of the catalogue is traced after the refresh's exit line until the next
// package's turn.
void NewerVersionRefreshEndsAtItsExitLine(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  const std::vector<std::string> log = FirstRefreshPassLog(dllPath, world);
  // The refresh of Kel.Reader begins where the catalogue's lookup finds it.
  std::size_t begin = log.size();
  for (std::size_t i = 0; i + 1 < log.size(); ++i) {
    if (log[i] == "CKELPackage::IsThisPackage(" + narrow(kReader) + ") IN" &&
        log[i + 1] == "CKELPackage::IsThisPackage OUT(1)") {
      begin = i + 2;
      break;
    }
  }
  if (begin == log.size()) fail("the log shows no lookup that found " + narrow(kReader), world.detail());
  // Its lines up to the first catalogue line after its exit line.
  std::vector<std::string> traced;
  bool ended = false;
  for (std::size_t i = begin; i < log.size(); ++i) {
    const std::string& line = log[i];
    const bool catalogue = line.rfind("CKELAppNameList::", 0) == 0 || line.rfind("CKELPackage::", 0) == 0 ||
                           line == "CKELManifestReader::IsCanGetAppNameFromManifest IN" ||
                           line == "CKELManifestReader::AddAppsToPackage IN";
    if (!catalogue) continue;
    traced.push_back(line);
    if (ended) break;
    ended = line.rfind("CKELAppNameList::AddMetroPackage OUT(", 0) == 0;
  }
  const std::vector<std::string> expected = {
      "CKELAppNameList::GetPackage OUT",
      "CKELManifestReader::IsCanGetAppNameFromManifest IN",
      "CKELPackage::DeleteAllApp IN",
      "CKELPackage::DeleteAllApp OUT",
      "CKELManifestReader::AddAppsToPackage IN",
      "CKELPackage::AddApplication(kel reader, reader) IN",
      "CKELPackage::AddApplication OUT(0x00000000)",
      "CKELAppNameList::AddMetroPackage OUT(0x00000001)",
      // The next package the deployment service gives, new to the catalogue.
      "CKELAppNameList::AddMetroPackage IN",
  };
  if (traced != expected) {
    fail("the refresh of " + narrow(kReader) + " is not traced as its steps are",
         indented("expected catalogue lines", expected) + indented("logged catalogue lines", traced) +
             world.detail());
  }
}

// ---------------------------------------------------------------------------
// Runner

struct Test {
  const char* name;
  void (*run)(const std::wstring& dllPath);
  // Run by the parent once the private host has ended, with the private
  // folder; gives what is wrong, or nothing.
  std::string (*afterExit)(const std::wstring& root) = nullptr;
};

// The manifest reader's walk over a new package's manifest during the first
// refresh pass, as the DLL logs it: the setting read, then every element
// search and attribute read with the name it looks for and its result. The
// two-application package is new to the catalogue, so its applications are
// read once, by the reader the default setting chooses.
void RefreshPassTracesTheManifestWalk(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  // Only the refresh thread reads manifests, so the reader's own lines come
  // in the order it wrote them.
  const std::string prefix = "CKELManifestReader::";
  std::vector<std::string> reader;
  for (const std::string& line : FirstRefreshPassLog(dllPath, world)) {
    if (line.rfind(prefix, 0) == 0) reader.push_back(line.substr(prefix.size()));
  }
  std::vector<std::string> expected = {"AddAppsToPackage IN", "LoadSetting IN", "LoadSetting OUT",
                                       "GetAppNameUsingXmlParser IN", "MoveToElementByName(Applications) IN",
                                       "MoveToElementByName OUT(0x00000000)"};
  for (int application = 0; application < 2; ++application) {
    for (const char* line : {"MoveToElementByName(Application) IN", "MoveToElementByName OUT(0x00000000)",
                             "MoveToElementByName(VisualElements) IN", "MoveToElementByName OUT(0x00000000)",
                             "GetAttributeValueByName(DisplayName) IN", "GetAttributeValueByName OUT(0x00000000)",
                             "MoveToElementByName(DefaultTile) IN", "MoveToElementByName OUT(0x00000000)",
                             "GetAttributeValueByName(ShortName) IN", "GetAttributeValueByName OUT(0x00000000)"}) {
      expected.push_back(line);
    }
  }
  for (const char* line : {"MoveToElementByName(Application) IN", "MoveToElementByName OUT(0x00000001)",
                           "GetAppNameUsingXmlParser OUT(0x00000001)", "AddAppsToPackage OUT(0x00000001)"}) {
    expected.push_back(line);
  }
  bool found = false;
  for (std::size_t start = 0; !found && start + expected.size() <= reader.size(); ++start) {
    found = std::equal(expected.begin(), expected.end(), reader.begin() + static_cast<std::ptrdiff_t>(start));
  }
  if (!found) {
    fail("the log does not show the walk over the two-application manifest",
         indented("expected run of the reader's lines", expected) + indented("the reader's lines", reader) +
             world.detail());
  }
}

const Test kTests[] = {
    {"FirstRefreshWritesTheCatalogue", FirstRefreshWritesTheCatalogue},
    {"FinalizeInTheFirstSecondWritesNoDataFile", FinalizeInTheFirstSecondWritesNoDataFile},
    {"ServiceFailureDoesNotStopThePass", ServiceFailureDoesNotStopThePass},
    {"IsInstalledAsksTheDeploymentService", IsInstalledAsksTheDeploymentService},
    {"DisplayNameComesFromTheManifest", DisplayNameComesFromTheManifest},
    {"StorePageReachesTheStoreHandler", StorePageReachesTheStoreHandler},
    {"ActivationWithArgumentsUsesTheInProcessServer", ActivationWithArgumentsUsesTheInProcessServer},
    {"ActivationWithoutArgumentsUsesTheLocalServer", ActivationWithoutArgumentsUsesTheLocalServer},
    {"DeploymentDoubleAnswersTheCurrentUserOnly", DeploymentDoubleAnswersTheCurrentUserOnly},
    {"UnloadLogsToTheLogFileOnly", UnloadLogsToTheLogFileOnly, NothingStrayAfterUnload},
    {"NewerVersionRefreshEndsAtItsExitLine", NewerVersionRefreshEndsAtItsExitLine},
    {"RefreshPassTracesTheManifestWalk", RefreshPassTracesTheManifestWalk},
};

const char kUsage[] = "discovery_tests.exe DLLPATH TESTNAME";

}  // namespace

int main() {
  int argc = 0;
  LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  if (argv == nullptr || argc != 3) return usage(kUsage, kTests);
  // The test runs in another folder: the path is made absolute here.
  const std::wstring dllPath = absolutePath(usablePath(argv[1]));
  const std::string name = narrow(argv[2]);
  LocalFree(argv);

  const Test* test = findTest(kTests, name);
  if (test == nullptr) return usage(kUsage, kTests);
  if (environmentValue(kPrivateHost.rootVariable).empty()) {
    return runInPrivateHost(kPrivateHost, test->name, L"\"" + dllPath + L"\"", nullptr, test->afterExit);
  }
  return runInHost(kPrivateHost, test->name, [&] { test->run(dllPath); });
}
