#include "service_probes.h"

#include <cstdio>
#include <memory>
#include <vector>

#include "platform/com_ptr.h"
#include "platform/win32/appx_interfaces.h"
#include "platform/win32/runtime_string.h"
#include "platform/win32/winrt_interfaces.h"

namespace kelcli {
namespace {

using kel::platform::win32::IAppxFactory;
using kel::platform::win32::IPackageAbi;
using kel::platform::win32::IPackageIterableAbi;
using kel::platform::win32::IPackageIteratorAbi;
using kel::platform::win32::IPackageManagerAbi;

// {7E5FE3D9-985F-4908-91F9-EE19F9FD1514}
constexpr GUID kClsidAppVisibility = {0x7E5FE3D9, 0x985F, 0x4908, {0x91, 0xF9, 0xEE, 0x19, 0xF9, 0xFD, 0x15, 0x14}};
// {2246EA2D-CAEA-4444-A3C4-6DE827E44313}
constexpr GUID kIidAppVisibility = {0x2246EA2D, 0xCAEA, 0x4444, {0xA3, 0xC4, 0x6D, 0xE8, 0x27, 0xE4, 0x43, 0x13}};
// {45BA127D-10A8-46EA-8AB7-56EA9078943C}
constexpr GUID kClsidActivationManager = {0x45BA127D, 0x10A8, 0x46EA, {0x8A, 0xB7, 0x56, 0xEA, 0x90, 0x78, 0x94, 0x3C}};
// {2E941141-7F97-4756-BA1D-9DECDE894A3D}
constexpr GUID kIidActivationManager = {0x2E941141, 0x7F97, 0x4756, {0xBA, 0x1D, 0x9D, 0xEC, 0xDE, 0x89, 0x4A, 0x3D}};

std::wstring Hex(HRESULT value) {
  wchar_t buffer[16];
  swprintf(buffer, 16, L"0x%08lX", static_cast<unsigned long>(value));
  return buffer;
}

// "CALL failed: 0x...": the words a failed probe reports.
std::wstring Failed(const wchar_t* call, HRESULT hr) {
  std::wstring text = std::wstring(call) + L" failed: " + Hex(hr);
  if (static_cast<unsigned long>(hr) == 0x80040154UL) text += L" (class not registered)";
  return text;
}

// One reference of a COM object, released at the end of its scope: the
// library's own owning pointer.
template <typename Interface>
using Held = kel::platform::ComPtr<Interface>;

// The out argument of a call that hands out an object as void**.
template <typename Interface>
void** PutVoid(Held<Interface>& object) {
  return reinterpret_cast<void**>(object.put());
}

// The probe thread's apartment: the entering call's result, and the leaving
// call made at the end of the scope when the entering one succeeded.
class Apartment {
 public:
  Apartment(HRESULT result, void(WINAPI* leave)()) : result_(result), leave_(leave) {}
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;
  ~Apartment() {
    if (SUCCEEDED(result_)) leave_();
  }
  [[nodiscard]] HRESULT Result() const { return result_; }

 private:
  HRESULT result_;
  void(WINAPI* leave_)();
};

using kel::platform::win32::RuntimeString;

// Creates a COM object in the given server context and lets it go again.
ProbeResult Create(const GUID& clsid, const GUID& iid, DWORD context, const wchar_t* what) {
  Apartment apartment(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), CoUninitialize);
  if (FAILED(apartment.Result())) return {false, Failed(L"CoInitializeEx", apartment.Result())};
  Held<IUnknown> object;
  const HRESULT hr = CoCreateInstance(clsid, nullptr, context, iid, PutVoid(object));
  if (FAILED(hr)) return {false, Failed(L"CoCreateInstance", hr)};
  if (object.get() == nullptr) return {false, L"CoCreateInstance succeeded without an object"};
  return {true, std::wstring(what) + L" created"};
}

// The current user's SID as text, found as the library finds it: from the
// account name the process runs under.
bool CurrentUserSid(std::wstring& sid, std::wstring& failure) {
  wchar_t user[MAX_PATH];
  DWORD userSize = MAX_PATH;
  if (!GetUserNameW(user, &userSize)) {
    failure = L"GetUserNameW failed: error " + std::to_wstring(GetLastError());
    return false;
  }
  DWORD sidSize = 0;
  DWORD domainSize = 0;
  SID_NAME_USE use;
  LookupAccountNameW(nullptr, user, nullptr, &sidSize, nullptr, &domainSize, &use);
  std::vector<unsigned char> sidBytes(sidSize == 0 ? 1 : sidSize);
  std::vector<wchar_t> domain(domainSize == 0 ? 1 : domainSize);
  if (sidSize == 0 || !LookupAccountNameW(nullptr, user, sidBytes.data(), &sidSize, domain.data(), &domainSize, &use)) {
    failure = L"LookupAccountNameW failed: error " + std::to_wstring(GetLastError());
    return false;
  }
  LPWSTR text = nullptr;
  if (!ConvertSidToStringSidW(sidBytes.data(), &text) || text == nullptr) {
    failure = L"ConvertSidToStringSidW failed: error " + std::to_wstring(GetLastError());
    return false;
  }
  sid = text;
  LocalFree(text);
  return true;
}

struct BoundedRun {
  Probe probe;
  ProbeResult result;
};

DWORD WINAPI RunProbe(void* parameter) {
  // The caller and this thread each own one reference; whichever ends last
  // frees the run.
  auto* shared = static_cast<std::shared_ptr<BoundedRun>*>(parameter);
  std::shared_ptr<BoundedRun> run = *shared;
  delete shared;
  try {
    run->result = run->probe();
  } catch (...) {
    run->result = {false, L"the probe failed with an exception"};
  }
  return 0;
}

}  // namespace

