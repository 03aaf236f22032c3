// Every replaceable form of the global operator new and delete, in terms of
// the two functions the program supplies (replaced_new_delete.h).
#include "replaced_new_delete.h"

#include <new>

namespace {

using kel::testing::ReplacedAllocate;
using kel::testing::ReplacedRelease;

constexpr std::size_t kPlain = alignof(std::max_align_t);

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
  void* block = ReplacedAllocate(size, alignment);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

std::size_t Aligned(std::align_val_t alignment) { return static_cast<std::size_t>(alignment); }

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size, kPlain); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size, kPlain); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return ReplacedAllocate(size, kPlain); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return ReplacedAllocate(size, kPlain); }
void* operator new(std::size_t size, std::align_val_t alignment) { return AllocateOrThrow(size, Aligned(alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return AllocateOrThrow(size, Aligned(alignment)); }
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return ReplacedAllocate(size, Aligned(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return ReplacedAllocate(size, Aligned(alignment));
}

void operator delete(void* block) noexcept { ReplacedRelease(block); }
void operator delete[](void* block) noexcept { ReplacedRelease(block); }
void operator delete(void* block, std::size_t) noexcept { ReplacedRelease(block); }
void operator delete[](void* block, std::size_t) noexcept { ReplacedRelease(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { ReplacedRelease(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { ReplacedRelease(block); }
void operator delete(void* block, std::align_val_t) noexcept { ReplacedRelease(block); }
void operator delete[](void* block, std::align_val_t) noexcept { ReplacedRelease(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { ReplacedRelease(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { ReplacedRelease(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { ReplacedRelease(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { ReplacedRelease(block); }
