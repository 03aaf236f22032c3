// CKELPackageManager: the one library-wide object that owns the app
// catalogue, keeps it current from a background thread, and carries the
// per-call package operations behind the exports.
#pragma once

#include <atomic>
#include <memory>

#include "catalogue/app_name_list.h"
#include "frame/non_copyable.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"
#include "platform/platform.h"

namespace kel {

// One start of the refresh thread: the exit event it answers to, and whether
// the stop that ended the start gave up waiting for it. The manager and the
// thread share it, so the event stays open for as long as either still needs
// it, and a thread that outlives its stop never waits on a closed handle.
struct RefreshRun {
  explicit RefreshRun(platform::UniqueHandle event) : exitEvent(std::move(event)) {}
  platform::UniqueHandle exitEvent;
  std::atomic<bool> abandoned{false};
};

class CKELPackageManager : NonCopyable {
 public:
  CKELPackageManager() = default;
  // Destroys the catalogue and nothing else: a thread still running and its
  // handles are left as they are (stopping them is Finalize's work).
  virtual ~CKELPackageManager();

  // Lifecycle, driven by KelInitialize and KelFinalize.
  [[nodiscard]] HRESULT Initialize();
  void Finalize();
  // The thread's entry point. Its parameter is the start block Initialize
  // hands it; nothing escapes it, whatever fails inside.
  static DWORD RefreshThread(void* start) noexcept;

  // The data folder: LOCALAPPDATA\Osk\Kelbrook\<host file name up to its
  // first dot>, created with its parents.
  [[nodiscard]] static HRESULT CreateAppNameListFolder(WString& path);
  // PresetAppNameList.xml beside the host executable.
  static bool GetPresetAppNameFullPath(WString& path);

  // Store packages of the current user.
  [[nodiscard]] static HRESULT GetCurrentUserSid(char16_t** sid);
  static platform::ComPtr<platform::DeploymentPackageManager> GetPackageManager(BOOL* needRoUninitialize);
  [[nodiscard]] HRESULT RefreshMetroApps();
  static platform::ComPtr<platform::Package> FindPackageByName(const char16_t* packageFamilyName);

  // Start menu shortcuts.
  [[nodiscard]] HRESULT RefreshDesktopApps(const char16_t* folder);
  void AddLinkFileToList(const char16_t* folder, const char16_t* pattern);

  // Per-call operations behind the exports.
  [[nodiscard]] HRESULT LaunchStore(const char16_t* packageFamilyName);
  [[nodiscard]] HRESULT LaunchStoreApp(const char16_t* appUserModelId);
  [[nodiscard]] HRESULT LaunchStoreApp(const char16_t* appUserModelId, const char16_t* arguments);
  [[nodiscard]] HRESULT IsInstalled(const char16_t* packageFamilyName, BOOL* pIsInstalled);
  [[nodiscard]] HRESULT GetAppDisplayNameByPFN(const char16_t* packageFamilyName, char16_t** ppDisplayName);
  [[nodiscard]] HRESULT GetExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                              BOOL* pFound);

  // A stop check between the steps of a refresh pass: WAIT_OBJECT_0 once the
  // calling thread's start was given up on (without asking the platform),
  // else the answer of a zero wait on the exit event the thread answers to.
  [[nodiscard]] DWORD PollExitEvent() const;

  CKELAppNameList m_AppNameList;
  // The current start's exit event (owned by m_Run) and thread handle.
  std::atomic<Handle> m_hExitEvent{nullptr};
  std::atomic<Handle> m_hRefreshThread{nullptr};

 private:
  DWORD RunRefreshThread(RefreshRun& run);
  void RunRefreshPass(const WString& allUsersFolder, const WString& userFolder, const WString& dataFile);

  // Only Initialize and Finalize touch these; the host serialises the two.
  std::shared_ptr<RefreshRun> m_Run;
  platform::UniqueHandle m_RefreshThreadHandle;
  // The start before the current one, while a thread given up on holds it.
  std::weak_ptr<RefreshRun> m_LastRun;
};

// The library-wide instance, constructed at load and destroyed at unload.
CKELPackageManager& ThePackageManager();

}  // namespace kel
