// A base for the objects that alone stand for something: a lock held, a
// clipboard open, a value to put back, the catalogue itself. A copy would
// let go of it, or take it, twice; so such an object is neither copied nor
// moved.
#pragma once

namespace kel {

class NonCopyable {
 public:
  NonCopyable(const NonCopyable&) = delete;
  NonCopyable& operator=(const NonCopyable&) = delete;

 protected:
  NonCopyable() = default;
  ~NonCopyable() = default;
};

}  // namespace kel
