// Counts the heap allocations (operator new) that the calling thread makes
// while an AllocationCounter is alive. Other threads are not counted, so a
// library thread running at the same time does not disturb the figure.
#pragma once

#include <cstddef>

#include "frame/non_copyable.h"

namespace kel::testing {

class AllocationCounter : NonCopyable {
 public:
  AllocationCounter();
  ~AllocationCounter();

  [[nodiscard]] std::size_t Count() const;  // allocations so far
  [[nodiscard]] std::size_t Bytes() const;  // bytes asked for so far

 private:
  bool wasArmed_;
};

// Called by the test binary's one replacing operator new
// (tests/fault_injection/failing_allocations.cpp) for every block asked for.
void NoteAllocation(std::size_t size) noexcept;

}  // namespace kel::testing
