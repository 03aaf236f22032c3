// The deployment service and installed packages through the raw Windows
// Runtime ABI, wrapped as the seam's package types.
#include "platform/win32/win32_platform.h"
#include "platform/win32/com_support.h"
#include "platform/win32/windows_headers.h"
#include "platform/win32/winrt_interfaces.h"
#include "platform/winrt_iid.h"

namespace kel::platform::win32 {
namespace {


// An HSTRING owned for its scope.
class RuntimeString {
 public:
  RuntimeString() = default;
  RuntimeString(const RuntimeString&) = delete;
  RuntimeString& operator=(const RuntimeString&) = delete;
  ~RuntimeString() {
    if (value_ != nullptr) ::WindowsDeleteString(value_);
  }
  HRESULT Create(const WCHAR* text) {
    const wchar_t* wide = reinterpret_cast<const wchar_t*>(text);
    return ::WindowsCreateString(wide, static_cast<UINT32>(wcslen(wide)), &value_);
  }
  HSTRING get() const { return value_; }
  HSTRING* put() { return &value_; }
  WString Text() const {
    UINT32 length = 0;
    const wchar_t* raw = ::WindowsGetStringRawBuffer(value_, &length);
    return WString(reinterpret_cast<const char16_t*>(raw), length);
  }

 private:
  HSTRING value_ = nullptr;
};

class RuntimePackage final : public Package {
 public:
  explicit RuntimePackage(IPackageAbi* package) : package_(package) {}
  HRESULT GetFamilyName(WString& value) override { return IdString(&IPackageIdAbi::get_FamilyName, value); }
  HRESULT GetFullName(WString& value) override { return IdString(&IPackageIdAbi::get_FullName, value); }
  HRESULT GetName(WString& value) override { return IdString(&IPackageIdAbi::get_Name, value); }
  HRESULT GetVersion(PackageVersion& value) override {
    ComPtr<IPackageIdAbi> id;
    HRESULT hr = package_->get_Id(id.put());
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
    HRESULT hr = package_->get_InstalledLocation(location.put());
    if (FAILED(hr)) return hr;
    if (location.get() == nullptr) return E_POINTER;
    ComPtr<IStorageItemAbi> item;
    hr = location->QueryInterface(kIidStorageItem, reinterpret_cast<void**>(item.put()));
    if (FAILED(hr)) return hr;
    RuntimeString path;
    hr = item->get_Path(path.put());
    if (SUCCEEDED(hr)) value = path.Text();
    return hr;
  }
  void AddRef() override { ++references_; }
  void Release() override {
    if (--references_ == 0) delete this;
  }

 private:
  ~RuntimePackage() override { package_->Release(); }

  HRESULT IdString(HRESULT (STDMETHODCALLTYPE IPackageIdAbi::*getter)(HSTRING*), WString& value) {
    ComPtr<IPackageIdAbi> id;
    HRESULT hr = package_->get_Id(id.put());
    if (FAILED(hr)) return hr;
    if (id.get() == nullptr) return E_POINTER;
    RuntimeString text;
    hr = (id.get()->*getter)(text.put());
    if (SUCCEEDED(hr)) value = text.Text();
    return hr;
  }

  IPackageAbi* package_;
  long references_ = 1;
};

class RuntimePackageIterator final : public ComWrapper<PackageIterator, IPackageIteratorAbi> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    ::BOOLEAN value = 0;
    const HRESULT hr = object_->get_HasCurrent(&value);
    *hasCurrent = value ? 1 : 0;
    return hr;
  }
  HRESULT GetCurrent(Package** package) override {
    *package = nullptr;
    IPackageAbi* current = nullptr;
    const HRESULT hr = object_->get_Current(&current);
    if (SUCCEEDED(hr) && current != nullptr) *package = new RuntimePackage(current);
    return SUCCEEDED(hr) && current == nullptr ? E_POINTER : hr;
  }
  HRESULT MoveNext(BOOL* hasCurrent) override {
    ::BOOLEAN value = 0;
    const HRESULT hr = object_->MoveNext(&value);
    *hasCurrent = value ? 1 : 0;
    return hr;
  }

};

