// The deployment service and installed packages through the raw Windows
// Runtime ABI, wrapped as the seam's package types.
#include "platform/win32/win32_platform.h"
#include "platform/win32/com_support.h"

#include <atomic>
#include <memory>
#include <utility>

#include "interface_id/winrt_iid.h"
#include "platform/win32/runtime_string.h"
#include "platform/win32/windows_headers.h"
#include "platform/win32/winrt_interfaces.h"

namespace kel::platform::win32 {
namespace {

struct LocalBufferFree {
  void operator()(wchar_t* buffer) const { ::LocalFree(buffer); }
};

// The seam's package: counts its own references (the catalogue and a lookup
// may hold it at once, on different threads) and holds one of the runtime
// object's until the last of them is given back.
class RuntimePackage final : public Package {
 public:
  explicit RuntimePackage(ComPtr<IPackageAbi> package) : package_(std::move(package)) {}
  HRESULT GetFamilyName(WString& value) override { return IdString(&IPackageIdAbi::get_FamilyName, value); }
  HRESULT GetFullName(WString& value) override { return IdString(&IPackageIdAbi::get_FullName, value); }
  HRESULT GetName(WString& value) override { return IdString(&IPackageIdAbi::get_Name, value); }
  HRESULT GetVersion(PackageVersion& value) override {
    ComPtr<IPackageIdAbi> id;
    HRESULT hr = RequireObject(package_->get_Id(id.put()), id);
    if (FAILED(hr)) return hr;
    RuntimePackageVersion version{};
    hr = id->get_Version(&version);
    if (SUCCEEDED(hr)) {
      value.Major = version.Major;
      value.Minor = version.Minor;
      value.Build = version.Build;
      value.Revision = version.Revision;
    }
    return hr;
  }
  HRESULT GetInstalledLocationPath(WString& value) override {
    ComPtr<IUnknown> location;
    HRESULT hr = RequireObject(package_->get_InstalledLocation(location.put()), location);
    if (FAILED(hr)) return hr;
    ComPtr<IStorageItemAbi> item;
    hr = RequireObject(location->QueryInterface(kIidStorageItem, reinterpret_cast<void**>(item.put())), item);
    if (FAILED(hr)) return hr;
    RuntimeString path;
    hr = item->get_Path(path.put());
    if (SUCCEEDED(hr)) value = path.Text();
    return hr;
  }
  void AddRef() override { references_.fetch_add(1, std::memory_order_relaxed); }
  void Release() override {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 private:
  ~RuntimePackage() override = default;

  HRESULT IdString(HRESULT (STDMETHODCALLTYPE IPackageIdAbi::*getter)(HSTRING*), WString& value) {
    ComPtr<IPackageIdAbi> id;
    HRESULT hr = RequireObject(package_->get_Id(id.put()), id);
    if (FAILED(hr)) return hr;
    RuntimeString text;
    hr = (id.get()->*getter)(text.put());
    if (SUCCEEDED(hr)) value = text.Text();
    return hr;
  }

  const ComPtr<IPackageAbi> package_;
  std::atomic<long> references_{1};
};

class RuntimePackageIterator final : public ComWrapper<PackageIterator, IPackageIteratorAbi> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    return ForwardFlag(&IPackageIteratorAbi::get_HasCurrent, hasCurrent);
  }
  HRESULT GetCurrent(Package** package) override {
    return ForwardObject<RuntimePackage>(&IPackageIteratorAbi::get_Current, package);
  }
  HRESULT MoveNext(BOOL* hasCurrent) override { return ForwardFlag(&IPackageIteratorAbi::MoveNext, hasCurrent); }
};

class RuntimePackageCollection final : public ComWrapper<PackageCollection, IPackageIterableAbi> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT First(PackageIterator** iterator) override {
    return ForwardObject<RuntimePackageIterator>(&IPackageIterableAbi::First, iterator);
  }
};

