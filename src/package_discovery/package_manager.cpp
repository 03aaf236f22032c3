// The package manager's lifecycle: the data folder, the catalogue's first
// load, the exit event and the refresh thread.
#include "package_discovery/package_manager.h"

#include <vector>

#include "frame/constants.h"
#include "frame/log.h"
#include "frame/reg.h"
#include "platform/platform.h"

namespace kel {
namespace {

constexpr DWORD kFirstWaitMilliseconds = 1000;
constexpr DWORD kFinalizeWaitMilliseconds = 20000;
constexpr DWORD kMillisecondsPerMinute = 60000;

CKELPackageManager g_PackageManager;

// Full path of the host executable, or empty when it cannot be had.
WString HostExecutablePath() {
  std::vector<char16_t> buffer(kMaxPath, 0);
  const DWORD length = Sys().GetModuleFileName(buffer.data(), static_cast<DWORD>(buffer.size()));
  if (length == 0) return {};
  buffer.back() = 0;
  return WString(buffer.data());
}

// The data file path: the data folder with the file name appended.
WString DataFilePath() {
  WString folder;
  CKELPackageManager::CreateAppNameListFolder(folder);
  return FormatWide(u"%s\\%s", {folder, kAppNameListFileName});
}

// "<value of the variable>\Microsoft\Windows\Start Menu\Programs", or false
// when the variable cannot be read into its buffer.
bool StartMenuFolder(const char16_t* variable, WString& folder) {
  WString value;
  if (!Sys().GetEnvironmentVariable(variable, value) || value.size() + 1 > kMaxPath) return false;
  folder = FormatWide(u"%s\\%s", {value, kStartMenuProgramsFolder});
  return true;
}

}  // namespace

CKELPackageManager& ThePackageManager() { return g_PackageManager; }

HRESULT CKELPackageManager::CreateAppNameListFolder(WString& path) {
  constexpr char16_t kName[] = u"CKELPackageManager::CreateAppNameListFolder";
  WriteDebugLog("%S IN\r\n", kName);
  WString localAppData;
  if (!Sys().GetEnvironmentVariable(kLocalAppDataVariable, localAppData) || localAppData.size() + 1 > kMaxPath) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return E_FAIL;
  }
  if (!localAppData.empty() && localAppData.back() == u'\\') localAppData.pop_back();

  WString host = HostExecutablePath();
  if (host.empty()) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return E_FAIL;
  }
  // The suffix is "\<file name>" with the name cut at its first dot.
  const std::size_t lastSlash = host.rfind(u'\\');
  WString suffix = lastSlash == WString::npos ? host : host.substr(lastSlash);
  const std::size_t dot = suffix.find(u'.');
  if (dot != WString::npos) suffix.resize(dot);

  WString folder;
  if (!FormatWideInto(folder, kMaxPath, u"%s\\Osk\\Kelbrook%s", {localAppData, suffix})) {
    WriteDebugLog("%S data folder path longer than %d characters, skipped\r\n", kName,
                  static_cast<int>(kMaxPath - 1));
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return E_FAIL;
  }
  const int code = Sys().SHCreateDirectoryEx(folder.c_str());
  if (code != 0) WriteDebugLog("%S SHCreateDirectoryEx failed. ErrCode = (%d)\r\n", kName, code);
  WriteDebugLog("%S OUT(%s)\r\n", kName, folder);
  path = folder;
  return S_OK;
}

bool CKELPackageManager::GetPresetAppNameFullPath(WString& path) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetPresetAppNameFullPath";
  WString host = HostExecutablePath();
  if (host.empty()) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return false;
  }
  const std::size_t lastSlash = host.rfind(u'\\');
  if (lastSlash == WString::npos) {
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return false;
  }
  host.resize(lastSlash);
  WString preset;
  if (!FormatWideInto(preset, kMaxPath, u"%s\\%s", {host, kPresetAppNameListFileName})) {
    WriteDebugLog("%S preset file path longer than %d characters, skipped\r\n", kName,
                  static_cast<int>(kMaxPath - 1));
    WriteDebugLog("%S OUT(%d)\r\n", kName, 0);
    return false;
  }
  WriteDebugLog("%S OUT(%s)\r\n", kName, preset);
  path = preset;
  return true;
}

