// deployment_service.dll: a stand-in for the Windows deployment service, the
// runtime class "Windows.Management.Deployment.PackageManager", for the Wine
// tests. Registered under
// HKLM\Software\Microsoft\WindowsRuntime\ActivatableClassId\<class> with its
// DllPath (register_doubles.sh), it is what RoActivateInstance of that class
// gives in the prefix.
//
// It serves the [Package] sections of the fixture file (double_fixture.h) to
// the current user only: FindPackagesByUserSecurityId and
// FindPackagesByUserSecurityIdPackageFamilyName compare the SID they are
// given with the current user's; another user's SID (or a malformed one) gets
// an empty collection and a "SidMismatch" line in the journal. Every call is
// journalled. The objects handed out are the runtime's: IIterable<Package> and
// IIterator<Package> under their derived interface IDs, packages answering
// IPackage with an IPackageId of their own, and an installed location
// answering IStorageFolder and IStorageItem (with its Path). Everything the
// library does not use answers E_NOTIMPL. docs/wine-doubles.md has the
// details.
//
// The package objects and their collection are in
// deployment_service_packages.cpp.

#include "deployment_service.h"

#include <new>
#include <string>
#include <utility>

namespace deployment_service {

namespace {

// ---------------------------------------------------------------------------
// Windows.Management.Deployment.PackageManager

class PackageManager final : public RuntimeObject<IPackageManager, kIidPackageManager> {
 public:
  PackageManager() : RuntimeObject(kPackageManagerClass) {}

  HRESULT STDMETHODCALLTYPE AddPackageAsync(IInspectable*, IInspectable*, INT32, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UpdatePackageAsync(IInspectable*, IInspectable*, INT32, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE RemovePackageAsync(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE StagePackageAsync(IInspectable*, IInspectable*, IInspectable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE RegisterPackageAsync(IInspectable*, IInspectable*, INT32, IInspectable**) override {
    return E_NOTIMPL;
  }
  // All users' packages need administrator rights on Windows; refused here.
  HRESULT STDMETHODCALLTYPE FindPackages(IPackageIterable**) override {
    Journal(deployment_double::LoadFixture(), L"FindPackages\t" + deployment_double::Hex(E_ACCESSDENIED));
    return E_ACCESSDENIED;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityId(HSTRING userSecurityId, IPackageIterable** packages) override {
    return Find(L"FindPackagesByUserSecurityId", userSecurityId, nullptr, packages);
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByNamePublisher(HSTRING, HSTRING, IPackageIterable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdNamePublisher(HSTRING, HSTRING, HSTRING,
                                                                      IPackageIterable**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE FindUsers(HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetPackageState(HSTRING, INT32) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE FindPackageByPackageFullName(HSTRING, IPackage**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CleanupPackageForUserAsync(HSTRING, HSTRING, IInspectable**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE FindPackagesByPackageFamilyName(HSTRING, IPackageIterable**) override {
    Journal(deployment_double::LoadFixture(),
            L"FindPackagesByPackageFamilyName\t" + deployment_double::Hex(E_ACCESSDENIED));
    return E_ACCESSDENIED;
  }
  HRESULT STDMETHODCALLTYPE FindPackagesByUserSecurityIdPackageFamilyName(HSTRING userSecurityId,
                                                                          HSTRING packageFamilyName,
                                                                          IPackageIterable** packages) override {
    return Find(L"FindPackagesByUserSecurityIdPackageFamilyName", userSecurityId, &packageFamilyName, packages);
  }
  HRESULT STDMETHODCALLTYPE FindPackageByUserSecurityIdPackageFullName(HSTRING, HSTRING, IPackage**) override {
    return E_NOTIMPL;
  }

 private:
  ~PackageManager() override = default;

  // The packages of the fixture for the given user, all or those of one
  // family. Journal lines (tab-separated):
  //   <method> <sid> [<family>] <count>       what was answered
  //   <method> <sid> [<family>] <code>        a failure the fixture asked for
  //   SidMismatch <method> <sid> <current user's sid>
  HRESULT Find(const wchar_t* method, HSTRING userSecurityId, const HSTRING* familyName, IPackageIterable** packages) {
    const Fixture fixture = deployment_double::LoadFixture();
    const std::wstring sid = StringOf(userSecurityId);
    std::wstring call = std::wstring(method) + L"\t" + sid;
    const std::wstring family = familyName != nullptr ? StringOf(*familyName) : std::wstring();
    if (familyName != nullptr) call += L"\t" + family;
    if (packages == nullptr) return E_POINTER;
    *packages = nullptr;

    // A failure the fixture asks for, as the runtime would raise it.
    if (const FixtureSection* service = fixture.First(L"Service")) {
      const HRESULT failure = static_cast<HRESULT>(deployment_double::ParseNumber(service->Get(L"FindResult"), 0));
      if (FAILED(failure)) {
        Journal(fixture, call + L"\t" + deployment_double::Hex(failure));
        return failure;
      }
    }

    PackageList found;
    // An empty SID stands for the current user, as it does for the service.
    const std::wstring currentUser = deployment_double::CurrentUserSid();
    if (!sid.empty() && (currentUser.empty() || !deployment_double::SameSid(sid, currentUser))) {
      Journal(fixture, std::wstring(L"SidMismatch\t") + method + L"\t" + sid + L"\t" + currentUser);
    } else {
      for (const auto& record : PackagesOf(fixture)) {
        // Family names are compared as the service compares them: ignoring case.
        if (familyName != nullptr &&
            CompareStringOrdinal(record->familyName.c_str(), -1, family.c_str(), -1, TRUE) != CSTR_EQUAL) {
          continue;
        }
        found.push_back(record);
      }
    }
    Journal(fixture, call + L"\t" + std::to_wstring(found.size()));
    *packages = NewPackageIterable(std::move(found));
    return *packages != nullptr ? S_OK : E_OUTOFMEMORY;
  }
};

// ---------------------------------------------------------------------------
// The activation factory of the class.

class PackageManagerFactory final : public RuntimeObject<IActivationFactory, kIidActivationFactory> {
 public:
  PackageManagerFactory() : RuntimeObject(kPackageManagerClass) {}

  HRESULT STDMETHODCALLTYPE ActivateInstance(IInspectable** instance) override {
    if (instance == nullptr) return E_POINTER;
    *instance = new (std::nothrow) PackageManager();
    const HRESULT hr = *instance != nullptr ? S_OK : E_OUTOFMEMORY;
    Journal(deployment_double::LoadFixture(),
            std::wstring(L"ActivateInstance\t") + kPackageManagerClass + L"\t" + deployment_double::Hex(hr));
    return hr;
  }

 private:
  ~PackageManagerFactory() override = default;
};

}  // namespace

}  // namespace deployment_service

using namespace deployment_service;

extern "C" HRESULT WINAPI DllGetActivationFactory(HSTRING activatableClassId, IActivationFactory** factory) {
  if (factory == nullptr) return E_POINTER;
  *factory = nullptr;
  if (StringOf(activatableClassId) != kPackageManagerClass) return CLASS_E_CLASSNOTAVAILABLE;
  *factory = new (std::nothrow) PackageManagerFactory();
  return *factory != nullptr ? S_OK : E_OUTOFMEMORY;
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return g_liveObjects == 0 ? S_OK : S_FALSE; }
