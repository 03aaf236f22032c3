// What the two halves of deployment_service.dll share: the bookkeeping of
// every object it hands out (reference count, the count of live objects for
// DllCanUnloadNow, the runtime's strings and interface lists), the packages
// of the fixture file, and the collection of packages the package manager
// answers with (deployment_service_packages.cpp).
#pragma once

#include "support/com_object.h"

#include <activation.h>
#include <inspectable.h>
#include <winstring.h>

#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "deployment_abi.h"
#include "double_fixture.h"

namespace deployment_service {

using namespace deployment_abi;
using deployment_double::Fixture;
using deployment_double::FixtureSection;

inline LONG g_liveObjects = 0;  // for DllCanUnloadNow

// Counts the objects alive, for DllCanUnloadNow.
struct Live {
  Live() { InterlockedIncrement(&g_liveObjects); }
  ~Live() { InterlockedDecrement(&g_liveObjects); }
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;
};

inline HRESULT NewString(const std::wstring& text, HSTRING* out) {
  if (out == nullptr) return E_POINTER;
  return WindowsCreateString(text.c_str(), static_cast<UINT32>(text.size()), out);
}

inline std::wstring StringOf(HSTRING text) {
  UINT32 length = 0;
  const wchar_t* raw = WindowsGetStringRawBuffer(text, &length);
  return std::wstring(raw != nullptr ? raw : L"", length);
}

// The interface IDs an object implements, as GetIids hands them out.
inline HRESULT CopyIids(std::initializer_list<GUID> ids, ULONG* count, IID** out) {
  if (count == nullptr || out == nullptr) return E_POINTER;
  *out = static_cast<IID*>(CoTaskMemAlloc(sizeof(IID) * ids.size()));
  if (*out == nullptr) return E_OUTOFMEMORY;
  ULONG i = 0;
  for (const GUID& id : ids) (*out)[i++] = id;
  *count = i;
  return S_OK;
}

// QueryInterface of an object with one interface of its own: it answers
// that one, IUnknown, IInspectable and IAgileObject (the runtime's objects
// are agile) with `self`.
template <typename Interface>
HRESULT QueryOwnInterface(Interface* self, REFIID own, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (iid != IID_IUnknown && iid != kIidInspectable && iid != own && iid != kIidAgileObject) {
    return E_NOINTERFACE;
  }
  *object = self;
  self->AddRef();
  return S_OK;
}

// IInspectable::GetTrustLevel: every object here is of base trust.
inline HRESULT BaseTrustLevel(TrustLevel* level) {
  if (level == nullptr) return E_POINTER;
  *level = BaseTrust;
  return S_OK;
}

// An object with one interface of its own, named `className` to the runtime:
// its IUnknown and IInspectable, written once for every such object here.
// It answers QueryInterface as QueryOwnInterface does, lists that one
// interface, is of base trust, and counts itself among the live objects.
template <typename Interface, const GUID& OwnIid>
class RuntimeObject : public wine_test::HeapObject<Interface> {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) final {
    return QueryOwnInterface(static_cast<Interface*>(this), OwnIid, iid, object);
  }
  HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** ids) final { return CopyIids({OwnIid}, count, ids); }
  HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) final { return NewString(className_, name); }
  HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) final { return BaseTrustLevel(level); }

 protected:
  explicit RuntimeObject(const wchar_t* className) : className_(className) {}

 private:
  Live live_;
  const wchar_t* className_;
};

// A property's value handed out, as the runtime's getters do.
template <typename Value, typename From>
HRESULT Answer(const From& value, Value* out) {
  if (out == nullptr) return E_POINTER;
  *out = value;
  return S_OK;
}

// A new Object made of `arguments`, handed out with the one reference it
// starts with, as the runtime's getters and factories hand out objects.
template <typename Object, typename Out, typename... Arguments>
HRESULT HandOutNew(Out** out, Arguments&&... arguments) {
  if (out == nullptr) return E_POINTER;
  *out = new (std::nothrow) Object(std::forward<Arguments>(arguments)...);
  return *out != nullptr ? S_OK : E_OUTOFMEMORY;
}

// What the fixture says of one package.
struct PackageRecord {
  std::wstring familyName;
  std::wstring fullName;
  std::wstring name;
  std::wstring publisher;
  std::wstring publisherId;
  std::wstring resourceId;
  std::wstring installedLocation;
  PackageVersion version{};
  INT32 architecture = 9;  // x64
  bool isFramework = false;
};

using PackageList = std::vector<std::shared_ptr<const PackageRecord>>;

// The packages of the fixture's [Package] sections, in the file's order.
PackageList PackagesOf(const Fixture& fixture);

// IIterable<Package> over `packages`, holding one reference for the caller;
// null when memory runs out.
IPackageIterable* NewPackageIterable(PackageList packages);

}  // namespace deployment_service