ProbeResult ProbeAppVisibility() {
  return Create(kClsidAppVisibility, kIidAppVisibility, CLSCTX_INPROC_SERVER, L"IAppVisibility");
}

ProbeResult ProbeActivationManager() {
  return Create(kClsidActivationManager, kIidActivationManager, CLSCTX_INPROC_SERVER, L"IApplicationActivationManager");
}

ProbeResult ProbeActivationManagerLocalServer() {
  return Create(kClsidActivationManager, kIidActivationManager, CLSCTX_LOCAL_SERVER, L"IApplicationActivationManager");
}

ProbeResult ProbeManifestReaderFactory() {
  return Create(kel::platform::win32::kClsidAppxFactory, kel::platform::win32::kIidAppxFactory, CLSCTX_INPROC_SERVER,
                L"IAppxFactory");
}

ProbeResult ProbeDeploymentService() {
  std::wstring sid;
  std::wstring failure;
  if (!CurrentUserSid(sid, failure)) return {false, failure};
  Apartment apartment(RoInitialize(RO_INIT_SINGLETHREADED), RoUninitialize);
  if (FAILED(apartment.Result())) return {false, Failed(L"RoInitialize", apartment.Result())};
  RuntimeString className;
  HRESULT hr = className.Create(L"Windows.Management.Deployment.PackageManager");
  if (FAILED(hr)) return {false, Failed(L"WindowsCreateString", hr)};
  Held<IInspectable> instance;
  hr = RoActivateInstance(className.get(), instance.put());
  if (FAILED(hr)) return {false, Failed(L"RoActivateInstance(Windows.Management.Deployment.PackageManager)", hr)};
  if (instance.get() == nullptr) return {false, L"RoActivateInstance succeeded without an object"};
  Held<IPackageManagerAbi> manager;
  hr = instance->QueryInterface(kel::platform::win32::kIidPackageManager, PutVoid(manager));
  if (FAILED(hr) || manager.get() == nullptr) return {false, Failed(L"QueryInterface(IPackageManager)", hr)};
  RuntimeString userSid;
  hr = userSid.Create(sid);
  if (FAILED(hr)) return {false, Failed(L"WindowsCreateString", hr)};
  Held<IPackageIterableAbi> packages;
  hr = manager->FindPackagesByUserSecurityId(userSid.get(), packages.put());
  if (FAILED(hr) || packages.get() == nullptr)
    return {false, Failed(L"FindPackagesByUserSecurityId", hr) + L" for " + sid};
  Held<IPackageIteratorAbi> iterator;
  hr = packages->First(iterator.put());
  if (FAILED(hr) || iterator.get() == nullptr) return {false, Failed(L"IIterable::First", hr)};
  unsigned count = 0;
  ::BOOLEAN hasCurrent = 0;
  hr = iterator->get_HasCurrent(&hasCurrent);
  while (SUCCEEDED(hr) && hasCurrent) {
    ++count;
    hr = iterator->MoveNext(&hasCurrent);
  }
  if (FAILED(hr)) return {false, Failed(L"walking the packages", hr) + L" after " + std::to_wstring(count)};
  return {true, std::to_wstring(count) + (count == 1 ? L" package" : L" packages") + L" for " + sid};
}

ProbeResult RunBounded(Probe probe, unsigned long timeoutMs) {
  auto run = std::make_shared<BoundedRun>();
  run->probe = probe;
  auto* forThread = new std::shared_ptr<BoundedRun>(run);
  HANDLE thread = CreateThread(nullptr, 0, RunProbe, forThread, 0, nullptr);
  if (thread == nullptr) {
    delete forThread;
    return {false, L"CreateThread failed: error " + std::to_wstring(GetLastError())};
  }
  const DWORD waited = WaitForSingleObject(thread, timeoutMs);
  CloseHandle(thread);
  if (waited != WAIT_OBJECT_0)
    return {false, L"no answer within " + std::to_wstring(timeoutMs / 1000) + L" s (the call still runs)"};
  return run->result;
}

}  // namespace kelcli
