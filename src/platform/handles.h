// Owning wrappers for what the platform hands out, so every path of an
// operation releases what it acquired.
#pragma once

#include <utility>

#include "platform/platform.h"

namespace kel::platform {

// Closing is the last word on a resource: a close that fails leaves nothing
// the owner could do, so the traits' Close gives no result.
template <typename Traits>
class UniqueResource {
 public:
  using Value = typename Traits::Value;

  UniqueResource() = default;
  explicit UniqueResource(Value value) : value_(value) {}
  UniqueResource(const UniqueResource&) = delete;
  UniqueResource& operator=(const UniqueResource&) = delete;
  UniqueResource(UniqueResource&& other) noexcept : value_(std::exchange(other.value_, Traits::Invalid())) {}
  UniqueResource& operator=(UniqueResource&& other) noexcept {
    if (this != &other) reset(std::exchange(other.value_, Traits::Invalid()));
    return *this;
  }
  ~UniqueResource() { reset(); }

  [[nodiscard]] Value get() const { return value_; }
  [[nodiscard]] bool Valid() const { return Traits::IsValid(value_); }
  explicit operator bool() const { return Valid(); }
  Value* put() {
    reset();
    return &value_;
  }
  [[nodiscard]] Value release() { return std::exchange(value_, Traits::Invalid()); }
  void reset(Value value = Traits::Invalid()) {
    if (Traits::IsValid(value_)) Traits::Close(value_);
    value_ = value;
  }

 private:
  Value value_ = Traits::Invalid();
};

struct RegKeyTraits {
  using Value = Handle;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value v) { return v != nullptr; }
  static void Close(Value v) { (void)Current().RegCloseKey(v); }
};

// Kernel handles: files, events, threads. Both null and INVALID_HANDLE_VALUE
// mean "none".
struct KernelHandleTraits {
  using Value = Handle;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value v) { return v != nullptr && v != InvalidHandleValue(); }
  static void Close(Value v) { (void)Current().CloseHandle(v); }
};

struct FindHandleTraits {
  using Value = Handle;
  static Value Invalid() { return InvalidHandleValue(); }
  static bool IsValid(Value v) { return v != nullptr && v != InvalidHandleValue(); }
  static void Close(Value v) { (void)Current().FindClose(v); }
};

struct LocalMemoryTraits {
  using Value = void*;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value v) { return v != nullptr; }
  static void Close(Value v) { (void)Current().LocalFree(v); }
};

// Strings from the COM task allocator.
struct CoTaskMemoryTraits {
  using Value = void*;
  static Value Invalid() { return nullptr; }
  static bool IsValid(Value v) { return v != nullptr; }
  static void Close(Value v) { Current().CoTaskMemFree(v); }
};

using UniqueRegKey = UniqueResource<RegKeyTraits>;
using UniqueHandle = UniqueResource<KernelHandleTraits>;
using UniqueFind = UniqueResource<FindHandleTraits>;
using UniqueLocal = UniqueResource<LocalMemoryTraits>;
using UniqueCoTaskMem = UniqueResource<CoTaskMemoryTraits>;

}  // namespace kel::platform
