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
  world.CreateShortcuts();
  WriteBytes(world.PresetPath(), kPresetAppNameList);
  Library library(dllPath);
  auto initialize = KEL(library, KelInitialize);
  auto finalize = KEL(library, KelFinalize);

  std::string slowRounds;
  for (int round = 1; round <= 5; ++round) {
    // A fresh data folder, log and journal for each round.
    world.UseLocalAppData(L"LocalAppData" + std::to_wstring(round));
    world.UseJournal(L"journal" + std::to_wstring(round) + L".txt");
    const ULONGLONG start = GetTickCount64();
    const HRESULT hr = initialize();
    finalize();
    const ULONGLONG elapsed = GetTickCount64() - start;
    ExpectResult(hr, S_OK, "KelInitialize", [&] { return world.Detail(); });
    if (elapsed >= 1000) {
      slowRounds += Format("  round %d: KelInitialize to the end of KelFinalize took %llu ms\n", round, elapsed);
      continue;
    }

    if (!FileExists(world.DataFolder())) {
      Fail("KelInitialize did not create the data folder " + Narrow(world.DataFolder()), world.Detail());
    }
    if (FileExists(world.DataFile())) {
      Fail(Format("KelFinalize came %llu ms after KelInitialize, yet the data file was written", elapsed),
           world.Detail());
    }
    const std::string log = ReadBytes(world.LogFile());
    // Two threads tracing at once may overwrite each other's line (the log
    // takes no lock): a round whose thread left no entry line proves
    // nothing either way, and the next round is tried.
    if (log.find("CKELPackageManager::RefreshThread IN") == std::string::npos) {
      slowRounds += Format("  round %d: the refresh thread's entry line was overwritten in the log\n", round);
      continue;
    }
    if (log.find("Refresh app name list!") != std::string::npos ||
        log.find("CKELPackageManager::RefreshThread OUT") != std::string::npos) {
      Fail(Format("KelFinalize came %llu ms after KelInitialize, yet the refresh thread ran a pass", elapsed),
           world.Detail());
    }
    if (CountStartingWith(world.JournalLines(), "FindPackagesByUserSecurityId\t") != 0) {
      Fail("the deployment service was asked for the user's packages, yet no pass should have run", world.Detail());
    }
    return;
  }
  Fail(
      "in none of five rounds did KelFinalize return within 1 s of KelInitialize with the thread's entry line "
      "logged; the test cannot tell",
      slowRounds + world.Detail());
}

// The library logs while it is unloaded (the catalogue is cleared as the
// package manager goes): those lines belong in the log file like any other,
// and nothing else may be written, least of all into the host's folder, the
// current folder of the host here.
void UnloadLogsToTheLogFileOnly(const std::wstring& dllPath) {
  LogOnSettingsScope settings;
  World world;
  world.CreateShortcuts();
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
      const std::string content = ReadBytes(host + L"\\" + name);
      problem += "the host's folder holds a file the test did not write: " + Quoted(Narrow(name)) + ", " +
                 std::to_string(content.size()) + " bytes\n" + Indented("its lines", CompleteLines(content), 6);
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }
  const std::vector<std::string> log =
      CompleteLines(ReadBytes(root + L"\\LocalAppData\\Osk\\Kelbrook\\KelbrookLogFS.txt"));
  const std::string last = log.empty() ? std::string() : log.back();
  const std::string wanted = "CKELAppNameList::Clear OUT";
  if (last.size() < wanted.size() || last.compare(last.size() - wanted.size(), wanted.size(), wanted) != 0) {
    problem += "the log does not end with the catalogue's clearing at unload (" + Quoted(wanted) + ")\n" +
               Indented("log, last lines", log, 8);
  }
  return problem;
}

}  // namespace discovery_tests