HRESULT CKELPackageManager::Initialize() {
  constexpr char16_t kName[] = u"CKELPackageManager::Initialize";
  WriteDebugLog("%S IN\r\n", kName);
  if (m_hExitEvent.load() != nullptr && m_hRefreshThread.load() != nullptr) return S_FALSE;

  const WString dataFile = DataFilePath();
  WString listFile = dataFile;
  if (Sys().GetFileAttributes(dataFile.c_str()) == platform::INVALID_FILE_ATTRIBUTES) {
    if (!GetPresetAppNameFullPath(listFile)) {
      WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_FAIL);
      return E_FAIL;
    }
  }
  // A second start after a stop begins from the file again rather than
  // doubling what the first one held.
  m_AppNameList.Reset();
  const HRESULT loaded = m_AppNameList.Load(listFile.c_str());
  if (Failed(loaded)) WriteDebugLog("m_AppNameList.Load() failed. ErrCode = 0x%08X \r\n", loaded);

  // An event left by an earlier half-finished start is closed, not leaked.
  if (Handle stale = m_hExitEvent.exchange(nullptr)) Sys().CloseHandle(stale);
  const WString eventName = FormatWide(u"%s%d", {kExitEventNamePrefix, Sys().GetCurrentProcessId()});
  Handle event = Sys().CreateEvent(true, false, eventName.c_str());
  m_hExitEvent.store(event);
  HRESULT result = S_OK;
  if (event == nullptr) {
    WriteDebugLog("CreateEventW() failed. ErrCode = %d \r\n", Sys().GetLastError());
    result = E_FAIL;
  } else {
    Handle thread = Sys().CreateThread(&CKELPackageManager::RefreshThread, this);
    m_hRefreshThread.store(thread);
    if (thread == nullptr) {
      WriteDebugLog("CreateThread() failed. ErrCode = %d \r\n", Sys().GetLastError());
      result = E_FAIL;
    }
  }
  WriteDebugLog("%S OUT(0x%08X)\r\n", kName, result);
  return result;
}

DWORD CKELPackageManager::RefreshThread(void* parameter) {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshThread";
  WriteDebugLog("%S IN\r\n", kName);
  auto* manager = static_cast<CKELPackageManager*>(parameter);
  if (manager == nullptr) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_POINTER);
    return static_cast<DWORD>(E_POINTER);
  }
  auto& sys = Sys();
  const WString dataFile = DataFilePath();
  WString allUsersFolder, userFolder;
  if (!StartMenuFolder(kAllUsersProfileVariable, allUsersFolder)) return static_cast<DWORD>(E_FAIL);
  if (!StartMenuFolder(kAppDataVariable, userFolder)) return static_cast<DWORD>(E_FAIL);
  // Minutes to milliseconds in unsigned 32-bit arithmetic: large values wrap.
  const DWORD interval = CKELReg::GetRefreshInterval() * kMillisecondsPerMinute;
  Handle exitEvent = manager->m_hExitEvent.load();

  if (sys.WaitForSingleObject(exitEvent, kFirstWaitMilliseconds) == platform::WAIT_OBJECT_0) {
    return static_cast<DWORD>(S_OK);
  }
  for (;;) {
    WriteDebugLog("%S Refresh app name list!\r\n", kName);
    manager->m_AppNameList.RefreshInstalledFlags();
    const HRESULT metro = manager->RefreshMetroApps();
    if (Failed(metro)) WriteDebugLog("%S RefreshMetroApps() failed. ErrCode = 0x%08X \r\n", kName, metro);
    if (sys.WaitForSingleObject(exitEvent, 0) == platform::WAIT_TIMEOUT) {
      const HRESULT hr = manager->RefreshDesktopApps(allUsersFolder.c_str());
      if (Failed(hr)) {
        WriteDebugLog("%S pKelPackageManager->RefreshDesktopApps(%s) failed. ErrCode = 0x%08X \r\n", kName,
                      allUsersFolder, hr);
      }
    }
    if (sys.WaitForSingleObject(exitEvent, 0) == platform::WAIT_TIMEOUT) {
      const HRESULT hr = manager->RefreshDesktopApps(userFolder.c_str());
      if (Failed(hr)) {
        WriteDebugLog("%S pKelPackageManager->RefreshDesktopApps(%s) failed. ErrCode = 0x%08X \r\n", kName,
                      userFolder, hr);
      }
    }
    if (sys.WaitForSingleObject(exitEvent, 0) == platform::WAIT_TIMEOUT) {
      const HRESULT hr = manager->m_AppNameList.Save(dataFile.c_str());
      if (Failed(hr)) WriteDebugLog("%S pKelPackageManager->m_AppNameList.Save() failed. ErrCode = 0x%08X \r\n", kName, hr);
    }
    if (sys.WaitForSingleObject(exitEvent, interval) != platform::WAIT_TIMEOUT) break;
  }
  sys.ResetEvent(exitEvent);
  WriteDebugLog("%S OUT\r\n", kName);
  return static_cast<DWORD>(S_OK);
}

void CKELPackageManager::Finalize() {
  constexpr char16_t kName[] = u"CKELPackageManager::Finalize";
  WriteDebugLog("%S IN\r\n", kName);
  auto& sys = Sys();
  if (Handle event = m_hExitEvent.load()) {
    sys.SetEvent(event);
    if (Handle thread = m_hRefreshThread.exchange(nullptr)) {
      sys.WaitForSingleObject(thread, kFinalizeWaitMilliseconds);
      sys.CloseHandle(thread);
    }
    m_hExitEvent.store(nullptr);
    sys.CloseHandle(event);
  }
  WriteDebugLog("%S OUT\r\n", kName);
}

}  // namespace kel
