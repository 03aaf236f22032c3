// The Store packages installed for the current user, found through the
// deployment service under the string form of the user's SID.
#include <utility>
#include <vector>

#include "frame/log.h"
#include "frame/trace_exit.h"
#include "package_discovery/package_manager.h"
#include "platform/apartment.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"

namespace kel {
namespace {

// A package manager together with the runtime initialisation that
// GetPackageManager handed out beside it. Members end in reverse order: the
// manager is released before the runtime is left.
struct ManagerInRuntime {
  platform::ScopedRuntimeApartment runtime;
  platform::ComPtr<platform::DeploymentPackageManager> manager;
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
    (void)sys.LookupAccountName(nullptr, userName, nullptr, &sidSize, nullptr, &domainSize);
    platform::UniqueLocal sidBuffer(sys.LocalAlloc(platform::LPTR, sidSize));
    if (sidBuffer) {
      // The domain buffer is as large as the first call asked for.
      std::vector<char16_t> domain(std::max<DWORD>(domainSize, 1), 0);
      if (sys.LookupAccountName(nullptr, userName, sidBuffer.get(), &sidSize, domain.data(), &domainSize)) {
        char16_t* text = nullptr;
        // A conversion that reports success without a string has not converted.
        const BOOL converted = sys.ConvertSidToStringSid(sidBuffer.get(), &text) && text != nullptr;
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

platform::ComPtr<platform::DeploymentPackageManager> CKELPackageManager::GetPackageManager(BOOL* needRoUninitialize) {
  constexpr char16_t kName[] = u"CKELPackageManager::GetPackageManager";
  WriteDebugLog("%S IN\r\n", kName);
  if (needRoUninitialize == nullptr) {
    WriteExitLine(kName, E_POINTER);
    return nullptr;
  }
  auto& sys = Sys();
  platform::ScopedRuntimeApartment runtime(platform::RO_INIT_SINGLETHREADED);
  if (!runtime) {
    WriteExitLine(kName, runtime.Result());
    return nullptr;
  }
  *needRoUninitialize = runtime.Owned() ? 1 : 0;
  platform::ComPtr<platform::DeploymentPackageManager> manager;
  const HRESULT hr = platform::RequireObject(sys.ActivatePackageManager(manager.put()), manager);
  if (Failed(hr)) {
    // Callers that get no manager never uninitialise the runtime: that
    // imbalance is long-standing behaviour and is kept.
    runtime.Dismiss();
    WriteDebugLog("%S %S\r\n", kName, sys.DescribeError(hr));
    return nullptr;
  }
  // The caller leaves the runtime once it has released the manager, told by
  // the flag.
  static_cast<void>(runtime.Detach());
  WriteExitLine(kName, S_OK);
  return manager;
}

HRESULT CKELPackageManager::RefreshMetroApps() {
  constexpr char16_t kName[] = u"CKELPackageManager::RefreshMetroApps";
  WriteDebugLog("%S IN\r\n", kName);
  auto& sys = Sys();
  char16_t* rawSid = nullptr;
  const HRESULT sidResult = GetCurrentUserSid(&rawSid);
  KEL_RETURN_IF_FAILED_TRACED(kName, sidResult);
  platform::UniqueLocal sid(rawSid);
  BOOL needRoUninitialize = 0;
  platform::ComPtr<platform::DeploymentPackageManager> created = GetPackageManager(&needRoUninitialize);
  if (!created) {
    sid.reset();
    WriteDebugLog("%S OUT(GetPackageManager Failed.)\r\n", kName);
    return E_FAIL;  // the runtime is left initialised on this path
  }
  ManagerInRuntime held{platform::ScopedRuntimeApartment::Adopt(needRoUninitialize != 0), std::move(created)};

  HRESULT result = sidResult;
  {
    platform::ComPtr<platform::PackageCollection> packages;
    platform::ComPtr<platform::PackageIterator> iterator;
    HRESULT hr = platform::RequireObject(held.manager->FindPackagesByUserSecurityId(rawSid, packages.put()), packages);
    if (Succeeded(hr)) hr = platform::RequireObject(packages->First(iterator.put()), iterator);
    BOOL hasCurrent = 0;
    if (Succeeded(hr)) hr = iterator->GetHasCurrent(&hasCurrent);
    while (Succeeded(hr) && hasCurrent) {
      // A stop request ends the walk after the package in hand.
      if (PollExitEvent() == platform::WAIT_OBJECT_0) break;
      platform::ComPtr<platform::Package> package;
      hr = platform::RequireObject(iterator->GetCurrent(package.put()), package);
      if (Failed(hr)) break;
      result = m_AppNameList.AddMetroPackage(package.get());
      hr = iterator->MoveNext(&hasCurrent);
    }
    if (Failed(hr)) {
      result = E_FAIL;
      WriteDebugLog("%S OUT(%S)\r\n", kName, sys.DescribeError(hr));
    }
  }
  held.manager.reset();
  sid.reset();
  held.runtime.Leave();
  return TraceExit(kName, result);
}

platform::ComPtr<platform::Package> CKELPackageManager::FindPackageByName(const char16_t* packageFamilyName) {
  constexpr char16_t kName[] = u"CKELPackageManager::FindPackageByName";
  WriteDebugLog("%S(%S) IN\r\n", kName, packageFamilyName);
  if (const HRESULT refused = CheckStringArgument(packageFamilyName); refused != S_OK) {
    WriteExitLine(kName, refused);
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
  platform::ComPtr<platform::DeploymentPackageManager> created = GetPackageManager(&needRoUninitialize);
  if (!created) {
    sid.reset();
    WriteDebugLog("%S OUT(GetPackageManager failed.)\r\n", kName);
    return nullptr;  // the runtime is left initialised on this path
  }
  ManagerInRuntime held{platform::ScopedRuntimeApartment::Adopt(needRoUninitialize != 0), std::move(created)};

  platform::ComPtr<platform::Package> found;
  {
    platform::ComPtr<platform::PackageCollection> packages;
    platform::ComPtr<platform::PackageIterator> iterator;
    HRESULT hr = platform::RequireObject(
        held.manager->FindPackagesByUserSecurityIdPackageFamilyName(rawSid, packageFamilyName, packages.put()),
        packages);
    if (Succeeded(hr)) hr = platform::RequireObject(packages->First(iterator.put()), iterator);
    BOOL hasCurrent = 0;
    if (Succeeded(hr)) hr = iterator->GetHasCurrent(&hasCurrent);
    if (Succeeded(hr) && hasCurrent) hr = platform::RequireObject(iterator->GetCurrent(found.put()), found);
    if (Failed(hr)) {
      found.reset();
      WriteDebugLog("%S OUT(%S)\r\n", kName, sys.DescribeError(hr));
    }
  }
  held.manager.reset();
  sid.reset();
  held.runtime.Leave();
  WriteExitLine(kName, sidResult);
  return found;
}

}  // namespace kel