class RuntimePackageManager final : public ComWrapper<DeploymentPackageManager, IPackageManagerAbi> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT FindPackagesByUserSecurityId(const WCHAR* userSecurityId, PackageCollection** packages) override {
    *packages = nullptr;
    RuntimeString sid;
    HRESULT hr = sid.Create(userSecurityId);
    if (FAILED(hr)) return hr;
    ComPtr<IPackageIterableAbi> found;
    hr = object_->FindPackagesByUserSecurityId(sid.get(), found.put());
    return Wrap(hr, std::move(found), packages);
  }
  HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* userSecurityId, const WCHAR* packageFamilyName,
                                                        PackageCollection** packages) override {
    *packages = nullptr;
    RuntimeString sid, family;
    HRESULT hr = sid.Create(userSecurityId);
    if (SUCCEEDED(hr)) hr = family.Create(packageFamilyName);
    if (FAILED(hr)) return hr;
    ComPtr<IPackageIterableAbi> found;
    hr = object_->FindPackagesByUserSecurityIdPackageFamilyName(sid.get(), family.get(), found.put());
    return Wrap(hr, std::move(found), packages);
  }

 private:
  // The collection is asked for as IIterable<Package> explicitly, so a
  // service that hands out another interface is caught here.
  [[nodiscard]] static HRESULT Wrap(HRESULT hr, ComPtr<IPackageIterableAbi> found, PackageCollection** packages) {
    *packages = nullptr;
    hr = RequireObject(hr, found);
    if (FAILED(hr)) return hr;
    ComPtr<IPackageIterableAbi> iterable;
    const GUID iid = ToGuid(interface_id::ParameterizedInterfaceId(interface_id::kIterableOfPackageSignature));
    hr = found->QueryInterface(iid, reinterpret_cast<void**>(iterable.put()));
    return HandOut<RuntimePackageCollection>(hr, std::move(iterable), packages);
  }
};

class ComActivationManager final : public ComWrapper<ApplicationActivationManager, IApplicationActivationManager> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT ActivateApplication(const WCHAR* appUserModelId, const WCHAR* arguments, int options,
                              DWORD* processId) override {
    ::DWORD pid = 0;
    const HRESULT hr =
        object_->ActivateApplication(reinterpret_cast<LPCWSTR>(appUserModelId), reinterpret_cast<LPCWSTR>(arguments),
                                     static_cast<ACTIVATEOPTIONS>(options), &pid);
    if (processId != nullptr) *processId = pid;
    return hr;
  }
};

}  // namespace

HRESULT Win32Platform::ActivatePackageManager(DeploymentPackageManager** manager) {
  *manager = nullptr;
  RuntimeString className;
  HRESULT hr = className.Create(u"Windows.Management.Deployment.PackageManager");
  if (FAILED(hr)) return hr;
  ComPtr<IInspectable> instance;
  hr = RequireObject(::RoActivateInstance(className.get(), instance.put()), instance);
  if (FAILED(hr)) return hr;
  ComPtr<IPackageManagerAbi> packageManager;
  hr = instance->QueryInterface(kIidPackageManager, reinterpret_cast<void**>(packageManager.put()));
  return HandOut<RuntimePackageManager>(hr, std::move(packageManager), manager);
}

WString Win32Platform::DescribeError(HRESULT error) {
  wchar_t* raw = nullptr;
  const ::DWORD length =
      ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, static_cast<::DWORD>(error), 0, reinterpret_cast<LPWSTR>(&raw), 0, nullptr);
  // The system's buffer is given back however the copy below ends.
  const std::unique_ptr<wchar_t, LocalBufferFree> text(raw);
  WString message;
  if (length != 0 && text != nullptr) {
    message.assign(reinterpret_cast<const char16_t*>(text.get()), length);
    while (!message.empty() && (message.back() == u'\r' || message.back() == u'\n' || message.back() == u' ')) {
      message.pop_back();
    }
  }
  if (message.empty()) {
    wchar_t code[16];
    swprintf(code, 16, L"0x%08X", static_cast<unsigned>(error));
    message = reinterpret_cast<const char16_t*>(code);
  }
  return message;
}

HRESULT Win32Platform::CreateApplicationActivationManager(DWORD context, ApplicationActivationManager** manager) {
  ComPtr<IApplicationActivationManager> created;
  const HRESULT hr = ::CoCreateInstance(CLSID_ApplicationActivationManager, nullptr, context,
                                        IID_IApplicationActivationManager, reinterpret_cast<void**>(created.put()));
  return HandOut<ComActivationManager>(hr, std::move(created), manager);
}

HRESULT Win32Platform::CoAllowSetForegroundWindow(ApplicationActivationManager* manager) {
  auto* com = static_cast<ComActivationManager*>(manager);
  return ::CoAllowSetForegroundWindow(com->get(), nullptr);
}

}  // namespace kel::platform::win32
