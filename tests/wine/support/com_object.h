// What the COM doubles (app_visibility_server.dll, activation_manager.dll
// and its local server, deployment_service.dll) share: QueryInterface of an object with one
// interface of its own, the reference count of an object that lives on the
// heap, and IClassFactory::CreateInstance's hand-over of a new object.
#pragma once

#include "support/windows_headers.h"

#include <objbase.h>

#include <new>
#include <utility>

namespace wine_test {

// QueryInterface of an object with one interface of its own: that one and
// IUnknown give `self` with a reference for the caller, anything else
// E_NOINTERFACE.
template <typename Interface>
HRESULT QueryOneInterface(Interface* self, REFIID own, REFIID iid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, own)) return E_NOINTERFACE;
  *object = self;
  self->AddRef();
  return S_OK;
}

// The reference count of an object that lives on the heap and ends with its
// last Release.
template <typename Interface>
class HeapObject : public Interface {
 public:
  ULONG STDMETHODCALLTYPE AddRef() final { return InterlockedIncrement(&references_); }
  ULONG STDMETHODCALLTYPE Release() final {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return left;
  }

  HeapObject(const HeapObject&) = delete;
  HeapObject& operator=(const HeapObject&) = delete;

 protected:
  HeapObject() = default;
  // Only Release ends an object: the destructor is virtual so that it ends
  // the whole of it.
  virtual ~HeapObject() = default;

 private:
  LONG references_ = 1;
};

// Such an object with one interface of its own.
template <typename Interface, const IID& OwnIid>
class ComObject : public HeapObject<Interface> {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) final {
    return QueryOneInterface(static_cast<Interface*>(this), OwnIid, iid, object);
  }
};

// IClassFactory::CreateInstance (and DllGetClassObject, with no `outer`): a
// new Object made of `arguments`, handed out as `iid`. None of the doubles
// can be aggregated. The caller's reference is the only one left, so an
// interface the object lacks ends it again.
template <typename Object, typename... Arguments>
HRESULT CreateAs(IUnknown* outer, REFIID iid, void** object, Arguments&&... arguments) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  Object* created = new (std::nothrow) Object(std::forward<Arguments>(arguments)...);
  if (created == nullptr) return E_OUTOFMEMORY;
  const HRESULT hr = created->QueryInterface(iid, object);
  created->Release();
  return hr;
}

}  // namespace wine_test
