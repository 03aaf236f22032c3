// Allocation failure on demand. The unit-test binary replaces the global
// operator new and delete (every form), so that while a run is going the
// n-th allocation of the armed threads fails as a heap that is out of memory
// does: the throwing forms throw std::bad_alloc, the nothrow forms give null.
//
// Only armed threads count, and only while a run is going: the thread that
// starts the run is armed, and so is every thread the library starts through
// the platform during it (ShieldedPlatform passes the arming on). The test's
// own work - the fake platform, GoogleTest - runs with counting paused, so
// the numbering sees the library's allocations alone and stays the same from
// one run of a scenario to the next.
#pragma once

#include <cstddef>

#include "frame/non_copyable.h"

namespace kel::testing {

class FailingAllocations {
 public:
  // Starts a run on this thread: the failAt-th counted allocation fails
  // (once); 0 only counts.
  static void Start(long failAt);
  // Ends the run: nothing counts or fails any more, on any thread.
  static void Stop();
  // Allocations counted by the last run, and whether it failed one.
  static long Counted();
  static bool Failed();
  // Blocks that operator new handed out and operator delete has not taken
  // back, over the whole process; equal before and after a scenario means
  // the scenario freed everything it allocated.
  static long LiveBlocks();

  // Arming of the current thread, for threads the library starts.
  static bool ThisThreadArmed();
  static void ArmThisThread(bool armed);
};

// Pauses the counting on this thread for its scope (the test's own work in
// the middle of a run).
class AllocationsUncounted : NonCopyable {
 public:
  AllocationsUncounted();
  ~AllocationsUncounted();
};

}  // namespace kel::testing
