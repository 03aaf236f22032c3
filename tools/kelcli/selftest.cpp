#include "selftest.h"

#include <shlobj.h>

#include <cwchar>
#include <memory>

#include "Kelbrook.h"
#include "catalogue_count.h"
#include "console.h"
#include "environment.h"
#include "library.h"
#include "selftest_report.h"
#include "service_probes.h"

namespace kelcli {

// How long a platform service may take to answer before it counts as hung.
constexpr DWORD kServiceTimeoutMs = 30000;
// How long the first refresh pass may take to write the data file: it starts
// one second after KelInitialize and walks every package and shortcut.
constexpr DWORD kFirstPassTimeoutMs = 120000;
// KelFinalize waits up to 20 seconds for the refresh thread; a little more
// for the call itself.
constexpr DWORD kFinalizeBoundMs = 21000;

// Typed into the search pane by the intrusive search launch: it names
// nothing, and mode 1 does not submit it.
constexpr wchar_t kHarmlessKeyword[] = L"Kelbrook selftest";

// The version of the system itself, which no manifest caps.
bool TrueWindowsVersion(DWORD& major, DWORD& minor, DWORD& build) {
  using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  auto get =
      ntdll == nullptr
          ? nullptr
          : reinterpret_cast<RtlGetVersionFunction>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")));
  OSVERSIONINFOW info = {};
  info.dwOSVersionInfoSize = sizeof(info);
  if (get == nullptr || get(&info) != 0) return false;
  major = info.dwMajorVersion;
  minor = info.dwMinorVersion;
  build = info.dwBuildNumber;
  return true;
}

// The data file's last write, or zero when it does not exist.
ULONGLONG LastWrite(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return 0;
  return (static_cast<ULONGLONG>(data.ftLastWriteTime.dwHighDateTime) << 32) | data.ftLastWriteTime.dwLowDateTime;
}

// A catalogue file read for a check: its counts, or why it could not be read.
struct CatalogueRead {
  bool present = false;
  bool readCleanly = false;
  std::wstring seen;
  CatalogueCount count;
};

CatalogueRead ReadCatalogue(const std::wstring& path) {
  CatalogueRead read;
  std::string bytes;
  DWORD error = 0;
  if (!ReadWholeFile(path, bytes, error)) {
    read.present = !(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND);
    read.seen = read.present ? L"cannot be read, error " + std::to_wstring(error) : L"not present";
    return read;
  }
  read.present = true;
  read.count = CountCatalogue(bytes);
  const HRESULT inputEnd = static_cast<HRESULT>(0xC00CEE01UL);
  read.readCleanly = read.count.endStatus == inputEnd || read.count.endStatus == S_FALSE;
  read.seen = CatalogueContents(path);
  return read;
}

// A file made and removed again in `folder`.
bool FolderIsWritable(const std::wstring& folder, std::wstring& seen) {
  const std::wstring probe = folder + L"\\kelcli-selftest.tmp";
  HANDLE file = CreateFileW(probe.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    seen = L"cannot create a file in it, error " + std::to_wstring(GetLastError());
    return false;
  }
  DWORD written = 0;
  const bool ok = WriteFile(file, "selftest", 8, &written, nullptr) && written == 8;
  if (!ok) seen = L"cannot write a file in it, error " + std::to_wstring(GetLastError());
  CloseHandle(file);
  return ok;
}

void CheckDllAndProcess(SelfTest& test, const Library& lib) {
  ULONGLONG start = GetTickCount64();
  const std::wstring dll = ModuleFileName(lib.Module());
  test.Add(L"INFO", L"DLL file version", L"the version shipped", FileVersion(dll) + L" (" + dll + L")", Since(start));

  start = GetTickCount64();
  const std::wstring architectureSeen = Architecture(lib.Module());
  test.Check(architectureSeen == OwnArchitecture(), L"DLL architecture", OwnArchitecture(), architectureSeen,
             Since(start));

  start = GetTickCount64();
  DWORD major = 0, minor = 0, build = 0;
  const bool haveTrue = TrueWindowsVersion(major, minor, build);
  const std::wstring system =
      haveTrue ? std::to_wstring(major) + L"." + std::to_wstring(minor) + L"." + std::to_wstring(build) : L"unknown";
  test.Add(L"INFO", L"Windows version", L"6.2 (Windows 8) or 6.3 (Windows 8.1)",
           L"system " + system + L", reported to this process " + ReportedWindowsVersion(), Since(start));

  // On 8.1 a host without the compatibility manifest is told 6.2, and the
  // library then keeps the Windows 8 package names, which 8.1 does not have.
  start = GetTickCount64();
  const bool applies = LibraryVersionTestPasses();
  const bool systemIs81 = haveTrue && major == 6 && minor == 3;
  if (systemIs81 && !applies) {
    test.Add(L"FAIL", L"Windows 8.1 behaviour", L"applies on Windows 8.1",
             L"does not apply: the host's manifest must list Windows 8.1 in <compatibility> (supportedOS "
             L"{1f676c76-80e1-4239-95bb-83d0f6d0da78})",
             Since(start));
  } else {
    test.Add(L"INFO", L"Windows 8.1 behaviour", L"applies where 6.3 is reported",
             applies ? L"applies" : L"does not apply", Since(start));
  }
}

// Answers the value of ManifestReaderSetting in effect.
DWORD CheckSettings(SelfTest& test, const LibraryFiles& files) {
  const std::vector<SettingInEffect> settings = SettingsInEffect();
  DWORD manifestReader = 1;
  for (size_t i = 0; i < settings.size(); ++i) {
    const std::wstring name = std::wstring(L"setting ") + kSettings[i].name;
    if (settings[i].storedValueIgnored)
      test.Add(L"FAIL", name, L"a REG_DWORD or no value", settings[i].text, 0);
    else
      test.Add(L"INFO", name, L"a REG_DWORD or no value", settings[i].text, 0);
    if (wcscmp(kSettings[i].name, L"ManifestReaderSetting") == 0) manifestReader = settings[i].value;
  }
  const bool logOn = settings[0].value != 0;
  test.Add(L"INFO", L"log file", L"written while DebugLog is non-zero",
           (files.log.empty() ? files.logWhyNone : files.log) + (logOn ? L" (on)" : L" (off)"), 0);
  return manifestReader;
}

void CheckFiles(SelfTest& test, const LibraryFiles& files) {
  ULONGLONG start = GetTickCount64();
  if (files.folder.empty()) {
    test.Add(L"FAIL", L"data folder", L"created and writable", files.folderWhyNone, Since(start));
  } else {
    std::wstring seen = files.folder;
    int created = SHCreateDirectoryExW(nullptr, files.folder.c_str(), nullptr);
    bool ok = created == ERROR_SUCCESS || created == ERROR_ALREADY_EXISTS || created == ERROR_FILE_EXISTS;
    if (!ok)
      seen = files.folder + L": cannot be created, error " + std::to_wstring(created);
    else
      ok = FolderIsWritable(files.folder, seen) && DirectoryExists(files.folder);
    test.Check(ok, L"data folder", L"created and writable", seen, Since(start));
  }

  start = GetTickCount64();
  if (!files.dataFile.empty()) {
    CatalogueRead data = ReadCatalogue(files.dataFile);
    if (!data.present)
      test.Add(L"INFO", L"data file", L"loads, if present", L"not present yet (the first refresh pass writes it)",
               Since(start));
    else
      test.Check(data.readCleanly, L"data file", L"loads, if present", data.seen, Since(start));
  }

  start = GetTickCount64();
  if (files.preset.empty()) {
    test.Add(L"INFO", L"preset file", L"loads, if present", files.presetWhyNone, Since(start));
  } else {
    CatalogueRead preset = ReadCatalogue(files.preset);
    if (!preset.present)
      test.Add(L"INFO", L"preset file", L"loads, if present", L"none (" + files.preset + L")", Since(start));
    else
      test.Check(preset.readCleanly, L"preset file", L"loads, if present", preset.seen, Since(start));
  }
}

void CheckServices(SelfTest& test, DWORD manifestReader) {
  struct Service {
    const wchar_t* name;
    const wchar_t* expected;
    Probe probe;
  };
  const Service services[] = {
      {L"app visibility service", L"CLSID_AppVisibility created in process", ProbeAppVisibility},
      {L"activation manager", L"CLSID_ApplicationActivationManager created in process", ProbeActivationManager},
      {L"activation manager (local server)", L"CLSID_ApplicationActivationManager created by its own process",
       ProbeActivationManagerLocalServer},
      {L"deployment service", L"the current user's packages listed", ProbeDeploymentService},
  };
  for (const Service& service : services) {
    const ULONGLONG start = GetTickCount64();
    const ProbeResult result = RunBounded(service.probe, kServiceTimeoutMs);
    test.Check(result.passed, service.name, service.expected, result.seen, Since(start));
  }

  // The library reads manifests through the packaging API only when
  // ManifestReaderSetting is 0; otherwise the API's absence costs nothing.
  const ULONGLONG start = GetTickCount64();
  const ProbeResult result = RunBounded(ProbeManifestReaderFactory, kServiceTimeoutMs);
  if (manifestReader == 0 || result.passed)
    test.Check(result.passed, L"packaging API", L"CLSID_AppxFactory created in process", result.seen, Since(start));
  else
    test.Add(L"INFO", L"packaging API", L"needed only when ManifestReaderSetting is 0",
             result.seen + L"; not used with ManifestReaderSetting " + std::to_wstring(manifestReader), Since(start));
}

// Calls the exports a host calls first, from KelInitialize through the first
// refresh pass to KelGetMonitorMode, and answers whether the library is
// initialised (KelFinalize is then still owed). `found` is a package of one
// application the first pass catalogued, or empty.
bool CheckExports(SelfTest& test, const Library& lib, const LibraryFiles& files, std::wstring& found) {
  auto initialize = KEL(lib, KelInitialize);
  auto finalize = KEL(lib, KelFinalize);
  auto isInstalled = KEL(lib, KelIsInstalledW);
  auto displayName = KEL(lib, KelGetAppDisplayNameByPFNW);
  auto release = KEL(lib, KelReleaseStringW);
  auto monitorMode = KEL(lib, KelGetMonitorMode);
  if (!initialize || !finalize || !isInstalled || !displayName || !release || !monitorMode) {
    test.Add(L"FAIL", L"exports", L"every export present", L"an export is missing (see above)", 0);
    return false;
  }

  const ULONGLONG writtenBefore = files.dataFile.empty() ? 0 : LastWrite(files.dataFile);
  ULONGLONG start = GetTickCount64();
  HRESULT hr = initialize();
  test.Check(hr == S_OK, L"KelInitialize", L"S_OK", std::wstring(ResultName(hr)) + L" " + Hex(hr), Since(start));
  if (FAILED(hr)) return false;

  // The first pass replaces the data file as a whole, so a new write time
  // means the pass has ended.
  start = GetTickCount64();
  CatalogueCount catalogued;
  bool written = false;
  if (!files.dataFile.empty()) {
    while (Since(start) < kFirstPassTimeoutMs) {
      const ULONGLONG now = LastWrite(files.dataFile);
      if (now != 0 && now != writtenBefore) {
        written = true;
        break;
      }
      Sleep(100);
    }
  }
  const ULONGLONG passTime = Since(start);
  if (written) {
    CatalogueRead data = ReadCatalogue(files.dataFile);
    catalogued = data.count;
    test.Check(data.readCleanly, L"first refresh pass", L"the data file written",
               L"written after " + std::to_wstring(passTime) + L" ms: " + data.seen, passTime);
  } else {
    test.Add(L"FAIL", L"first refresh pass", L"the data file written",
             files.dataFile.empty() ? L"no data file path"
                                    : L"not written within " + std::to_wstring(kFirstPassTimeoutMs / 1000) + L" s",
             passTime);
  }

  const std::wstring pfn(catalogued.singleAppPackage.begin(), catalogued.singleAppPackage.end());
  found = pfn;
  if (pfn.empty()) {
    test.Add(L"INFO", L"KelIsInstalledW", L"a package the first pass found",
             L"skipped: the first pass found no package with one app", 0);
    test.Add(L"INFO", L"KelGetAppDisplayNameByPFNW", L"a package the first pass found",
             L"skipped: the first pass found no package with one app", 0);
  } else {
    start = GetTickCount64();
    BOOL installed = FALSE;
    hr = isInstalled(pfn.c_str(), &installed);
    test.Check(hr == S_OK && installed, L"KelIsInstalledW", L"S_OK, installed, for " + pfn,
               std::wstring(ResultName(hr)) + L" " + Hex(hr) + (installed ? L", installed" : L", not installed"),
               Since(start));

    start = GetTickCount64();
    LPWSTR name = nullptr;
    hr = displayName(pfn.c_str(), &name);
    std::wstring seen = std::wstring(ResultName(hr)) + L" " + Hex(hr);
    const bool named = name != nullptr && name[0] != L'\0';
    if (name != nullptr) {
      seen += L", \"" + std::wstring(name) + L"\"";
      release(name);
    }
    test.Check(hr == S_OK && named, L"KelGetAppDisplayNameByPFNW", L"S_OK and a name, for " + pfn, seen, Since(start));
  }

  start = GetTickCount64();
  UINT mode = 0;
  hr = monitorMode(&mode);
  test.Check(hr == S_OK && mode <= 2, L"KelGetMonitorMode", L"S_OK and a mode 0, 1 or 2",
             std::wstring(ResultName(hr)) + L" " + Hex(hr) + L", mode " + std::to_wstring(mode), Since(start));

  return true;
}

// The launches a user would see, each with what the operator should have
// seen: made only when asked for, since they take over the screen, the
// keyboard and the clipboard.
void CheckLaunches(SelfTest& test, const Library& lib, const SelfTestOptions& options, const std::wstring& pfn) {
  auto protocol = KEL(lib, KelLaunchByProtocolW);
  auto search = KEL(lib, KelLaunchBySearchW);
  auto store = KEL(lib, KelLaunchStoreW);
  if (!protocol || !search || !store) {
    test.Add(L"FAIL", L"launch exports", L"every export present", L"an export is missing (see above)", 0);
    return;
  }
  auto seenResult = [](HRESULT hr) { return std::wstring(ResultName(hr)) + L" " + Hex(hr); };

  if (options.url.empty()) {
    test.Add(L"INFO", L"protocol launch", L"a URL given with --url", L"skipped: no --url was given", 0);
  } else {
    const ULONGLONG start = GetTickCount64();
    const HRESULT hr = protocol(options.url.c_str());
    test.Check(hr == S_OK, L"protocol launch",
               L"S_OK; you should have seen " + options.url + L" open in its default program", seenResult(hr),
               Since(start));
  }

  // Mode 1 pastes the keyword without submitting it, so the search pane
  // shows it and nothing is searched for or started.
  ULONGLONG start = GetTickCount64();
  HRESULT hr = search(kHarmlessKeyword, 1, 1);
  test.Check(hr == S_OK, L"search launch",
             std::wstring(L"S_OK; you should have seen the Start screen, then the search pane with \"") +
                 kHarmlessKeyword + L"\" typed in and not searched for",
             seenResult(hr), Since(start));

  if (pfn.empty()) {
    test.Add(L"INFO", L"Store page", L"a package the first pass found",
             L"skipped: the first pass found no package with one app", 0);
    return;
  }
  start = GetTickCount64();
  hr = store(pfn.c_str());
  test.Check(hr == S_OK, L"Store page", L"S_OK; you should have seen the Store page of " + pfn, seenResult(hr),
             Since(start));
}

void CheckFinalize(SelfTest& test, const Library& lib) {
  auto finalize = KEL(lib, KelFinalize);
  if (!finalize) return;
  const ULONGLONG start = GetTickCount64();
  finalize();
  const ULONGLONG finalizeTime = Since(start);
  test.Check(finalizeTime <= kFinalizeBoundMs, L"KelFinalize",
             L"returns within " + std::to_wstring(kFinalizeBoundMs / 1000) + L" s",
             L"returned after " + std::to_wstring(finalizeTime) + L" ms", finalizeTime);
}

int RunSelfTest(const SelfTestOptions& options) {
  SelfTest test;
  std::wstring runLog;
  Write(L"kelcli selftest " + std::wstring(OwnArchitecture()) + L"\n");
  Library library;
  std::wstring error;
  ULONGLONG start = GetTickCount64();
  if (!library.Load(error)) {
    while (!error.empty() && error.back() == L'\n') error.pop_back();
    test.Add(L"FAIL", L"DLL loads", L"Kelbrook.dll loaded", error, Since(start));
  } else {
    test.Add(L"PASS", L"DLL loads", L"Kelbrook.dll loaded", ModuleFileName(library.Module()), Since(start));
    CheckDllAndProcess(test, library);
    const LibraryFiles files = FindLibraryFiles();
    const DWORD manifestReader = CheckSettings(test, files);
    CheckFiles(test, files);
    CheckServices(test, manifestReader);
    // The report carries the library's log of its calls, whatever the
    // switch was.
    std::unique_ptr<LogForTheRun> log;
    if (!options.reportPath.empty() && !files.log.empty()) {
      log = std::make_unique<LogForTheRun>(files.log);
      test.Add(log->Switched() ? L"INFO" : L"FAIL", L"log for the report", L"DebugLog on for the run",
               log->Switched() ? L"DebugLog set to 1, put back after the run" : L"DebugLog cannot be set", 0);
    }
    std::wstring found;
    const bool initialized = CheckExports(test, library, files, found);
    if (initialized && options.intrusive) CheckLaunches(test, library, options, found);
    if (initialized) CheckFinalize(test, library);
    if (log) {
      log->Restore();
      runLog = log->Lines();
    }
    if (!options.intrusive)
      test.Add(L"INFO", L"launches", L"run with --intrusive", L"skipped: no launch was made", 0);
    else if (!initialized)
      test.Add(L"INFO", L"launches", L"made after KelInitialize", L"skipped: the library is not initialised", 0);
  }
  const unsigned failed = test.Count(L"FAIL");
  Write(L"selftest: " + std::to_wstring(test.Count(L"PASS")) + L" passed, " + std::to_wstring(failed) + L" failed, " +
        std::to_wstring(test.Count(L"INFO")) + L" for information\n");
  if (!options.reportPath.empty()) {
    std::wstring reportError;
    if (!WriteReport(options.reportPath, test, runLog, reportError)) {
      WriteError(L"kelcli: selftest: " + reportError + L"\n");
      return 1;
    }
  }
  return failed == 0 ? 0 : 1;
}

}  // namespace kelcli
