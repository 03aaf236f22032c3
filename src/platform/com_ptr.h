// The one owning pointer for reference-counted objects: the seam's object
// interfaces (Package, AppVisibility, PackageCollection, ...) in the logic
// and the COM and runtime interfaces in the real platform. It holds one
// reference and gives it back with Release when it is reset, reassigned or
// destroyed, so every path of an operation, an exception's included, lets go
// of what it acquired. Most seam interfaces cannot add a reference, so the
// pointer moves and never copies.
#pragma once

#include <cstddef>
#include <utility>

#include "platform/types.h"

namespace kel::platform {

template <typename Interface>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  // Takes over a reference the caller holds.
  explicit ComPtr(Interface* object) noexcept : object_(object) {}
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPtr& operator=(ComPtr&& other) noexcept {
    if (this != &other) reset(std::exchange(other.object_, nullptr));
    return *this;
  }
  ComPtr& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }
  ~ComPtr() { reset(); }

  [[nodiscard]] Interface* get() const noexcept { return object_; }
  Interface* operator->() const noexcept { return object_; }
  Interface& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  friend bool operator==(const ComPtr& pointer, std::nullptr_t) noexcept { return pointer.object_ == nullptr; }

  // The out argument of a call that hands out an object. What was held
  // before is released first, so a reused pointer never leaks.
  [[nodiscard]] Interface** put() noexcept {
    reset();
    return &object_;
  }
  // Gives the reference to the caller, who must release it.
  [[nodiscard]] Interface* detach() noexcept { return std::exchange(object_, nullptr); }
  // Releases the object held (if any) and holds `object` instead. The
  // pointer is changed before the old object hears of it, so a Release that
  // reaches back here sees a consistent state.
  void reset(Interface* object = nullptr) noexcept {
    Interface* old = std::exchange(object_, object);
    if (old != nullptr) old->Release();
  }

 private:
  Interface* object_ = nullptr;
};

// A call that reports success has promised its object. One that hands out
// none anyway is taken as failing with E_POINTER, so the null never travels
// on to a caller that would use it.
[[nodiscard]] inline HRESULT RequireObject(HRESULT hr, const void* object) noexcept {
  return Succeeded(hr) && object == nullptr ? E_POINTER : hr;
}

template <typename Interface>
[[nodiscard]] HRESULT RequireObject(HRESULT hr, const ComPtr<Interface>& object) noexcept {
  return RequireObject(hr, object.get());
}

}  // namespace kel::platform
