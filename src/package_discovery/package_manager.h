// CKELPackageManager: the one library-wide object that owns the app
// catalogue, keeps it current from a background thread, and carries the
// per-call package operations behind the exports.
#pragma once

#include <atomic>

#include "catalogue/app_name_list.h"
#include "platform/com_ptr.h"
#include "platform/platform.h"

namespace kel {

class CKELPackageManager {
 public:
  CKELPackageManager() = default;
  CKELPackageManager(const CKELPackageManager&) = delete;
  CKELPackageManager& operator=(const CKELPackageManager&) = delete;
  virtual ~CKELPackageManager() = default;

  // Lifecycle, driven by KelInitialize and KelFinalize.
  HRESULT Initialize();
  void Finalize();
  static DWORD RefreshThread(void* manager);

  // The data folder: LOCALAPPDATA\Osk\Kelbrook\<host file name up to its
  // first dot>, created with its parents.
  static HRESULT CreateAppNameListFolder(WString& path);
  // PresetAppNameList.xml beside the host executable.
  static bool GetPresetAppNameFullPath(WString& path);

  // Store packages of the current user.
  static HRESULT GetCurrentUserSid(char16_t** sid);
  static platform::ComPtr<platform::DeploymentPackageManager> GetPackageManager(BOOL* needRoUninitialize);
  HRESULT RefreshMetroApps();
  static platform::ComPtr<platform::Package> FindPackageByName(const char16_t* packageFamilyName);

  // Start menu shortcuts.
  HRESULT RefreshDesktopApps(const char16_t* folder);
  void AddLinkFileToList(const char16_t* folder, const char16_t* pattern);

  // Per-call operations behind the exports.
  HRESULT LaunchStore(const char16_t* packageFamilyName);
  HRESULT LaunchStoreApp(const char16_t* appUserModelId);
  HRESULT LaunchStoreApp(const char16_t* appUserModelId, const char16_t* arguments);
  HRESULT IsInstalled(const char16_t* packageFamilyName, BOOL* pIsInstalled);
  HRESULT GetAppDisplayNameByPFN(const char16_t* packageFamilyName, char16_t** ppDisplayName);
  HRESULT GetExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList, BOOL* pFound);

  CKELAppNameList m_AppNameList;
  std::atomic<Handle> m_hExitEvent{nullptr};
  std::atomic<Handle> m_hRefreshThread{nullptr};
};

// The library-wide instance, constructed at load and destroyed at unload.
CKELPackageManager& ThePackageManager();

}  // namespace kel
