// Ownership helpers for COM and runtime objects in the real platform: an
// owning interface pointer, and the base of the seam's wrappers, which own
// one reference of the object they forward to.
#pragma once

#include "platform/platform.h"
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

// Releases its interface pointer when it goes out of scope.
template <typename Interface>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ~ComPtr() {
    if (pointer_ != nullptr) pointer_->Release();
  }
  Interface* get() const { return pointer_; }
  Interface** put() { return &pointer_; }
  Interface* operator->() const { return pointer_; }
  Interface* detach() {
    Interface* p = pointer_;
    pointer_ = nullptr;
    return p;
  }

 private:
  Interface* pointer_ = nullptr;
};

// A seam object forwarding to one COM object: Release gives the object's
// reference back and ends the wrapper.
template <typename SeamInterface, typename ComInterface>
class ComWrapper : public SeamInterface {
 public:
  explicit ComWrapper(ComInterface* object) : object_(object) {}
  void Release() override {
    object_->Release();
    delete this;
  }
  ComInterface* get() const { return object_; }

 protected:
  ~ComWrapper() override = default;
  ComInterface* const object_;
};

}  // namespace kel::platform::win32
