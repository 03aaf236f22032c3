// A program that replaces the global operator new and delete links
// replaced_new_delete.cpp, which defines every form of them, and supplies
// these two functions, which all of them come down to.
#pragma once

#include <cstddef>

namespace kel::testing {

// A block of `size` bytes aligned to `alignment`, or null when there is none
// to give (the throwing forms then throw std::bad_alloc).
void* ReplacedAllocate(std::size_t size, std::size_t alignment) noexcept;

// Takes back a block ReplacedAllocate gave, or nothing for null.
void ReplacedRelease(void* block) noexcept;

}  // namespace kel::testing
