// What every object the fake hands out through the seam shares: it counts
// itself among the live objects of its kind for as long as it exists, so a
// test can see a leaked or doubly released reference, and it ends with its
// one reference, recording the Release with the interface's name.
#pragma once

#include <atomic>

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

}  // namespace kel::fakes
