// Counts what a test program allocates and frees with new and delete, and sees
// each block go. Linking this replaces the global operators.

#ifndef CORE_COMMON_RPC_TESTING_ALLOCATION_COUNTER_H_
#define CORE_COMMON_RPC_TESTING_ALLOCATION_COUNTER_H_

#include <cstddef>

namespace torvane {

struct AllocationCounts {
  size_t allocations = 0;
  size_t unsized_deletes = 0;
  size_t sized_deletes = 0;
  // Bytes in blocks not yet freed, by the allocator's usable sizes.
  size_t live_bytes = 0;

  // Blocks allocated and not freed.
  ptrdiff_t live() const {
    return static_cast<ptrdiff_t>(allocations - unsized_deletes -
                                  sized_deletes);
  }
};

// What the calling thread has allocated and freed so far.
AllocationCounts CountAllocations();

// Called with each block that the calling thread is about to free, but not for
// what the function itself frees. Null for nothing.
using OnFree = void (*)(const void* block);
void SetOnFree(OnFree on_free);

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_ALLOCATION_COUNTER_H_
