#include "alloc_counter.h"

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

void NoteAllocation(std::size_t size) noexcept {
  if (!t_armed) return;
  ++t_count;
  t_bytes += size;
}

}  // namespace kel::testing
