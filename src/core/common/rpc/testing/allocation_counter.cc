#include "core/common/rpc/testing/allocation_counter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {
thread_local torvane::AllocationCounts counts;
}

void* operator new(size_t size) {
  ++counts.allocations;
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (!memory)
    std::abort();
  counts.live_bytes += malloc_usable_size(memory);
  return memory;
}

void operator delete(void* memory) noexcept {
  counts.unsized_deletes += memory != nullptr;
  counts.live_bytes -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
  counts.sized_deletes += memory != nullptr;
  counts.live_bytes -= malloc_usable_size(memory);
  std::free(memory);
}

namespace torvane {

AllocationCounts CountAllocations() {
  return counts;
}

}  // namespace torvane
