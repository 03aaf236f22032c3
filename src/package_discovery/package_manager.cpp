// The package manager's lifecycle: the data folder, the catalogue's first
// load, the exit event and the refresh thread.
#include "package_discovery/package_manager.h"

#include <memory>
#include <new>
#include <vector>

#include "frame/constants.h"
#include "frame/export_guard.h"
#include "frame/log.h"
#include "frame/non_copyable.h"
#include "frame/reg.h"
#include "platform/platform.h"

namespace kel {
namespace {

constexpr DWORD kFirstWaitMilliseconds = 1000;
constexpr DWORD kFinalizeWaitMilliseconds = 20000;
constexpr DWORD kMillisecondsPerMinute = 60000;

CKELPackageManager g_packageManager;

// What Initialize hands its thread: the manager and the start the thread
// serves. The thread owns it.
struct RefreshStart {
  CKELPackageManager* manager;
  std::shared_ptr<RefreshRun> run;
};

// The start the calling thread serves, on a refresh thread; null elsewhere.
thread_local const RefreshRun* t_CurrentRun = nullptr;

class ScopedCurrentRun : NonCopyable {
 public:
  explicit ScopedCurrentRun(const RefreshRun& run) : previous_(t_CurrentRun) { t_CurrentRun = &run; }
  ~ScopedCurrentRun() { t_CurrentRun = previous_; }

 private:
  const RefreshRun* previous_;
};

bool CurrentRunAbandoned() { return t_CurrentRun != nullptr && t_CurrentRun->abandoned.load(); }

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
  // A folder that could not be made still names the path; the file's own
  // open or write then fails and says so.
  (void)CKELPackageManager::CreateAppNameListFolder(folder);
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

CKELPackageManager& ThePackageManager() { return g_packageManager; }

CKELPackageManager::~CKELPackageManager() {
  // Kept open on purpose: closing them here, at unload, would pull the event
  // from under a thread that may still be running.
  static_cast<void>(m_RefreshThreadHandle.release());
  if (m_Run) static_cast<void>(new (std::nothrow) std::shared_ptr<RefreshRun>(std::move(m_Run)));
}

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
    WriteDebugLog("%S data folder path longer than %d characters, skipped\r\n", kName, static_cast<int>(kMaxPath - 1));
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
    WriteDebugLog("%S preset file path longer than %d characters, skipped\r\n", kName, static_cast<int>(kMaxPath - 1));
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
    if (!GetPresetAppNameFullPath(listFile)) return TraceExit(kName, E_FAIL);
  }
  // A second start after a stop begins from the file again rather than
  // doubling what the first one held. A thread given up on by that stop is
  // bound to the emptied records and leaves the new ones alone.
  m_AppNameList.Reset();
  const HRESULT loaded = m_AppNameList.Load(listFile.c_str());
  if (Failed(loaded)) WriteDebugLog("m_AppNameList.Load() failed. ErrCode = 0x%08X \r\n", loaded);

  // An event left by an earlier half-finished start is closed, not leaked.
  m_hExitEvent.store(nullptr);
  m_Run.reset();
  const WString eventName = FormatWide(u"%s%d", {kExitEventNamePrefix, Sys().GetCurrentProcessId()});
  platform::UniqueHandle event(Sys().CreateEvent(true, false, eventName.c_str()));
  if (!event) {
    WriteDebugLog("CreateEventW() failed. ErrCode = %d \r\n", Sys().GetLastError());
    return TraceExit(kName, E_FAIL);
  }
  // The event's name is the process's: while a thread given up on by an
  // earlier stop still holds that event, CreateEvent opens the same object,
  // still set by that stop. Clear it, or the new thread would stop at once;
  // the old thread stops on its start's abandoned mark instead.
  // A reset that failed leaves the new thread to stop at once, which its
  // trace shows; the start itself has succeeded.
  if (!m_LastRun.expired()) (void)Sys().ResetEvent(event.get());
  const Handle eventHandle = event.get();
  auto run = std::make_shared<RefreshRun>(std::move(event));
  auto start = std::make_unique<RefreshStart>(RefreshStart{this, run});
  m_Run = run;
  m_LastRun = run;
  m_hExitEvent.store(eventHandle);

  HRESULT result = S_OK;
  m_RefreshThreadHandle.reset(Sys().CreateThread(&CKELPackageManager::RefreshThread, start.get()));
  const Handle thread = m_RefreshThreadHandle.get();
  m_hRefreshThread.store(thread);
  if (thread == nullptr) {
    WriteDebugLog("CreateThread() failed. ErrCode = %d \r\n", Sys().GetLastError());
    result = E_FAIL;
  } else {
    static_cast<void>(start.release());  // the thread owns it now
  }
  return TraceExit(kName, result);
}

DWORD CKELPackageManager::RefreshThread(void* parameter) noexcept {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshThread";
  std::unique_ptr<RefreshStart> start(static_cast<RefreshStart*>(parameter));
  WriteDebugLog("%S IN\r\n", kName);
  if (start == nullptr || start->manager == nullptr || start->run == nullptr) {
    WriteExitLine(kName, E_POINTER);
    return static_cast<DWORD>(E_POINTER);
  }
  const HRESULT result =
      CaughtResult([&] { return static_cast<HRESULT>(start->manager->RunRefreshThread(*start->run)); });
  return static_cast<DWORD>(result);
}

