// The Store packages installed for the current user, found through the
// deployment service under the string form of the user's SID.
#include <optional>
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

// A query of the current user's packages: the runtime initialisation that
// GetPackageManager handed out beside the manager, the user's SID, and the
// manager.
struct UserPackageQuery {
  platform::ScopedRuntimeApartment runtime;
  platform::UniqueLocal sid;
  platform::ComPtr<platform::DeploymentPackageManager> manager;

  // Lets go of all three, the manager first and the runtime last, before
  // the caller's exit line.
  void End() {
    manager.reset();
    sid.reset();
    runtime.Leave();
  }
};

// Takes over `sid` and gets a manager for a query under it. Without a
// manager there is no query: the SID is freed at once, and the runtime is
// left initialised (callers that get no manager never uninitialise it).
std::optional<UserPackageQuery> OpenQuery(char16_t* sid) {
  platform::UniqueLocal ownedSid(sid);
  BOOL needRoUninitialize = 0;
  platform::ComPtr<platform::DeploymentPackageManager> manager =
      CKELPackageManager::GetPackageManager(&needRoUninitialize);
  if (!manager) return std::nullopt;
  return UserPackageQuery{platform::ScopedRuntimeApartment::Adopt(needRoUninitialize != 0), std::move(ownedSid),
                          std::move(manager)};
}

// A walk over the packages a query found: the collection and its iterator,
// released in reverse order.
struct PackageWalk {
  platform::ComPtr<platform::PackageCollection> packages;
  platform::ComPtr<platform::PackageIterator> iterator;
  BOOL hasCurrent = 0;

  // Goes to the first package; `found` is the answer of the query that
  // filled `packages`.
  [[nodiscard]] HRESULT Start(HRESULT found) {
    HRESULT hr = platform::RequireObject(found, packages);
    if (Succeeded(hr)) hr = platform::RequireObject(packages->First(iterator.put()), iterator);
    if (Succeeded(hr)) hr = iterator->GetHasCurrent(&hasCurrent);
    return hr;
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
  std::optional<UserPackageQuery> query = OpenQuery(rawSid);
  if (!query) {
    WriteDebugLog("%S OUT(GetPackageManager Failed.)\r\n", kName);
    return E_FAIL;  // the runtime is left initialised on this path
  }

  HRESULT result = sidResult;
  {
    PackageWalk walk;
    HRESULT hr = walk.Start(query->manager->FindPackagesByUserSecurityId(rawSid, walk.packages.put()));
    while (Succeeded(hr) && walk.hasCurrent) {
      // A stop request ends the walk after the package in hand.
      if (PollExitEvent() == platform::WAIT_OBJECT_0) break;
      platform::ComPtr<platform::Package> package;
      hr = platform::RequireObject(walk.iterator->GetCurrent(package.put()), package);
      if (Failed(hr)) break;
      result = m_AppNameList.AddMetroPackage(package.get());
      hr = walk.iterator->MoveNext(&walk.hasCurrent);
    }
    if (Failed(hr)) {
      result = E_FAIL;
      WriteDebugLog("%S OUT(%S)\r\n", kName, sys.DescribeError(hr));
    }
  }
  query->End();
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
  std::optional<UserPackageQuery> query = OpenQuery(rawSid);
  if (!query) {
    WriteDebugLog("%S OUT(GetPackageManager failed.)\r\n", kName);
    return nullptr;  // the runtime is left initialised on this path
  }

  platform::ComPtr<platform::Package> found;
  {
    PackageWalk walk;
    HRESULT hr = walk.Start(
        query->manager->FindPackagesByUserSecurityIdPackageFamilyName(rawSid, packageFamilyName, walk.packages.put()));
    if (Succeeded(hr) && walk.hasCurrent) hr = platform::RequireObject(walk.iterator->GetCurrent(found.put()), found);
    if (Failed(hr)) {
      found.reset();
      WriteDebugLog("%S OUT(%S)\r\n", kName, sys.DescribeError(hr));
    }
  }
  query->End();
  WriteExitLine(kName, sidResult);
  return found;
}

}  // namespace kel
