// The per-call package operations behind the exports: the Store page, app
// activation, installed checks, display names and the exclusion list.
#include "frame/constants.h"
#include "frame/format.h"
#include "frame/lifecycle.h"
#include "frame/log.h"
#include "frame/reg.h"
#include "frame/trace_exit.h"
#include "manifest/manifest_reader.h"
#include "package_discovery/package_manager.h"
#include "platform/com_ptr.h"

namespace kel {

HRESULT CKELPackageManager::LaunchStore(const char16_t* packageFamilyName) {
  constexpr char16_t kName[] = u"CKELPackageManager::LaunchStore";
  WriteDebugLog("%S(%S) IN\r\n", kName, packageFamilyName);
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(packageFamilyName));
  const WString address = FormatWide(u"%s%s", {kStorePageAddressPrefix, packageFamilyName});
  const std::intptr_t code =
      Sys().ShellExecute(nullptr, kOpenVerb, address.c_str(), nullptr, nullptr, platform::SW_SHOW);
  WriteDebugLog("%S OUT\r\n", kName);
  return static_cast<std::int32_t>(code) <= 32 ? E_FAIL : S_OK;
}

HRESULT CKELPackageManager::LaunchStoreApp(const char16_t* appUserModelId) {
  constexpr char16_t kName[] = u"CKELPackageManager::LaunchStoreApp";
  auto& sys = Sys();
  platform::ComPtr<platform::ApplicationActivationManager> manager;
  HRESULT hr = sys.CreateApplicationActivationManager(platform::CLSCTX_LOCAL_SERVER, manager.put());
  // A creation that succeeds without an object starts nothing and answers
  // with its own code.
  if (Failed(hr) || !manager) {
    WriteDebugLog("%S OUT(CoCreateInstance hr = %d)\r\n", kName, hr);
    return hr;
  }
  // The started app may take the foreground from the caller.
  hr = sys.CoAllowSetForegroundWindow(manager.get());
  if (Failed(hr)) {
    WriteDebugLog("%S OUT(CoAllowSetForegroundWindow hr = %d)\r\n", kName, hr);
    return hr;
  }
  DWORD processId = 0;
  hr = manager->ActivateApplication(appUserModelId, nullptr, platform::AO_NONE, &processId);
  WriteDebugLog("%S OUT(ActivateApplication hr = %d)\r\n", kName, hr);
  return hr;
}

HRESULT CKELPackageManager::LaunchStoreApp(const char16_t* appUserModelId, const char16_t* arguments) {
  constexpr char16_t kName[] = u"CKELPackageManager::LaunchStoreApp";
  RereadLogSwitch();
  WriteDebugLog("%S(%S) IN\r\n", kName, appUserModelId);
  auto& sys = Sys();
  platform::ComPtr<platform::ApplicationActivationManager> manager;
  HRESULT hr = sys.CreateApplicationActivationManager(platform::CLSCTX_INPROC_SERVER, manager.put());
  if (Failed(hr) || !manager) {
    WriteDebugLog("%S OUT(CoCreateInstance hr = (0x%08X), getLastError = %d)\r\n", kName, hr, sys.GetLastError());
    return hr;
  }
  DWORD processId = 0;
  hr = manager->ActivateApplication(appUserModelId, arguments, platform::AO_NONE, &processId);
  WriteDebugLog("%S OUT(ActivateApplication hr = (0x%08X). getLastError=%d)\r\n", kName, hr, sys.GetLastError());
  return hr;
}

HRESULT CKELPackageManager::IsInstalled(const char16_t* packageFamilyName, BOOL* pIsInstalled) {
  constexpr char16_t kName[] = u"CKELPackageManager::IsInstalled";
  WriteDebugLog("%S(%S) IN\r\n", kName, packageFamilyName);
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(packageFamilyName, pIsInstalled));
  // The package's reference is given back at once.
  *pIsInstalled = FindPackageByName(packageFamilyName) ? 1 : 0;
  WriteDebugLog("%S OUT(*pIsInstalled = %d)\r\n", kName, *pIsInstalled);
  return S_OK;
}

HRESULT CKELPackageManager::GetAppDisplayNameByPFN(const char16_t* packageFamilyName, char16_t** ppDisplayName) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetAppDisplayNameByPFN";
  WriteDebugLog("%S(%S, 0x%08X) IN\r\n", kName, packageFamilyName,
                static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ppDisplayName)));
  KEL_RETURN_IF_FAILED_TRACED(kName, CheckStringArgument(packageFamilyName, ppDisplayName));
  HRESULT result = E_KEL_PACKAGE_NOT_FOUND;
  const platform::ComPtr<platform::Package> found = FindPackageByName(packageFamilyName);
  if (found) {
    try {
      result = CKELManifestReader::GetAppDisplayName(found.get(), ppDisplayName);
    } catch (const platform::PlatformError& error) {
      WriteDebugLog("%S OUT(%S)\r\n", kName, error.message);
      result = E_FAIL;
    }
  }
  WriteDebugLog("%S OUT(0x%08X) DisplayName = %s\r\n", kName, result, static_cast<const char16_t*>(*ppDisplayName));
  return result;
}

HRESULT CKELPackageManager::GetExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                                  BOOL* pFound) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetExcludeAppNameList";
  KEL_RETURN_IF_FAILED_TRACED(kName, EnterExclusionWalk(kName, searchWord, excludeList, pFound));
  return TraceExit(kName, m_AppNameList.GetExcludeAppNameList(searchWord, excludeList, pFound));
}

}  // namespace kel