DWORD CKELPackageManager::RunRefreshThread(RefreshRun& run) {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshThread";
  auto& sys = Sys();
  const ScopedCurrentRun current(run);
  // Every catalogue change this thread makes is dropped once a new start
  // has emptied the records it was started with.
  const CKELAppNameList::ThreadBinding binding = m_AppNameList.BindThisThread();

  WString dataFile, allUsersFolder, userFolder;
  const HRESULT paths = CaughtResult([&] {
    dataFile = DataFilePath();
    if (!StartMenuFolder(kAllUsersProfileVariable, allUsersFolder)) return E_FAIL;
    if (!StartMenuFolder(kAppDataVariable, userFolder)) return E_FAIL;
    return S_OK;
  });
  if (paths == E_OUTOFMEMORY) WriteExitLine(kName, paths);
  if (Failed(paths)) return static_cast<DWORD>(paths);
  // Minutes to milliseconds in unsigned 32-bit arithmetic: large values wrap.
  const DWORD interval = CKELReg::GetRefreshInterval() * kMillisecondsPerMinute;
  const Handle exitEvent = run.exitEvent.get();

  if (run.abandoned.load() || sys.WaitForSingleObject(exitEvent, kFirstWaitMilliseconds) == platform::WAIT_OBJECT_0) {
    return static_cast<DWORD>(S_OK);
  }
  for (;;) {
    RunRefreshPass(allUsersFolder, userFolder, dataFile);
    // A thread whose stop was given up on ends here without touching the
    // event, which may by now belong to a newer start.
    if (run.abandoned.load()) return static_cast<DWORD>(S_OK);
    if (sys.WaitForSingleObject(exitEvent, interval) != platform::WAIT_TIMEOUT) break;
  }
  (void)sys.ResetEvent(exitEvent);  // the thread ends either way
  WriteDebugLog("%S OUT\r\n", kName);
  return static_cast<DWORD>(S_OK);
}

// One pass. A step that fails, or throws, is logged and the pass goes on
// with the next one; the stop checks between the steps skip the rest.
void CKELPackageManager::RunRefreshPass(const WString& allUsersFolder, const WString& userFolder,
                                        const WString& dataFile) {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshThread";
  WriteDebugLog("%S Refresh app name list!\r\n", kName);
  const HRESULT flags = CaughtResult([&] {
    m_AppNameList.RefreshInstalledFlags();
    return S_OK;
  });
  if (Failed(flags)) WriteDebugLog("%S RefreshInstalledFlags() failed. ErrCode = 0x%08X \r\n", kName, flags);
  if (CurrentRunAbandoned()) return;

  const HRESULT metro = CaughtResult([&] { return RefreshMetroApps(); });
  if (Failed(metro)) WriteDebugLog("%S RefreshMetroApps() failed. ErrCode = 0x%08X \r\n", kName, metro);
  for (const WString* folder : {&allUsersFolder, &userFolder}) {
    if (PollExitEvent() != platform::WAIT_TIMEOUT) continue;
    const HRESULT hr = CaughtResult([&] { return RefreshDesktopApps(folder->c_str()); });
    if (Failed(hr)) {
      WriteDebugLog("%S pKelPackageManager->RefreshDesktopApps(%s) failed. ErrCode = 0x%08X \r\n", kName, *folder, hr);
    }
  }
  if (PollExitEvent() != platform::WAIT_TIMEOUT) return;
  const HRESULT saved = CaughtResult([&] { return m_AppNameList.Save(dataFile.c_str()); });
  if (Failed(saved)) {
    WriteDebugLog("%S pKelPackageManager->m_AppNameList.Save() failed. ErrCode = 0x%08X \r\n", kName, saved);
  }
}

DWORD CKELPackageManager::PollExitEvent() const {
  if (t_CurrentRun != nullptr) {
    if (t_CurrentRun->abandoned.load()) return platform::WAIT_OBJECT_0;
    return Sys().WaitForSingleObject(t_CurrentRun->exitEvent.get(), 0);
  }
  return Sys().WaitForSingleObject(m_hExitEvent.load(), 0);
}

void CKELPackageManager::Finalize() {
  constexpr char16_t kName[] = u"CKELPackageManager::Finalize";
  WriteDebugLog("%S IN\r\n", kName);
  auto& sys = Sys();
  if (std::shared_ptr<RefreshRun> run = std::move(m_Run)) {
    (void)sys.SetEvent(run->exitEvent.get());  // the wait that follows tells whether the thread ended
    if (Handle thread = m_hRefreshThread.exchange(nullptr)) {
      // A thread that does not end in time is given up on: it stops at its
      // next check, keeps the event open until then, and whatever it still
      // does to the catalogue is dropped once a new start empties it.
      if (sys.WaitForSingleObject(thread, kFinalizeWaitMilliseconds) != platform::WAIT_OBJECT_0) {
        run->abandoned.store(true);
      }
      m_RefreshThreadHandle.reset();
    }
    m_hExitEvent.store(nullptr);
    run.reset();  // closes the event unless a thread given up on still holds it
  }
  WriteDebugLog("%S OUT\r\n", kName);
}

}  // namespace kel
