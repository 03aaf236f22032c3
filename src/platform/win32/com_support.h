// Ownership helpers for COM and runtime objects in the real platform. The
// interface pointers are held by the library's one owning pointer
// (platform::ComPtr); the seam's wrappers own one reference of the object
// they forward to through it.
#pragma once

// Before the Windows headers: the seam's constants share names with their
// macros.
#include "platform/com_ptr.h"
#include "platform/platform.h"

#include <new>
#include <utility>

#include "platform/win32/windows_headers.h"

namespace kel::platform::win32 {

inline GUID ToGuid(const Guid& id) {
  GUID out;
  out.Data1 = id.data1;
  out.Data2 = id.data2;
  out.Data3 = id.data3;
  for (int i = 0; i < 8; ++i) out.Data4[i] = id.data4[i];
  return out;
}

// Hands a COM object out through the seam as a new `Wrapper`. The call that
// made it answered `hr`: a failure is passed on as it is, a success without
// an object becomes E_POINTER (the object was promised), and a wrapper that
// cannot be allocated gives E_OUTOFMEMORY. In each of those cases `*out`
// stays null and the object, if any, is released here.
template <typename Wrapper, typename SeamInterface, typename ComInterface>
[[nodiscard]] HRESULT HandOut(HRESULT hr, ComPtr<ComInterface> object, SeamInterface** out) {
  *out = nullptr;
  hr = RequireObject(hr, object);
  if (FAILED(hr)) return hr;
  Wrapper* wrapper = new (std::nothrow) Wrapper(std::move(object));
  if (wrapper == nullptr) return E_OUTOFMEMORY;
  *out = wrapper;
  return hr;
}

// A seam object forwarding to one COM object: Release ends the wrapper, and
// with it the wrapper's reference of the object.
template <typename SeamInterface, typename ComInterface>
class ComWrapper : public SeamInterface {
 public:
  explicit ComWrapper(ComPtr<ComInterface> object) : object_(std::move(object)) {}
  ComWrapper(const ComWrapper&) = delete;
  ComWrapper& operator=(const ComWrapper&) = delete;
  void Release() override { delete this; }
  [[nodiscard]] ComInterface* get() const { return object_.get(); }

 protected:
  ~ComWrapper() override = default;

  // Forwards a call whose one argument hands out an object (a collection's
  // first iterator, an enumerator's current item) and hands that object out
  // through the seam as a new `Wrapper`, as HandOut does.
  template <typename Wrapper, typename Class, typename Produced, typename SeamResult>
  [[nodiscard]] HRESULT ForwardObject(HRESULT (STDMETHODCALLTYPE Class::*method)(Produced**), SeamResult** out) const {
    ComPtr<Produced> produced;
    const HRESULT hr = (object_.get()->*method)(produced.put());
    return HandOut<Wrapper>(hr, std::move(produced), out);
  }

  // Forwards an enumerator's yes/no question. COM answers in a BOOL, the
  // runtime in a BOOLEAN; the seam hears 0 or 1, and hears it whatever the
  // call returned, as the enumerators' callers expect.
  template <typename Class, typename Flag>
  [[nodiscard]] HRESULT ForwardFlag(HRESULT (STDMETHODCALLTYPE Class::*method)(Flag*), BOOL* answer) const {
    Flag value = 0;
    const HRESULT hr = (object_.get()->*method)(&value);
    *answer = value != 0 ? 1 : 0;
    return hr;
  }

  const ComPtr<ComInterface> object_;
};

}  // namespace kel::platform::win32
