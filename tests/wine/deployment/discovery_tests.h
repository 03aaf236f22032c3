// What the files of discovery_tests.exe share: the test packages, the world
// a test runs in, the checks of the doubles' journal, the preset catalogue
// with its first refresh pass, and the tests the runner (discovery_tests.cpp)
// picks from, one file per concern.
#pragma once

#include "support/wine_test_support.h"

#include <string>
#include <vector>

#include "double_fixture.h"

namespace discovery_tests {

using namespace wine_test;

// Every test runs in a private copy of this program, Kel.Launcher.exe.
const PrivateHost kPrivateHost = {
    L"keldisc", L"Kel.Launcher.exe", L"KEL_DISCOVERY_ROOT", L"KEL_DISCOVERY_REPORT", L"KEL_DISCOVERY_KEEP", 90000};

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
const std::vector<TestPackage>& FixturePackages();

class World : public HostWorld {
 public:
  World() : HostWorld(kPrivateHost, "discovery_tests.exe DLLPATH TESTNAME") {
    for (const TestPackage& package : FixturePackages()) InstallPackage(package);
    UseJournal(L"journal.txt");

    currentUserSid_ = deployment_double::CurrentUserSid();
    if (currentUserSid_.empty()) Fail("cannot find the current user's SID (GetUserNameW/LookupAccountNameW)");
  }

  // Writes the fixture file with a journal of this name under the root.
  void UseJournal(const std::wstring& name) {
    journal_ = Root() + L"\\" + name;
    std::wstring text = FixtureHeader(L"The deployment service and the activation manager of the test.", journal_);
    for (const TestPackage& package : FixturePackages()) {
      text += FixturePackageSection(package, PackageFolder(package));
    }
    text += L"[Application]\r\nAppUserModelId=" + std::wstring(kReaderApp) + L"\r\nResult=0\r\nProcessId=4242\r\n\r\n";
    text +=
        L"[Application]\r\nAppUserModelId=" + std::wstring(kTwinsLeftApp) + L"\r\nResult=0\r\nProcessId=4343\r\n\r\n";
    text += L"[Activation]\r\nUnknownResult=0x80270254\r\n";
    if (serviceFailure_ != S_OK) {
      const std::string code = Hex(serviceFailure_);
      text += L"\r\n[Service]\r\nFindResult=" + std::wstring(code.begin(), code.end()) + L"\r\n";
    }
    WriteFixture(text);
  }

  // From now on every query of the deployment service fails with `failure`.
  void FailServiceWith(HRESULT failure) {
    serviceFailure_ = failure;
    UseJournal(journal_.substr(Root().size() + 1));
  }

  // The Start menu shortcuts: empty files are enough, the library reads
  // only their names.
  void CreateShortcuts() const {
    const std::wstring common = CommonPrograms();
    const std::wstring user = UserPrograms();
    MakeFolders(common + L"\\Accessories");
    for (const std::wstring& path :
         {common + L"\\A Tool.lnk", common + L"\\Web Link.url", common + L"\\Name.lnk2", common + L"\\Readme.txt",
          common + L"\\Accessories\\Calc.lnk", user + L"\\Mine.lnk", user + L"\\Notes.url"}) {
      WriteBytes(path, std::string());
    }
  }

  [[nodiscard]] const std::wstring& Journal() const { return journal_; }
  [[nodiscard]] const std::wstring& CurrentUserSid() const { return currentUserSid_; }

  [[nodiscard]] std::vector<std::string> JournalLines() const { return CompleteLines(ReadBytes(journal_)); }

  // The log and the journal, for a failure report.
  [[nodiscard]] std::string Detail() const {
    return Indented("journal of the doubles (" + Narrow(journal_) + ")", JournalLines()) +
           Indented("library log, last lines (" + Narrow(LogFile()) + ")", LogLines(), 60);
  }

 private:
  std::wstring journal_;
  std::wstring currentUserSid_;
  HRESULT serviceFailure_ = S_OK;
};

bool Contains(const std::vector<std::string>& lines, const std::string& wanted);
std::size_t CountStartingWith(const std::vector<std::string>& lines, const std::string& prefix);

// Waits (bounded) until the journal holds `line`.
void ExpectJournalLine(const World& world, const std::string& line, const std::string& what);
void ExpectNoSidMismatch(const World& world);

// ---------------------------------------------------------------------------
// The preset catalogue and the first refresh pass over it

// The preset list beside the host: packages and shortcuts as the host ships
// them. Names in mixed case (the catalogue lower-cases display and short
// names), shortcut paths with environment references (expanded on reading).
extern const char kPresetAppNameList[];

// Starts the library on the preset catalogue, waits until the first refresh
// pass has written the data file, and stops the library.
void RunFirstRefreshPass(const std::wstring& dllPath, World& world);

// ---------------------------------------------------------------------------
// The tests

// discovery_tests_refresh.cpp: what the first refresh pass writes and logs.
void FirstRefreshWritesTheCatalogue(const std::wstring& dllPath);
void ServiceFailureDoesNotStopThePass(const std::wstring& dllPath);
void NewerVersionRefreshEndsAtItsExitLine(const std::wstring& dllPath);
void RefreshPassTracesTheManifestWalk(const std::wstring& dllPath);

// discovery_tests_lifetime.cpp: an early KelFinalize, and the unloading.
void FinalizeInTheFirstSecondWritesNoDataFile(const std::wstring& dllPath);
void UnloadLogsToTheLogFileOnly(const std::wstring& dllPath);
std::string NothingStrayAfterUnload(const std::wstring& root);

// discovery_tests_lookup.cpp: installed marks, display names, the Store page.
void IsInstalledAsksTheDeploymentService(const std::wstring& dllPath);
void DisplayNameComesFromTheManifest(const std::wstring& dllPath);
void StorePageReachesTheStoreHandler(const std::wstring& dllPath);

// discovery_tests_activation.cpp: the two servers of the activation manager.
void ActivationWithArgumentsUsesTheInProcessServer(const std::wstring& dllPath);
void ActivationWithoutArgumentsUsesTheLocalServer(const std::wstring& dllPath);

// discovery_tests_double.cpp: the deployment service double on its own.
void DeploymentDoubleAnswersTheCurrentUserOnly(const std::wstring& dllPath);

}  // namespace discovery_tests
