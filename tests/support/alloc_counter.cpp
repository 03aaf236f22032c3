#include "alloc_counter.h"

#include <cstdlib>
#include <new>

namespace kel::testing {
namespace {

// Plain thread-local values: operator new may run before and after any
// dynamic initialisation of this thread.
thread_local bool t_armed = false;
thread_local std::size_t t_count = 0;
thread_local std::size_t t_bytes = 0;

}  // namespace

AllocationCounter::AllocationCounter() : wasArmed_(t_armed) {
  t_count = 0;
  t_bytes = 0;
  t_armed = true;
}

AllocationCounter::~AllocationCounter() { t_armed = wasArmed_; }

std::size_t AllocationCounter::Count() const { return t_count; }
std::size_t AllocationCounter::Bytes() const { return t_bytes; }

}  // namespace kel::testing

// The replaceable allocation functions, every ordinary form of them: a
// sanitizer's runtime brings its own, and a block must be given back by the
// same family that handed it out. (The aligned forms stay the runtime's,
// pairs of their own.)
namespace {

void* Allocate(std::size_t size) {
  if (kel::testing::t_armed) {
    ++kel::testing::t_count;
    kel::testing::t_bytes += size;
  }
  return std::malloc(size == 0 ? 1 : size);
}

void* AllocateOrThrow(std::size_t size) {
  if (void* p = Allocate(size)) return p;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
