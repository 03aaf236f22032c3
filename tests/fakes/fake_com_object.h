// What every object the fake hands out through the seam shares: it counts
// itself among the live objects of its kind for as long as it exists, so a
// test can see a leaked or doubly released reference, and it ends with its
// one reference, recording the Release with the interface's name. Here too
// what its enumerators share, and the two ways the fake hands such objects
// out.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_arguments.h"
#include "fakes/fake_platform.h"

namespace kel::fakes {

template <class Interface>
class FakePlatform::ComObject : public Interface {
 public:
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  void Release() final {
    owner_.Record("Release", interfaceName_);
    --alive_;
    delete this;
  }

 protected:
  ComObject(FakePlatform& owner, std::atomic<int>& alive, const char* interfaceName)
      : owner_(owner), alive_(alive), interfaceName_(interfaceName) {
    ++alive_;
  }
  // Only Release ends an object: the seam's caller owns a reference, never
  // the object itself.
  ~ComObject() override = default;

  FakePlatform& owner_;

 private:
  std::atomic<int>& alive_;
  const char* interfaceName_;
};

// An enumerator over `items`: asking for a current item and moving on work
// alike for every kind; only the recorded name of the first differs.
template <class Interface, class Item>
class FakePlatform::EnumeratorObject : public ComObject<Interface> {
 public:
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    this->owner_.Record(hasCurrentCall_, "");
    *hasCurrent = HasCurrent() ? 1 : 0;
    return S_OK;
  }
  HRESULT MoveNext(BOOL* hasCurrent) override {
    this->owner_.Record("MoveNext", "");
    ++next_;
    *hasCurrent = HasCurrent() ? 1 : 0;
    return S_OK;
  }

 protected:
  EnumeratorObject(FakePlatform& owner, std::atomic<int>& alive, const char* interfaceName, const char* hasCurrentCall,
                   std::vector<Item> items)
      : ComObject<Interface>(owner, alive, interfaceName), items_(std::move(items)), hasCurrentCall_(hasCurrentCall) {}
  [[nodiscard]] bool HasCurrent() const { return next_ < items_.size(); }

  std::vector<Item> items_;
  std::size_t next_ = 0;

 private:
  const char* hasCurrentCall_;
};

template <class Object, class Out, class... Args>
HRESULT FakePlatform::NewObjectUnlessTold(const char* call, Out** out, Args&&... args) {
  if (GivesNoObject(call)) {
    *out = nullptr;
    return S_OK;
  }
  *out = new Object(*this, std::forward<Args>(args)...);
  return S_OK;
}

template <class Object, class Out>
HRESULT FakePlatform::CoCreate(const char* classId, const char* interfaceId, DWORD context, Out** out,
                               const HRESULT& result, const bool& givesObject) {
  Record("CoCreateInstance", std::string(classId) + ", null, " + Arg(context) + ", " + interfaceId);
  *out = nullptr;
  if (Inject()) return E_OUTOFMEMORY;
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (Succeeded(result) && givesObject) *out = new Object(*this);
  return result;
}

}  // namespace kel::fakes
