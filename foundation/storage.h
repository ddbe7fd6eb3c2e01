// Class-level allocation for the records the library keeps: groups, drawables
// and vector iterators all come from the rendering component's heaps.
#pragma once

#include <cstddef>

#include "foundation/zephal.h"

namespace DL {

// Base of every class whose objects live on a Zephal heap. Allocation gives null
// when the heap cannot deliver; the new-expression then builds nothing and yields
// null too (the operators are noexcept), which `clone` passes on to its caller.
// Release needs no heap: a block goes back to the heap it came from.
struct HeapObject {
  // From the default heap.
  static void* operator new(std::size_t size) noexcept { return ZP_AllocateMemory(size, nullptr); }
  // From `heap`; null means the default heap.
  static void* operator new(std::size_t size, ZephalHeap* heap) noexcept {
    return ZP_AllocateMemory(size, heap);
  }
  // Back to the heap the block came from, whichever it is.
  static void operator delete(void* block) noexcept { ZP_ReleaseMemory(block); }
  // The same, for a constructor that failed after `new (heap)`.
  static void operator delete(void* block, ZephalHeap*) noexcept { ZP_ReleaseMemory(block); }
};

}  // namespace DL
