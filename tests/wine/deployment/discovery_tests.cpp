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
//
// The tests live in discovery_tests_*.cpp, one file per concern
// (discovery_tests.h lists them); this file has the runner.

#include "discovery_tests.h"

#include <string>
#include <vector>

namespace discovery_tests {

// The installed test packages, in the order the deployment service lists
// them.
const std::vector<TestPackage>& FixturePackages() {
  static const std::vector<TestPackage> kPackages = {
      {kReader,
       L"Kel.Reader_1.2.3.4_x64__1a2b3c4d5e6f7",
       L"Kel.Reader",
       L"1.2.3.4",
       L"Reader",
       {{L"App1", L"Kel Reader", L"Reader"}}},
      {kTwins,
       L"Kel.Twins_2.0.0.5_x64__8h9j0k1m2n3p4",
       L"Kel.Twins",
       L"2.0.0.5",
       L"Twins",
       {{L"App1", L"Twin Left", L"Left"}, {L"App2", L"Twin Right", L"Right"}}},
      {kResource,
       L"Kel.Resource_3.1.0.0_neutral__5q6r7s8t9v0w1",
       L"Kel.Resource",
       L"3.1.0.0",
       L"Resource",
       {{L"App1", L"ms-resource:AppName", L"ms-resource:ShortName"}}},
      {kPinned,
       L"Kel.Pinned_2.0.0.0_x64__3x4y5z6a7b8c9",
       L"Kel.Pinned",
       L"2.0.0.0",
       L"Pinned",
       {{L"App1", L"Pinned New", L"New"}}},
  };
  return kPackages;
}

bool Contains(const std::vector<std::string>& lines, const std::string& wanted) {
  for (const std::string& line : lines) {
    if (line == wanted) return true;
  }
  return false;
}

std::size_t CountStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
  std::size_t count = 0;
  for (const std::string& line : lines) {
    if (line.compare(0, prefix.size(), prefix) == 0) ++count;
  }
  return count;
}

// Waits (bounded) until the journal holds `line`.
void ExpectJournalLine(const World& world, const std::string& line, const std::string& what) {
  if (!WaitUntil([&] { return Contains(world.JournalLines(), line); }, 10000)) {
    Fail(what + ": within 10 s the journal of the doubles got no line " + Quoted(line), world.Detail());
  }
}

void ExpectNoSidMismatch(const World& world) {
  if (CountStartingWith(world.JournalLines(), "SidMismatch\t") != 0) {
    Fail(
        "the deployment service was asked for another user's packages (SidMismatch in the journal); the current "
        "user is " +
            Narrow(world.CurrentUserSid()),
        world.Detail());
  }
}

// ---------------------------------------------------------------------------
// Runner

namespace {

struct Test {
  const char* name;
  void (*run)(const std::wstring& dllPath);
  // Run by the parent once the private host has ended, with the private
  // folder; gives what is wrong, or nothing.
  std::string (*afterExit)(const std::wstring& root) = nullptr;
};

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

}  // namespace discovery_tests

using namespace discovery_tests;

int main() {
  const std::vector<std::wstring> arguments = CommandLineArguments(2);
  const Test* test = NamedTest(kTests, arguments, 1);
  if (test == nullptr) return Usage(kUsage, kTests);
  // The test runs in another folder: the path is made absolute here.
  const std::wstring dllPath = AbsolutePath(UsablePath(arguments[0]));
  if (EnvironmentValue(kPrivateHost.rootVariable).empty()) {
    return RunInPrivateHost(kPrivateHost, test->name, L"\"" + dllPath + L"\"", nullptr, test->afterExit);
  }
  return RunInHost(kPrivateHost, test->name, [&] { test->run(dllPath); });
}
