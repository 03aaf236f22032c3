// The Store packages installed for the current user, found through the
// deployment service under the string form of the user's SID.
#include <vector>

#include "frame/log.h"
#include "package_discovery/package_manager.h"
#include "platform/handles.h"

namespace kel {
namespace {

// Releases a seam object (Release()) when it goes out of scope.
template <typename Object>
struct Released {
  Object* object = nullptr;
  ~Released() {
    if (object != nullptr) object->Release();
  }
};

}  // namespace

HRESULT CKELPackageManager::GetCurrentUserSid(char16_t** sid) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetCurrentUserSid";
  WriteDebugLog("%S IN\r\n", kName);
  if (sid == nullptr) return TraceExit(kName, E_POINTER);
  auto& sys = Sys();
  char16_t userName[kMaxPath];
  userName[0] = 0;
  DWORD userNameSize = static_cast<DWORD>(kMaxPath);
  if (sys.GetUserName(userName, &userNameSize)) {
    DWORD sidSize = 0;
    DWORD domainSize = 0;
    // Asks for the sizes: failing is what this call is expected to do.
    sys.LookupAccountName(nullptr, userName, nullptr, &sidSize, nullptr, &domainSize);
    platform::UniqueLocal sidBuffer(sys.LocalAlloc(platform::LPTR, sidSize));
    if (sidBuffer) {
      // The domain buffer is as large as the first call asked for.
      std::vector<char16_t> domain(std::max<DWORD>(domainSize, 1), 0);
      if (sys.LookupAccountName(nullptr, userName, sidBuffer.get(), &sidSize, domain.data(), &domainSize)) {
        char16_t* text = nullptr;
        const BOOL converted = sys.ConvertSidToStringSid(sidBuffer.get(), &text);
        *sid = converted ? text : nullptr;
        sidBuffer.reset();
        const HRESULT result = converted ? S_OK : E_FAIL;
        WriteDebugLog("%S OUT(0x%08X pszSid = %S)\r\n", kName, result, static_cast<const char16_t*>(*sid));
        return result;
      }
    }
  }
  return TraceExit(kName, E_FAIL);
}

platform::DeploymentPackageManager* CKELPackageManager::GetPackageManager(BOOL* needRoUninitialize) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetPackageManager";
  WriteDebugLog("%S IN\r\n", kName);
  if (needRoUninitialize == nullptr) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_POINTER);
    return nullptr;
  }
  auto& sys = Sys();
  const HRESULT init = sys.RoInitialize(platform::RO_INIT_SINGLETHREADED);
  if (Failed(init) && init != RPC_E_CHANGED_MODE) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, init);
    return nullptr;
  }
  *needRoUninitialize = init != RPC_E_CHANGED_MODE ? 1 : 0;
  platform::DeploymentPackageManager* manager = nullptr;
  const HRESULT hr = sys.ActivatePackageManager(&manager);
  if (Failed(hr) || manager == nullptr) {
    WriteDebugLog("%S %S\r\n", kName, sys.DescribeError(Failed(hr) ? hr : E_POINTER));
    return nullptr;
  }
  WriteDebugLog("%S OUT(0x%08X)\r\n", kName, S_OK);
  return manager;
}

HRESULT CKELPackageManager::RefreshMetroApps() {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshMetroApps";
  WriteDebugLog("%S IN\r\n", kName);
  auto& sys = Sys();
  char16_t* rawSid = nullptr;
  const HRESULT sidResult = GetCurrentUserSid(&rawSid);
  if (Failed(sidResult)) return TraceExit(kName, sidResult);
  platform::UniqueLocal sid(rawSid);
  BOOL needRoUninitialize = 0;
  Released<platform::DeploymentPackageManager> manager{GetPackageManager(&needRoUninitialize)};
  if (manager.object == nullptr) {
    sid.reset();
    WriteDebugLog("%S OUT(GetPackageManager Failed.)\r\n", kName);
    return E_FAIL;  // the runtime is left initialised on this path
  }

  HRESULT result = sidResult;
  {
    Released<platform::PackageCollection> packages;
    Released<platform::PackageIterator> iterator;
    HRESULT hr = manager.object->FindPackagesByUserSecurityId(rawSid, &packages.object);
    if (Succeeded(hr)) hr = packages.object->First(&iterator.object);
    BOOL hasCurrent = 0;
    if (Succeeded(hr)) hr = iterator.object->GetHasCurrent(&hasCurrent);
    while (Succeeded(hr) && hasCurrent) {
      // A stop request ends the walk after the package in hand.
      if (PollExitEvent() == platform::WAIT_OBJECT_0) break;
      Released<platform::Package> package;
      hr = iterator.object->GetCurrent(&package.object);
      if (Failed(hr)) break;
      result = m_AppNameList.AddMetroPackage(package.object);
      hr = iterator.object->MoveNext(&hasCurrent);
    }
    if (Failed(hr)) {
      result = E_FAIL;
      WriteDebugLog("%S OUT(%S)\r\n", kName, sys.DescribeError(hr));
    }
  }
  manager.object->Release();
  manager.object = nullptr;
  sid.reset();
  if (needRoUninitialize) sys.RoUninitialize();
  return TraceExit(kName, result);
}

platform::Package* CKELPackageManager::FindPackageByName(const char16_t* packageFamilyName) {
  constexpr char16_t kName[] = u"CKELPackageManager::FindPackageByName";
  WriteDebugLog("%S(%S) IN\r\n", kName, packageFamilyName);
  if (packageFamilyName == nullptr) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_POINTER);
    return nullptr;
  }
  if (packageFamilyName[0] == 0) {
    WriteDebugLog("%S OUT(0x%08X)\r\n", kName, E_INVALIDARG);
    return nullptr;
  }
  auto& sys = Sys();
  char16_t* rawSid = nullptr;
  const HRESULT sidResult = GetCurrentUserSid(&rawSid);
  if (Failed(sidResult)) {
    WriteDebugLog("%S OUT(GetCurrentUserSid failed.)\r\n", kName);
    return nullptr;
  }
  platform::UniqueLocal sid(rawSid);
  BOOL needRoUninitialize = 0;
  platform::DeploymentPackageManager* manager = GetPackageManager(&needRoUninitialize);
  if (manager == nullptr) {
    sid.reset();
    WriteDebugLog("%S OUT(GetPackageManager failed.)\r\n", kName);
    return nullptr;
  }
  platform::Package* found = nullptr;
  {
    Released<platform::PackageCollection> packages;
    Released<platform::PackageIterator> iterator;
    HRESULT hr = manager->FindPackagesByUserSecurityIdPackageFamilyName(rawSid, packageFamilyName, &packages.object);
    if (Succeeded(hr)) hr = packages.object->First(&iterator.object);
    BOOL hasCurrent = 0;
    if (Succeeded(hr)) hr = iterator.object->GetHasCurrent(&hasCurrent);
    if (Succeeded(hr) && hasCurrent) hr = iterator.object->GetCurrent(&found);
    if (Failed(hr)) {
      if (found != nullptr) found->Release();
      found = nullptr;
      WriteDebugLog("%S OUT(%S)\r\n", kName, sys.DescribeError(hr));
    }
  }
  manager->Release();
  sid.reset();
  if (needRoUninitialize) sys.RoUninitialize();
  WriteDebugLog("%S OUT(0x%08X)\r\n", kName, sidResult);
  return found;
}

}  // namespace kel
