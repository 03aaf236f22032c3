// discovery_tests.exe: the library's lifetime around the refresh thread, a
// KelFinalize that comes before the first pass, and the lines the library
// logs while it is unloaded.

#include "discovery_tests.h"

#include <string>
#include <vector>

#include "Kelbrook.h"

namespace discovery_tests {

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

// The library logs while it is unloaded (the catalogue is cleared as the
// package manager goes): those lines belong in the log file like any other,
// and nothing else may be written, least of all into the host's folder, the
// current folder of the host here.
void UnloadLogsToTheLogFileOnly(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.createShortcuts();
  RunFirstRefreshPass(dllPath, world);
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

}  // namespace discovery_tests