class RuntimePackageCollection final : public ComWrapper<PackageCollection, IPackageIterableAbi> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT First(PackageIterator** iterator) override {
    *iterator = nullptr;
    IPackageIteratorAbi* first = nullptr;
    const HRESULT hr = object_->First(&first);
    if (SUCCEEDED(hr) && first != nullptr) *iterator = new RuntimePackageIterator(first);
    return SUCCEEDED(hr) && first == nullptr ? E_POINTER : hr;
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
    IPackageIterableAbi* found = nullptr;
    hr = object_->FindPackagesByUserSecurityId(sid.get(), &found);
    return Wrap(hr, found, packages);
  }
  HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* userSecurityId, const WCHAR* packageFamilyName,
                                                        PackageCollection** packages) override {
    *packages = nullptr;
    RuntimeString sid, family;
    HRESULT hr = sid.Create(userSecurityId);
    if (SUCCEEDED(hr)) hr = family.Create(packageFamilyName);
    if (FAILED(hr)) return hr;
    IPackageIterableAbi* found = nullptr;
    hr = object_->FindPackagesByUserSecurityIdPackageFamilyName(sid.get(), family.get(), &found);
    return Wrap(hr, found, packages);
  }

 private:
  // The collection is asked for as IIterable<Package> explicitly, so a
  // service that hands out another interface is caught here.
  static HRESULT Wrap(HRESULT hr, IPackageIterableAbi* found, PackageCollection** packages) {
    if (FAILED(hr)) return hr;
    if (found == nullptr) return E_POINTER;
    IPackageIterableAbi* iterable = nullptr;
    const GUID iid = ToGuid(ParameterizedInterfaceId(kIterableOfPackageSignature));
    hr = found->QueryInterface(iid, reinterpret_cast<void**>(&iterable));
    found->Release();
    if (FAILED(hr)) return hr;
    *packages = new RuntimePackageCollection(iterable);
    return S_OK;
  }

};

class ComActivationManager final : public ComWrapper<ApplicationActivationManager, IApplicationActivationManager> {
 public:
  using ComWrapper::ComWrapper;
  HRESULT ActivateApplication(const WCHAR* appUserModelId, const WCHAR* arguments, int options,
                              DWORD* processId) override {
    ::DWORD pid = 0;
    const HRESULT hr = object_->ActivateApplication(reinterpret_cast<LPCWSTR>(appUserModelId),
                                                     reinterpret_cast<LPCWSTR>(arguments),
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
  hr = ::RoActivateInstance(className.get(), instance.put());
  if (FAILED(hr)) return hr;
  if (instance.get() == nullptr) return E_POINTER;
  IPackageManagerAbi* packageManager = nullptr;
  hr = instance->QueryInterface(kIidPackageManager, reinterpret_cast<void**>(&packageManager));
  if (FAILED(hr)) return hr;
  *manager = new RuntimePackageManager(packageManager);
  return S_OK;
}

WString Win32Platform::DescribeError(HRESULT error) {
  wchar_t* text = nullptr;
  const ::DWORD length = ::FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
      static_cast<::DWORD>(error), 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
  WString message;
  if (length != 0 && text != nullptr) {
    message.assign(reinterpret_cast<const char16_t*>(text), length);
    while (!message.empty() && (message.back() == u'\r' || message.back() == u'\n' || message.back() == u' ')) {
      message.pop_back();
    }
  }
  if (text != nullptr) ::LocalFree(text);
  if (message.empty()) {
    wchar_t code[16];
    swprintf(code, 16, L"0x%08X", static_cast<unsigned>(error));
    message = reinterpret_cast<const char16_t*>(code);
  }
  return message;
}

HRESULT Win32Platform::CreateApplicationActivationManager(DWORD context, ApplicationActivationManager** manager) {
  *manager = nullptr;
  IApplicationActivationManager* created = nullptr;
  const HRESULT hr = ::CoCreateInstance(CLSID_ApplicationActivationManager, nullptr, context,
                                        IID_IApplicationActivationManager, reinterpret_cast<void**>(&created));
  if (SUCCEEDED(hr) && created != nullptr) *manager = new ComActivationManager(created);
  return hr;
}

HRESULT Win32Platform::CoAllowSetForegroundWindow(ApplicationActivationManager* manager) {
  auto* com = static_cast<ComActivationManager*>(manager);
  return ::CoAllowSetForegroundWindow(com->get(), nullptr);
}

}  // namespace kel::platform::win32
