// The allocations behind the unit-test binary's replacing global operator new
// and delete (its only ones: the allocation counter of tests/support counts
// through them). The
// blocks come from malloc and go back to free, so the sanitizers (which
// intercept malloc) still see every block, its overflows and its leaks.
#include "failing_allocations.h"

#include "alloc_counter.h"
#include "replaced_new_delete.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace kel::testing {
namespace {

std::atomic<bool> g_running{false};
std::atomic<long> g_counted{0};
std::atomic<long> g_failAt{0};
std::atomic<bool> g_failed{false};
std::atomic<long> g_liveBlocks{0};

// Plain thread-locals, constant-initialised: reading them never allocates.
thread_local bool t_armed = false;
thread_local int t_paused = 0;

bool FailThisOne() {
  if (!t_armed || t_paused > 0 || !g_running.load()) return false;
  const long number = g_counted.fetch_add(1) + 1;
  if (number != g_failAt.load()) return false;
  g_failed.store(true);
  // KEL_ALLOC_TRAP=n stops the process at the n-th allocation's failure, so
  // a debugger shows who asked for it.
  if (const char* trap = std::getenv("KEL_ALLOC_TRAP"); trap != nullptr && std::atol(trap) == number) std::abort();
  return true;
}

void* Take(std::size_t size, std::size_t alignment) noexcept {
  NoteAllocation(size);
  if (FailThisOne()) return nullptr;
  if (size == 0) size = 1;
  void* block = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    block = std::malloc(size);
  } else if (posix_memalign(&block, alignment < sizeof(void*) ? sizeof(void*) : alignment, size) != 0) {
    block = nullptr;
  }
  if (block != nullptr) g_liveBlocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void Give(void* block) noexcept {
  if (block == nullptr) return;
  g_liveBlocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

void FailingAllocations::Start(long failAt) {
  g_counted.store(0);
  g_failAt.store(failAt);
  g_failed.store(false);
  t_armed = true;
  g_running.store(true);
}

void FailingAllocations::Stop() {
  g_running.store(false);
  t_armed = false;
}

long FailingAllocations::Counted() { return g_counted.load(); }
bool FailingAllocations::Failed() { return g_failed.load(); }
long FailingAllocations::LiveBlocks() { return g_liveBlocks.load(); }
bool FailingAllocations::ThisThreadArmed() { return t_armed; }
void FailingAllocations::ArmThisThread(bool armed) { t_armed = armed; }

AllocationsUncounted::AllocationsUncounted() { ++t_paused; }
AllocationsUncounted::~AllocationsUncounted() { --t_paused; }

}  // namespace kel::testing

void* kel::testing::ReplacedAllocate(std::size_t size, std::size_t alignment) noexcept { return Take(size, alignment); }
void kel::testing::ReplacedRelease(void* block) noexcept { Give(block); }
